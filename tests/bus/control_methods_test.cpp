// The methods that drive the daemon, each with its reply, its log lines and what it leaves alone:
// the scenes' mode, daylight saving, the sun clock and home security.

#include "support/daemon_on_its_own_bus.h"

#include <sstream>

using namespace support;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

static constexpr const char *SWITCH_APP = "com.OvrinTech.switch.app";

class ControlMethods : public DaemonOnItsOwnBus {
protected:
    void SetUp() override
    {
        DaemonOnItsOwnBus::SetUp();
        start();
        platform.forgetRequests();
    }
    // What a function has logged since the start, as "LEVEL text".
    std::vector<std::string> linesOf(const std::string &function) const
    {
        std::vector<std::string> lines;
        std::istringstream log(daemon.log());
        for (std::string line; std::getline(log, line);) {
            const size_t name = line.find(" " + function + ":");
            if (name != 1)  // behind the level
                continue;
            const size_t text = line.find(' ', name + 1);
            lines.push_back(line.substr(0, 1) + line.substr(text));
        }
        return lines;
    }
};

TEST_F(ControlMethods, DoscenemodeEchoesItsTextAndLogsTheModesItKnows)
{
    for (const char *mode : {"1", "0", "2", "", "1 ", "on", "\xC3\xA4"})
        EXPECT_EQ(callForText("doscenemode", mode), mode);
    EXPECT_THAT(linesOf("app_dbus_doScenemode"),
                ElementsAre("4 scene name 1: 1", "4 scene name 0: 0"));
    EXPECT_THAT(platform.askedKeys(), IsEmpty());
}

TEST_F(ControlMethods, SetDstIsNotAnsweredAndAsksNothing)
{
    callWithoutReply("setDST", {});
    callWithoutReply("setDST", {"whatever", int32_t{1}});
    EXPECT_THAT(linesOf("app_dbus_setDST"), ElementsAre("3 dbus setDST=1 ", "3 dbus setDST=1 "));
    EXPECT_THAT(platform.askedKeys(), IsEmpty()) << "the tick reads the setting";
    EXPECT_FALSE(daemon.logged("not handled, method: set"));
}

TEST_F(ControlMethods, EnableastclockEchoesItsTextAndReadsThePosition)
{
    EXPECT_EQ(callForText("enableastclock", "1"), "1");
    EXPECT_THAT(platform.askedKeys(), ElementsAre("setastclock_lon", "setastclock_lat"));
    EXPECT_EQ(callForText("enableastclock", "0"), "0");
    EXPECT_EQ(callForText("enableastclock", "2"), "2");
    EXPECT_EQ(callForText("enableastclock", ""), "");
    EXPECT_EQ(platform.asked("setastclock_lon"), 4u) << "whatever the text";
    EXPECT_EQ(platform.asked("setastclock_lat"), 4u);
    EXPECT_THAT(linesOf("app_dbus_enableastclock"),
                ElementsAre("4 scene name: 1", "4 enable astclock: 1", "4 scene name: 0",
                            "4 disable astclock: 0", "4 scene name: 2", "4 scene name: "));
}

TEST_F(ControlMethods, EnableastclockChangesNothingByAnotherText)
{
    const auto enabledInTheMinutesLine = [&](const char *value) {
        const size_t from = daemon.logSize();
        return tickUntil([&] { return daemon.logged("resettime1440= ", from); }) &&
               daemon.logged(std::string("enast=") + value, from);
    };
    callForText("enableastclock", "1");
    EXPECT_TRUE(enabledInTheMinutesLine("1"));
    callForText("enableastclock", "2");
    EXPECT_TRUE(enabledInTheMinutesLine("1")) << "it is still on";
    callForText("enableastclock", "0");
    callForText("enableastclock", "on");
    EXPECT_FALSE(enabledInTheMinutesLine("1")) << "it is still off";
}

TEST_F(ControlMethods, EnableastclockAnswersWithoutThePlatform)
{
    platform.behave("setastclock_lon", Answer::refusing());
    platform.behave("setastclock_lat", Answer::refusing());
    EXPECT_EQ(callForText("enableastclock", "1"), "1");
    ASSERT_TRUE(tickUntil([&] { return daemon.logged("lon=0.000000, lat=0.000000  enast=1"); }));
}

