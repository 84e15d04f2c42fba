// The housekeeping of the tick. Most of it is seen in quick motion: every SIGALRM is a tick,
// whoever sends it.

#include "support/daemon_on_its_own_bus.h"

using namespace support;
using testing::ElementsAre;
using testing::IsEmpty;

class Ticks : public DaemonOnItsOwnBus {
protected:
    size_t minutes() const
    {
        return sdk.asked("getZWID", 0);
    }
    size_t minutesLogged() const
    {
        return daemon.timesLogged("resettime1440= ");
    }
    // The questions of the tick to the SDK daemon itself, in order; without those of an hour of the
    // day, which may be any.
    std::vector<std::string> housekeeping() const
    {
        std::vector<std::string> words;
        for (const Heard &heard : sdk.everything()) {
            if (heard.kind == Heard::CALL && heard.uid() == 256 && heard.cmd() != "savedata")
                words.push_back(heard.cmd());
        }
        return words;
    }
};

TEST_F(Ticks, RefreshTheDevicesOnceAfterTheStart)
{
    platform.set("appstart_time_flag", "1");
    start();
    sdk.forgetHeard();
    ASSERT_TRUE(tickUntil([&] { return minutes() == 1; }));
    EXPECT_THAT(housekeeping(), ElementsAre("getassociation", "getswitch", "getdevice"));
    EXPECT_TRUE(sdk.heard(R"({"control":{"cmd":"getassociation","uid":256}})"));
    EXPECT_TRUE(sdk.heard(R"({"control":{"cmd":"getswitch","uid":256}})"));
    EXPECT_TRUE(daemon.logged("Watch dog count 31, "));
    ASSERT_TRUE(tickUntil([&] { return minutes() == 2; }));
    EXPECT_EQ(housekeeping().size(), 3u) << "only once";
}

TEST_F(Ticks, RefreshNothingWhenTheClockWasNotSetSinceTheBoot)
{
    platform.set("appstart_time_flag", "0");
    start();
    sdk.forgetHeard();
    ASSERT_TRUE(tickUntil([&] { return minutes() == 2; }));
    EXPECT_THAT(housekeeping(), IsEmpty());
}

TEST_F(Ticks, TheRefreshedDevicesAreTheOnesThatScenesGoBy)
{
    platform.set("appstart_time_flag", "1");
    startWith(
        R"({"scenes":[{"title":"S","comps":[{"target":{"dev":20,"if":0,"ch":0},"value":1}]}]})");
    sdk.set(device(20, 0, THERMOSTAT_MODE));
    ASSERT_TRUE(tickUntil([&] { return minutes() == 1; }));
    callForText("doscene", "S");
    EXPECT_TRUE(eventually(
        [&] { return sdk.heard(R"({"control":{"cmd":"thermostatmode","uid":20,"val":1}})"); }));
}

TEST_F(Ticks, FeedTheWatchdogOnceAMinuteWhenTheRadioAnswers)
{
    start();
    ASSERT_TRUE(tickUntil([&] { return sdk.kicks().size() == 1; }));
    EXPECT_EQ(minutes(), 1u);
    EXPECT_TRUE(sdk.heard(R"({"control":{"cmd":"getZWID","uid":0}})"));
    const Heard kick = sdk.kicks().at(0);
    EXPECT_EQ(kick.number, 77u);
    EXPECT_EQ(kick.signature, "q");
    EXPECT_EQ(kick.path, "/com/OvrinTech/process/app");
    EXPECT_EQ(kick.member, "kick_thedog");
    EXPECT_GE(kick.at, sdk.calls("getZWID", 0).at(0).answered);
    ASSERT_TRUE(tickUntil([&] { return sdk.kicks().size() == 2; }));
    EXPECT_EQ(minutes(), 2u);
}

