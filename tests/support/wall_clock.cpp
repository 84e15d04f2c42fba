#include "support/wall_clock.h"

#include <atomic>

namespace support {

std::vector<std::string> WallClock::settings(const std::string &zone) const
{
    return {
        "LD_PRELOAD=" SHIFTED_CLOCK,
        "APP_TEST_CLOCK=" + difference.path(),
        "TZ=" + zone,
    };
}

void WallClock::set(time_t now)
{
    static constexpr int64_t SECOND = 1'000'000'000;
    timespec real;
    clock_gettime(CLOCK_REALTIME, &real);
    if (int64_t *shared = difference.get())
        std::atomic_ref<int64_t>(*shared).store((now - real.tv_sec) * SECOND - real.tv_nsec);
}

void WallClock::set(int year, int month, int day, int hour, int minute, int second)
{
    tm utc = {};
    utc.tm_year = year - 1900;
    utc.tm_mon = month - 1;
    utc.tm_mday = day;
    utc.tm_hour = hour;
    utc.tm_min = minute;
    utc.tm_sec = second;
    set(timegm(&utc));
}

}  // namespace support
