#include "scene/tick.h"

#include "main/log.h"
#include "main/threads.h"
#include "main/util.h"
#include "main/waits.h"
#include "scene/housekeeping.h"
#include "scene/runner.h"

#include <csignal>
#include <unistd.h>

static constexpr int TICKS_OF_A_SECOND = 10;
static constexpr useconds_t SHORTEST_LEFT = 6;

static std::atomic<int> ticksWaiting;
static Condition tickPassed;

static bool tickIsOnItsWay()
{
    sigset_t pending;
    sigpending(&pending);
    return ticksWaiting > 0 || sigismember(&pending, SIGALRM) == 1;
}

TickPause::TickPause()
{
    lockMutex(tick_mutex);
    // The mutex is not fair: without this, a row of events could keep a tick out that is due.
    if (ticksWaiting > 0)
        tickPassed.wait(tick_mutex);
    left = ualarm(0, 0);
    // A tick that was all but due comes now, and waits for the event: with the alarm armed for a
    // whole one afterwards it would be lost, and what it had to send late by as much. One that has
    // just been taken is not seen on its way: it comes twice, which does no harm.
    if (left < SHORTEST_LEFT && !tickIsOnItsWay())
        kill(getpid(), SIGALRM);
}

TickPause::~TickPause()
{
    ualarm(left < SHORTEST_LEFT ? TICK_MICROSECONDS : left, 0);
    unlockMutex(tick_mutex);
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
    pthread_setname_np(pthread_self(), "tick");
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
        _exit(1);
    }
    pthread_detach(thread);
}
