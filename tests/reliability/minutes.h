// Minutes for schedules to start and end in, while everything else goes on.

#pragma once

#include "support/eventually.h"
#include "support/wall_clock.h"

#include <string>

// The daemon's wall clock. It is only ever set forth, by less than a minute and seldom: commands
// that are planned keep their moment of the clock, and a step back would hold them up.
class MinuteClock : public support::WallClock {
public:
    MinuteClock()
    {
        go(NOON);
    }
    // The minute of the day that it is, and still will be when what is asked for now is done.
    int minuteOfDay()
    {
        time_t now = base + support::millisecondsBetween(since, support::Clock::now()) / 1000;
        if (now % MINUTE > MINUTE / 2) {
            now += MINUTE - now % MINUTE;
            go(now);
        }
        return static_cast<int>(now / MINUTE % MINUTES_OF_DAY);
    }

private:
    static constexpr time_t NOON = 1719835200;  // 2024-07-01 12:00 UTC
    static constexpr time_t MINUTE = 60;
    static constexpr time_t MINUTES_OF_DAY = 24 * 60;

    void go(time_t now)
    {
        set(now);
        base = now;
        since = support::Clock::now();
    }

    time_t base;
    support::Moment since;
};

// As members of a schedule: every day, from minute to minute of the day.
inline std::string everyDay(int from, int to)
{
    const auto minute = [](const std::string &edge, int ofDay) {
        return ",\"" + edge + "_hour\":" + std::to_string(ofDay / 60) + ",\"" + edge +
               "_minute\":" + std::to_string(ofDay % 60);
    };
    return R"("enabled":1,"weekdays":127)" + minute("start", from) + minute("end", to);
}
