#include "main/waits.h"

#include "main/locks.h"

static Condition interrupted;
static unsigned interruptions LOCKING(guarded_by(wait_mutex));

bool waitInterruptibly(timespec &remaining, WaitPoint &point)
{
    const timespec deadline = monotonicDeadline(remaining);
    const MutexLock lock(wait_mutex);
    const unsigned begin = interruptions;
    while (interruptions == begin && point.interruptions == point.seen) {
        if (!interrupted.waitUntil(wait_mutex, deadline))
            return false;
    }
    point.seen = point.interruptions;
    remaining = timeUntil(deadline);
    return true;
}

static void interrupt(unsigned &count) LOCKING(requires_capability(wait_mutex))
{
    ++count;
    interrupted.wakeAll();
}

void interruptWait(WaitPoint &point)
{
    const MutexLock lock(wait_mutex);
    interrupt(point.interruptions);
}

void interruptWaits()
{
    const MutexLock lock(wait_mutex);
    interrupt(interruptions);
}
