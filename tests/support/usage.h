// What a program takes of the machine, looked at from outside while it runs.

#pragma once

#include "support/client.h"
#include "support/shared_record.h"

#include <cstdint>
#include <functional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace support {

size_t threadsOf(pid_t process);
size_t descriptorsOf(pid_t process);

// The memory that it has written to; what its files take is shared, and comes and goes. (What a
// build has just put on the disk counts as dirty where it is mapped, too, as long as it is not
// there.) An emulator has the program's addresses, of 32 bits, below its own.
int64_t privateKilobytesOf(pid_t process);

size_t zombiesOf(pid_t process);  // children that have ended and that it has not waited for

// The bus library keeps a few messages for the next ones, each as large as the largest it has held:
// afterwards the daemon keeps none, until the next ones.
void emptyMessageCache(Client &client);

// Looks into the heap of a program that it is preloaded into. A sanitizer has a heap of its own: it
// is left alone, and counts as empty.
class HeapProbe {
public:
    // For the environment of the program. What threads keep for themselves of what they have freed
    // would count as in use: they keep nothing.
    std::vector<std::string> settings() const;

    int64_t bytesInUse();

    // The least of some looks, `between` before each: what lives but for a moment is not in it.
    int64_t leastInUse(const std::function<void()> &between);

private:
    // As tests/preload/heap_probe.cpp has it.
    struct HeapReport {
        uint32_t asked;
        uint32_t answered;
        uint64_t inUse;
    };
    SharedRecord<HeapReport> report;
};

// Has a program tell, at its orderly end, how much of its stack each thread has used. Not under a
// sanitizer.
class StackProbe {
public:
    struct Stack {
        std::string thread;
        int64_t used;  // bytes
        int64_t size;
    };

    std::vector<std::string> settings() const;  // for the environment of the program
    std::vector<Stack> stacks() const;

private:
    TempDir folder;
};

}  // namespace support
