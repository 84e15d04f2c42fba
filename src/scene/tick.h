// The tick: a SIGALRM every 95 ms, taken by a thread of its own. It dispatches due scene commands;
// every tenth one, about once a second, does the housekeeping.

#pragma once

#include "main/locks.h"

#include <apr_pools.h>
#include <atomic>
#include <ctime>
#include <unistd.h>

static constexpr useconds_t TICK_MICROSECONDS = 95'000;

extern std::atomic<int> startupRefreshPending;  // the start-up device refresh is still due
extern std::atomic<int>
    gateway_app_star2;  // the gateway counts as started: macros run, writes are accepted
extern std::atomic<int> secondsSinceLastEvent;  // kept for completeness; nothing reads it
extern std::atomic<int> sunrise;  // last announced times, seconds since the epoch; 0 when unknown
extern std::atomic<int> sunset;

// The housekeeping's counters, touched only while tick_mutex is held.
struct TickCounters {
    int scene_init_index;  // ticks since the last housekeeping
    int watchdogCount;     // seconds within the minute, 1..60; 0 only before the first
    int minuteCount;       // minutes, wraps at 30
    int abortCount;        // minutes since the last "abort", wraps at 5
};
extern TickCounters tickCounters LOCKING(guarded_by(tick_mutex));

// Starts the thread that takes SIGALRM. The mutexes have been initialised.
void startTickThread();

// One tick. The caller holds nothing but tick_mutex.
void do_scene_schedule(int signalNumber) LOCKING(requires_capability(tick_mutex));

// The housekeeping of one second, at the given moment and its local time.
void scene_int(time_t now, const tm &local) LOCKING(requires_capability(tick_mutex));

// Stops the alarm for the length of its scope, waiting for a tick that is under way, and re-arms it
// with what was left, or with a whole tick when that is next to nothing.
class LOCKING(scoped_lockable) TickPause {
public:
    TickPause() LOCKING(acquire_capability(tick_mutex));
    ~TickPause() LOCKING(release_capability());
    TickPause(const TickPause &) = delete;
    TickPause &operator=(const TickPause &) = delete;

private:
    useconds_t left;
};
