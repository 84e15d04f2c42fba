#include "config/macro.h"

#include "config/json_fields.h"
#include "config/text_index.h"

#include <cstdlib>

ListNode macrosListHead = {&macrosListHead, &macrosListHead};

static constexpr JsonField<Macro> MACRO_FIELDS[] = {
    {"title", &Macro::title, WRITE},  // read beside the table: only a new macro takes its title
    {"user_notification_message", &Macro::user_notification_message},
    {"icon_name", &Macro::icon_name},
    {"enabled", &Macro::enabled},
    {"invisible", &Macro::invisible},
    {"priority", &Macro::priority},
    {"duration", &Macro::duration},
    {"duration_type", &Macro::duration_type},
};

Macro *callocMacro()
{
    auto *macro = callocRecord<Macro>();
    if (macro) {
        listInit(&macro->triggers);
        listInit(&macro->node);
    }
    return macro;
}

char *callocEnabled_notifications(const char *text)
{
    auto *memory = static_cast<char *>(callocMem(strlen(text) + 1));
    if (!memory)
        LOG(ERROR, "calloc fail\n");
    return memory;
}

bool copyNotifications(char *const (&source)[NOTIFICATION_SLOTS],
                       char *(&destination)[NOTIFICATION_SLOTS])
{
    for (int i = 0; i < NOTIFICATION_SLOTS; ++i) {
        if (!source[i])
            continue;
        destination[i] = callocEnabled_notifications(source[i]);
        if (!destination[i])
            return false;
        strcpy(destination[i], source[i]);
    }
    return true;
}

void freeNotifications(char *(&slots)[NOTIFICATION_SLOTS])
{
    for (char *&slot : slots) {
        free(slot);
        slot = nullptr;
    }
}

static bool copyContents(Macro &macro, const Macro &source)
{
    // Deliberate: invisible is not copied.
    strcpy(macro.title, source.title);
    strcpy(macro.user_notification_message, source.user_notification_message);
    strcpy(macro.icon_name, source.icon_name);
    strcpy(macro.sceneName, source.sceneName);
    macro.enabled = source.enabled;
    macro.priority = source.priority;
    macro.duration = source.duration;
    macro.duration_type = source.duration_type;
    if (source.scene) {
        macro.scene = copyScene(source.scene);
        if (!macro.scene)
            return false;
    }
    return copyTriggers(&source.triggers, &macro.triggers) &&
           copyNotifications(source.enabled_notifications, macro.enabled_notifications);
}

Macro *copyMacro(const Macro *source)
{
    if (!source) {
        LOG(ERROR, "macro is NULL\n");
        return nullptr;
    }
    Macro *macro = callocMacro();
    if (!macro)
        return nullptr;
    if (copyContents(*macro, *source))
        return macro;
    freeMacro(&macro->node);
    return nullptr;
}

bool copyMacros(const ListNode *source, ListNode *destination)
{
    for (const Macro &macro : ELEMENTS(Macro, node, source)) {
        Macro *copy = copyMacro(&macro);
        if (!copy)
            return false;
        listAddTail(&copy->node, destination);
    }
    return true;
}

Macro *searchMacro(ListNode *head, const char *title)
{
    return findByText(ELEMENTS(Macro, node, head), &Macro::title, title);
}

void freeMacro(ListNode *node)
{
    auto *macro = recordOf<Macro>(node, offsetof(Macro, node));
    listDel(node);
    if (macro->scene)
        freeScene(macro->scene);
    freeTriggers(&macro->triggers);
    freeNotifications(macro->enabled_notifications);
    freeMem(macro);
}

void freeMacros(ListNode *head)
{
    if (!hasHead(head))
        return;
    for (Macro &macro : ELEMENTS(Macro, node, head))
        freeMacro(&macro.node);
}

void listMacros(ListNode *head)
{
    for (Macro &macro : ELEMENTS(Macro, node, head)) {
        LOG(DEBUG,
            "title: %s enabled: %lld priority: %lld duration: %lld duration_type: %lld sceneName: "
            "%s\n",
            macro.title, macro.enabled, macro.priority, macro.duration, macro.duration_type,
            macro.sceneName);
        listScene(macro.scene);
        listTriggers(&macro.triggers);
    }
}

int setEnabledNotifications(json_t *array, Macro *macro)
{
    int stored = 0;
    for (size_t i = 0; i < json_array_size(array) && i < NOTIFICATION_SLOTS; ++i) {
        const char *text = json_string_value(json_array_get(array, i));
        if (!text)
            continue;
        char *copy = callocEnabled_notifications(text);
        if (!copy)
            return stored;
        JsonStrCopy(copy, text);  // a text that is too long leaves the slot empty
        free(macro->enabled_notifications[i]);
        macro->enabled_notifications[i] = copy;
        stored = 1;
    }
    return stored;
}

// "scene" is irregular: a text names a scene of the scenes list, an object is the macro's own.
static void setSceneOfMacro(json_t *value, Macro &macro)
{
    if (json_is_object(value)) {
        if (macro.scene)
            setScene(value, macro.scene);
        else
            macro.scene = setNewScene(value);
        if (macro.scene)
            macro.sceneName[0] = '\0';
        return;
    }
    // A name that is refused changes nothing: the macro keeps its own scene.
    if (!json_is_string(value) || !JsonStrCopy(macro.sceneName, json_string_value(value)))
        return;
    if (macro.scene) {
        freeScene(macro.scene);
        macro.scene = nullptr;  // the macro is known by its scene's name alone from now on
    }
}

