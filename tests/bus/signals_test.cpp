// What signals do to the daemon.

#include "support/daemon_on_its_own_bus.h"

#include <csignal>
#include <filesystem>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

using namespace support;
using namespace std::chrono_literals;

class Signals : public DaemonOnItsOwnBus {
protected:
    std::vector<pid_t> otherThreads() const
    {
        std::vector<pid_t> threads;
        const std::string folder = "/proc/" + std::to_string(daemon.pid()) + "/task";
        for (const auto &entry : std::filesystem::directory_iterator(folder)) {
            const pid_t tid = std::stoi(entry.path().filename());
            if (tid != daemon.pid())
                threads.push_back(tid);
        }
        return threads;
    }
    void signalThread(pid_t tid, int number) const
    {
        ASSERT_EQ(syscall(SYS_tgkill, daemon.pid(), tid, number), 0);
    }
};

TEST_F(Signals, ForTheSchedulesAreTakenByTheMainThreadAlone)
{
    startWith("{}");
    ASSERT_TRUE(eventually([&] { return daemon.inMainLoop(); }));
    const std::vector<pid_t> threads = otherThreads();
    ASSERT_GE(threads.size(),
              4u);  // the tick, the listener, its outbound fellow and the event worker
    for (const pid_t tid : threads)
        signalThread(tid, SIGUSR1);
    listenerIsIdle();
    EXPECT_EQ(daemon.timesLogged("schedule signal"), 0u);
    signalThread(daemon.pid(), SIGUSR1);
    EXPECT_TRUE(daemon.eventuallyLogged("schedule signal"));
    EXPECT_EQ(daemon.timesLogged("schedule signal"), 1u);
}

TEST_F(Signals, OfACrashAreLoggedAndCallForTheDebugger)
{
    endsOrderly = false;
    const std::filesystem::path fake = daemon.data.file("killall");
    const std::filesystem::path called = daemon.data.file("called");
    daemon.data.write("killall", "#!/bin/sh\necho \"$@\" >" + called.string() + "\n");
    chmod(fake.c_str(), 0755);
    startWith("{}", {"PATH=" + daemon.data.path().string() + ":/usr/bin:/bin"});
    daemon.signal(SIGSEGV);
    daemon.expectEnd(1);
    EXPECT_TRUE(daemon.logged("6 sighandler:"));
    EXPECT_TRUE(daemon.logged(" catch 11\n"));
    ASSERT_TRUE(eventually([&] { return daemon.data.read("called") == "-SIGUSR1 debuger\n"; }));
}

class SignalsThatEnd : public Signals, public testing::WithParamInterface<int> {};

TEST_P(SignalsThatEnd, DoSoWithinASecond)
{
    endsOrderly = false;
    startWith("{}");
    ASSERT_TRUE(eventually([&] { return daemon.inMainLoop(); }));
    daemon.signal(GetParam());
    daemon.expectEnd(0, 1s);
}

INSTANTIATE_TEST_SUITE_P(TheDaemon, SignalsThatEnd, testing::Values(SIGTERM, SIGINT));
