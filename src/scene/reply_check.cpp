#include "scene/reply_check.h"

#include "config/device_value.h"
#include "main/locks.h"
#include "main/log.h"
#include "main/settings.h"
#include "scene/runner.h"
#include "scene/sdk_command.h"

ReplyCheck replyCheck;

// The check is a step of the tick's second and logs in its name.
static constexpr const char *STEP = "scene_int";

// Reset by planning, which the check itself starts while it holds its mutex: atomic, not guarded.
static std::atomic<int> runMatchCount;
static std::atomic<int> extraWaitTicks;

static constexpr int IDLE_TICKS_TO_GIVE_UP = 3;
static constexpr int FIRST_RUN_GRACE_TICKS = 2;
static constexpr int RERUN_GRACE_TICKS = 4;
static constexpr Integer STATUS_SUCCEEDED = 2;
static constexpr Integer STATUS_FAILED = 3;

bool replyCheckIsArmed()
{
    const MutexLock lock(scene_int_mutex);
    return replyCheck.armed;
}

bool replyCheckIsBusy()
{
    const MutexLock lock(scene_int_mutex);
    return replyCheck.busy;
}

void forgetQueuedScenes()
{
    const MutexLock lock(scene_int_mutex);
    replyCheck.queuedCount = 0;
}

void resetMatchCounts()
{
    runMatchCount = 0;
    extraWaitTicks = 0;
}

static void dropScene(Scene *&scene)
{
    if (scene)
        freeScene(scene);
    scene = nullptr;
}

static Scene *&pendingOfThisRun() LOCKING(requires_capability(scene_int_mutex))
{
    const int run = deoscene_n_run >= 1 && deoscene_n_run <= MAX_RUNS ? deoscene_n_run.load() : 1;
    return replyCheck.pendingOfRun[run - 1];
}

static bool sameOutcome(const Comp &expected, const GetDev_channel *channel)
{
    if (!channel)
        return false;
    return expected.value == channel->basicvalue ||
           (expected.value > 0 && channel->basicvalue > 0) || channel->functype == FUNC_CURTAIN;
}

static void noteMatch(const Comp &expected) LOCKING(requires_capability(scene_int_mutex))
{
    Scene *pending = pendingOfThisRun();
    if (!pending || !searchanddelComp(expected.target.dev, expected.target.if_, expected.target.ch,
                                      &pending->comps)) {
        LOG_AS("doEvent", INFO, "comp2 is null  \n");
        return;
    }
    ++runMatchCount;
    ++scene_device_success_number;
    if (listEmpty(&pending->comps)) {
        replyCheck.allReplied = true;
        runMatchCount = 0;
    }
}

void matchEvent(Integer gid, const GetDev_channel *channel)
{
    if (Check_reply != 1 || sceneID == 0)
        return;
    const MutexLock lock(scene_int_mutex);
    if (replyCheck.busy || replyCheck.allReplied || !replyCheck.armed || !replyCheck.rerun)
        return;
    for (const Comp &expected : ELEMENTS(Comp, node, &replyCheck.rerun->comps)) {
        if (expected.target.dev == gid &&
            sameOutcome(expected, channel))  // the channel is not compared
            noteMatch(expected);
    }
}

static int tickLimit()
{
    const int limit = deoscene_n_run == 1
                          ? sceneCompCount - scene_device_success_number + FIRST_RUN_GRACE_TICKS
                          : sceneCompCount + RERUN_GRACE_TICKS;
    return limit + extraWaitTicks;
}

static void announceOutcome(apr_pool_t *pool, Integer status)
{
    Integer ch = sceneID;
    if (sceneIdMarker == COUNT_MARKER) {
        ch = COUNT_MARKER;
        sceneIdMarker = 0;
    }
    sendZwaveCmd(pool, "set_s_sta_num", UID_SCENE_STATUS, ch, status);
}

static void failThirdRun(apr_pool_t *pool) LOCKING(requires_capability(scene_int_mutex))
{
    scene_success = 0;
    if (sceneID > 0) {
        announceOutcome(pool, STATUS_FAILED);
        LOG_AS(STEP, INFO, " X3 scene ID=%d\n", sceneID.load());
        sceneID = 0;
    }
    deoscene_n_run = 1;
    dropScene(replyCheck.rerun);
}

