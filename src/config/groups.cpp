#include "config/groups.h"

#include "config/alarm.h"
#include "config/camera.h"
#include "config/event_filter.h"
#include "config/macro.h"
#include "config/reg_device.h"
#include "config/room.h"
#include "config/scene.h"
#include "config/schedule.h"
#include "config/target_name.h"

#include <cstring>
#include <iterator>

// Built like a list: with its defaults when nobody has set it.
LOCKING(requires_capability(alarm_mutex))
static json_t *buildAlarm(ListNode *)
{
    ensureAlarm();
    return alarmToJson(ovrinAlarm);
}

// By GroupId.
static constexpr Group GROUPS[] = {
    {
        .key = "targetNames",
        .kind = OBJECT,
        .mutex = &targetNamesList_mutex,
        .head = &targetNamesListHead,
        .set = setTargetNames,
        .setAbsent = "targetNames does not exist\n",
        .del = delTargetNames,
        .delAbsent = "targetNames does not exist\n",
        .toJson = targetNamesToJson,
    },
    {
        .key = "cameras",
        .kind = ARRAY,
        .mutex = &camerasList_mutex,
        .head = &camerasListHead,
        .set = setCameras,
        .setAbsent = "cameras does not exist\n",
        .del = delCameras,
        .delAbsent = "macros does not exist\n",  // Deliberate: shared with the macros.
        .toJson = camerasToJson,
    },
    {
        .key = "macros",
        .kind = ARRAY,
        .mutex = &macroList_mutex,
        .head = &macrosListHead,
        .set = setMacros,
        .setAbsent = "macros does not exist\n",
        .del = delMacros,
        .delAbsent = "macros does not exist\n",
        .toJson = macrosToJson,
        .titlesToJson = macrosTitleToJson,
        .rename = renameMacroTitle,
    },
    {
        .key = "scenes",
        .kind = ARRAY,
        .mutex = &scenesList_mutex,
        .head = &scenesListHead,
        .set = setScenes,
        .setAbsent = "scenes does not exist\n",
        .del = delScenes,
        .delAbsent = "scenes does not exist\n",
        .toJson = scenesToJson,
        .titlesToJson = scenesTitleToJson,
        .rename = renameSceneTitle,
    },
    {
        .key = "schedules",
        .kind = ARRAY,
        .mutex = &schedulesList_mutex,
        .head = &schedulesListHead,
        .set = setSchedules,
        .setAbsent = "schedules does not exist\n",
        .del = delSchedules,
        .delAbsent = "schedules does not exist\n",
        .toJson = schedulesToJson,
        .titlesToJson = schedulesTitleToJson,
        .rename = renameScheduleTitle,
    },
    {
        .key = "rooms",
        .kind = ARRAY,
        .mutex = &roomsList_mutex,
        .head = &roomsListHead,
        .set = setRooms,
        .setAbsent = "rooms does not exist\n",
        .del = delRooms,
        .delAbsent = "rooms does not exist\n",
        .toJson = roomsToJson,
        .titlesToJson = roomsTitleToJson,
        .rename = renameRoomTitle,
    },
    {
        .key = "eventFilter",
        .kind = ARRAY,
        .mutex = &eventFilter_mutex,
        .head = &eventFilterListHead,
        .set = setEventFilter,
        // Deliberate: the trailing digits.
        .setAbsent = "eventFilter does not exist1\n",
        .del = delEventFilters,
        .delAbsent = "eventFilter does not exist2\n",
        .toJson = eventFilterToJson,
    },
    {
        .key = "registeredDevices",
        .kind = ARRAY,
        .mutex = &pushDevList_mutex,
        .head = &pushDevsListHead,
        .set = setRegisteredDevices,
        .del = delRegisterDevices,
        .delAbsent = "registeredDevices does not exist\n",
        .toJson = registeredDevicesToJson,
    },
    {
        .key = "alarm",
        .kind = OBJECT,
        .mutex = &alarm_mutex,
        .set = setAlarm,
        .toJson = buildAlarm,
    },
};
static_assert(std::size(GROUPS) == ALARM + 1);

const Group &groupOf(GroupId id)
{
    return GROUPS[id];
}

const Group *titledGroup(const char *word)
{
    for (const Group &group : GROUPS) {
        if (group.titlesToJson && strcmp(group.key, word) == 0)
            return &group;
    }
    return nullptr;
}
