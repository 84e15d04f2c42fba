#include "config/document.h"

#include "bus/outbound.h"
#include "config/alarm.h"
#include "config/camera.h"
#include "config/event_filter.h"
#include "config/macro.h"
#include "config/reg_device.h"
#include "config/room.h"
#include "config/scene.h"
#include "config/schedule.h"
#include "config/target_name.h"
#include "main/json_memory.h"
#include "main/locks.h"
#include "main/log.h"
#include "main/scope.h"
#include "main/util.h"

enum GroupKind { OBJECT, ARRAY };

// A top-level member of the document.
struct ReadGroup {
    const char *key;
    GroupKind kind;
    int (*apply)(json_t *value);
    const char *absent;  // logged when the member is absent or of another type; null says nothing
};

// In the order in which the groups are applied.
static constexpr ReadGroup READ_GROUPS[] = {
    {"targetNames", OBJECT, setTargetNames, "targetNames does not exist\n"},
    {"cameras", ARRAY, setCameras, "cameras does not exist\n"},
    {"macros", ARRAY, setMacros, "macros does not exist\n"},
    {"scenes", ARRAY, setScenes, "scenes does not exist\n"},
    {"schedules", ARRAY, setSchedules, "schedules does not exist\n"},
    {"rooms", ARRAY, setRooms, "rooms does not exist\n"},
    {"eventFilter", ARRAY, setEventFilter,
     "eventFilter does not exist1\n"},  // Deliberate: the trailing digit.
    {"registeredDevices", ARRAY, setRegisteredDevices, nullptr},
    {"alarm", OBJECT, setAlarm, nullptr},
};

static bool isOfKind(const json_t *value, GroupKind kind)
{
    return kind == OBJECT ? json_is_object(value) : json_is_array(value);
}

static void announceConfiguration()
{
    const Owned<json_t> root(getAllAppConfig());
    const Owned<char> text(json_dumps_dbg(root.get(), JSON_TEXT_FLAGS));
    if (text)
        dbus_signal_event(text.get(), "jsongetall");
}

int parseAll(const char *text)
{
    json_error_t error;
    Owned<json_t> root(json_loads(text, 0, &error));
    if (!root) {
        LOG(ERROR, "error: on line %d: %s\n", error.line, error.text);
        return 0;
    }
    if (!json_is_object(root.get())) {
        LOG(ERROR, "error: root is not an object\n");
        return 0;
    }
    int result = 0;
    for (const ReadGroup &group : READ_GROUPS) {
        json_t *value = json_object_get(root.get(), group.key);
        if (isOfKind(value, group.kind))
            result = group.apply(value);
        else if (group.absent)
            LOG(ERROR, "%s", group.absent);
    }
    root.reset();
    announceConfiguration();
    return result;
}

// No list, but built like one: with its defaults when nobody has set it.
LOCKING(requires_capability(alarm_mutex))
static json_t *buildAlarm(ListNode *)
{
    ensureAlarm();
    return alarmToJson(ovrinAlarm);
}

struct WrittenGroup {
    const char *key;
    Mutex *mutex;
    ListNode *head;
    json_t *(*build)(ListNode *head);
};

// In the order in which the groups are built.
static constexpr WrittenGroup WRITTEN_GROUPS[] = {
    {"targetNames", &targetNamesList_mutex, &targetNamesListHead, targetNamesToJson},
    {"cameras", &camerasList_mutex, &camerasListHead, camerasToJson},
    {"macros", &macroList_mutex, &macrosListHead, macrosToJson},
    {"scenes", &scenesList_mutex, &scenesListHead, scenesToJson},
    {"rooms", &roomsList_mutex, &roomsListHead, roomsToJson},
    {"schedules", &schedulesList_mutex, &schedulesListHead, schedulesToJson},
    {"eventFilter", &eventFilter_mutex, &eventFilterListHead, eventFilterToJson},
    {"alarm", &alarm_mutex, nullptr, buildAlarm},
    {"registeredDevices", &pushDevList_mutex, &pushDevsListHead, registeredDevicesToJson},
};

json_t *getAllAppConfig()
{
    const JsonMemory memory;
    Owned<json_t> root(json_object());
    for (const WrittenGroup &group : WRITTEN_GROUPS) {
        const MutexLock lock(*group.mutex);  // one list at a time, never two
        json_t *value = group.build(group.head);
        if (value)
            json_object_set_new(root.get(), group.key, value);
    }
    return memory.ranOut() ? nullptr : root.release();
}
