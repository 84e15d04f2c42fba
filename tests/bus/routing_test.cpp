// What reaches which handler, and what is done with the rest.

#include "support/daemon_on_its_own_bus.h"

using namespace support;
using Routing = DaemonOnItsOwnBus;
using testing::HasSubstr;

static std::string notHandled(const std::string &member, const std::string &interface,
                              const std::string &path)
{
    return "DBUS request not handled, method: " + member + ", iface: " + interface +
           ", path: " + path;
}

TEST_F(Routing, IgnoresTheRightMemberOnAnotherInterface)
{
    start();
    callWithoutReply("jsongettitles", {"scenes"}, "com.OvrinTech.switch.app", "/some/where");
    EXPECT_TRUE(daemon.eventuallyLogged(
        notHandled("jsongettitles", "com.OvrinTech.switch.app", "/some/where")));
}

TEST_F(Routing, IgnoresAnUnknownMember)
{
    start();
    callWithoutReply("jsongetnothing", {"scenes"});
    EXPECT_TRUE(daemon.eventuallyLogged(notHandled("jsongetnothing", APP, "/")));
}

TEST_F(Routing, LogsWhatNobodyHandlesAtLevelFive)
{
    start();
    callWithoutReply("jsongetnothing", {"scenes"});
    ASSERT_TRUE(daemon.eventuallyLogged(notHandled("jsongetnothing", APP, "/")));
    const std::string log = daemon.log();
    const size_t line = log.rfind('\n', log.find("DBUS request not handled")) + 1;
    EXPECT_EQ(log.substr(line, 14), "5 filter_func:");
}

TEST_F(Routing, AnswersOnEveryObjectPath)
{
    start();
    for (const char *path : {"/", "/com/OvrinTech/App", "/anything/at/all"}) {
        const auto reply = client.call(APP, "jsongettitles", {"scenes"}, path);
        EXPECT_TRUE(eventually([&] { return reply->arrived(); })) << path;
        EXPECT_EQ(reply->text(), "[]") << path;
    }
}

TEST_F(Routing, LeavesUpdateChecksToOthersForTheBrandThatPushesThem)
{
    platform.set("customerName", "Kovalo");
    start();
    const auto reply =
        client.call(APP, "jsongettitles", {"scenes"}, "/com/OvrinTech/message/checkupdat");
    listenerIsIdle();
    EXPECT_NE(reply->text(), "[]") << "it was routed";
    EXPECT_TRUE(
        daemon.eventuallyLogged("match filter_func, path: /com/OvrinTech/message/checkupdat"));
    EXPECT_FALSE(
        daemon.logged(notHandled("jsongettitles", APP, "/com/OvrinTech/message/checkupdat")));
}

TEST_F(Routing, TakesUpdateChecksForOtherBrandsAsAnyMessage)
{
    platform.set("customerName", "kovalo");
    start();
    const auto reply =
        client.call(APP, "jsongettitles", {"scenes"}, "/com/OvrinTech/message/checkupdat");
    ASSERT_TRUE(eventually([&] { return reply->arrived(); }));
    EXPECT_EQ(reply->text(), "[]");
}

TEST_F(Routing, NeverRepliesToEnablelock)
{
    start();
    callWithoutReply("enablelock", {"1"});
    EXPECT_TRUE(daemon.eventuallyLogged(notHandled("enablelock", APP, "/")));
}

TEST_F(Routing, TakesTheTimeOfEnablelockAsTheConfigurationsOwn)
{
    start();
    eventHandled(9, 5, 0);
    EXPECT_EQ(Json(sdk.events("recent").back().text)["send.dat_ts"].integer(), 0);
    const time_t before = time(nullptr);
    callWithoutReply("enablelock", {"1"});
    eventHandled(9, 5, 0);
    const int64_t stamp = Json(sdk.events("recent").back().text)["send.dat_ts"].integer();
    EXPECT_GE(stamp, before);
    EXPECT_LE(stamp, time(nullptr));
}

TEST_F(Routing, AcceptsAndIgnoresTheSignalsTriggerAndCommand)
{
    start();
    client.signal("/x", EVENT_SIGNALS, "trigger", {"whatever"});
    client.signal("/x", EVENT_SIGNALS, "command", {"whatever"});
    client.signal("/x", EVENT_SIGNALS, "somethingElse", {"whatever"});
    ASSERT_TRUE(daemon.eventuallyLogged(notHandled("somethingElse", EVENT_SIGNALS, "/x")));
    EXPECT_FALSE(daemon.logged(notHandled("trigger", EVENT_SIGNALS, "/x")));
    EXPECT_FALSE(daemon.logged(notHandled("command", EVENT_SIGNALS, "/x")));
    eventHandled(9, 5, 0);
    EXPECT_EQ(recent().size(), 1u);
}

TEST_F(Routing, AnswersAnEventMethodAndQueuesTheEvent)
{
    start();
    EXPECT_EQ(eventMethod(9, 5, 3), 1);
    ASSERT_TRUE(eventually([&] { return announced(9, 5) == 1; }));
    EXPECT_EQ(recent().at(0)["channelID"].integer(), 3);
    EXPECT_TRUE(daemon.logged("eventCode: 9"));
    EXPECT_TRUE(daemon.logged("gid: 5"));
    EXPECT_TRUE(daemon.logged("channelID: 3"));
}

