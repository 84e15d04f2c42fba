// The tick: a SIGALRM every 95 ms, taken by a thread of its own. It dispatches due scene commands;
// every tenth one, about once a second, does the housekeeping.

#pragma once

#include "main/locks.h"

#include <unistd.h>

static constexpr useconds_t TICK_MICROSECONDS = 95'000;

// Starts the thread that takes SIGALRM. The mutexes have been initialised.
void startTickThread();

// One tick. The caller holds nothing but tick_mutex.
void do_scene_schedule(int signalNumber) LOCKING(requires_capability(tick_mutex));

// Stops the alarm for the length of its scope, waiting for a tick that is under way, and re-arms it
// with what was left. When that is next to nothing, the tick comes right after the scope, and the
// alarm is armed for a whole one.
class LOCKING(scoped_lockable) TickPause {
public:
    TickPause() LOCKING(acquire_capability(tick_mutex));
    ~TickPause() LOCKING(release_capability());
    TickPause(const TickPause &) = delete;
    TickPause &operator=(const TickPause &) = delete;

private:
    useconds_t left;
};
