// The daemon under test, as a process of its own.

#pragma once

#include "support/child_process.h"
#include "support/temp_dir.h"

#include <string>
#include <string_view>
#include <vector>

namespace support {

// Its path; APP_TEST_DAEMON names another, for example that of a release.
const char *daemonProgram();

class DaemonProcess {
public:
    // Its data folder lives as long as this object: a second start finds what the first has saved.
    TempDir data;

    void writeSetup(std::string_view json);  // appSetup.json as it is stored
    std::string storedSetup() const;  // its text, "" when there is none or its layout is wrong

    // What stands before the daemon's program on the command line that starts it, such as "setpriv"
    // with its options; it has to become the daemon in place, as the same process.
    std::vector<std::string> starter;
    // Only root can: it is started as that user, who may go to files where only root goes.
    void runAs(const std::string &account);
    void start(const std::string &busAddress, const std::vector<std::string> &settings = {});

    // Ends it the orderly way. Fails the test when it had ended before, does not end now, ends with
    // another status than 0, or when a sanitizer or the check of the lock order has complained.
    void stop();
    // It ends by itself, soon, with that exit status; complaints count all the same.
    void expectEnd(int exitStatus, Milliseconds limit = 5s);

    bool running()
    {
        return process.running();
    }
    bool inMainLoop()
        const;  // the start-up is over: signals that end it or ask for the schedules are taken
    pid_t pid() const
    {
        return process.pid();
    }
    size_t threads() const;  // how many it has now; 0 when it has ended
    void signal(int number) const
    {
        process.signal(number);
    }

    // Its lines as they are on a terminal.
    std::string log(size_t from = 0) const
    {
        return process.output(from);
    }
    size_t logSize() const
    {
        return process.outputSize();
    }
    bool logged(const std::string &text, size_t from = 0) const
    {
        return process.outputHolds(text, from);
    }
    bool eventuallyLogged(const std::string &text, size_t from = 0, Milliseconds limit = 8s) const
    {
        return eventually([&] { return logged(text, from); }, limit);
    }
    size_t timesLogged(const std::string &text) const;

    // The last part of the log, to be shown beside a failure.
    std::string logTail() const;

private:
    void checkComplaints() const;

    ChildProcess process;
};

}  // namespace support
