// A wall clock for the daemon that a test sets. It runs on from there; what the daemon measures
// (its ticks, waits and time-outs) is not touched.

#pragma once

#include "support/temp_dir.h"

#include <cstdint>
#include <ctime>
#include <string>
#include <vector>

namespace support {

class WallClock {
public:
    WallClock();
    ~WallClock();
    WallClock(const WallClock &) = delete;
    WallClock &operator=(const WallClock &) = delete;

    // For the daemon's start: it lives by this clock, in a time zone as TZ takes it.
    std::vector<std::string> settings(const std::string &zone = "UTC0") const;

    // At any time, also while the daemon runs.
    void set(time_t now);
    void set(int year, int month, int day, int hour, int minute, int second = 0);  // UTC

private:
    TempDir folder;
    int64_t *difference = nullptr;
};

}  // namespace support
