// A large request finds its elements through an index, a small one walks. Both must come to the
// same: a document at once, and its elements one request each.

#include "config/groups.h"
#include "config/lists.h"
#include "daemon.h"
#include "json_mutator.h"
#include "main/json_text.h"
#include "main/scope.h"

MUTATED_AS_JSON

static void setElements(const Group &group, const json_t *array)
{
    size_t i;
    json_t *element;
    json_array_foreach(array, i, element)
    {
        const Owned<json_t> alone(json_array());
        json_array_append(alone.get(), element);
        group.set(alone.get());
        if (!json_is_object(element))
            return;
    }
}

static void setMembers(const Group &group, json_t *object)
{
    const char *key;
    json_t *value;
    json_object_foreach(object, key, value)
    {
        const Owned<json_t> alone(json_object());
        json_object_set(alone.get(), key, value);
        group.set(alone.get());
        if (!json_is_string(value))
            return;
    }
}

static void setOneByOne(json_t *root)
{
    for (int id = TARGET_NAMES; id < ALARM; ++id) {
        const Group &group = groupOf(static_cast<GroupId>(id));
        json_t *value = json_object_get(root, group.key);
        if (group.kind == OBJECT && json_is_object(value))
            setMembers(group, value);
        else if (group.kind == ARRAY && json_is_array(value))
            setElements(group, value);
    }
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    json_error_t error;
    const Owned<json_t> root(loadJson(InputText(data, size), &error));
    if (!json_is_object(root.get()))
        return 0;
    json_object_del(root.get(), "alarm");  // it has no elements
    setGroups(root.get());
    const std::string atOnce = configurationText();
    freeAppConfigList();
    setOneByOne(root.get());
    require(configurationText() == atOnce, "elements come to the same at once and one by one");
    freeAppConfigList();
    return 0;
}
