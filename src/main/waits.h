// Waits that end early when something happens that may concern the waiting thread: a macro thread
// is told so when a newer one of its macro starts, and the tick interrupts every wait about once a
// second.

#pragma once

#include "main/locks.h"

#include <ctime>

// What a thread's own waits are interrupted by, beside the tick. Zero-filled at first. An
// interruption that finds the thread between two waits ends the next one.
struct WaitPoint {
    unsigned interruptions LOCKING(guarded_by(wait_mutex));
    unsigned seen LOCKING(guarded_by(wait_mutex));
};

// Waits for `remaining`. True when the wait was interrupted; `remaining` then holds what is left.
bool waitInterruptibly(timespec &remaining, WaitPoint &point);

// Ends the wait at one point, or every wait that is under way.
void interruptWait(WaitPoint &point);
void interruptWaits();
