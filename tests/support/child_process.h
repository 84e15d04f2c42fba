// A program that a test starts: its output is collected, and it never outlives the test program.

#pragma once

#include "support/eventually.h"

#include <mutex>
#include <optional>
#include <string>
#include <sys/types.h>
#include <thread>
#include <vector>

namespace support {

class ChildProcess {
public:
    ChildProcess() = default;
    ~ChildProcess();  // kills what still runs
    ChildProcess(const ChildProcess &) = delete;
    ChildProcess &operator=(const ChildProcess &) = delete;

    // Settings are "NAME=value" and take the place of inherited ones; a bare "NAME" removes one.
    // The first of a name counts.
    void start(const std::vector<std::string> &command, const std::vector<std::string> &settings);

    // Takes the "<n>" off the beginning of each line that begins with one: for programs that log
    // for a supervisor. Before the start.
    void takeOffLevels()
    {
        withoutLevels = true;
    }

    pid_t pid() const
    {
        return child;
    }
    bool running();  // false also before the start
    void signal(int number) const;

    // The status as waitpid gives it; nothing when it still runs after the (stretched) limit.
    std::optional<int> waitForEnd(Milliseconds limit);

    // What it wrote to its standard output and error until now, from that many bytes on: what it
    // wrote before it sent a message is here when the message is.
    std::string output(size_t from = 0) const;
    size_t outputSize() const;
    bool outputHolds(const std::string &text, size_t from = 0) const;

private:
    void collect();
    bool drain() const;
    void take(const char *bytes, size_t count) const;
    void reap(bool wait);

    pid_t child = -1;
    std::optional<int> status;
    std::thread reader;
    mutable std::mutex outputMutex;  // guards what follows
    int outputEnd = -1;
    mutable bool outputEnded = false;
    mutable std::string collected;
    mutable std::string unread;  // the first bytes of a line that may be a level
    mutable bool lineBegins = true;
    bool withoutLevels = false;
};

// "exit status 1", "killed by signal 11 (Segmentation fault)"
std::string describeEnd(int status);

}  // namespace support
