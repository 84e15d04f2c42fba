// Lets one allocation of a program fail, whichever a test asks for, while the program runs; and
// tells what the program has kept of what it allocated.

#pragma once

#include "support/heap_fault.h"
#include "support/shared_record.h"

#include <cstdint>
#include <string>
#include <vector>

namespace support {

class FailingHeap {
public:
    // For the environment of the program.
    std::vector<std::string> settings() const;

    // From now on the n-th allocation fails, once.
    void failAllocation(int64_t n);
    bool hasFailed() const;
    // None fails any more. False when one has.
    bool stop();
    // Where the failure was, in the program or its library, as addr2line takes it.
    std::string place() const;

    // From now on until endWatch it is noted what the program allocates; what was noted before is
    // forgotten. Libraries are left out.
    void watch();
    void endWatch();
    // Where it has allocated what is still in use, as addr2line takes it; sorted.
    std::vector<std::string> kept() const;

private:
    SharedRecord<HeapFault> fault;
};

}  // namespace support
