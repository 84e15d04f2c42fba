// The programs that deliver a message to a phone, as fakes that remember how they were started.
//
// Their folder is the whole PATH of the daemon: nothing else can be started by its bare name, and
// "intruder", which nobody has a reason to start, tells on whoever does.

#pragma once

#include "support/temp_dir.h"

#include <string>
#include <sys/types.h>
#include <vector>

namespace support {

struct HelperRun {
    std::string program;
    std::vector<std::string> arguments;
    pid_t pid;
    bool alone;  // no other ran at that moment
};

class PushHelpers {
public:
    PushHelpers();
    ~PushHelpers();  // lets go of those that are held
    PushHelpers(const PushHelpers &) = delete;
    PushHelpers &operator=(const PushHelpers &) = delete;

    // For the environment of the daemon.
    std::vector<std::string> settings() const;

    std::vector<HelperRun> runs() const;  // in the order of their starts
    size_t count() const
    {
        return runs().size();
    }
    // The runs as words: the program and its arguments.
    std::vector<std::vector<std::string>> commands() const;
    std::vector<std::string> texts() const;  // the last argument of each run

    void hold();  // from now on they do not end
    void release();
    void fail();  // from now on they end with status 1
    void remove(const std::string &program);

    const TempDir folder;

private:
    int pipe = -1;
};

}  // namespace support