static Macro *addMacro(const char *title, ListNode *head)
{
    Macro *macro = callocMacro();
    if (!macro) {
        LOG_AS("setMacro", ERROR, "searchedMacro is NULL\n");
        return nullptr;
    }
    JsonStrCopy(macro->title, title);  // without a title the macro is kept under an empty one
    listAddTail(&macro->node, head);
    return macro;
}

static int setIndexedMacro(json_t *object, ListNode *head, TextIndex<Macro> &index)
{
    const char *title = memberText(object, "title");
    Macro *macro = index.find(title);
    if (!macro) {
        macro = addMacro(title, head);
        if (!macro)
            return 0;
        index.add(*macro);
    }
    readFields(object, *macro, MACRO_FIELDS);
    json_t *notifications = json_object_get(object, "enabled_notifications");
    if (json_is_array(notifications))
        setEnabledNotifications(notifications, macro);
    setSceneOfMacro(json_object_get(object, "scene"), *macro);
    json_t *triggers = json_object_get(object, "triggers");
    if (json_is_array(triggers))
        setTrigger(triggers, &macro->triggers);
    else
        LOG(ERROR, "triggers is not an array\n");
    return 1;
}

int setMacro(json_t *object, ListNode *head)
{
    TextIndex<Macro> index(ELEMENTS(Macro, node, head), &Macro::title, 1);
    return setIndexedMacro(object, head, index);
}

int setMacros(json_t *array)
{
    TextIndex<Macro> index(ELEMENTS(Macro, node, &macrosListHead), &Macro::title,
                           json_array_size(array));
    int stored = 0;
    for (json_t *macro : OBJECTS(array, "Macros %d is not an object\n")) {
        const MutexLock lock(macroList_mutex);
        stored |= setIndexedMacro(macro, &macrosListHead, index);
    }
    return stored;
}

enum SceneDeletion { NO_SCENE, SCENE_PART_NAMED, SCENE_DELETED, OTHER_SCENE_NAMED };

// "scene" as a text has to be the macro's; as an object it names parts of the macro's own scene, or
// without any the whole.
static SceneDeletion delSceneOfMacro(json_t *value, Macro &macro)
{
    if (json_is_object(value)) {
        if (!macro.scene)
            return SCENE_PART_NAMED;  // Deliberate: it was not the whole macro that was meant
        if (!delSceneComps(value, macro.scene)) {
            freeScene(macro.scene);
            macro.scene = nullptr;
        }
        return SCENE_DELETED;
    }
    if (!json_is_string(value))
        return NO_SCENE;
    const char *name = json_string_value(value);
    if (strcmp(name, macro.sceneName) != 0) {
        LOG_AS("delMacro", DEBUG, "delete sceneName_text: %s, searchedMacro->sceneName: %s\n", name,
               macro.sceneName);
        return OTHER_SCENE_NAMED;
    }
    macro.sceneName[0] = '\0';
    return SCENE_DELETED;
}

int delMacro(json_t *object, ListNode *head)
{
    Macro *macro = searchMacro(head, memberText(object, "title"));
    if (!macro)
        return 0;
    const SceneDeletion scene = delSceneOfMacro(json_object_get(object, "scene"), *macro);
    if (scene == OTHER_SCENE_NAMED)
        return 0;
    const int triggers = delTrigger(json_object_get(object, "triggers"), &macro->triggers);
    if (scene == NO_SCENE && !triggers) {
        freeMacro(&macro->node);
        return 1;
    }
    return scene == SCENE_DELETED || triggers;
}

int delMacros(json_t *array)
{
    int deleted = 0;
    for (json_t *macro : OBJECTS(array, "Macros %d is not an object\n")) {
        const MutexLock lock(macroList_mutex);
        deleted |= delMacro(macro, &macrosListHead);
    }
    return deleted;
}

int renameMacroTitle(const char *oldTitle, const char *newTitle)
{
    const MutexLock lock(macroList_mutex);
    return renameTitle(ELEMENTS(Macro, node, &macrosListHead), oldTitle, newTitle);
}

// The slots that are set, in their order; an empty array when there are none.
static json_t *notificationsToJson(const Macro &macro)
{
    json_t *array = json_array();
    for (const char *text : macro.enabled_notifications) {
        if (text)
            json_array_append_new(array, json_string(text));
    }
    return array;
}

json_t *macroToJson(const Macro *macro)
{
    if (!macro) {
        LOG(ERROR, "macro is NULL\n");
        return nullptr;
    }
    json_t *object = json_object();
    writeFields(object, *macro, MACRO_FIELDS);
    if (macro->sceneName[0] != '\0')
        json_object_set_new(object, "scene", json_string(macro->sceneName));
    else if (macro->scene)
        json_object_set_new(object, "scene", sceneToJson(macro->scene));
    if (!listEmpty(&macro->triggers))
        json_object_set_new(object, "triggers",
                            arrayOf(ELEMENTS(Trigger, node, &macro->triggers), triggerToJson));
    json_object_set_new(object, "enabled_notifications", notificationsToJson(*macro));
    return object;
}

json_t *macrosToJson(ListNode *head)
{
    return arrayOf(ELEMENTS(Macro, node, head), macroToJson);
}

json_t *macrosTitleToJson(ListNode *head)
{
    return arrayOf(ELEMENTS(Macro, node, head), titleToJson<Macro>);
}
