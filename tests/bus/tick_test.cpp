// The housekeeping of the tick. Most of it is seen in quick motion: every SIGALRM is a tick,
// whoever sends it.

#include "support/daemon_on_its_own_bus.h"

#include <cstdio>
#include <cstdlib>

using namespace support;
using testing::ElementsAre;
using testing::IsEmpty;

// The setting that makes it ten past that hour where the daemon is.
static std::string zoneWhereItIs(int hour)
{
    static constexpr long HOUR = 3600;
    static constexpr long DAY = 24 * HOUR;
    long west = time(nullptr) % DAY - hour * HOUR - 600;
    if (west > DAY / 2)
        west -= DAY;
    else if (west < -DAY / 2)
        west += DAY;
    char text[40];
    snprintf(text, sizeof text, "TZ=HERE%s%ld:%02ld:%02ld", west < 0 ? "-" : "",
             std::labs(west) / HOUR, std::labs(west) / 60 % 60, std::labs(west) % 60);
    return text;
}

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

TEST_F(Ticks, DelayCommandsNoLongerThanTheTimeOutsOfAMinute)
{
    sdk.set(device(20, 0, SWITCH));
    sdk.behave("getZWID", 0, Answer::silence());
    sdk.behave("rebootplatform", 256, Answer::silence());
    platform.behave("WifiMode", Answer::silence());
    daemon.writeSetup(
        R"({"scenes":[{"title":"S","comps":[{"target":{"dev":20,"if":0,"ch":0},"value":1}]}]})");
    start({zoneWhereItIs(2)});
    ASSERT_TRUE(tickUntil([&] { return minutes() == 1; }));
    const Moment begin = sdk.calls("getZWID", 0).at(0).at;
    callForText("doscene", "S");
    event(5001, 20, 0);
    ASSERT_TRUE(eventually([&] { return sdk.heard(switchCommand(20, 0, 1)); }, 12s));
    EXPECT_EQ(sdk.asked("rebootplatform", 256), 1u);
    if (SPEED_COUNTS) {
        static constexpr int64_t TIME_OUTS = 2000 + 1000 + 2000;
        EXPECT_LE(millisecondsBetween(begin, sdk.commands().back().at), TIME_OUTS + 1500);
    }
    EXPECT_TRUE(eventually([&] { return announced(5001, 20) == 1; }));
    sdk.forgetBehaviour("getZWID", 0);
    EXPECT_TRUE(tickUntil([&] { return sdk.kicks().size() == 1; }));
}

TEST_F(Ticks, ReadDaylightSavingInTheFirstMinuteAndWheneverItIsSet)
{
    platform.set("setDST", "1");
    platform.set("setsavingtime", R"({"startmonth":3,"startday":31,"starthour":2,
        "endmonth":10,"endday":27,"endhour":4})");
    start();
    EXPECT_EQ(platform.asked("setDST"), 0u);
    ASSERT_TRUE(tickUntil([&] { return minutesLogged() == 2; }));
    EXPECT_EQ(platform.asked("setDST"), 1u);
    EXPECT_EQ(platform.asked("setsavingtime"), 1u);
    EXPECT_TRUE(daemon.logged("smonth =3,sday =31,shour =2,emonth =10,eday =27,ehour =4"));
    platform.set("setDST", "0");
    callWithoutReply("setDST", {});
    ASSERT_TRUE(tickUntil([&] { return minutesLogged() == 4; }));
    EXPECT_EQ(platform.asked("setDST"), 2u);
    EXPECT_EQ(platform.asked("setsavingtime"), 2u) << "switched off, it has changed too";
}

struct NightCase {
    const char *name;
    int hour;
    Answer wifiMode;
    size_t reboots;
};

class TicksAtNight : public Ticks, public testing::WithParamInterface<NightCase> {};

TEST_P(TicksAtNight, RebootAPlatformThatDoesNotKnowItsWifiMode)
{
    platform.behave("WifiMode", GetParam().wifiMode);
    start({zoneWhereItIs(GetParam().hour)});
    ASSERT_TRUE(tickUntil([&] { return minutesLogged() == 2; }));
    EXPECT_EQ(platform.asked("WifiMode"), GetParam().hour == 2 ? 1u : 0u);
    EXPECT_EQ(sdk.asked("rebootplatform", 256), GetParam().reboots);
    EXPECT_EQ(sdk.count(R"({"control":{"cmd":"rebootplatform","uid":256}})"), GetParam().reboots);
}

INSTANTIATE_TEST_SUITE_P(Hours, TicksAtNight,
                         testing::Values(NightCase{"Known", 2, Answer::saying("ap"), 0},
                                         NightCase{"Empty", 2, Answer::saying(""), 0},
                                         NightCase{"Unknown", 2, Answer::refusing(), 1},
                                         NightCase{"Unanswered", 2, Answer::silence(), 1},
                                         NightCase{"UnknownAtOne", 1, Answer::refusing(), 0},
                                         NightCase{"UnknownAtThree", 3, Answer::refusing(), 0}),
                         caseName);

