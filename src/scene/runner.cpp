#include "scene/runner.h"

#include "config/device_value.h"
#include "config/snapshot.h"
#include "config/target_comp.h"
#include "main/locks.h"
#include "main/log.h"
#include "main/scope.h"
#include "main/settings.h"
#include "scene/reply_check.h"
#include "scene/sdk_command.h"

#include <algorithm>
#include <sys/time.h>

std::atomic<int32_t> scene_time_index{DEFAULT_GAP_MILLISECONDS};
std::atomic<uint32_t> last_time;
std::atomic<int32_t> sceneCompCount;
std::atomic<int32_t> sceneHasWaitStep;
std::atomic<int32_t> sceneID;
std::atomic<int32_t> sceneIdMarker;
std::atomic<int32_t> scene_device_number_total;
std::atomic<int32_t> scene_device_success_number;
std::atomic<int32_t> deoscene_n_run{1};
std::atomic<int32_t> scene_success{1};
std::atomic<int32_t> scene_exec_check_enable;

static std::atomic<int32_t> reportedLastTime;
static bool targetCompsPending LOCKING(guarded_by(TheadList_mutex));

// Of the dispatch, which runs on the tick thread alone.
static int32_t dispatchTickCount;
static uint32_t last_tid_ms_timestamp;

static constexpr uint32_t FARTHEST_PLAN_MILLISECONDS = 120'000;
static constexpr uint32_t END_OF_RUN_MILLISECONDS = 1'000;
static constexpr uint32_t STEP_UNIT_MILLISECONDS = 100;
static constexpr Integer GAP_STEP_LIMIT = 100;
static constexpr Integer STATUS_STARTED = 1;

// The dispatch is a step of the tick and logs in its name.
static constexpr const char *DISPATCH = "do_scene_schedule";

long long json_last_time()
{
    return reportedLastTime;
}

uint32_t millisecondStamp()
{
    timeval now;
    gettimeofday(&now, nullptr);
    return static_cast<uint32_t>(now.tv_sec % 1'000'000 * 1000 + now.tv_usec / 1000);
}

// A scene on its way into the time-table. It is planned aside and enters the table whole, so that
// the dispatch sees all of it or nothing.
struct Plan {
    ListNode entries;
    bool anyComp;
    uint32_t planned;
    uint32_t latest;
    int32_t gap;
};

// In the width of the stamps, for the value may be any number.
static uint32_t waitOf(Integer value)
{
    return static_cast<uint32_t>(value) * STEP_UNIT_MILLISECONDS;
}

static int32_t gapOf(Integer value)
{
    const bool valid = value > 0 && value < GAP_STEP_LIMIT;
    return valid ? static_cast<int32_t>(waitOf(value)) : DEFAULT_GAP_MILLISECONDS;
}

static TARGET_Comp *createEntry(const Comp &comp, int32_t position)
{
    // An entry that searchTargetComp could find for this moment is queued already; each command
    // gets one of its own, so that two scenes planned in the same millisecond both go out whole.
    TARGET_Comp *entry = callocTARGET_Comp();
    if (!entry)
        return nullptr;
    entry->position = position;
    entry->value = static_cast<int32_t>(comp.value);
    entry->seconds = static_cast<int32_t>(time(nullptr));
    entry->target = comp.target;
    return entry;
}

// False when memory has run out.
static bool planComp(Plan &plan, const Comp &comp, int32_t position)
{
    if (comp.target.dev == UID_GAP_STEP) {
        plan.gap = gapOf(comp.value);  // for the commands that follow; itself never queued
    } else {
        TARGET_Comp *entry = createEntry(comp, position);
        if (!entry)
            return false;
        plan.planned +=
            comp.target.dev == UID_WAIT_STEP ? waitOf(comp.value) : static_cast<uint32_t>(plan.gap);
        entry->timer = plan.planned;
        listAddTail(&entry->node, &plan.entries);
    }
    plan.latest = std::max(plan.latest, plan.planned);
    plan.anyComp = true;
    return true;
}

static bool planComps(Plan &plan, const Scene &scene)
{
    int32_t position = 0;
    for (const Comp &comp : ELEMENTS(Comp, node, &scene.comps)) {
        ++position;
        sceneCompCount = std::max(sceneCompCount.load(), position);
        if (!planComp(plan, comp, position))
            return false;
    }
    return true;
}

