#include "schedule/schedules.h"

#include "main/log.h"
#include "main/scope.h"
#include "main/util.h"
#include "scene/device_values.h"
#include "scene/runner.h"
#include "schedule/daylight_saving.h"
#include "schedule/resume_file.h"
#include "schedule/window.h"

static bool isMinute(const tm &local, Integer hour, Integer minute)
{
    return scheduleHour(local) == hour && local.tm_min == minute;
}

// A copy of the scene that the macro runs: the named one, or its own; null when there is none.
static Scene *copySceneOf(const Macro &macro)
{
    if (macro.sceneName[0] == '\0')
        return macro.scene ? copyScene(macro.scene) : nullptr;
    const MutexLock lock(scenesList_mutex);
    const Scene *scene = searchScene(&scenesListHead, macro.sceneName);
    return scene ? copyScene(scene) : nullptr;
}

static void keepForTheEnd(ResumeSchedule *resume)
{
    const MutexLock lock(resumeScheduleList_mutex);
    listAddTail(&resume->node, &resumeScheduleListHead);
    saveScheduleResume(&resumeScheduleListHead);
}

int matchScheduleStartTime(apr_pool_t *pool, const Schedule *schedule, const tm &local)
{
    if (!isDaySelected(*schedule, local) ||
        !isMinute(local, schedule->start_hour, schedule->start_minute))
        return 0;
    const Macro *macro = FIRST_ELEMENT(Macro, node, &schedule->macros);
    if (!macro)
        return 0;
    ResumeSchedule *resume = callocResumeSchedule();
    if (!resume)
        return 0;
    Scene *toRun = nullptr;
    resume->scene = copySceneOf(*macro);
    if (resume->scene) {
        toRun = copyScene(resume->scene);
        storeCurrentDeviceValue(pool, resume->scene, RESTORE_PRESENT);
    }
    strcpy(resume->title, schedule->title);
    keepForTheEnd(resume);
    if (toRun) {
        doScene(pool, toRun);
        freeScene(toRun);
    }
    return 1;
}

static ResumeSchedule *searchResume(ListNode *head, const char *title)
{
    return findByText(ELEMENTS(ResumeSchedule, node, head), &ResumeSchedule::title, title);
}

int matchScheduleEndTime(apr_pool_t *pool, const Schedule *schedule, const tm &local)
{
    if (schedule->start_hour == schedule->end_hour &&
        schedule->start_minute == schedule->end_minute)
        return 0;
    if (!isDaySelected(*schedule, local) ||
        !isMinute(local, schedule->end_hour, schedule->end_minute))
        return 0;
    const MutexLock lock(resumeScheduleList_mutex);
    if (listEmpty(&resumeScheduleListHead))
        json_decref(parseResumeSchedule(&resumeScheduleListHead));
    ResumeSchedule *resume = searchResume(&resumeScheduleListHead, schedule->title);
    if (!resume)
        return 0;
    doScene(pool, resume->scene);  // logs when there is none
    freeResumeSchedule(resume);    // Deliberate: the stored document follows with the next start
    return 1;
}

using Match = int(apr_pool_t *pool, const Schedule *schedule, const tm &local);

static int matchAll(apr_pool_t *pool, ListNode *head, const tm &local, Match *match)
{
    int acted = 0;
    for (const Schedule &schedule : ELEMENTS(Schedule, node, head)) {
        if (schedule.enabled != 0)
            acted |= match(pool, &schedule, local);
    }
    return acted;
}

int checkAllSchedulesStartTime(apr_pool_t *pool, ListNode *head, const tm &local)
{
    return matchAll(pool, head, local, matchScheduleStartTime);
}

int checkAllSchedulesEndTime(apr_pool_t *pool, ListNode *head, const tm &local)
{
    return matchAll(pool, head, local, matchScheduleEndTime);
}

// Meant: the schedules stay locked through each pass, also while the SDK daemon is asked, so that
// nobody frees one meanwhile.
void doSchedules()
{
    const tm local = *getCurTime();
    const Owned<apr_pool_t> pool = createPool();
    {
        const MutexLock lock(schedulesList_mutex);
        checkAllSchedulesStartTime(pool.get(), &schedulesListHead, local);
    }
    const MutexLock lock(schedulesList_mutex);
    checkAllSchedulesEndTime(pool.get(), &schedulesListHead, local);
}
