// Which file-system call on the data folder fails, as the test and the recorder in the daemon and
// its children share it: a file that all of them have mapped (APP_CRASH_FAULTS names it).

#pragma once

#include <atomic>

namespace crash {

enum CallKind : unsigned {
    OPEN_TO_WRITE = 1,
    OPEN_TO_READ = 2,
    WRITE = 4,
    SYNC = 8,
    CLOSE = 16,
    RENAME = 32,
    UNLINK = 64,
    EVERY_CALL = 127,
};

struct FaultPlan {
    std::atomic<unsigned> kinds;    // of the calls that count
    std::atomic<int> calls;         // that have been counted
    std::atomic<int> first, last;   // of them that fail, counted from 1
    std::atomic<int> error;         // errno then
    std::atomic<bool> storesAHalf;  // the first write does not fail but stores half of its bytes
};

}  // namespace crash
