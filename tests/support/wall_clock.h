// A wall clock for the daemon that a test sets. It runs on from there; what the daemon measures
// (its ticks, waits and time-outs) is not touched.

#pragma once

#include "support/shared_record.h"

#include <cstdint>
#include <ctime>
#include <string>
#include <vector>

namespace support {

class WallClock {
public:
    // For the daemon's start: it lives by this clock, in a time zone as TZ takes it.
    std::vector<std::string> settings(const std::string &zone = "UTC0") const;

    // At any time, also while the daemon runs.
    void set(time_t now);
    void set(int year, int month, int day, int hour, int minute, int second = 0);  // UTC

private:
    SharedRecord<int64_t> difference;
};

}  // namespace support
