// The wall clock is set while the daemon runs, for good or for a moment, and passes the moment at
// which the millisecond stamp starts anew: ticks and waits do not live by it. The time-table does:
// what is planned already keeps its moment of the clock.

#include "support/daemon_on_its_own_bus.h"
#include "support/scale.h"
#include "support/wall_clock.h"

#include <algorithm>

using namespace support;
using testing::ElementsAre;

static constexpr uint16_t REPORT = 5001;
static constexpr int64_t SOUND = 4;
static constexpr size_t LAMPS = 6;
static constexpr int64_t CHECK = 190;  // ms from one check of the time-table to the next

static constexpr time_t HOUR = 3600;
static constexpr time_t DAY = 24 * HOUR;
static constexpr time_t NOON = 1719835200;             // 2024-07-01 12:00 UTC
static constexpr time_t NEVER_SET = 100;               // shortly after midnight in 1970
static constexpr time_t BEFORE_THE_WRAP = 1719999999;  // the stamp starts anew a second later

struct ClockStep {
    const char *name;
    time_t from;
    time_t to;
    bool stays;  // or is taken back a moment later

    bool isWrap() const
    {
        return from == BEFORE_THE_WRAP;
    }
    bool isBackwards() const
    {
        return to < from;
    }
    bool isForwards() const
    {
        return !isBackwards() && !isWrap();
    }
};

static constexpr ClockStep STEPS[] = {
    {"a day back", NOON, NOON - DAY, true},
    {"over the wrap", BEFORE_THE_WRAP, BEFORE_THE_WRAP + 1, true},
    {"a day forth for a moment", NOON, NOON + DAY, false},
    {"from 1970 to now", NEVER_SET, NOON, true},
    {"an hour back for a moment", NOON, NOON - HOUR, false},
    {"over the wrap and back", BEFORE_THE_WRAP, BEFORE_THE_WRAP + 1, false},
    {"a day forth", NOON, NOON + DAY, true},
    {"an hour back", NOON, NOON - HOUR, true},
    {"from 1970 to now for a moment", NEVER_SET, NOON, false},
    {"an hour forth", NOON, NOON + HOUR, true},
    {"a day back for a moment", NOON, NOON - DAY, false},
    {"an hour forth for a moment", NOON, NOON + HOUR, false},
};

// Lamp n of the scene.
static std::string lampOn(size_t n)
{
    return switchCommand(20 + static_cast<int64_t>(n), 0, 255);
}
static const std::string FRESH = switchCommand(40, 0, 1);
static const std::string LAMP_ON = switchCommand(41, 0, 255);
static const std::string LAMP_BACK = switchCommand(41, 0, 7);
static const std::string SIREN_ON = switchCommand(30, 0, SOUND);
static const std::string SIREN_BACK = switchCommand(30, 0, 0);

class ClockSteps : public ConfigurableDaemon {
protected:
    const int64_t margin = inFull(300, 1500);  // ms; the share is run beside other tests

