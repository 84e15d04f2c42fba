#include "support/daemon_process.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <pwd.h>
#include <sys/syscall.h>

namespace support {

static constexpr const char *SETUP = "appSetup.json";
static constexpr size_t TAIL = 6000;

static constexpr const char *COMPLAINTS[] = {
    "ERROR: AddressSanitizer", "LeakSanitizer",          "WARNING: ThreadSanitizer",
    "runtime error:",          "ERROR: ThreadSanitizer", "lock order:",
};

const char *daemonProgram()
{
    const char *other = getenv("APP_TEST_DAEMON");
    return other ? other : APP_BINARY;
}

void DaemonProcess::writeSetup(std::string_view json)
{
    data.write(SETUP, storedLayout(json));
}

std::string DaemonProcess::storedSetup() const
{
    const std::string bytes = data.read(SETUP).value_or("");
    if (bytes.size() < 5)
        return "";
    const std::string text = bytes.substr(4, bytes.size() - 5);
    return storedLayout(text) == bytes ? text : "";
}

void DaemonProcess::runAs(const std::string &account)
{
    const passwd *user = getpwnam(account.c_str());
    ASSERT_TRUE(user) << "no user " << account;
    starter = {"/usr/bin/setpriv",
               "--reuid=" + std::to_string(user->pw_uid),
               "--regid=" + std::to_string(user->pw_gid),
               "--clear-groups",
               "--inh-caps=+dac_override",
               "--ambient-caps=+dac_override",
               "--pdeathsig=KILL"};
}

void DaemonProcess::start(const std::string &busAddress, const std::vector<std::string> &settings)
{
    std::vector<std::string> all{
        "DBUS_SYSTEM_BUS_ADDRESS=" + busAddress,
        "APP_DATA_DIR=" + data.path().string(),
        "OVRIN_LOG_LEVEL=2",
        "TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1:suppressions=" TSAN_SUPPRESSIONS,
        "ASAN_OPTIONS=detect_leaks=1:verify_asan_link_order=0",  // a clock may be preloaded
        "UBSAN_OPTIONS=print_stacktrace=1",
        "LC_ALL=C",
    };
    all.insert(all.begin(), settings.begin(), settings.end());  // the first of a name counts
    std::vector<std::string> command = starter;
    command.emplace_back(daemonProgram());
    process.takeOffLevels();
    process.start(command, all);
}

// A line of /proc/PID/status that holds a set of signals, as a bit mask.
static uint64_t signalSet(pid_t pid, const std::string &name)
{
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind(name + ":", 0) == 0)
            return std::stoull(line.substr(name.size() + 1), nullptr, 16);
    }
    return 0;
}

// Whether its main thread waits for signals alone: it polls, and no descriptor.
static bool waitsForSignals(pid_t pid)
{
    std::ifstream file("/proc/" + std::to_string(pid) + "/syscall");
    long number = -1;
    std::string descriptors, count;
    return file >> number >> descriptors >> count && number == SYS_ppoll && count == "0x0";
}

bool DaemonProcess::inMainLoop() const
{
    // The kernel knows only the emulator's own signals.
    if (emulated())
        return waitsForSignals(pid());
    const auto bit = [](int number) { return uint64_t{1} << (number - 1); };
    return (signalSet(pid(), "SigCgt") & bit(SIGTERM)) != 0 &&
           (signalSet(pid(), "SigBlk") & bit(SIGUSR1)) == 0;
}

size_t DaemonProcess::threads() const
{
    size_t count = 0;
    std::error_code gone;
    const std::string tasks = "/proc/" + std::to_string(pid()) + "/task";
    for (const auto &task : std::filesystem::directory_iterator(tasks, gone)) {
        (void)task;
        ++count;
    }
    return count;
}

void DaemonProcess::checkComplaints() const
{
    for (const char *complaint : COMPLAINTS) {
        EXPECT_FALSE(logged(complaint)) << complaint << " in the log:\n"
                                        << log(log().find(complaint)).substr(0, TAIL);
    }
}

void DaemonProcess::expectEnd(int exitStatus, Milliseconds limit)
{
    const std::optional<int> status = process.waitForEnd(limit);
    if (status) {
        EXPECT_EQ(*status, exitStatus << 8) << describeEnd(*status) << "\n" << logTail();
    } else {
        ADD_FAILURE() << "the daemon does not end\n" << logTail();
    }
    checkComplaints();
}

void DaemonProcess::stop()
{
    EXPECT_TRUE(running()) << "the daemon has ended by itself";
    process.signal(SIGTERM);
    expectEnd(0, 10s);
}

size_t DaemonProcess::timesLogged(const std::string &text) const
{
    const std::string all = log();
    size_t count = 0;
    for (size_t at = all.find(text); at != std::string::npos; at = all.find(text, at + 1))
        ++count;
    return count;
}

std::string DaemonProcess::logTail() const
{
    const size_t size = logSize();
    return "... " + log(size > TAIL ? size - TAIL : 0);
}

}  // namespace support