struct SaveCase {
    const char *name;
    int hour;
    size_t saves;
};

class TicksOfTheHour : public Ticks, public testing::WithParamInterface<SaveCase> {};

TEST_P(TicksOfTheHour, SaveOnceAtOneAndOnceAtThirteen)
{
    start({zoneWhereItIs(GetParam().hour)});
    ASSERT_TRUE(tickUntil([&] { return minutesLogged() == 3; }));
    EXPECT_EQ(sdk.count(R"({"control":{"cmd":"savedata","uid":256}})"), GetParam().saves);
}

INSTANTIATE_TEST_SUITE_P(Hours, TicksOfTheHour,
                         testing::Values(SaveCase{"One", 1, 1}, SaveCase{"Thirteen", 13, 1},
                                         SaveCase{"Nought", 0, 0}, SaveCase{"Twelve", 12, 0},
                                         SaveCase{"TwentyThree", 23, 0}),
                         caseName);

class TicksOfTheSun : public Ticks {
protected:
    void SetUp() override
    {
        Ticks::SetUp();
        platform.set("setastclock_lon", "16.37");
        platform.set("setastclock_lat", "48.21");
    }
    std::vector<int64_t> told(const char *command) const
    {
        std::vector<int64_t> values;
        for (const Heard &heard : sdk.commands()) {
            if (heard.cmd() == command)
                values.push_back(Json(heard.text)["control"]["val"].integer());
        }
        return values;
    }
    std::vector<int64_t> rises() const
    {
        return told("sunrise_time_set");
    }
    std::vector<int64_t> sets() const
    {
        return told("sunset_time_set");
    }
    bool oneMoreMinute()
    {
        const size_t before = minutesLogged();
        return tickUntil([&] { return minutesLogged() > before; });
    }
    bool toldUntil(size_t pairs) const
    {
        return eventually([&] { return sets().size() >= pairs; });
    }
};

TEST_F(TicksOfTheSun, TellItsTimesOnceWhileTheyDoNotChange)
{
    platform.set("enableastclock", "1");
    start();
    const time_t now = time(nullptr);
    ASSERT_TRUE(tickUntil([&] { return minutesLogged() == 3; }));
    ASSERT_EQ(rises().size(), 1u);
    ASSERT_EQ(sets().size(), 1u);
    EXPECT_TRUE(sdk.heard(deviceCommand("sunrise_time_set", 509, {}, rises()[0])));
    EXPECT_TRUE(sdk.heard(deviceCommand("sunset_time_set", 508, {}, sets()[0])));
    EXPECT_LT(rises()[0], sets()[0]);
    for (const int64_t told : {rises()[0], sets()[0]}) {
        EXPECT_EQ(told % 60, 0);
        EXPECT_LT(std::abs(told - now), 86400) << "of today";
    }
}

TEST_F(TicksOfTheSun, TellNothingWhileItsClockIsOff)
{
    start();
    ASSERT_TRUE(tickUntil([&] { return minutesLogged() == 2; }));
    EXPECT_THAT(rises(), IsEmpty());
    EXPECT_THAT(sets(), IsEmpty());
    EXPECT_EQ(sdk.count(deviceCommand("sunrise_set_trig_time_judge", 509, {}, 0)), 2u)
        << "its rules are looked at every minute all the same";
}

TEST_F(TicksOfTheSun, TellItsTimesWithinASecondOfANewPosition)
{
    platform.set("enableastclock", "1");
    start();
    ASSERT_TRUE(oneMoreMinute());
    for (const char *method : {"setastclock_lon", "setastclock_lat"}) {
        const size_t before = rises().size();
        platform.set(method, "-33.3");
        callWithoutReply(method, {});
        // In real time: the minute would be over in 57 seconds.
        EXPECT_TRUE(toldUntil(before + 1)) << method;
        EXPECT_EQ(rises().size(), before + 1);
        EXPECT_NE(rises()[before], rises()[before - 1]);
    }
}

TEST_F(TicksOfTheSun, TakeItsTimesBackOnce)
{
    platform.set("enableastclock", "1");
    start();
    ASSERT_TRUE(oneMoreMinute());
    callForText("enableastclock", "0");
    ASSERT_TRUE(oneMoreMinute());
    ASSERT_TRUE(oneMoreMinute());
    ASSERT_TRUE(toldUntil(2));
    ASSERT_EQ(rises().size(), 2u);
    ASSERT_EQ(sets().size(), 2u);
    EXPECT_EQ(rises()[1], 0);
    EXPECT_EQ(sets()[1], 0);
}

TEST_F(TicksOfTheSun, TellItsTimesWhenItsClockIsSwitchedOn)
{
    start();
    ASSERT_TRUE(oneMoreMinute());
    platform.set("setastclock_lon", "-70");
    callForText("enableastclock", "1");
    ASSERT_TRUE(oneMoreMinute());
    ASSERT_TRUE(toldUntil(1));
    EXPECT_TRUE(daemon.logged("lon=-70.000000, lat=48.210000  enast=1"));
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
