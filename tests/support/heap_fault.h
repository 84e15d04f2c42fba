// What a test and the library that it preloads (tests/preload/failing_heap.cpp) share in a mapped
// file.

#pragma once

#include <cstddef>
#include <cstdint>

namespace support {

struct HeapFault {
    static constexpr size_t MOST_BLOCKS = 1 << 16;  // that can be watched
    static constexpr size_t NAME_SIZE = 32;

    // A block that is in use, in the slot that its address hashes to, or a later one.
    struct Block {
        uint64_t address;  // 0: none was here, 1: one was
        uint64_t caller;   // the offset of the code that asked for it in its object
    };

    int64_t untilFailure;  // how many allocations until the one that fails; 0: none fails
    uint64_t failedAt;     // the caller's offset in its object
    char failedIn[NAME_SIZE];
    uint32_t watching;  // whether new blocks are noted
    uint32_t inTable;   // held while a block is noted or forgotten
    Block blocks[MOST_BLOCKS];
};

}  // namespace support