TEST_F(Routing, AnEventSignalIsNoEventMethodAndTheOtherWayRound)
{
    start();
    callWithoutReply("triggerAPP", {uint16_t{9}, uint16_t{7}, uint16_t{0}, uint16_t{0}, ""},
                     EVENT_SIGNALS);
    client.signal("/", ZWAVE_EVENT, "event", {uint16_t{9}, uint16_t{7}, uint16_t{0}});
    eventHandled(9, 5, 0);
    EXPECT_EQ(announced(9, 7), 0u);
}

TEST_F(Routing, CutsTheChannelOfAnEventToAByte)
{
    start();
    eventHandled(9, 5, 258);
    EXPECT_EQ(recent().at(0)["channelID"].integer(), 2);
    EXPECT_EQ(eventMethod(9, 6, 511), 1);
    ASSERT_TRUE(eventually([&] { return announced(9, 6) == 1; }));
    EXPECT_EQ(recent().at(1)["channelID"].integer(), 255);
}

struct FlagCase {
    const char *name;
    uint16_t flag;
    bool hasPayload;
};

class RoutingPayloadFlag : public DaemonOnItsOwnBus,
                           public testing::WithParamInterface<FlagCase> {};

TEST_P(RoutingPayloadFlag, DecidesWithItsLowByteWhetherTheTextIsKept)
{
    start();
    eventWithPayload(9, 5, 0, GetParam().flag, R"({"code":1234})");
    ASSERT_TRUE(eventually([&] { return announced(9, 5) == 1; }));
    EXPECT_EQ(recent().at(0)["payload"].dump(),
              GetParam().hasPayload ? R"({"code":1234})" : "null");
}

INSTANTIATE_TEST_SUITE_P(Flags, RoutingPayloadFlag,
                         testing::Values(FlagCase{"Zero", 0, false}, FlagCase{"One", 1, true},
                                         FlagCase{"TwoHundredFiftySix", 256, false},
                                         FlagCase{"TwoHundredFiftySeven", 257, true}),
                         caseName);

TEST_F(Routing, RefusesAnEventSignalWithOtherArguments)
{
    start();
    client.signal("/", EVENT_SIGNALS, "triggerAPP", {"9", uint16_t{5}});
    client.signal("/", EVENT_SIGNALS, "triggerAPP", {});
    client.signal("/", EVENT_SIGNALS, "triggerAPP", {uint16_t{9}, uint16_t{7}, uint16_t{0}});
    eventHandled(9, 5, 0);
    EXPECT_EQ(recent().size(), 1u);
    EXPECT_EQ(daemon.timesLogged(" 2. "), 3u);
    EXPECT_FALSE(daemon.logged(notHandled("triggerAPP", EVENT_SIGNALS, "/")));
}

struct WrongArguments {
    const char *interface;
    const char *name;  // the member
    std::vector<Argument> arguments;
};

class RoutingWrongArguments : public DaemonOnItsOwnBus,
                              public testing::WithParamInterface<WrongArguments> {};

TEST_P(RoutingWrongArguments, AreReportedAndNotAnswered)
{
    const auto &[interface, member, arguments] = GetParam();
    start();
    gatewayReady();
    const std::string before = callForText("jsongetall", "");
    callWithoutReply(member, arguments, interface);
    EXPECT_TRUE(daemon.eventuallyLogged(notHandled(member, interface, "/")));
    EXPECT_TRUE(daemon.logged("rgument")) << "the library's text on standard error";
    EXPECT_EQ(callForText("jsongetall", ""), before);
}

INSTANTIATE_TEST_SUITE_P(Methods, RoutingWrongArguments,
                         testing::Values(WrongArguments{APP, "jsongettitles", {int32_t{1}}},
                                         WrongArguments{APP, "jsongetgroup", {}},
                                         WrongArguments{APP, "jsongetall", {uint32_t{1}}},
                                         WrongArguments{APP, "jsonsetall", {int32_t{1}}},
                                         WrongArguments{APP, "doscene", {}},
                                         WrongArguments{APP, "doscenemode", {int32_t{1}}},
                                         WrongArguments{ZWAVE_EVENT, "event", {"9", "5", "0"}}),
                         caseName);

TEST_F(Routing, IgnoresArgumentsAfterTheOnesItReads)
{
    start();
    const auto reply = client.call(APP, "jsongettitles", {"scenes", "and more"});
    ASSERT_TRUE(eventually([&] { return reply->arrived(); }));
    EXPECT_EQ(reply->text(), "[]");
}

TEST_F(Routing, AnswersInTheOrderOfTheRequests)
{
    startWith(R"({"scenes":[{"title":"Evening"}]})");
    std::vector<std::shared_ptr<PendingReply>> replies;
    for (int i = 0; i < 50; ++i)
        replies.push_back(client.call(APP, i % 2 ? "jsongettitles" : "doscenemode", {"scenes"}));
    ASSERT_TRUE(eventually([&] { return replies.back()->arrived(); }));
    for (size_t i = 0; i < replies.size(); ++i) {
        ASSERT_TRUE(replies[i]->arrived()) << i;
        EXPECT_EQ(replies[i]->text(), i % 2 ? R"(["Evening"])" : "scenes") << i;
        if (i > 0) {
            EXPECT_LE(replies[i - 1]->at(), replies[i]->at()) << i;
        }
    }
}
