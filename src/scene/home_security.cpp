#include "scene/home_security.h"

#include "config/alarm.h"
#include "config/device_value.h"
#include "config/home_scene.h"
#include "config/resume.h"
#include "config/schedule.h"
#include "config/snapshot.h"
#include "events/event_documents.h"
#include "main/config_file.h"
#include "main/log.h"
#include "main/scope.h"
#include "main/threads.h"
#include "main/util.h"
#include "notify/push.h"
#include "notify/push_text.h"
#include "scene/device_values.h"
#include "scene/runner.h"
#include "scene/sdk_command.h"
#include "schedule/window.h"

#include <algorithm>

Scene *HomeScene;

// Woken when an alarm is cancelled; used with defaulSceneList_mutex.
static Condition alarmCancelled;

static constexpr Integer DOOR_OPEN = 255;
static constexpr Integer SHORTEST_DELAY = 1;  // seconds
static constexpr Integer LONGEST_WAIT =
    Integer{365} * 24 * 3600;  // seconds; no clock overflows before

int isDoorOrPirSensor(const GetDev_dev *device, const GetDev_channel *channel)
{
    if (!device) {
        LOG(ERROR, "isDoorOrPirSensor(), dev == NULL\n");
        return 0;
    }
    if (!channel) {
        LOG(ERROR, "2. channel is NULL\n");
        return 0;
    }
    if (channel->mainscene != 0)
        return 0;
    return (channel->functype == FUNC_DOOR && channel->basicvalue == DOOR_OPEN) ||
           channel->functype == FUNC_PIR;
}

static void setBuildinSirenType(Scene &scene, Integer sirenType)
{
    if (!scene.buildinSiren)
        scene.buildinSiren = callocBuildinSiren();
    if (scene.buildinSiren)
        scene.buildinSiren->siren_type = sirenType;
}

static void addSiren(Scene &scene, Integer uid, Integer chid)
{
    Comp *comp = callocComp();
    if (!comp)
        return;
    JsonStrCopy(scene.title, "Home Scene");
    comp->target = {uid, 0, chid};
    listAddTail(&comp->node, &scene.comps);
    LOG_AS("addAllSirenToHomeScene", INFO, "uid %lld chid: %lld add to homeScene\n", uid, chid);
}

Scene *addAllSirenToHomeScene()
{
    Scene *scene = callocScene();
    if (!scene)
        return nullptr;
    scene->buildinSiren = callocBuildinSiren();
    {
        const MutexLock lock(alarm_mutex);
        if (!ovrinAlarm)
            LOG(ERROR, "ovrinAlarm is NULL\n");
        else
            setBuildinSirenType(*scene, ovrinAlarm->siren_type);
    }
    const MutexLock lock(allDevs_mutex);
    if (!allDevs) {
        LOG(ERROR, "allDev is NULL\n");
        return scene;
    }
    for (const GetDev_dev &device : ELEMENTS(GetDev_dev, node, &allDevs->devices)) {
        for (const GetDev_channel &channel : ELEMENTS(GetDev_channel, node, &device.channels)) {
            if (channel.functype == FUNC_SIREN)
                addSiren(*scene, device.uid, channel.chid);
        }
    }
    return scene;
}

void setSirenType(Scene *scene, Integer, Integer sirenType)
{
    for (Comp &comp : ELEMENTS(Comp, node, &scene->comps))
        comp.value = sirenType;
}

static void fillPresentValues(const GetDev *reported, Scene &scene)
{
    for (Comp &comp : ELEMENTS(Comp, node, &scene.comps)) {
        const GetDev_channel *channel = channelOf(reported, comp.target);
        if (!channel) {
            LOG_AS("prepareHomeSceneResumeData", ERROR, "getChannelFromGetDev_dev fails\n");
            return;
        }
        comp.value = getDevValByFuncType(channel);
    }
}

bool prepareHomeSceneResumeData(apr_pool_t *pool, const Scene *scene)
{
    HomeSceneResume *resume = callocHomeSceneResume();
    if (!resume)
        return false;
    resume->scene = copyScene(scene);
    const bool isUsable = resume->scene != nullptr;
    if (resume->scene && resume->scene->buildinSiren)
        resume->scene->buildinSiren->siren_type = 0;  // putting back never sounds the siren
    GetDev *reported = nullptr;
    if (listEmpty(&scene->comps)) {
        LOG(DEBUG, "homeScene->compsListHead empty\n");
    } else {
        reported = setGetDevice(sendOvrinSdkCmd(pool, "getdevice", UID_SDK_DAEMON));
        if (!reported)
            LOG(ERROR, "getDev is NULL\n");
        else if (resume->scene)
            fillPresentValues(reported, *resume->scene);
    }
    {
        const MutexLock lock(homeSceneResumeList_mutex);
        listAddTail(&resume->node, &resumeHomeSceneListHead);
    }
    if (reported)
        freeGetDevice(reported);
    return isUsable;
}

