// The worker as a process: what it was told to do, how far it came, what it has in memory.

#pragma once

#include "stored.h"
#include "support/child_process.h"

#include <filesystem>
#include <string>
#include <vector>

namespace crash {

class Worker {
public:
    // Starts as the daemon does, with what lies in the folder, and then does the operations.
    void start(const std::filesystem::path &folder, const std::vector<Operation> &operations,
               const std::vector<std::string> &settings = {});

    size_t answers() const;  // one for its start and one for each operation
    int memory() const;      // the number of the configuration that it had at its end
    void expectEnd();        // by itself, with success
    void kill();             // returns when it is dead; programs that it has started may still run

    support::ChildProcess process;
};

// The settings that put the recorder between a program and its files. Not below an emulator, which
// does not ask the C library for what the program asks of the kernel.
inline constexpr const char *NOT_RECORDED = "an emulator's calls cannot be recorded";
std::vector<std::string> recorderSettings(const std::vector<std::string> &more);

// Programs whose parent was killed become children of this one.
void adoptOrphans();
int waitForOrphans();  // until all have ended: how many there were

}  // namespace crash
