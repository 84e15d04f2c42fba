// Fifty macros on one sensor that reports as fast as the daemon takes it: ten thousand threads in a
// few seconds. What must hold is told per macro, whatever the machine's speed makes of the storm.

#include "support/daemon_on_its_own_bus.h"
#include "support/scale.h"
#include "support/usage.h"

#include <algorithm>
#include <atomic>
#include <fstream>
#include <thread>

using namespace support;

static constexpr uint16_t REPORT = 5001;
static constexpr int MACROS = 50;
static const size_t EVENTS = SPEED_COUNTS ? 200 : 50;
static constexpr int64_t FIRST_LAMP = 100;
static constexpr int64_t AS_IT_WAS = 7;
static constexpr Milliseconds LONG = 60s;

// A fifth of the macros waits before it runs, a fifth leaves its lamp on.
static bool waitsBefore(int macro)
{
    return macro % 5 == 0;
}

static bool restores(int macro)
{
    return macro % 5 != 1;
}

static std::string nameOf(int macro)
{
    return "M" + std::to_string(macro);
}

static std::string lampOf(int macro, int64_t value)
{
    return switchCommand(FIRST_LAMP + macro, 0, value);
}

static std::string stormSetup()
{
    std::string macros;
    for (int i = 0; i < MACROS; ++i) {
        macros += (i ? "," : "") + (R"({"title":")" + nameOf(i)) + R"(","enabled":1,"duration":)" +
                  (restores(i) ? "1" : "0") +
                  R"(,"scene":{"title":"S","comps":[{"target":{"dev":)" +
                  std::to_string(FIRST_LAMP + i) + R"(,"if":0,"ch":0},"value":255}]},
            "triggers":[{"target":{"dev":5,"if":0,"ch":0},"op":"=","threshold":255,"duration":)" +
                  (waitsBefore(i) ? "1" : "0") + "}]}";
    }
    return R"({"macros":[)" + macros + "]}";
}

class MacroStorm : public DaemonOnItsOwnBus {
protected:
    void SetUp() override
    {
        DaemonOnItsOwnBus::SetUp();
        prober.join(busThread, bus.address());
        sdk.set(device(5, 0, DOOR, 255));
        for (int i = 0; i < MACROS; ++i)
            sdk.set(device(FIRST_LAMP + i, 0, SWITCH, AS_IT_WAS));
        startWith(stormSetup());
        gatewayReady();
        sdk.forgetHeard();
    }
    void TearDown() override
    {
        prober.leave();
        DaemonOnItsOwnBus::TearDown();
    }
    // The events, never more at once than the queue holds.
    void pour(size_t events)
    {
        static constexpr size_t QUEUED = 18;
        const auto announcements = [&] { return sdk.events("recent").size(); };
        for (size_t sent = 0; sent < events; ++sent) {
            ASSERT_TRUE(eventually([&] { return announcements() + QUEUED > sent; }, LONG));
            event(REPORT, 5, 0);
            mostThreads = std::max(mostThreads, daemon.threads());
        }
        ASSERT_TRUE(eventually([&] { return announcements() == events; }, LONG));
    }
    // Asks one question after the other until the work is done; how long the slowest answer took.
    int64_t worstAnswerDuring(const std::function<void()> &work)
    {
        std::atomic<bool> over = false;
        int64_t worst = 0;
        std::thread asking([&] {
            while (!over) {
                const Moment asked = Clock::now();
                const auto reply = prober.call(APP, "jsongettitles", {"macros"});
                ASSERT_TRUE(eventually([&] { return reply->arrived(); }, LONG)) << "no answer";
                ASSERT_EQ(Json(reply->text()).size(), static_cast<size_t>(MACROS));
                worst = std::max(worst, millisecondsBetween(asked, reply->at()));
            }
        });
        work();
        over = true;
        asking.join();
        return worst;
    }
    // From the first event until the last thread has ended.
    void storm(const char *property)
    {
        const size_t before = daemon.threads();
        const int64_t worst = worstAnswerDuring([&] {
            pour(EVENTS);
            EXPECT_TRUE(eventually([&] { return daemon.threads() == before; }, LONG))
                << daemon.threads();
        });
        eventHandled(REPORT, 6, 0);  // announced after all that the threads had to announce
        figure(std::string(property) + "_worst_answer", worst, "ms");
        figure(std::string(property) + "_most_threads", static_cast<int64_t>(mostThreads), "");
    }
    size_t runsOf(const std::string &name) const
    {
        const std::vector<Json> events = macroEvents();
        return static_cast<size_t>(
            std::count_if(events.begin(), events.end(),
                          [&](const Json &event) { return event["name"].text() == name; }));
    }
    // Until everything that was planned has been sent, in quick motion.
    void sendThePlannedCommands()
    {
        size_t planned = 0;
        for (int i = 0; i < MACROS; ++i)
            planned += runsOf(nameOf(i)) * (restores(i) ? 2 : 1);
        EXPECT_TRUE(tickUntil([&] { return lampsSwitched() >= planned; }, LONG))
            << lampsSwitched() << " of " << planned;
    }
    // The tick has commands of its own.
    size_t lampsSwitched() const
    {
        const std::vector<Heard> commands = sdk.commands();
        return static_cast<size_t>(
            std::count_if(commands.begin(), commands.end(),
                          [](const Heard &heard) { return heard.cmd() == "switch"; }));
    }
    // The lamp went on with each run, and back after it before it went on again.
    void expectWholeRuns(int macro)
    {
        const size_t runs = runsOf(nameOf(macro));
        EXPECT_GE(runs, 1u) << macro;
        std::vector<std::string> expected;
        for (size_t i = 0; i < runs; ++i) {
            expected.push_back(lampOf(macro, 255));
            if (restores(macro))
                expected.push_back(lampOf(macro, AS_IT_WAS));
        }
        std::vector<std::string> sent;
        for (const Heard &heard : sdk.commands()) {
            if (heard.uid() == FIRST_LAMP + macro)
                sent.push_back(heard.text);
        }
        EXPECT_EQ(sent, expected) << macro;
    }

    Client prober;
    size_t mostThreads = 0;
};

TEST_F(MacroStorm, LeavesEveryMacroWithWholeRunsAndNoThread)
{
    storm("storm");
    sendThePlannedCommands();
    for (int i = 0; i < MACROS; ++i)
        expectWholeRuns(i);
    EXPECT_FALSE(daemon.logged("resumeSceneList is not empty."));
    EXPECT_FALSE(daemon.logged("pthread_create fail"));
}

TEST_F(MacroStorm, LeavesTheMacrosReadyForTheNextEvent)
{
    storm("storm");
    sendThePlannedCommands();
    sdk.forgetHeard();
    event(REPORT, 5, 0);
    ASSERT_TRUE(eventually([&] { return macroEvents().size() == MACROS; }, LONG));
    sendThePlannedCommands();
    for (int i = 0; i < MACROS; ++i)
        expectWholeRuns(i);
}

TEST_F(MacroStorm, GivesBackItsMemory)
{
    static constexpr int64_t SLACK = 4096;
    const auto stormAndDrain = [&](const char *property) {
        storm(property);
        sendThePlannedCommands();
        sdk.forgetHeard();
        const int64_t kilobytes = privateKilobytesOf(daemon.pid());
        figure(std::string(property) + "_resident", kilobytes, "kB");
        return kilobytes;
    };
    const int64_t first = stormAndDrain("first");
    const int64_t second = stormAndDrain("second");
    if (SPEED_COUNTS) {  // a sanitizer keeps what was freed
        EXPECT_LE(second, first + SLACK);
    }
}
