#include "events/macro_thread.h"

#include "bus/outbound.h"
#include "config/device_value.h"
#include "events/event_documents.h"
#include "main/log.h"
#include "main/scope.h"
#include "main/threads.h"
#include "main/util.h"
#include "main/waits.h"
#include "notify/push.h"
#include "notify/push_text.h"
#include "scene/device_values.h"
#include "scene/runner.h"
#include "scene/sdk_command.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

static constexpr long ONE_MILLISECOND = 1'000'000;      // ns
static constexpr Integer LONGEST_WAIT = 1'000'000'000;  // seconds, so that no clock overflows
static constexpr Integer COPY_SENSOR_VALUE = -1;

// The thread's steps log in its name.
static constexpr const char *THREAD = "doSceneThread";

// A record whose thread could not be created stays listed until somebody looks for the threads of
// its macro. Nobody else would free it, and the macro would seem busy for good.
static void forgetFailedThreads(const char *title)
    LOCKING(requires_capability(doSceneThrList_mutex))
{
    for (TriggerThrData &record : ELEMENTS(TriggerThrData, node, &doSceneThrListHead)) {
        if (record.threadFailed != 0 && strcmp(record.macro->title, title) == 0)
            freeTriggerThrData(&record);
    }
}

void startMacroThread(const Macro &macro, const GetDev_dev &device, const GetDev_channel &channel)
{
    TriggerThrData *record = callocTriggerThrData();
    if (!record)
        return;
    {
        const MutexLock lock(scenesList_mutex);
        record->macro = copyMacro(&macro);
    }
    record->channel = copyGetDev_dev_channel(&channel);
    record->device = copyGetDev_dev(&device);
    if (!record->macro || !record->channel || !record->device) {
        freeTriggerThrData(record);
        return;
    }
    forgetFailedThreads(macro.title);
    for (TriggerThrData &older : ELEMENTS(TriggerThrData, node, &doSceneThrListHead)) {
        if (strcmp(older.macro->title, macro.title) == 0)
            interruptWait(older.wait);
    }
    listAddTail(&record->node, &doSceneThrListHead);
    if (createThread(&record->thread, doSceneThread, record) != 0) {
        LOG_AS("doEvent", ERROR, "pthread_create fail\n");  // Deliberate: the record stays listed.
        record->thread = 0;
        record->threadFailed = 1;
    }
}

// Marks the record when a newer one of its macro is listed.
static bool isOutdated(TriggerThrData *record)
{
    const MutexLock lock(doSceneThrList_mutex);
    forgetFailedThreads(record->macro->title);
    const TriggerThrData *newest =
        searchLastMacroInTriggerThrList(&doSceneThrListHead, record->macro->title);
    record->outdated = newest != record ? 1 : 0;
    return record->outdated != 0;
}

void sceneThreadSleep(Integer seconds, long nanoseconds, TriggerThrData *record)
{
    if (seconds < 0)
        return;
    timespec remaining = {static_cast<time_t>(std::min(seconds, LONGEST_WAIT)), nanoseconds};
    while (waitInterruptibly(remaining, record->wait)) {
        LOG(INFO, "remaining time: %ld.%ld sec, tid: %d\n", static_cast<long>(remaining.tv_sec),
            remaining.tv_nsec, gettid());
        if (isOutdated(record)) {
            LOG(INFO, "tid %d outdated.\n", gettid());
            return;
        }
    }
}

void byPassSensorVal(const GetDev_channel *channel, Scene *scene)
{
    static constexpr int32_t SENSOR_ON = 101;
    static constexpr int32_t SENSOR_OFF = 102;
    const int32_t value = getDevValByFuncType(channel);
    for (Comp &comp : ELEMENTS(Comp, node, &scene->comps)) {
        if (comp.target.dev == UID_GAP_STEP || comp.target.dev == UID_WAIT_STEP)
            continue;
        comp.value = value == SENSOR_ON ? 100 : value == SENSOR_OFF ? 0 : value;
    }
}