static void runResume(apr_pool_t *pool, HomeSceneResume *resume)
{
    if (resume->scene)
        doScene(pool, resume->scene);
    freeHomeSceneResume(resume);
}

// Puts the sirens back as the oldest record says. False when there is none.
static bool runFirstResume(apr_pool_t *pool)
{
    const MutexLock lock(homeSceneResumeList_mutex);
    HomeSceneResume *resume = FIRST_ELEMENT(HomeSceneResume, node, &resumeHomeSceneListHead);
    if (resume)
        runResume(pool, resume);
    return resume != nullptr;
}

void runNewestHomeSceneResume(apr_pool_t *pool)
{
    {
        // In the entry delay nothing has changed yet, and the alarm will need its record.
        const MutexLock lock(defaulSceneList_mutex);
        const HomeSceneData *alarm = FIRST_ELEMENT(HomeSceneData, node, &defaulSceneListHead);
        if (alarm && alarm->phase == ENTRY_DELAY)
            return;
    }
    const MutexLock lock(homeSceneResumeList_mutex);
    // Deliberate: only the newest; there is one alarm at a time.
    HomeSceneResume *resume = LAST_ELEMENT(HomeSceneResume, node, &resumeHomeSceneListHead);
    if (resume)
        runResume(pool, resume);
}

static timespec wait(Integer seconds)
{
    return monotonicDeadline(
        {static_cast<time_t>(std::clamp<Integer>(seconds, 0, LONGEST_WAIT)), 0});
}

// Waits out the entry delay and sounds the sirens. False when the alarm was cancelled meanwhile.
static bool sound(apr_pool_t *pool, HomeSceneData *data)
{
    const timespec deadline = wait(std::max(data->alarmSetting.trigger_duration, SHORTEST_DELAY));
    const MutexLock lock(defaulSceneList_mutex);
    while (data->phase == ENTRY_DELAY &&
           alarmCancelled.waitUntil(defaulSceneList_mutex, deadline)) {
    }
    if (data->phase == CANCELLED)
        return false;
    data->phase = SOUNDING;
    doScene(pool, HomeScene);
    return true;
}

// Says what set the alarm off, and where, once an alarm.
static void report(apr_pool_t *pool, const HomeSceneData *data)
{
    Scene *scene = nullptr;
    {
        const MutexLock lock(defaulSceneList_mutex);
        if (HomeScene)
            scene = copyScene(HomeScene);
    }
    const char *text = getFullPushMsg(pool, {data->dev, 0, data->ch}, data->channel, scene);
    if (scene)
        freeScene(scene);
    announceMacroEvent(addMacroEventLogInAlarm());
    sendPush(pool, text);
}

static void soundForItsTime(const HomeSceneData *data)
{
    const Integer seconds = data->alarmSetting.duration;
    LOG_AS("doHomeSceneThread", INFO, "sleep(data->alarmSetting.duration): %lld secs\n", seconds);
    doNanoSleep(static_cast<long>(std::clamp<Integer>(seconds, 0, LONGEST_WAIT)), 0);
}

// Without a record of what they showed they are switched off: they must not sound for good.
static void silenceTheSirens(apr_pool_t *pool)
{
    const MutexLock lock(defaulSceneList_mutex);
    if (!HomeScene)
        return;
    setSirenType(HomeScene, 0, 0);
    setBuildinSirenType(*HomeScene, 0);
    doScene(pool, HomeScene);
}

// Until the planned commands have gone out and the radio has had its time: the next alarm, which
// keeps what the sirens show, would otherwise keep that they sound. Not longer than sirens need: a
// scene with a long wait in it may be planned as well, and no alarm starts meanwhile.
static void waitForTheSirens()
{
    static constexpr long MILLISECOND = 1'000'000;
    static constexpr uint32_t SECOND = 1000;
    static constexpr uint32_t LONGEST = 10 * SECOND;
    const uint32_t planned = std::min(millisecondsToLastCommand() + SECOND, LONGEST);
    doNanoSleep(planned / SECOND, planned % SECOND * MILLISECOND);
}

static void endAlarm(HomeSceneData *data)
{
    const MutexLock lock(defaulSceneList_mutex);
    freehomeSceneData(data);
    if (HomeScene)
        freeScene(HomeScene);
    HomeScene = nullptr;
}

