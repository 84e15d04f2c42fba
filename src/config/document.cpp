#include "config/document.h"

#include "bus/outbound.h"
#include "config/groups.h"
#include "main/json_memory.h"
#include "main/json_text.h"
#include "main/kept_memory.h"
#include "main/log.h"
#include "main/scope.h"
#include "main/util.h"

#include <cstring>
#include <span>

static constexpr GroupId SET_ORDER[] = {
    TARGET_NAMES,       CAMERAS, MACROS, SCENES, SCHEDULES, ROOMS, EVENT_FILTERS,
    REGISTERED_DEVICES, ALARM,
};

// The alarm cannot be deleted.
static constexpr GroupId DELETE_ORDER[] = {
    EVENT_FILTERS, REGISTERED_DEVICES, TARGET_NAMES, CAMERAS, MACROS, SCENES, SCHEDULES, ROOMS,
};

static constexpr GroupId WRITE_ORDER[] = {
    TARGET_NAMES,       CAMERAS, MACROS, SCENES, ROOMS, SCHEDULES, EVENT_FILTERS, ALARM,
    REGISTERED_DEVICES,
};

static void announceConfiguration()
{
    const Owned<json_t> root(getAllAppConfig());
    const Owned<char> text(json_dumps_dbg(root.get(), JSON_TEXT_FLAGS));
    if (text)
        dbus_signal_event(text.get(), "jsongetall");
}

// What a document is read for: to set or to delete.
struct DocumentUse {
    const char *function;  // in whose name it is logged
    std::span<const GroupId> order;
    int (*Group::*apply)(json_t *value);
    const char *Group::*absent;
};

static int applyGroups(const json_t *root, const DocumentUse &use)
{
    int result = 0;
    for (const GroupId id : use.order) {
        const Group &group = groupOf(id);
        json_t *value = json_object_get(root, group.key);
        const bool present = group.kind == OBJECT ? json_is_object(value) : json_is_array(value);
        if (present)
            result = (group.*use.apply)(value);
        else if (group.*use.absent)
            LOG_AS(use.function, ERROR, "%s", group.*use.absent);
    }
    return result;
}

static int applyDocument(const char *text, const DocumentUse &use)
{
    Owned<json_t> root(loadJsonOrLog(text, use.function));
    if (!root)
        return 0;
    if (!json_is_object(root.get())) {
        LOG_AS(use.function, ERROR, "error: root is not an object\n");
        return 0;
    }
    const int result = applyGroups(root.get(), use);
    root.reset();
    announceConfiguration();
    return result;
}

int parseAll(const char *text)
{
    static constexpr size_t LARGE = size_t{16} * 1024;
    const int result = applyDocument(text, {__func__, SET_ORDER, &Group::set, &Group::setAbsent});
    if (text && strlen(text) >= LARGE)
        returnFreeMemory();
    return result;
}

int parseToDel(const char *text)
{
    return applyDocument(text, {__func__, DELETE_ORDER, &Group::del, &Group::delAbsent});
}

int parseRename(const char *text)
{
    enum { GROUP, OLD_TITLE, NEW_TITLE, COUNT };
    const Owned<json_t> root(loadJsonOrLog(text));
    if (!root)
        return 0;
    if (!json_is_array(root.get())) {
        LOG(ERROR, "root is not an array\n");
        return 0;
    }
    const char *texts[COUNT] = {};
    for (size_t i = 0; i < json_array_size(root.get()); ++i) {
        const char *data = json_string_value(json_array_get(root.get(), i));
        if (!data) {
            LOG(ERROR, "data %d is not a string\n", static_cast<int>(i + 1));
            return 0;
        }
        if (i < COUNT)
            texts[i] = data;
    }
    const Group *group = texts[GROUP] ? titledGroup(texts[GROUP]) : nullptr;
    if (!group) {
        LOG(ERROR, "at default\n");
        return 0;
    }
    return group->rename(texts[OLD_TITLE], texts[NEW_TITLE]);
}

json_t *getAllAppConfig()
{
    const JsonMemory memory;
    Owned<json_t> root(json_object());
    for (const GroupId id : WRITE_ORDER) {
        const Group &group = groupOf(id);
        const MutexLock lock(*group.mutex);  // one list at a time, never two
        json_t *value = group.toJson(group.head);
        if (value)
            json_object_set_new(root.get(), group.key, value);
    }
    return memory.ranOut() ? nullptr : root.release();
}