    void SetUp() override
    {
        ConfigurableDaemon::SetUp();
        sdk.set(device(5, 0, DOOR, 255));
        for (size_t n = 0; n < LAMPS; ++n)
            sdk.set(device(20 + static_cast<int64_t>(n), 0, SWITCH));
        sdk.set(device(30, 0, SIREN, 0));
        sdk.set(device(40, 0, SWITCH));
        sdk.set(device(41, 0, SWITCH, 7));
    }
    // Every n-th of the steps, or all; a daemon for each.
    template <typename State> void throughSteps(size_t every, State state)
    {
        every = inFull() ? 1 : every;
        for (size_t i = 0; i < std::size(STEPS) && !HasFatalFailure(); i += every) {
            SCOPED_TRACE(STEPS[i].name);
            begin(STEPS[i]);
            state(STEPS[i]);
            daemon.stop();
            ++cases;
        }
        endsOrderly = false;
        figure("cases", cases, "cases");
        if (latest > 0)
            figure("latest_ms", latest, "ms");
    }
    void begin(const ClockStep &step)
    {
        std::string scene;
        for (size_t n = 0; n < LAMPS; ++n)
            scene += (n ? "," : "") +
                     (R"({"value":255,"target":{"dev":)" + std::to_string(20 + n) + "}}");
        clock.set(step.isWrap() ? step.from - DAY : step.from);
        daemon.writeSetup(R"({"scenes":[{"title":"Six","comps":[)" + scene + R"(]},
            {"title":"Fresh","comps":[{"value":1,"target":{"dev":40}}]},
            {"title":"One","comps":[{"value":255,"target":{"dev":41}}]}],
          "alarm":{"enabled":)" +
                          std::to_string(armed) + R"(,"siren_type":)" + std::to_string(SOUND) +
                          R"(,"trigger_duration":1,"duration":1},
          "macros":[{"title":"Door","enabled":)" +
                          std::to_string(1 - armed) + R"(,"scene":"One","duration":1,
            "triggers":[{"duration":1,"target":{"dev":5},"op":"=","threshold":255}]}]})");
        start(clock.settings());
        gatewayReady();
        sdk.forgetHeard();
        // The wrap comes by itself, a second from here.
        if (step.isWrap())
            clock.set(step.from);
    }
    void take(const ClockStep &step)
    {
        if (!step.isWrap())
            clock.set(step.to);
        else
            clock.set(step.to + 1);  // whatever is left of the second
    }
    void takeBack(const ClockStep &step)
    {
        if (!step.stays)
            clock.set(step.isWrap() ? step.from - 60 : step.from);  // it is not passed again
    }
    void expectWithin(int64_t took, int64_t wanted)
    {
        EXPECT_GE(took, wanted - inFull(50, 250));  // the earlier moment may be heard late
        if (SPEED_COUNTS) {
            EXPECT_LE(took, wanted + margin);
        }
        latest = std::max(latest, took - wanted);
    }
    // A scene that is begun now is sent in its time, after what is due before it: a check of the
    // time-table, every second tick, sends one command.
    void expectAFreshSceneOnTime(size_t dueBefore = 0)
    {
        const size_t before = sdk.count(FRESH);
        const Moment asked = Clock::now();
        callForText("doscene", "Fresh");
        ASSERT_TRUE(eventually([&] { return sdk.count(FRESH) > before; }));
        EXPECT_EQ(sdk.count(FRESH), before + 1);
        const int64_t took = millisecondsBetween(asked, Clock::now());
        EXPECT_GE(took, 150);
        if (SPEED_COUNTS) {
            EXPECT_LE(took, 200 + static_cast<int64_t>(dueBefore) * CHECK + margin);
        }
    }
    size_t lampsSent() const
    {
        size_t sent = 0;
        for (size_t n = 0; n < LAMPS; ++n)
            sent += sdk.count(lampOn(n));
        return sent;
    }
    Moment momentOf(const std::string &command) const
    {
        const std::vector<Heard> all = sdk.commands();
        const auto found = std::find_if(all.begin(), all.end(),
                                        [&](const Heard &heard) { return heard.text == command; });
        return found == all.end() ? Moment() : found->at;
    }

    WallClock clock;
    int armed = 0;
    int64_t cases = 0;
    int64_t latest = 0;
};

TEST_F(ClockSteps, WhenIdleLeaveTheTicksAlone)
{
    throughSteps(3, [&](const ClockStep &step) {
        take(step);
        expectAFreshSceneOnTime();
        takeBack(step);
        expectAFreshSceneOnTime();
        EXPECT_EQ(sdk.commands().size(), 2u) << "nothing else";
        // A minute is sixty ticks of a second, whatever the clock says.
        const auto minutes = [&] { return sdk.asked("getZWID", 0); };
        const size_t begun = daemon.logSize();
        ASSERT_TRUE(tickUntil([&] { return minutes() == 1; }));
        ASSERT_TRUE(daemon.eventuallyLogged("resettime1440", begun));  // the minute is over
        const size_t from = daemon.logSize();
        for (int i = 0; i < 100; ++i)
            daemon.signal(SIGALRM);
        EXPECT_FALSE(daemon.logged("resettime1440", from)) << "no flood of minutes";
        EXPECT_EQ(minutes(), 1u);
    });
}