// One thread for each alarm, started by homeSceneDetach with its record; it ends when the sirens
// are back.
static void *doHomeSceneThread(void *argument)
{
    pthread_setname_np(pthread_self(), "alarm");
    auto *data = static_cast<HomeSceneData *>(argument);
    pthread_detach(pthread_self());
    const Owned<apr_pool_t> pool = createPool();
    if (sound(pool.get(), data)) {
        report(pool.get(), data);
        soundForItsTime(data);
        if (data->withoutRecord)
            silenceTheSirens(pool.get());
    }
    if (runFirstResume(pool.get()) || data->withoutRecord)
        waitForTheSirens();
    endAlarm(data);
    return nullptr;
}

static bool isArmed()
{
    const MutexLock lock(alarm_mutex);
    return ovrinAlarm && ovrinAlarm->enabled != 0;
}

static bool isInAlarmSchedule()
{
    const tm local = *getCurTime();
    const MutexLock lock(schedulesList_mutex);
    return checkAlarmInSchedules(&schedulesListHead, local) != 0;
}

static HomeSceneData *describeAlarm(Integer gid, Integer channelID)
{
    HomeSceneData *data = callocHomeSceneData();
    if (data) {
        const MutexLock lock(alarm_mutex);
        if (copyAlarmSetting(&data->alarmSetting, ovrinAlarm) == 1) {
            data->dev = gid;
            data->ch = channelID;
            return data;
        }
    }
    LOG_AS("homeSceneDetach", ERROR, "callocHomeSceneData fail or copyDefaultScene return NULL\n");
    if (data)
        freehomeSceneData(data);
    return nullptr;
}

// The alarm has begun: nobody else touches the scene before the alarm's thread does.
static Scene *sceneOfThisAlarm()
{
    const MutexLock lock(defaulSceneList_mutex);
    return HomeScene;
}

static void setUpHomeScene(apr_pool_t *pool, HomeSceneData *data)
{
    const Integer sirenType = data->alarmSetting.siren_type;
    Scene *scene = sceneOfThisAlarm();
    if (!scene)
        return;
    // First: what cannot be asked for is restored to 0.
    data->withoutRecord = !prepareHomeSceneResumeData(pool, scene);
    setSirenType(scene, 0, sirenType);
    setBuildinSirenType(*scene, sirenType);
}

// True when no other alarm runs: there is one at a time, also when two events come together. An
// alarm that was armed and is not any more has been disarmed meanwhile.
static bool enter(HomeSceneData *data, bool armed)
{
    const MutexLock lock(defaulSceneList_mutex);
    if (!listEmpty(&defaulSceneListHead) || (armed && !isArmed()))
        return false;
    listAddTail(&data->node, &defaulSceneListHead);
    return true;
}

static bool isIdle()
{
    const MutexLock lock(defaulSceneList_mutex);
    return listEmpty(&defaulSceneListHead);
}

static void buildHomeScene()
{
    const MutexLock lock(defaulSceneList_mutex);
    if (!HomeScene)
        HomeScene = addAllSirenToHomeScene();
}

void homeSceneDetach(apr_pool_t *pool, Integer gid, Integer channelID, const GetDev_dev *device,
                     const GetDev_channel *channel)
{
    if (!isIdle() || !isDoorOrPirSensor(device, channel))
        return;
    buildHomeScene();
    const bool armed = isArmed();
    if (!armed && !isInAlarmSchedule())
        return;
    HomeSceneData *data = describeAlarm(gid, channelID);
    if (!data)
        return;
    data->device = copyGetDev_dev(device);
    data->channel = copyGetDev_dev_channel(channel);
    if (!enter(data, armed)) {
        freehomeSceneData(data);
        return;
    }
    setUpHomeScene(pool, data);
    pthread_t thread;
    if (createThread(&thread, doHomeSceneThread, data) != 0) {
        LOG(ERROR, "pthread_create fail\n");
        runFirstResume(pool);
        endAlarm(data);  // or no alarm would ever start again
    }
}

static void cancelEntryDelay()
{
    const MutexLock lock(defaulSceneList_mutex);
    for (HomeSceneData &data : ELEMENTS(HomeSceneData, node, &defaulSceneListHead)) {
        if (data.phase == ENTRY_DELAY)
            data.phase = CANCELLED;
    }
    alarmCancelled.wakeAll();
}

void setHomeSceneEnable(apr_pool_t *pool, Integer enable)
{
    {
        const MutexLock lock(alarm_mutex);
        ensureAlarm();
        if (ovrinAlarm)
            ovrinAlarm->enabled = enable;
    }
    if (enable == 0) {
        cancelEntryDelay();
        runFirstResume(pool);
    }
    if (saveJsonToFlash() != 0)
        LOG(ERROR, "root is NULL\n");
}
