// Waits that end early when something happens that may concern the waiting thread. The tick
// interrupts them about once a second: that is how a macro thread that a newer one has replaced
// notices it.

#pragma once

#include "main/locks.h"

#include <ctime>

// What a wait of its own can be interrupted by, beside the tick. Zero-filled at first.
struct WaitPoint {
    unsigned interruptions LOCKING(guarded_by(wait_mutex));
};

// Waits for `remaining`. True when the wait was interrupted; `remaining` then holds what is left of
// it.
bool waitInterruptibly(timespec &remaining, const WaitPoint &point);

// Ends the wait at one point, or every wait that is under way.
void interruptWait(WaitPoint &point);
void interruptWaits();