ResumeScene *addResumeScene(apr_pool_t *pool, const Macro *macro, const GetDev_channel *channel,
                            const Scene *scene)
{
    ResumeScene *resume = callocResumeScene();
    if (!resume)
        return nullptr;
    resume->scene = copyScene(scene);
    if (macro) {
        strcpy(resume->macroTitle, macro->title);
        storeCurrentDeviceValue(pool, resume->scene, macro->duration_type);
        copyNotifications(macro->enabled_notifications, resume->enabled_notifications);
    }
    if (channel)
        resume->triggerFunctionType = static_cast<int8_t>(channel->functype);
    listAddTail(&resume->node, &resumeSceneListHead);
    return resume;
}

void int_old_triggerThd(const TriggerThrData *record, const char *macroTitle)
{
    if (!macroTitle) {
        LOG(ERROR, "macroTitle is NULL\n");
        return;
    }
    const MutexLock lock(doSceneThrList_mutex);
    for (TriggerThrData &other : ELEMENTS(TriggerThrData, node, &doSceneThrListHead)) {
        if (&other == record || strcmp(other.macro->title, macroTitle) != 0)
            continue;
        interruptWait(other.wait);
        // The signal is blocked there; the wait is interrupted above. A record without a thread has
        // nobody to signal.
        const int failure = other.thread ? pthread_kill(other.thread, SIGUSR1) : ESRCH;
        if (failure != 0)
            LOG(ERROR, "pthread_kill: %s\n", errorText(failure));
    }
}

// What a macro thread needs of its macro after its record is gone.
struct MacroRun {
    Text title;
    Integer controlDuration;  // seconds
    Integer triggerDuration;
    Integer threshold;
    TargetId triggerTarget;
};

static MacroRun describeRun(const TriggerThrData *record)
{
    MacroRun run = {};
    strcpy(run.title, record->macro->title);
    run.controlDuration = record->macro->duration;
    // Deliberate: the macro's first trigger counts, whichever of them fired.
    const MutexLock lock(doSceneThrList_mutex);
    const Trigger *first = FIRST_ELEMENT(Trigger, node, &record->macro->triggers);
    if (first) {
        run.triggerDuration = first->duration;
        run.threshold = first->threshold;
        run.triggerTarget = first->target;
    }
    return run;
}

static void waitForTrigger(TriggerThrData *record, const MacroRun &run)
{
    if (run.triggerDuration == 0)
        sceneThreadSleep(0, ONE_MILLISECOND, record);
    else
        sceneThreadSleep(run.triggerDuration, 0, record);
}

// The macro's own scene, or the one of that name; null when there is neither.
static Scene *copySceneOf(const Macro &macro)
{
    if (macro.scene)
        return copyScene(macro.scene);
    const MutexLock lock(scenesList_mutex);
    return copyScene(searchScene(&scenesListHead, macro.sceneName));
}

// Each "pns" is one push; "done" takes its place, so that it is sent once.
static void sendNotifications(apr_pool_t *pool, ResumeScene *resume, const TriggerThrData *record,
                              const MacroRun &run, const Scene *scene)
{
    static constexpr Integer STATUS_CHANNEL = 99;
    static constexpr Integer PUSH_STATUS = 9;
    for (int i = 0; i < NOTIFICATION_SLOTS; ++i) {
        char *&notification = resume->enabled_notifications[i];
        if (!notification || strcmp(notification, "pns") != 0)
            continue;
        LOG_AS(THREAD, INFO, "sendPushMsg i: %d\n", i);
        const char *text = getFullPushMsg(pool, run.triggerTarget, record->channel, scene);
        sendZwaveCmd(pool, "set_s_sta_num", UID_SCENE_STATUS, STATUS_CHANNEL, PUSH_STATUS);
        sendPush(pool, text);
        free(notification);
        notification = copyText("done");
    }
}

static void runScene(apr_pool_t *pool, TriggerThrData *record, const MacroRun &run)
    LOCKING(requires_capability(resumeSceneList_mutex))
{
    Scene *scene = copySceneOf(*record->macro);
    if (run.threshold == COPY_SENSOR_VALUE) {
        LOG_AS(THREAD, INFO, "bypass sensor value, uid: %lld\n", run.triggerTarget.dev);
        if (scene)
            byPassSensorVal(record->channel, scene);
    }
    // Without a record of what to put back the scene would run anew with every trigger: not at all.
    ResumeScene *resume = addResumeScene(pool, record->macro, record->channel, scene);
    if (resume) {
        announceMacroEvent(addMacroEventLog(record, scene));
        doScene(pool, scene);
        sendNotifications(pool, resume, record, run, scene);
    }
    if (scene)
        freeScene(scene);
}

