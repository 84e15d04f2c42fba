// Macros that are triggered again and again: however close together, each burst is one run of the
// scene and one restore; and threads, however many were needed, are all gone soon after.

#include "event_flow.h"
#include "support/scale.h"
#include "support/usage.h"

#include <algorithm>
#include <random>
#include <thread>

using namespace support;

static constexpr uint16_t REPORT = 5001;
static constexpr uint16_t SENSOR = 5;
static constexpr int64_t LAMP = 20;
static constexpr int64_t ON = 255;
static constexpr Milliseconds LONG = 60s;

static std::string macro(const std::string &title, uint16_t sensor, int64_t lamp,
                         int triggerDuration, int duration)
{
    return R"({"title":")" + title + R"(","enabled":1,"duration":)" + std::to_string(duration) +
           R"(,"scene":{"title":"S","comps":[{"target":{"dev":505},"value":1},{"target":{"dev":)" +
           std::to_string(lamp) + R"(},"value":255}]},"triggers":[{"target":{"dev":)" +
           std::to_string(sensor) + R"(},"op":"=","threshold":255,"duration":)" +
           std::to_string(triggerDuration) + "}]}";
}

class MacroLoad : public DaemonOnItsOwnBus {
protected:
    void SetUp() override
    {
        DaemonOnItsOwnBus::SetUp();
        flow.join(busThread, bus.address());
    }
    void TearDown() override
    {
        flow.leave();
        DaemonOnItsOwnBus::TearDown();
    }
    void startHome(const std::string &macros)
    {
        startWith(R"({"macros":[)" + macros + "]}", {"OVRIN_LOG_LEVEL=6"});
        gatewayReady();
        threadsAtRest = threadsOf(daemon.pid());
    }
    bool eventuallyAtRest()
    {
        return eventually([&] { return threadsOf(daemon.pid()) == threadsAtRest; }, LONG);
    }
    std::vector<std::string> lampCommands() const
    {
        std::vector<std::string> result;
        for (const Heard &heard : sdk.commands()) {
            if (heard.cmd() == "switch")
                result.push_back(heard.text);
        }
        return result;
    }

    EventFlow flow;
    size_t threadsAtRest = 0;
};

// The model: a burst, whose triggers come while the macro is at work, is one run with the lamp's
// value of that moment kept, and one restore to it.
class Retriggers : public MacroLoad {
protected:
    void playBursts(int triggerDuration)
    {
        static constexpr int MOST_BETWEEN = 5;  // milliseconds
        const int bursts = inFull(40, 1);
        const int triggers = inFull(250, 150);
        std::mt19937 random(1);
        std::uniform_int_distribution<int> spacing(0, MOST_BETWEEN);
        sdk.set(device(SENSOR, 0, DOOR, 255));
        sdk.set(device(LAMP, 0, SWITCH));
        startHome(macro("M", SENSOR, LAMP, triggerDuration, 2));

        std::vector<std::string> expected;
        for (int burst = 0; burst < bursts && !HasFailure(); ++burst) {
            const int64_t shown = 1 + burst % 90;
            sdk.setBasicValue(LAMP, 0, shown);
            size_t sent = 0;
            for (Moment due = Clock::now(); sent < static_cast<size_t>(triggers); ++sent) {
                std::this_thread::sleep_until(due);
                due += Milliseconds(spacing(random));
                flow.pour(1, [](size_t) { return DeviceReport{REPORT, SENSOR}; });
            }
            const Moment last = Clock::now();
            ASSERT_TRUE(eventuallyAtRest());
            EXPECT_EQ(macroEvents().size(), static_cast<size_t>(burst) + 1);
            EXPECT_GE(millisecondsBetween(last, Clock::now()), 1000 * (triggerDuration + 2) - 50);
            expected.push_back(switchCommand(LAMP, 0, ON));
            expected.push_back(switchCommand(LAMP, 0, shown));
            ASSERT_TRUE(tickUntil([&] { return lampCommands().size() >= expected.size(); }));
        }
        EXPECT_EQ(lampCommands(), expected);
        figure("triggers", int64_t{bursts} * triggers, "");
        figure("runs", static_cast<int64_t>(macroEvents().size()), "");
    }
};

