// SIGALRM and SIGUSR1 at any moment, under load, while a schedule starts and ends all the time, and
// SIGTERM in the middle of it.

#include "minutes.h"
#include "support/daemon_on_its_own_bus.h"
#include "support/door_and_lamp.h"
#include "support/scale.h"

#include <algorithm>
#include <atomic>
#include <csignal>
#include <filesystem>
#include <random>
#include <sys/wait.h>
#include <thread>

using namespace support;

static constexpr uint16_t REPORT = 5001;
static constexpr const char *RESUME_FILE = "scheduleResumeScene.json";
static constexpr int64_t SCHEDULED = 21;
static const std::string SCHEDULED_ON = switchCommand(SCHEDULED, 0, 255);

class SignalStorm : public DaemonOnItsOwnBus {
protected:
    void SetUp() override
    {
        DaemonOnItsOwnBus::SetUp();
        addDoorAndLamp(sdk);
        sdk.set(device(SCHEDULED, 0, SWITCH));
        settings = clock.settings();
        settings.emplace_back("OVRIN_LOG_LEVEL=4");
        startWith(DOOR_AND_LAMP, settings);
        gatewayReady();
    }
    // A change of the configuration. Every SIGUSR1 after it starts the schedule, or ends it, or
    // does neither: while schedules start and end, changes wait. It has another value to put back
    // each time.
    std::string changeOf(int number)
    {
        sdk.setBasicValue(SCHEDULED, 0, number % 200);
        const int now = clock.minuteOfDay();
        const int phase = number % 4;
        const int start = phase == 0 ? now : now - 1;
        const int end = phase == 1 ? now : now + 1;
        return R"({"alarm":{"duration":)" + std::to_string(number) +
               R"(},"schedules":[{"title":"Evening",)" + everyDay(start, end) +
               R"(,"macro":{"title":"Evening","scene":{"title":"Evening","comps":[)"
               R"({"target":{"dev":21},"value":255}]}}}]})";
    }
    size_t started() const
    {
        return sdk.count(SCHEDULED_ON);
    }
    size_t ended() const
    {
        const std::vector<std::string> texts = sdk.commandTexts();
        return static_cast<size_t>(
            std::count_if(texts.begin(), texts.end(), [](const std::string &text) {
                const Json control = Json(text)["control"];
                return control["uid"].integer() == SCHEDULED && text != SCHEDULED_ON;
            }));
    }
    // Every one of its records has all that it was stored with.
    void expectWholeResume() const
    {
        const std::string bytes = daemon.data.read(RESUME_FILE).value_or("");
        ASSERT_GT(bytes.size(), 5u);
        const std::string text = bytes.substr(4, bytes.size() - 5);
        EXPECT_EQ(storedLayout(text), bytes) << "not whole";
        const Json stored(text);
        EXPECT_GT(stored.size(), 0u) << text;
        for (size_t i = 0; i < stored.size(); ++i) {
            EXPECT_EQ(stored[i]["title"].text(), "Evening");
            EXPECT_EQ(stored[i]["scene"]["comps"].size(), 1u);
        }
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

    MinuteClock clock;
    std::vector<std::string> settings;
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
        EXPECT_EQ(callForNumber("jsonsetall", changeOf(i)), 1);
        slowest = std::max(slowest, millisecondsBetween(asked, Clock::now()));
    }
    enough = true;
    signals.join();
    EXPECT_TRUE(eventually([&] { return sdk.count(sysSound(4)) == sounds; }));
    EXPECT_GT(sounds, 3u);
    expectEveryRunComplete();
    EXPECT_TRUE(eventually([&] { return daemon.inMainLoop(); }));
    expectWholeResume();
    EXPECT_FALSE(std::filesystem::exists(daemon.data.file(std::string(RESUME_FILE) + ".new")));
    EXPECT_GT(started(), 0u);
    EXPECT_GT(ended(), 0u);
    figure("schedules_started", static_cast<int64_t>(started()), "");
    figure("schedules_ended", static_cast<int64_t>(ended()), "");
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
    int64_t withResume = 0;
    const int rounds = inFull(100, 5);
    for (int round = 0; round < rounds && !HasFailure(); ++round) {
        if (round > 0) {
            start(settings);
            gatewayReady();
        }
        std::atomic<bool> enough = false;
        std::thread signals([&] { storm(1'000'000, enough); });
        std::vector<std::shared_ptr<PendingReply>> replies;
        for (int i = 0; i < 20; ++i) {
            event(REPORT, i % 3 ? 6 : 5, 0);
            replies.push_back(client.call(APP, "jsonsetall", {changeOf(i)}));
        }
        const auto awaited = static_cast<size_t>(round % 10);
        EXPECT_TRUE(eventually([&] { return replies[awaited]->arrived(); }, 60s));
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
        if (daemon.data.read(RESUME_FILE)) {
            expectWholeResume();
            ++withResume;
        }
    }
    EXPECT_GT(withResume, 0) << "no schedule has started in any of them";
    figure("with_a_resume_document", withResume, "rounds");
    endsOrderly = false;
    figure("rounds", rounds, "rounds");
    figure("longest_end_ms", longest, "ms");
}
