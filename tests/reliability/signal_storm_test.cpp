// SIGALRM and SIGUSR1 at any moment, under load, and SIGTERM in the middle of it.

#include "support/daemon_on_its_own_bus.h"
#include "support/door_and_lamp.h"
#include "support/scale.h"

#include <atomic>
#include <csignal>
#include <random>
#include <sys/wait.h>
#include <thread>

using namespace support;

static constexpr uint16_t REPORT = 5001;

static std::string alarmOf(int number)
{
    return R"({"alarm":{"duration":)" + std::to_string(number) + "}}";
}

class SignalStorm : public DaemonOnItsOwnBus {
protected:
    void SetUp() override
    {
        DaemonOnItsOwnBus::SetUp();
        addDoorAndLamp(sdk);
        startWith(DOOR_AND_LAMP, {"OVRIN_LOG_LEVEL=4"});
        gatewayReady();
    }
    // Of each kind so many, now in a row, now with a pause, until then or until nobody wants more.
    void storm(int number, const std::atomic<bool> &enough)
    {
        std::mt19937 random{1};
        int alarms = number;
        int schedules = number;
        while (alarms + schedules > 0 && !enough) {
            const bool alarm = schedules == 0 || (alarms > 0 && random() % 2 == 0);
            --(alarm ? alarms : schedules);
            daemon.signal(alarm ? SIGALRM : SIGUSR1);
            if (random() % 20 == 0)
                std::this_thread::sleep_for(std::chrono::microseconds(random() % 2000));
        }
    }
    // Without being waited for: its number stays its own while signals are sent to it.
    bool hasEnded() const
    {
        siginfo_t info = {};
        const auto pid = static_cast<id_t>(daemon.pid());
        return waitid(P_PID, pid, &info, WEXITED | WNOHANG | WNOWAIT) == 0 && info.si_pid != 0;
    }
    // Every report of the door has had its thread, and every run of the macro its one command.
    void expectEveryRunComplete()
    {
        eventHandled(REPORT, 6, 0);  // the last of them
        const size_t threads = announced(REPORT, 5);
        ASSERT_TRUE(eventually([&] { return daemon.timesLogged(" end\n") == threads; }));
        EXPECT_TRUE(tickUntil([&] { return sdk.count(LAMP) >= macroEvents().size(); }));
        EXPECT_EQ(sdk.count(LAMP), macroEvents().size());
    }
};

TEST_F(SignalStorm, OfHundredThousandOfEachKindStopsNothing)
{
    std::atomic<bool> enough = false;
    std::atomic<bool> done = false;
    std::thread signals([&] {
        storm(inFull(100'000, 10'000), enough);
        done = true;
    });
    size_t sounds = 0;
    int64_t slowest = 0;
    for (int i = 0; !done && !HasFailure(); ++i) {
        event(REPORT, i % 3 ? 6 : 5, 0);
        callForText("doscene", "Siren");
        ++sounds;
        const Moment asked = Clock::now();
        EXPECT_EQ(callForNumber("jsonsetall", alarmOf(i)), 1);
        slowest = std::max(slowest, millisecondsBetween(asked, Clock::now()));
    }
    enough = true;
    signals.join();
    EXPECT_TRUE(eventually([&] { return sdk.count(sysSound(4)) == sounds; }));
    EXPECT_GT(sounds, 3u);
    expectEveryRunComplete();
    sdk.forgetHeard();
    eventHandled(REPORT, 5, 0);
    EXPECT_TRUE(eventually([&] { return macroEvents().size() == 1; }));
    EXPECT_TRUE(tickUntil([&] { return sdk.heard(LAMP); }));
    EXPECT_EQ(sdk.count(LAMP), 1u) << "no command is left over or doubled";
    figure("requests", static_cast<int64_t>(sounds), "requests");
    figure("slowest_answer_ms", slowest, "ms");
}

TEST_F(SignalStorm, WithSigtermInItEndsWithinASecondAndWithAWholeDocument)
{
    int64_t longest = 0;
    const int rounds = inFull(100, 5);
    for (int round = 0; round < rounds && !HasFailure(); ++round) {
        if (round > 0) {
            start({"OVRIN_LOG_LEVEL=4"});
            gatewayReady();
        }
        std::atomic<bool> enough = false;
        std::thread signals([&] { storm(1'000'000, enough); });
        std::vector<std::shared_ptr<PendingReply>> replies;
        for (int i = 0; i < 20; ++i) {
            event(REPORT, i % 3 ? 6 : 5, 0);
            replies.push_back(client.call(APP, "jsonsetall", {alarmOf(i)}));
        }
        const auto awaited = static_cast<size_t>(round % 10);
        EXPECT_TRUE(eventually([&] { return replies[awaited]->arrived(); }));
        const Moment asked = Clock::now();
        daemon.signal(SIGTERM);
        EXPECT_TRUE(eventually([&] { return hasEnded(); }));
        const int64_t took = millisecondsBetween(asked, Clock::now());
        enough = true;
        signals.join();
        daemon.expectEnd(0);
        longest = std::max(longest, took);
        if (SPEED_COUNTS) {
            EXPECT_LT(took, inFull(1'000, 3'000));
        }
        // What was answered is stored, and what is stored is whole.
        const Json stored(daemon.storedSetup());
        EXPECT_EQ(stored["scenes"].size(), 2u);
        EXPECT_GE(stored["alarm"]["duration"].integer(), static_cast<int64_t>(awaited));
    }
    endsOrderly = false;
    figure("rounds", rounds, "rounds");
    figure("longest_end_ms", longest, "ms");
}
