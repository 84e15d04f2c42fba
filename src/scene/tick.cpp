#include "scene/tick.h"

#include "bus/outbound.h"
#include "config/snapshot.h"
#include "main/log.h"
#include "main/scope.h"
#include "main/settings.h"
#include "main/threads.h"
#include "main/util.h"
#include "main/waits.h"
#include "scene/reply_check.h"
#include "scene/runner.h"
#include "scene/sdk_command.h"

#include <csignal>
#include <cstdlib>

std::atomic<int> startupRefreshPending{1};
std::atomic<int> gateway_app_star2;
std::atomic<int> secondsSinceLastEvent;
std::atomic<int> sunrise;
std::atomic<int> sunset;
TickCounters tickCounters = {
    .scene_init_index = 0, .watchdogCount = 0, .minuteCount = 30, .abortCount = 0};

static constexpr int TICKS_OF_A_SECOND = 10;
static constexpr int SECONDS_OF_A_MINUTE = 60;
static constexpr int ASK_ASSOCIATION_AT = 20;
static constexpr int REFRESH_AT = 31;
static constexpr int MINUTES_OF_A_ROUND = 30;
static constexpr int STARTED_AT_MINUTE = 4;
static constexpr int ABORT_EVERY = 5;
static constexpr int KICK = 77;
static constexpr useconds_t SHORTEST_LEFT = 6;

// A clock that reads less has never been set. Deliberate: the two differ by one, and at exactly
// 1508689533 neither applies.
static constexpr long long CLOCK_SET_FROM = 1508689534;
static constexpr long long CLOCK_UNSET_BELOW = 1508689533;

// The steps of a second log in its name.
static constexpr const char *SECOND = "scene_int";

static std::atomic<int> ticksWaiting;
static Condition tickPassed;

TickPause::TickPause()
{
    lockMutex(tick_mutex);
    // The mutex is not fair: without this, a row of events could keep a tick out that is due.
    if (ticksWaiting > 0)
        tickPassed.wait(tick_mutex);
    left = ualarm(0, 0);
}

TickPause::~TickPause()
{
    ualarm(left < SHORTEST_LEFT ? TICK_MICROSECONDS : left, 0);
    unlockMutex(tick_mutex);
}

static void askSdkDaemon(const char *command, Integer uid)
{
    const Owned<apr_pool_t> pool = createPool();
    sendOvrinSdkCmd(pool.get(), command, uid);
}

static void refreshDevices()
{
    const Owned<apr_pool_t> pool = createPool();
    updateAllDev(pool.get());
}

static void refreshAfterStart(long long now) LOCKING(requires_capability(tick_mutex))
{
    if (startupRefreshPending != 1)
        return;
    const int seconds = tickCounters.watchdogCount;
    if (seconds == ASK_ASSOCIATION_AT && appstart_time_flag == 1)
        askSdkDaemon("getassociation", UID_SDK_DAEMON);
    if (seconds < REFRESH_AT)
        return;
    if (appstart_time_flag == 1 && now >= CLOCK_SET_FROM) {
        startupRefreshPending = 0;
        askSdkDaemon("getswitch", UID_SDK_DAEMON);
        refreshDevices();
        LOG_AS(SECOND, INFO, "Watch dog count %d, \n", seconds);
    } else if (now < CLOCK_UNSET_BELOW) {
        startupRefreshPending = 0;
        refreshDevices();
    }
    if (now >= CLOCK_SET_FROM)
        startupRefreshPending = 0;
}

// The watchdog is fed only while the SDK daemon answers.
static void kickWatchdog()
{
    const Owned<apr_pool_t> pool = createPool();
    if (sendOvrinSdkCmd(pool.get(), "getZWID", 0))
        dbus_signal_json_kick_dog(pool.get(), KICK);
}

static void runMinuteBlock(const tm &local) LOCKING(requires_capability(tick_mutex))
{
    TickCounters &count = tickCounters;
    count.watchdogCount = 1;
    kickWatchdog();
    ++count.minuteCount;
    ++count.abortCount;
    if (count.minuteCount == STARTED_AT_MINUTE || appstart_time_flag == 0)
        gateway_app_star2 = 1;
    LOG_AS(SECOND, INFO, "resettime1440= %d  hour = %d gateway_app_star2 =%d\n", count.minuteCount,
           local.tm_hour, gateway_app_star2.load());
    if (count.minuteCount >= MINUTES_OF_A_ROUND)
        count.minuteCount = 0;
    if (count.abortCount >= ABORT_EVERY) {
        count.abortCount = 0;
        askSdkDaemon("abort", UID_SDK_DAEMON);
    }
}

void scene_int(time_t now, const tm &local)
{
    ++secondsSinceLastEvent;
    if (replyCheckIsArmed()) {
        const Owned<apr_pool_t> pool = createPool();
        stepReplyCheck(pool.get());
        return;
    }
    refreshAfterStart(now);
    if (tickCounters.watchdogCount == SECONDS_OF_A_MINUTE) {
        LOG(INFO, "Watch dog count %d, abort count =%d appstart_time_flag=%d\n",
            tickCounters.watchdogCount, tickCounters.abortCount, appstart_time_flag.load());
    }
    if (++tickCounters.watchdogCount > SECONDS_OF_A_MINUTE)
        runMinuteBlock(local);
}

void do_scene_schedule(int)
{
    ualarm(TICK_MICROSECONDS, 0);  // first, so that whatever follows only delays the next tick
    dispatchStep(millisecondStamp());
    if (++tickCounters.scene_init_index < TICKS_OF_A_SECOND)
        return;
    interruptWaits();
    const tm local = *getCurTime();
    scene_int(time(nullptr), local);
    tickCounters.scene_init_index = 0;
}

// The tick thread, the only one that takes SIGALRM, at a point where it holds nothing. A tick that
// falls into an event waits until the event is done. It runs as long as the process.
static void *takeTicks(void *)
{
    sigset_t alarmSignal;
    sigemptyset(&alarmSignal);
    sigaddset(&alarmSignal, SIGALRM);
    for (;;) {
        int number = 0;
        if (sigwait(&alarmSignal, &number) != 0)
            continue;
        ++ticksWaiting;
        const MutexLock lock(tick_mutex);
        --ticksWaiting;
        do_scene_schedule(number);
        tickPassed.wakeAll();
    }
    return nullptr;
}

void startTickThread()
{
    pthread_t thread;
    if (createThread(&thread, takeTicks, nullptr) != 0) {
        LOG(ERROR, "pthread_create fail\n");
        exit(1);
    }
    pthread_detach(thread);
}