TEST_F(ControlMethods, EitherCoordinateReadsBothAndIsNotAnswered)
{
    for (const char *method : {"setastclock_lon", "setastclock_lat"}) {
        platform.forgetRequests();
        callWithoutReply(method, {});
        callWithoutReply(method, {"12.5"});
        EXPECT_THAT(platform.askedKeys(), ElementsAre("setastclock_lon", "setastclock_lat",
                                                      "setastclock_lon", "setastclock_lat"));
    }
    EXPECT_FALSE(daemon.logged("not handled, method: set"));
}

TEST_F(ControlMethods, TheCoordinatesAreThoseOfTheNvramAndNotOfTheArguments)
{
    platform.set("setastclock_lon", "16.37");
    platform.set("setastclock_lat", "48.21 north");
    callForText("enableastclock", "1");
    callWithoutReply("setastclock_lon", {"99"});
    EXPECT_TRUE(daemon.eventuallyLogged("lon=16.370000, lat=48.210000  enast=1"))
        << "and the minute's duties run at once";
}

TEST_F(ControlMethods, SetHomeSceneAnswersOneWhateverTheNumber)
{
    std::vector<std::string> lines;
    for (const int32_t enable : {1, 0, 2, -1}) {
        const auto reply = client.call(SWITCH_APP, "setHomeScene", {enable});
        ASSERT_TRUE(eventually([&] { return reply->arrived(); }));
        EXPECT_EQ(reply->signature(), "i");
        EXPECT_EQ(reply->number(), 1);
        EXPECT_EQ(Json(daemon.storedSetup())["alarm"]["enabled"].integer(), enable);
        lines.push_back("4 enable: " + std::to_string(enable));
    }
    EXPECT_EQ(linesOf("app_dbus_setHomeScene"), lines);
}

struct BadArguments {
    const char *name;
    const char *interface;
    const char *member;
    std::vector<Argument> arguments;
};

class ControlMethodsRefuse : public ControlMethods,
                             public testing::WithParamInterface<BadArguments> {};

TEST_P(ControlMethodsRefuse, ArgumentsOfOtherTypesWithoutAReply)
{
    const auto &[name, interface, member, arguments] = GetParam();
    callWithoutReply(member, arguments, interface);
    EXPECT_TRUE(daemon.logged(std::string("DBUS request not handled, method: ") + member +
                              ", iface: " + interface + ", path: /"));
    EXPECT_TRUE(daemon.logged("rgument")) << "the library's text on standard error";
    EXPECT_THAT(platform.askedKeys(), IsEmpty());
    EXPECT_FALSE(daemon.data.read("appSetup.json"));
    EXPECT_THAT(linesOf("app_dbus_doScenemode"), IsEmpty());
    EXPECT_THAT(linesOf("app_dbus_enableastclock"), IsEmpty());
    EXPECT_THAT(linesOf("app_dbus_setHomeScene"), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    Methods, ControlMethodsRefuse,
    testing::Values(
        BadArguments{"SceneModeOfNothing", APP, "doscenemode", {}},
        BadArguments{"SceneModeOfANumber", APP, "doscenemode", {int32_t{1}}},
        BadArguments{"SunClockOfNothing", APP, "enableastclock", {}},
        BadArguments{"SunClockOfANumber", APP, "enableastclock", {int32_t{1}}},
        BadArguments{"HomeSecurityOfNothing", SWITCH_APP, "setHomeScene", {}},
        BadArguments{"HomeSecurityOfAText", SWITCH_APP, "setHomeScene", {"1"}},
        BadArguments{"HomeSecurityOfAnUnsigned", SWITCH_APP, "setHomeScene", {uint32_t{1}}},
        BadArguments{"HomeSecurityOfAShort", SWITCH_APP, "setHomeScene", {uint16_t{1}}}),
    caseName);

TEST_F(ControlMethods, AreFoundOnTheirOwnInterfaceOnly)
{
    for (const char *member : {"doscenemode", "setDST", "enableastclock", "setastclock_lon"}) {
        callWithoutReply(member, {"1"}, SWITCH_APP);
        EXPECT_TRUE(daemon.logged(std::string("DBUS request not handled, method: ") + member));
    }
    callWithoutReply("setHomeScene", {int32_t{1}}, APP);
    EXPECT_TRUE(daemon.logged("DBUS request not handled, method: setHomeScene"));
    EXPECT_THAT(platform.askedKeys(), IsEmpty());
}
