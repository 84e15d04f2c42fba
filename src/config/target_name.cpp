#include "config/target_name.h"

#include "config/text_index.h"

ListNode targetNamesListHead = {&targetNamesListHead, &targetNamesListHead};

TargetName *callocTargetName()
{
    auto *name = callocRecord<TargetName>();
    if (name)
        listInit(&name->node);
    return name;
}

TargetName *searchTargetName(ListNode *head, const char *key)
{
    return findByText(ELEMENTS(TargetName, node, head), &TargetName::key, key);
}

void freeTargetName(TargetName *name)
{
    listDel(&name->node);
    freeMem(name);
}

void freeTargetNames(ListNode *head)
{
    if (!hasHead(head))
        return;
    for (TargetName &name : ELEMENTS(TargetName, node, head))
        freeTargetName(&name);
}

static int setTargetName(const char *key, const char *value, TextIndex<TargetName> &index)
{
    const MutexLock lock(targetNamesList_mutex);
    TargetName *name = index.find(key);
    if (name)
        return JsonStrCopy(name->value, value);
    name = callocTargetName();
    if (!name)
        return 0;
    JsonStrCopy(name->key, key);  // one that is too long stays empty, like any element's title
    JsonStrCopy(name->value, value);
    listAddTail(&name->node, &targetNamesListHead);
    index.add(*name);
    return 1;
}

int setTargetNames(json_t *object)
{
    TextIndex<TargetName> index(ELEMENTS(TargetName, node, &targetNamesListHead), &TargetName::key,
                                json_object_size(object));
    int stored = 0;
    const char *key;
    json_t *value;
    json_object_foreach(object, key, value)
    {
        if (!json_is_string(value)) {
            LOG(ERROR, "value is not a string.");
            break;
        }
        stored |= setTargetName(key, json_string_value(value), index);
    }
    return stored;
}

static int delTargetName(const char *key)
{
    const MutexLock lock(targetNamesList_mutex);
    TargetName *name = searchTargetName(&targetNamesListHead, key);
    if (!name)
        return 0;
    freeTargetName(name);
    return 1;
}

int delTargetNames(json_t *object)
{
    int deleted = 0;
    const char *key;
    json_t *value;
    json_object_foreach(object, key, value)
    {
        deleted |= delTargetName(key);
    }
    return deleted;
}

json_t *targetNamesToJson(ListNode *head)
{
    json_t *object = json_object();
    for (const TargetName &name : ELEMENTS(TargetName, node, head))
        json_object_set_new(object, name.key, json_string(name.value));
    return object;
}