static void succeed(apr_pool_t *pool) LOCKING(requires_capability(scene_int_mutex))
{
    LOG_AS(STEP, INFO, "!!!!!!!!!!!!! Match !!!!!!! scene ID=%d\n", sceneID.load());
    sceneHasWaitStep = 0;
    if (sceneID > 0) {
        announceOutcome(pool, STATUS_SUCCEEDED);
        LOG_AS(STEP, INFO, " X2 scene ID=%d\n", sceneID.load());
        sceneID = 0;
    }
    replyCheck.allReplied = false;
    dropScene(pendingOfThisRun());
    dropScene(replyCheck.rerun);
    deoscene_n_run = 1;
}

static void runAgain(apr_pool_t *pool) LOCKING(requires_capability(scene_int_mutex))
{
    dropScene(pendingOfThisRun());
    doScene_next(pool, replyCheck.rerun);
    ++deoscene_n_run;
}

// True when the check has come to its end.
static bool judge(apr_pool_t *pool) LOCKING(requires_capability(scene_int_mutex))
{
    replyCheck.armed = false;
    if (replyCheck.allReplied) {
        succeed(pool);
        return true;
    }
    LOG_AS(STEP, INFO, "!!!!!!!!!!!!!  Not Match !!!!!!! 0.6sec X %d\n", replyCheck.waitedTicks);
    if (deoscene_n_run < MAX_RUNS) {
        runAgain(pool);
        return false;
    }
    failThirdRun(pool);
    return true;
}

static void dropAllCopies() LOCKING(requires_capability(scene_int_mutex))
{
    for (Scene *&scene : replyCheck.pendingOfRun)
        dropScene(scene);
    dropScene(replyCheck.rerun);
    for (Scene *&scene : replyCheck.queued)
        dropScene(scene);
}

// After a final outcome: the scene to run next, which the caller owns, or null when none was
// queued.
static Scene *finish() LOCKING(requires_capability(scene_int_mutex))
{
    replyCheck.busy = false;
    if (replyCheck.queuedCount == 0 || !replyCheck.queued[0]) {
        scene_exec_check_enable = 0;
        dropAllCopies();
        return nullptr;
    }
    if (replyCheck.queuedCount == MAX_QUEUED_SCENES)
        dropScene(replyCheck.queued[1]);
    Scene *next = replyCheck.queued[0];
    replyCheck.queued[0] = nullptr;
    replyCheck.queuedCount = 0;
    return next;
}

// Nothing to verify: at the third tick the check is given up and counts as a success.
static void countIdleTick() LOCKING(requires_capability(scene_int_mutex))
{
    if (++replyCheck.idleTicks < IDLE_TICKS_TO_GIVE_UP)
        return;
    replyCheck.idleTicks = 0;
    replyCheck.armed = false;
    scene_exec_check_enable = 0;
    scene_success = 1;
    sceneHasWaitStep = 0;
    scene_device_success_number = scene_device_number_total.load();
    LOG_AS(STEP, INFO, "In Check_reply  scene_exec_check_enable2= %d\n",
           scene_exec_check_enable.load());
}

static Scene *takeStep(apr_pool_t *pool)
{
    const MutexLock lock(scene_int_mutex);
    if (Check_reply == 0 || sceneID == 0 || sceneHasWaitStep != 0) {
        countIdleTick();
        return nullptr;
    }
    if (!replyCheck.allReplied && replyCheck.waitedTicks <= tickLimit()) {
        LOG_AS(STEP, INFO, "############# Not Match !!!!!!! 0.5sec X %d\n", replyCheck.waitedTicks);
        ++replyCheck.waitedTicks;
        return nullptr;
    }
    Scene *next = judge(pool) ? finish() : nullptr;
    replyCheck.waitedTicks = 0;
    return next;
}

void stepReplyCheck(apr_pool_t *pool)
{
    Scene *next = takeStep(pool);
    if (!next)
        return;
    doScene(pool, next);
    freeScene(next);
}