static int countThreads(const char *title)
{
    const MutexLock lock(doSceneThrList_mutex);
    return countDoSceneThdListItems(&doSceneThrListHead, title);
}

static void runSceneOnce(TriggerThrData *record, const MacroRun &run)
{
    const Owned<apr_pool_t> pool = createPool();
    // Meant: held until the scene has run, so that no second thread of the macro runs it too.
    const MutexLock lock(resumeSceneList_mutex);
    if (!searchResumeScene(&resumeSceneListHead, run.title)) {
        LOG_AS(THREAD, INFO, "macro '%s' triggered, tid: %d\n", run.title, gettid());
        runScene(pool.get(), record, run);
    } else {
        LOG_AS(THREAD, INFO, "macro '%s' triggered repeatedly, %d triggers exists, tid: %d.\n",
               run.title, countThreads(run.title), gettid());
    }
}

static void waitForControl(TriggerThrData *record, const MacroRun &run)
{
    LOG_AS(THREAD, INFO, "do sleep(control duration): %lld sec, tid: %d\n", run.controlDuration,
           gettid());
    sceneThreadSleep(run.controlDuration, 0, record);
    LOG_AS(THREAD, INFO, "after control sleep, %d triggers exists in '%s', tid: %d.\n",
           countThreads(run.title), run.title, gettid());
}

// Frees the record while another thread of the macro is left, which then sees to the end. False
// when there is none: the record stays.
static bool leaveToOthers(TriggerThrData *record, const MacroRun &run)
{
    const MutexLock lock(doSceneThrList_mutex);
    forgetFailedThreads(run.title);
    if (countDoSceneThdListItems(&doSceneThrListHead, run.title) <= 1)
        return false;
    freeTriggerThrData(record);
    return true;
}

// Frees the record. True when no other thread of the macro is left.
static bool retireAsLast(TriggerThrData *record, const MacroRun &run)
{
    const MutexLock lock(doSceneThrList_mutex);
    forgetFailedThreads(run.title);
    freeTriggerThrData(record);
    return searchMacroInTriggerThrList(&doSceneThrListHead, run.title) == nullptr;
}

static void restoreDevices(const MacroRun &run) LOCKING(requires_capability(resumeSceneList_mutex))
{
    const Owned<apr_pool_t> pool = createPool();
    ResumeScene *resume = searchResumeScene(&resumeSceneListHead, run.title);
    if (!resume || !resume->scene)
        LOG_AS(THREAD, ERROR, "not found resume, tid: %d\n", gettid());
    else if (run.controlDuration != 0)
        doScene(pool.get(), resume->scene);  // after 0 seconds devices stay as the scene set them
    if (resume)
        freeResumeScene(resume);
    if (searchResumeScene(&resumeSceneListHead, run.title))
        LOG_AS(THREAD, ERROR, "resumeSceneList is not empty.\n");
}

static void end(TriggerThrData *record, const MacroRun &run)
{
    if (leaveToOthers(record, run))
        return;
    // Meant: held from the decision that this is the last thread to the end of the restore. A
    // thread that starts in between either keeps this one from being the last, or finds the macro
    // idle.
    const MutexLock lock(resumeSceneList_mutex);
    if (retireAsLast(record, run))
        restoreDevices(run);
}

static void runTriggeredMacro(TriggerThrData *record)
{
    const MacroRun run = describeRun(record);  // the record is gone before the last step
    waitForTrigger(record, run);
    if (record->outdated == 0) {
        runSceneOnce(record, run);
        waitForControl(record, run);
    }
    end(record, run);
}

void *doSceneThread(void *record)
{
    pthread_setname_np(pthread_self(), "macro");
    pthread_detach(pthread_self());
    runTriggeredMacro(static_cast<TriggerThrData *>(record));
    LOG(INFO, " tid %d end\n", gettid());
    pthread_exit(nullptr);
}
