#include "config/lists.h"

#include "config/alarm.h"
#include "config/camera.h"
#include "config/event_filter.h"
#include "config/macro.h"
#include "config/reg_device.h"
#include "config/room.h"
#include "config/scene.h"
#include "config/schedule.h"
#include "config/target_comp.h"
#include "config/target_name.h"
#include "main/locks.h"

struct ConfigList {
    Mutex *mutex;
    ListNode *head;
    void (*freeAll)(ListNode *head);
};

static constexpr ConfigList CONFIG_LISTS[] = {
    {&TheadList_mutex, &TheadListHead, freeTARGETComps},
    {&macroList_mutex, &macrosListHead, freeMacros},
    {&scenesList_mutex, &scenesListHead, freeScenes},
    {&schedulesList_mutex, &schedulesListHead, freeSchedules},
    {&roomsList_mutex, &roomsListHead, freeRooms},
    {&camerasList_mutex, &camerasListHead, freeCameras},
    {&targetNamesList_mutex, &targetNamesListHead, freeTargetNames},
    {&eventFilter_mutex, &eventFilterListHead, freeEventFilterList},
    {&pushDevList_mutex, &pushDevsListHead, free_reg_dev_info_list},
};

void freeAppConfigList()
{
    for (const ConfigList &list : CONFIG_LISTS) {
        const MutexLock lock(*list.mutex);
        list.freeAll(list.head);
    }
    const MutexLock lock(alarm_mutex);
    freeAlarm();
}