TEST_F(ClockSteps, InASceneKeepWhatIsPlannedForItsMomentOfTheClock)
{
    throughSteps(3, [&](const ClockStep &step) {
        callForText("doscene", "Six");
        ASSERT_TRUE(eventually([&] { return lampsSent() >= 2; }));
        take(step);
        const size_t sentBefore = lampsSent();
        expectAFreshSceneOnTime(step.isForwards() ? LAMPS - sentBefore : 0);
        if (step.isBackwards()) {
            EXPECT_LE(lampsSent(), sentBefore + 1) << "the rest is planned for later";
            takeBack(step);
            if (step.stays)
                clock.set(step.from + 5);  // as the time passes
        }
        if (step.isWrap()) {
            takeBack(step);
            expectAFreshSceneOnTime();
            // Deliberate: stamps beyond the wrap are not reached by any clock.
            EXPECT_LE(lampsSent(), LAMPS);
        } else {
            ASSERT_TRUE(eventually([&] { return lampsSent() == LAMPS; }));
            takeBack(step);
        }
        // Once each, in order, and never two in one check.
        std::vector<std::string> expected;
        for (size_t n = 0; n < lampsSent(); ++n)
            expected.push_back(lampOn(n));
        std::vector<std::string> sent;
        Moment before;
        for (const Heard &heard : sdk.commands()) {
            if (heard.text != FRESH)
                sent.push_back(heard.text);
            if (inFull() && SPEED_COUNTS && before != Moment()) {
                EXPECT_GE(millisecondsBetween(before, heard.at), 60);
            }
            before = heard.at;
        }
        EXPECT_EQ(sent, expected);
        expectAFreshSceneOnTime();
    });
}

TEST_F(ClockSteps, InAMacroChangeNoWait)
{
    throughSteps(4, [&](const ClockStep &step) {
        const Moment begun = Clock::now();
        eventHandled(REPORT, 5, 0);
        take(step);
        ASSERT_TRUE(eventually([&] { return macroEvents().size() == 1; }));
        expectWithin(millisecondsBetween(begun, sdk.events("MacroEvent")[0].at), 1000);
        ASSERT_TRUE(eventually([&] { return sdk.heard(LAMP_ON); }));
        takeBack(step);
        ASSERT_TRUE(eventually([&] { return sdk.heard(LAMP_BACK); }));
        // The control wait, and the gap before the command.
        expectWithin(millisecondsBetween(sdk.events("MacroEvent")[0].at, momentOf(LAMP_BACK)),
                     1200);
        EXPECT_EQ(sdk.commandTexts(), (std::vector<std::string>{LAMP_ON, LAMP_BACK}));
        EXPECT_TRUE(daemon.eventuallyLogged(" end\n"));
        expectAFreshSceneOnTime();
    });
}

TEST_F(ClockSteps, InAnAlarmChangeNoWait)
{
    armed = 1;
    throughSteps(6, [&](const ClockStep &step) {
        const auto alarms = [&] { return sdk.asked("getdevice", 256); };
        const auto openDoor = [&] {
            eventHandled(REPORT, 5, 0);
            eventHandled(9999, 5, 0);
        };
        const Moment begun = Clock::now();
        openDoor();
        ASSERT_EQ(alarms(), 1u);
        take(step);
        ASSERT_TRUE(eventually([&] { return sdk.heard(SIREN_ON); }));
        expectWithin(millisecondsBetween(begun, momentOf(sysSound(SOUND))), 1000);
        takeBack(step);
        ASSERT_TRUE(eventually([&] { return sdk.heard(SIREN_BACK); }));
        expectWithin(millisecondsBetween(momentOf(sysSound(SOUND)), momentOf(sysSound(0))), 1000);
        EXPECT_THAT(sdk.commandTexts(),
                    ElementsAre(sysSound(SOUND), SIREN_ON, sysSound(0), SIREN_BACK));
        EXPECT_TRUE(eventually([&] {
            openDoor();
            return alarms() == 2;
        })) << "the alarm is over";
    });
}