TEST_F(Ticks, DoNotFeedTheWatchdogWithoutAnAnswer)
{
    for (const Answer &answer :
         {Answer::refusing(), Answer::withoutArguments(), Answer::silence()}) {
        const size_t before = minutes();
        sdk.behave("getZWID", 0, answer);
        if (before == 0)
            start();
        ASSERT_TRUE(tickUntil([&] { return minutes() == before + 1; }));
        ASSERT_TRUE(tickUntil([&] { return minutesLogged() == before + 1; }));
        EXPECT_THAT(sdk.kicks(), IsEmpty());
    }
    sdk.forgetBehaviour("getZWID", 0);
    EXPECT_TRUE(tickUntil([&] { return sdk.kicks().size() == 1; }))
        << "as soon as it answers again";
}

TEST_F(Ticks, AskTheRadioToAbortEveryFifthMinute)
{
    start();
    const auto aborts = [&] { return sdk.asked("abort", 256); };
    ASSERT_TRUE(tickUntil([&] { return minutesLogged() == 4; }));
    EXPECT_EQ(aborts(), 0u);
    ASSERT_TRUE(tickUntil([&] { return aborts() == 1; }));
    EXPECT_EQ(minutes(), 5u);
    EXPECT_TRUE(sdk.heard(R"({"control":{"cmd":"abort","uid":256}})"));
}

TEST_F(Ticks, CountTheGatewayAsReadyAfterAMinuteWhenTheClockWasNotSet)
{
    platform.set("appstart_time_flag", "0");
    start();
    callWithoutReply("jsonsetall", {R"({"scenes":[{"title":"Early"}]})"});
    ASSERT_TRUE(tickUntil([&] { return minutesLogged() == 1; }));
    EXPECT_EQ(callForNumber("jsonsetall", R"({"scenes":[{"title":"Late"}]})"), 1);
    EXPECT_EQ(callForText("jsongettitles", "scenes"), R"(["Late"])");
}

TEST_F(Ticks, CountTheGatewayAsReadyInTheFifthMinuteWhenTheClockWasSet)
{
    platform.set("appstart_time_flag", "1");
    start();
    ASSERT_TRUE(tickUntil([&] { return minutesLogged() == 4; }));
    callWithoutReply("jsonsetall", {R"({"scenes":[{"title":"Early"}]})"});
    ASSERT_TRUE(tickUntil([&] { return minutesLogged() == 5; }));
    EXPECT_EQ(callForNumber("jsonsetall", R"({"scenes":[{"title":"Late"}]})"), 1);
    EXPECT_EQ(callForText("jsongettitles", "scenes"), R"(["Late"])");
}

TEST_F(Ticks, GoOnWhileTheRadioIsSilent)
{
    sdk.set(device(20, 0, SWITCH));
    sdk.behave("getZWID", 0, Answer::silence());
    startWith(
        R"({"scenes":[{"title":"S","comps":[{"target":{"dev":20,"if":0,"ch":0},"value":1}]}]})");
    ASSERT_TRUE(tickUntil([&] { return minutes() == 1; }));
    callForText("doscene", "S");
    EXPECT_TRUE(eventually([&] { return sdk.heard(switchCommand(20, 0, 1)); }));
    eventHandled(5001, 20, 0);
}

// One run without any help shows that the seconds are about seconds.
using InRealTime = DaemonOnItsOwnBus;

TEST_F(InRealTime, TheFirstMinuteOfTheDaemonTakesAboutAMinute)
{
    platform.set("appstart_time_flag", "1");
    const Moment before = Clock::now();
    launch();
    waitUntilStarted();
    sdk.forgetHeard();
    const auto secondsUntil = [&](const std::function<bool()> &condition) {
        EXPECT_TRUE(eventually(condition, 80s));
        return millisecondsBetween(before, Clock::now()) / 1000.0;
    };
    const double association = secondsUntil([&] { return sdk.asked("getassociation", 256) == 1; });
    EXPECT_GE(association, 19);
    const double refresh = secondsUntil([&] { return sdk.asked("getdevice", 256) == 1; });
    EXPECT_GE(refresh, 29);
    EXPECT_EQ(sdk.asked("getswitch", 256), 1u);
    const double kick = secondsUntil([&] { return sdk.kicks().size() == 1; });
    EXPECT_GE(kick, 56);
    if (SPEED_COUNTS) {
        EXPECT_LE(association, 25);
        EXPECT_LE(refresh, 36);
        EXPECT_LE(kick, 66);
    }
}