TEST_F(Retriggers, WhileTheSceneIsActiveLeaveOneRunAndOneRestore)
{
    playBursts(0);
}

TEST_F(Retriggers, InTheTriggerWaitLeaveOneRunAndOneRestore)
{
    playBursts(1);
}

class TriggerStorm : public MacroLoad {
protected:
    static constexpr uint16_t MACROS = 50;
    static constexpr size_t RATE = 200;  // triggers a second
    static constexpr uint16_t FIRST_SENSOR = 100;
    static constexpr int64_t FIRST_LAMP = 200;

    static uint16_t sensorOf(size_t n)
    {
        return static_cast<uint16_t>(FIRST_SENSOR + n % MACROS);
    }
    void startStormHome()
    {
        std::string macros;
        for (uint16_t i = 0; i < MACROS; ++i) {
            sdk.set(device(sensorOf(i), 0, DOOR, 255));
            sdk.set(device(FIRST_LAMP + i, 0, SWITCH, 7));
            macros +=
                (i ? "," : "") + macro("M" + std::to_string(i), sensorOf(i), FIRST_LAMP + i, 0, 1);
        }
        startHome(macros);
    }
    // Gives the most threads that it saw.
    size_t storm(size_t seconds)
    {
        size_t mostThreads = 0;
        const Moment begin = Clock::now();
        size_t sent = 0;
        for (; sent < seconds * RATE && !HasFailure(); ++sent) {
            std::this_thread::sleep_until(begin + sent * 1000ms / RATE);
            EXPECT_TRUE(eventually([&] { return flow.over(); }, LONG));
            flow.begin(1, [&](size_t) { return DeviceReport{REPORT, sensorOf(sent)}; });
            mostThreads = std::max(mostThreads, threadsOf(daemon.pid()));
            if (sent % RATE == 0)
                sdk.forgetHeard();
        }
        EXPECT_TRUE(eventually([&] { return flow.over(); }, LONG));
        const Moment last = Clock::now();
        triggersASecond = static_cast<int64_t>(sent) * 1000 / millisecondsBetween(begin, last);
        EXPECT_TRUE(eventuallyAtRest());
        untilRest = std::max(untilRest, millisecondsBetween(last, Clock::now()));
        return mostThreads;
    }
    // Until every lamp that went on is back, in quick motion.
    void drain()
    {
        sdk.forgetHeard();
        event(REPORT, sensorOf(0), 0);
        const auto last = switchCommand(FIRST_LAMP, 0, 7);
        ASSERT_TRUE(tickUntil([&] { return sdk.heard(last); }, LONG));
        ASSERT_TRUE(eventuallyAtRest());
    }

    int64_t untilRest = 0;
    int64_t triggersASecond = 0;
};

// The C library keeps the stack of a thread that has ended for the next one.
static int64_t keptStacks(size_t threadsBefore, size_t threadsNow)
{
    static constexpr int64_t KILOBYTES = 24;
    return KILOBYTES *
           static_cast<int64_t>(threadsNow > threadsBefore ? threadsNow - threadsBefore : 0);
}

TEST_F(TriggerStorm, TakesFewThreadsAndGivesThemAndTheMemoryBack)
{
    const size_t seconds = inFull<size_t>(60, 1);
    startStormHome();
    const size_t mostThreads = storm(seconds);
    drain();
    const int64_t before = residentKilobytesOf(daemon.pid());
    const size_t mostThreadsThen = storm(seconds);
    drain();
    const int64_t kept = residentKilobytesOf(daemon.pid()) - before;
    figure("triggers_a_second", triggersASecond, "");
    figure("most_threads", static_cast<int64_t>(mostThreads), "");
    figure("most_threads_then", static_cast<int64_t>(mostThreadsThen), "");
    figure("until_rest", untilRest, "ms");
    figure("resident_kept", kept, "kB");
    EXPECT_LT(std::max(mostThreads, mostThreadsThen), 2 * RATE + MACROS + 10);
    if (SPEED_COUNTS) {
        EXPECT_LE(untilRest, inFull(2000, 5000));
        EXPECT_LE(kept - keptStacks(mostThreads, mostThreadsThen), inFull(64, 512));
    }
}
