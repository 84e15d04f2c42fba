// Makes file-system calls on a data folder fail in programs that run with the recorder.

#pragma once

#include "fault_plan.h"
#include "support/temp_dir.h"

#include <string>

namespace crash {

inline constexpr int FOR_EVER = 1'000'000;

class Faults {
public:
    Faults();
    ~Faults();
    Faults(const Faults &) = delete;
    Faults &operator=(const Faults &) = delete;

    std::string setting() const;  // for the program

    // From now on calls of these kinds are counted, from 1, and so many fail from the first on. If
    // that is a write it may store a half of its bytes instead.
    void fail(int first, int calls, int error, unsigned kinds = EVERY_CALL,
              bool storesAHalf = false);
    void end();
    int callsUntilNow() const;

private:
    support::TempDir folder;
    FaultPlan *plan;
};

}  // namespace crash
