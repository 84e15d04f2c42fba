#include "main/waits.h"

#include "main/locks.h"

static Condition interrupted;
static unsigned interruptions LOCKING(guarded_by(wait_mutex));

static timespec timeUntil(const timespec &deadline)
{
    static constexpr long NANOSECONDS = 1'000'000'000;
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    timespec left = {deadline.tv_sec - now.tv_sec, deadline.tv_nsec - now.tv_nsec};
    if (left.tv_nsec < 0) {
        left.tv_nsec += NANOSECONDS;
        --left.tv_sec;
    }
    if (left.tv_sec < 0)
        left = {0, 0};
    return left;
}

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