static void enterTimeTable(Plan &plan, bool whole)
{
    const MutexLock lock(TheadList_mutex);
    listMoveAll(&plan.entries, &TheadListHead);
    scene_time_index = plan.gap;
    last_time = plan.latest;
    if (plan.anyComp)
        reportedLastTime = static_cast<int32_t>(plan.latest);
    if (whole)
        targetCompsPending = true;
}

static Plan beginPlan(uint32_t now)
{
    Plan plan = {.entries = {},
                 .anyComp = false,
                 .planned = now,
                 .latest = last_time,
                 .gap = scene_time_index};
    // A last time in the past, or too far ahead, is pulled back to now.
    if (plan.latest - now > FARTHEST_PLAN_MILLISECONDS)
        plan.latest = now;
    return plan;
}

// Not analysed: on its way out without memory it leaves Macro_op_mutex held.
LOCKING(no_thread_safety_analysis)
void doScene_next(apr_pool_t *pool, Scene *scene, uint32_t now)
{
    if (!scene) {
        LOG(ERROR, "scene is NULL\n");
        return;
    }
    resetMatchCounts();
    if (scene->buildinSiren)
        sendOvrinSdkSysSound(pool, 0, scene->buildinSiren->siren_type);
    else
        LOG(DEBUG, "scene->buildinSiren is NULL, will not controll buildin-siren\n");

    lockMutex(Macro_op_mutex);
    sceneCompCount = 0;
    Plan plan = beginPlan(now);
    listInit(&plan.entries);
    const bool whole = planComps(plan, *scene);
    enterTimeTable(plan, whole);
    if (!whole) {
        // Deliberate: the runner gives the scene up, and Macro_op_mutex stays taken.
        LOG(ERROR, "1.5.callocTARGET_Comp fail \n");
        return;
    }
    unlockMutex(Macro_op_mutex);
}

static int32_t countComps(const Scene &scene)
{
    const MutexLock lock(doscene_act_mutex);
    int32_t count = 0;
    for (const Comp &comp : ELEMENTS(Comp, node, &scene.comps)) {
        ++count;
        if (comp.target.dev == UID_WAIT_STEP)
            sceneHasWaitStep = 1;
    }
    sceneCompCount = count;
    return count;
}

static void announceStart(apr_pool_t *pool, const Scene &scene)
{
    const MutexLock lock(doscene_act_mutex);
    if (scene.ID != 0) {
        const auto id = static_cast<int32_t>(scene.ID);
        sceneID = id;
        sendZwaveCmd(pool, "set_s_sta_num", UID_SCENE_STATUS, id, STATUS_STARTED);
    } else {
        sceneIdMarker = COUNT_MARKER;
        sceneID = scene_device_number_total.load();
        sendZwaveCmd(pool, "set_s_sta_num", UID_SCENE_STATUS, COUNT_MARKER, STATUS_STARTED);
    }
}

void doScene(apr_pool_t *pool, Scene *scene)
{
    if (!scene) {
        LOG(ERROR, "scene is NULL\n");
        return;
    }
    const int32_t count = countComps(*scene);
    if (scene_exec_check_enable == 0)
        scene_device_number_total = count;

    if (Check_reply != 0 && sceneHasWaitStep != 1) {
        if (replyCheckIsBusy())
            return;
        announceStart(pool, *scene);
        LOG(INFO, "*** doScene start, DEVICE_UID_511_SCENE_STATUS sceneID=%d\n", sceneID.load());
        forgetQueuedScenes();
        doScene_next(pool, scene);
    } else {
        doScene_next(pool, scene);
        scene_device_success_number = 0;
    }
}

enum ChannelUse { WITH_CHANNEL, WITHOUT_CHANNEL };

struct CommandRow {
    Integer functype;
    const char *command;
    ChannelUse channelUse;
};

// What a channel is sent, by its function type; any other type is sent "switch" with its channel.
static constexpr CommandRow COMMAND_TABLE[] = {
    {FUNC_THERMOSTAT_FAN, "thermostatfan", WITHOUT_CHANNEL},
    {FUNC_THERMOSTAT_MODE, "thermostatmode", WITHOUT_CHANNEL},
    {FUNC_AV_CONTROL, "simpleAVcontrol", WITH_CHANNEL},
    {FUNC_SNAPSHOT, "snapshot", WITH_CHANNEL},
};
static constexpr int32_t VALUE_ASK = 110;  // a switch is asked for its state

// What the snapshot knows of a command's target.
struct KnownTarget {
    bool device;
    bool channel;
    Integer functype;
};

