#include "support/eventually.h"

#include <algorithm>
#include <condition_variable>
#include <cstdlib>
#include <mutex>

namespace support {

// Conditions that nobody announces (a file, a child's end) are looked at this often.
static constexpr Milliseconds LOOK_AGAIN = 10ms;
static constexpr double EMULATION_FACTOR = 4;

// Never destroyed: threads that announce changes may run on while the process ends.
static std::mutex &changeMutex = *new std::mutex;
static std::condition_variable &changed = *new std::condition_variable;
static uint64_t changes = 0;

bool emulated()
{
    static const bool answer = EMULATED || getenv("APP_TEST_EMULATED") != nullptr;
    return answer;
}

void somethingChanged()
{
    {
        const std::lock_guard lock(changeMutex);
        ++changes;
    }
    changed.notify_all();
}

Milliseconds patience(Milliseconds limit)
{
    static const double factor = [] {
        const char *text = getenv("APP_TEST_PATIENCE");
        const double asked = text ? atof(text) : 0;
        return (asked > 0 ? asked : 1) * (emulated() ? EMULATION_FACTOR : TIME_FACTOR);
    }();
    return Milliseconds(static_cast<int64_t>(static_cast<double>(limit.count()) * factor));
}

bool eventually(const std::function<bool()> &condition, Milliseconds limit)
{
    const Moment deadline = Clock::now() + patience(limit);
    for (;;) {
        uint64_t seen;
        {
            const std::lock_guard lock(changeMutex);
            seen = changes;
        }
        if (condition())
            return true;
        if (Clock::now() >= deadline)
            return false;
        std::unique_lock lock(changeMutex);
        changed.wait_until(lock, std::min(deadline, Clock::now() + LOOK_AGAIN),
                           [seen] { return changes != seen; });
    }
}

}  // namespace support