static KnownTarget lookUpTarget(const TargetId &target)
{
    const MutexLock lock(allDevs_mutex);
    const GetDev_dev *device = searchDeviceFromGetDev(allDevs, target.dev);
    if (!device)
        return {};
    const GetDev_channel *channel = searchChannelFromGetDev(device, target.ch);
    if (channel)
        return {.device = true, .channel = true, .functype = channel->functype};
    LOG_AS(DISPATCH, ERROR,
           "not found dev: %lld, ch : %lld, allDev addr: 0x%x, getDev addr: 0x%x\n", target.dev,
           target.ch, logAddress(allDevs), logAddress(device));
    return {.device = true, .channel = false, .functype = 0};
}

static void sendByType(apr_pool_t *pool, const TARGET_Comp &entry, Integer functype)
{
    const TargetId &target = entry.target;
    const bool asksSwitch =
        (functype == FUNC_METER || functype == FUNC_SWITCH) && entry.value == VALUE_ASK;
    if (functype == FUNC_SILENT)
        return;
    if (functype == FUNC_AV_CONTROL && deoscene_n_run != 1)
        return;  // an audio-video command is never repeated by a re-run
    if (functype == FUNC_THERMOSTAT_TEMP) {
        sendZwaveTempCmd(pool, "thermostattemp", target.dev, NO_CHANNEL, entry.value);
        return;
    }
    for (const CommandRow &row : COMMAND_TABLE) {
        if (row.functype == functype) {
            const Integer ch = row.channelUse == WITH_CHANNEL ? target.ch : NO_CHANNEL;
            sendZwaveCmd(pool, row.command, target.dev, ch, entry.value);
            return;
        }
    }
    sendZwaveCmd(pool, asksSwitch ? "getswitch" : "switch", target.dev, target.ch, entry.value);
}

static void sendEntry(apr_pool_t *pool, const TARGET_Comp &entry)
{
    const TargetId &target = entry.target;
    if (target.dev == UID_WAIT_STEP)
        return;
    if (target.dev > UID_LAST_ZWAVE_DEVICE) {
        sendZwaveCmd(pool, "snapshot", target.dev, NO_CHANNEL, entry.value);
        return;
    }
    const KnownTarget known = lookUpTarget(target);
    if (!known.device)
        return;
    if (known.channel)
        sendByType(pool, entry, known.functype);
    else
        sendZwaveCmd(pool, "switch", target.dev, target.ch, entry.value);
}

static TARGET_Comp *takeDueEntry(uint32_t now)
{
    const uint32_t sinceLastCheck = now - last_tid_ms_timestamp;
    last_tid_ms_timestamp = now;
    const MutexLock lock(TheadList_mutex);
    const auto slack =
        static_cast<int32_t>(sinceLastCheck - static_cast<uint32_t>(scene_time_index.load()));
    return searchanddelTargetComp(now, slack, &TheadListHead);
}

static void endRunWhenDrained(uint32_t now)
{
    const MutexLock lock(TheadList_mutex);
    const uint32_t end =
        last_time + static_cast<uint32_t>(scene_time_index.load()) + END_OF_RUN_MILLISECONDS;
    if (!listEmpty(&TheadListHead) || now < end)
        return;
    targetCompsPending = false;
    freeTARGETComps(&TheadListHead);
    scene_time_index = DEFAULT_GAP_MILLISECONDS;
}

static bool isPending()
{
    const MutexLock lock(TheadList_mutex);
    return targetCompsPending;
}

uint32_t millisecondsToLastCommand()
{
    const uint32_t ahead = last_time - millisecondStamp();
    return ahead <= FARTHEST_PLAN_MILLISECONDS ? ahead : 0;
}

void dispatchStep(uint32_t now)
{
    if (++dispatchTickCount < scene_time_index / 100)
        return;
    dispatchTickCount = 0;
    if (!isPending())
        return;
    TARGET_Comp *entry = takeDueEntry(now);
    if (entry) {
        const Owned<apr_pool_t> pool = createPool();
        sendEntry(pool.get(), *entry);
        freeMem(entry);
    }
    LOG_AS(DISPATCH, DEBUG, "4.0.do_scene_schedule last_time=%ld  tid_ms_timestamp=%ld \n",
           static_cast<long>(last_time.load()), static_cast<long>(now));
    endRunWhenDrained(now);
}

void resetRunner()
{
    const MutexLock lock(TheadList_mutex);
    freeTARGETComps(&TheadListHead);
    targetCompsPending = false;
    scene_time_index = DEFAULT_GAP_MILLISECONDS;
    last_time = 0;
    dispatchTickCount = 0;
    last_tid_ms_timestamp = 0;
}
