// What must not hurt the daemon: signals at any time, nonsense from every side, and everything at
// once.

#include "support/daemon_on_its_own_bus.h"
#include "support/door_and_lamp.h"

#include <csignal>
#include <thread>

using namespace support;
using testing::ElementsAre;

static constexpr uint16_t REPORT = 5001;

class Robustness : public DaemonOnItsOwnBus {
protected:
    void SetUp() override
    {
        DaemonOnItsOwnBus::SetUp();
        addDoorAndLamp(sdk);
    }
    // The whole road once more: event, announcement, macro, command, configuration.
    void expectHealthy()
    {
        sdk.forgetHeard();
        eventHandled(REPORT, 5, 0);
        EXPECT_TRUE(eventually([&] { return macroEvents().size() >= 1; }));
        EXPECT_TRUE(tickUntil([&] { return sdk.heard(LAMP); }));
        EXPECT_EQ(callForNumber("jsonsetall", R"({"scenes":[{"title":"Healthy"}]})"), 1);
    }
};

TEST_F(Robustness, SignalsDuringTheStart)
{
    platform.behave("TimeZone", Answer::asUsual().after(400ms));
    platform.behave("customerName", Answer::asUsual().after(400ms));
    daemon.writeSetup(DOOR_AND_LAMP);
    launch();
    ASSERT_TRUE(eventually([&] { return platform.asked("appstart_time_flag") == 1; }));
    while (platform.answered("customerName") == 0) {
        daemon.signal(SIGALRM);
        daemon.signal(SIGUSR1);
        std::this_thread::sleep_for(1ms);
        ASSERT_TRUE(daemon.running());
    }
    waitUntilStarted();
    gatewayReady();
    expectHealthy();
}

TEST_F(Robustness, AScheduleSignalIsTakenOnTheMainThreadAlone)
{
    startWith(DOOR_AND_LAMP);
    gatewayReady();
    for (int i = 0; i < 100; ++i)
        daemon.signal(SIGUSR1);
    expectHealthy();
}

struct Nonsense {
    const char *name;
    const char *reply;
};

class RobustnessNonsense : public Robustness, public testing::WithParamInterface<Nonsense> {};

TEST_P(RobustnessNonsense, FromTheSdkDaemonIsAnUnknownDeviceAtWorst)
{
    startWith(DOOR_AND_LAMP);
    gatewayReady();
    sdk.behave("getdevice", 6, Answer::saying(GetParam().reply));
    sdk.behave("getdevice", 256, Answer::saying(GetParam().reply));
    eventHandled(REPORT, 6, 0);
    eventHandled(1001, 6, 0);
    callForText("doscene", "Lamp");
    sdk.forgetBehaviour("getdevice", 6);
    sdk.forgetBehaviour("getdevice", 256);
    eventHandled(1001, 6, 0);
    expectHealthy();
}

INSTANTIATE_TEST_SUITE_P(
    Replies, RobustnessNonsense,
    testing::Values(
        Nonsense{"NoJson", "nonsense"}, Nonsense{"ANumber", "5"}, Nonsense{"AnArray", "[]"},
        Nonsense{"NoDevices", "{}"}, Nonsense{"DevicesAreNoArray", R"({"device":{}})"},
        Nonsense{"ADeviceIsANumber", R"({"device":[5,{"uid":6}]})"},
        Nonsense{"NoChannels", R"({"device":[{"uid":6}]})"},
        Nonsense{"AChannelIsANumber", R"({"device":[{"uid":6,"channel":[5]}]})"},
        Nonsense{"WrongTypes", R"({"device":[{"uid":"6","battery":[],"code":5,"lasttampertime":{},
            "channel":[{"chid":"0","functype":null,"name":5,"meter":5,"switch_color":[]}]}]})"},
        Nonsense{"HalfAColour", R"({"device":[{"uid":6,"channel":[{"chid":0,"functype":24,
            "switch_color":{"comp_mask1":"x","comp_value":[5,{"comp_id":-1,"value":70000}]}}]}]})"},
        Nonsense{"AColourWithoutValues", R"({"device":[{"uid":6,"channel":[{"chid":0,
            "switch_color":{},"meter":{}}]}]})"}),
    caseName);

TEST_F(Robustness, CutsTextsOfTheSdkDaemonThatDoNotFit)
{
    sdk.set({.uid = 6,
             .channels = {{.functype = SWITCH, .name = std::string(5000, 'n')}},
             .code = std::string(5000, '1')});
    start();
    eventHandled(REPORT, 6, 0);
    EXPECT_EQ(recent().at(0)["funcName"].text(), std::string(127, 'n'));
}

struct NameCase {
    const char *name;
    const char *text;
    const char *kept;
};

class RobustnessNames : public Robustness, public testing::WithParamInterface<NameCase> {};

TEST_P(RobustnessNames, AreKeptUpToTheCharacterBeforeAParenthesis)
{
    sdk.set({.uid = 6, .channels = {{.functype = SWITCH, .name = GetParam().text}}});
    start();
    eventHandled(REPORT, 6, 0);
    EXPECT_EQ(recent().at(0)["funcName"].text(), GetParam().kept);
}

INSTANTIATE_TEST_SUITE_P(Names, RobustnessNames,
                         testing::Values(NameCase{"WithSpace", "Lamp (hall)", "Lamp"},
                                         NameCase{"WithoutSpace", "Lamp(hall)", "Lam"},
                                         NameCase{"AtTheStart", "(hall) Lamp", "(hall) Lamp"},
                                         NameCase{"Short", "ab(x)", "a"},
                                         NameCase{"OneCharacter", "a(x)", ""},
                                         NameCase{"None", "Lamp", "Lamp"}),
                         caseName);

TEST_F(Robustness, TakesALongPayload)
{
    start();
    const std::string text(16'000, 'p');
    eventWithPayload(REPORT, 6, 0, 1, R"({"user":")" + text + R"("})");
    ASSERT_TRUE(eventually([&] { return recent().size() == 1; }));
    EXPECT_EQ(recent().at(0)["payload"]["user"].text(), text);
}

TEST_F(Robustness, TakesALargeConfiguration)
{
    start();
    gatewayReady();
    std::string scenes;
    for (int i = 0; i < 300; ++i) {
        scenes += (i ? "," : "") + (R"({"title":"Scene )" + std::to_string(i) + R"(","comps":[)");
        for (int j = 0; j < 20; ++j)
            scenes +=
                (j ? "," : "") + (R"({"target":{"dev":)" + std::to_string(j) + R"(},"value":1})");
        scenes += "]}";
    }
    const auto reply = client.call(APP, "jsonsetall", {R"({"scenes":[)" + scenes + "]}"});
    ASSERT_TRUE(eventually([&] { return reply->arrived(); }, 20s));
    EXPECT_EQ(reply->number(), 1);
    EXPECT_EQ(Json(callForText("jsongettitles", "scenes")).size(), 300u);
    EXPECT_EQ(Json(daemon.storedSetup())["scenes"].size(), 300u);
}

TEST_F(Robustness, RefusesADocumentThatIsNestedTooDeep)
{
    start();
    gatewayReady();
    std::string deep;
    for (int i = 0; i < 100000; ++i)
        deep += "[";
    EXPECT_EQ(callForNumber("jsonsetall", deep), 0);
    EXPECT_EQ(callForNumber("jsonsetall", R"({"scenes":)" + deep), 0);
    EXPECT_EQ(callForText("jsongettitles", "scenes"), "[]");
}

TEST_F(Robustness, TakesPercentSignsAsText)
{
    const std::string text = "%s%n%d%1000000d";
    startWith(R"({"scenes":[{"title":")" + text + R"("}],"macros":[{"title":")" + text +
              R"(","enabled":1,"scene":")" + text + R"(",
        "triggers":[{"target":{"dev":5,"if":0,"ch":0},"op":"=","threshold":255}]}]})");
    gatewayReady();
    EXPECT_EQ(callForText("doscene", text), text);
    EXPECT_EQ(callForText("doscenemode", text), text);
    callWithoutReply("jsongetgroup", {text});
    event(REPORT, 5, 0);
    ASSERT_TRUE(eventually([&] { return macroEvents().size() == 1; }));
    EXPECT_EQ(macroEvents().at(0)["scene"].text(), text);
}

TEST_F(Robustness, RunsOnWithoutAnyPeer)
{
    platform.leave();
    sdk.leave();
    startWith(DOOR_AND_LAMP);
    const size_t from = daemon.logSize();
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(eventMethod(100, 5, 0), 1);
    ASSERT_TRUE(daemon.eventuallyLogged("sendOvrinSdkCmd failed", from));
    EXPECT_EQ(callForText("doscene", "Siren"), "Siren");
    for (int i = 0; i < 700; ++i) {
        daemon.signal(SIGALRM);
        std::this_thread::sleep_for(1ms);
    }
    listenerIsIdle();
}

// Readers, writers, scenes, events and ticks on top of one another: the sanitizers look on.
TEST_F(Robustness, EverythingAtOnce)
{
    startWith(DOOR_AND_LAMP);
    gatewayReady();
    std::vector<std::shared_ptr<PendingReply>> replies;
    for (int round = 0; round < 60; ++round) {
        const std::string number = std::to_string(round % 7);
        event(REPORT, 5, 0);
        event(round % 5 == 0 ? 1001 : REPORT, 6, 0);
        replies.push_back(client.call(APP, "doscene", {round % 2 ? "Lamp" : "Siren"}));
        replies.push_back(client.call(APP, "jsongetall", {""}));
        replies.push_back(client.call(APP, "jsonsetall",
                                      {R"({"scenes":[{"title":"Lamp","comps":[
            {"target":{"dev":20,"if":0,"ch":)" +
                                       number + R"(},"value":1}]}],
            "macros":[{"title":"M)" + number +
                                       R"(","enabled":1,"duration":0,"scene":{"title":"S"},
            "triggers":[{"target":{"dev":6,"if":0,"ch":0},"op":">","threshold":0}]}],
            "eventFilter":[{"uid":)" + number +
                                       R"(0}],"alarm":{"duration":)" + number + "}}"}));
        replies.push_back(client.call(APP, "jsongetgroup", {"macros"}));
        daemon.signal(SIGALRM);
        daemon.signal(SIGUSR1);
        ASSERT_TRUE(eventually([&] { return replies.back()->arrived(); })) << round;
    }
    for (const auto &reply : replies)
        EXPECT_TRUE(reply->arrived() && reply->error().empty());
    expectHealthy();
}

// Everything that waits is in the middle of its wait when the end comes.
TEST_F(Robustness, EndsOrderlyWhileThreadsWait)
{
    startWith(R"({"macros":[{"title":"Door","enabled":1,"duration":60,"scene":{"title":"S"},
      "triggers":[{"target":{"dev":5,"if":0,"ch":0},"op":"=","threshold":255}]},
      {"title":"Later","enabled":1,"scene":{"title":"S"},
      "triggers":[{"target":{"dev":5,"if":0,"ch":0},"op":"=","threshold":255,"duration":60}]}]})");
    gatewayReady();
    eventHandled(REPORT, 5, 0);
    ASSERT_TRUE(daemon.eventuallyLogged("do sleep(control duration): 60 sec"));
    sdk.behave("getdevice", 6, Answer::silence());
    event(REPORT, 6, 0);
    ASSERT_TRUE(eventually([&] { return sdk.asked("getdevice", 6) == 1; }));
    daemon.stop();
    endsOrderly = false;
}

// It is kept and stored; that there is a new one is told, and the text of it to nobody.
TEST_F(Robustness, KeepsAConfigurationThatIsTooLongForTheBus)
{
    static constexpr size_t LONGEST_TEXT = size_t{16} * 1024 * 1024;
    static constexpr int SCENES = 40'000;
    if (!SPEED_COUNTS)
        GTEST_SKIP() << "minutes under a sanitizer, or an emulator";
    startWith("{}", {"OVRIN_LOG_LEVEL=6"});
    gatewayReady();
    std::string document = R"({"scenes":[)";
    const std::string text(120, 'x');
    for (int i = 0; i < SCENES; ++i)
        document += R"({"icon":")" + text + R"(","icon_name":")" + text + R"(","title":")" + text +
                    std::to_string(i) + R"("},)";
    document.back() = ']';
    document += "}";
    const auto set = client.call(APP, "jsonsetall", {document});
    ASSERT_TRUE(eventually([&] { return set->arrived(); }, 60s));
    EXPECT_EQ(set->number(), 1);
    EXPECT_GT(daemon.storedSetup().size(), LONGEST_TEXT);
    EXPECT_TRUE(daemon.logged("The text is too long for the bus"));
    const auto all = client.call(APP, "jsongetall", {""});
    const auto next = client.call(APP, "jsongettitles", {"rooms"});
    EXPECT_TRUE(eventually([&] { return next->arrived(); }, 60s));
    EXPECT_FALSE(all->arrived());
    ASSERT_EQ(sdk.events("jsongetall").size(), 1u);
    EXPECT_EQ(sdk.events("jsongetall")[0].signature, "");

    const auto deleted = client.call(APP, "jsondel", {document});
    EXPECT_TRUE(eventually([&] { return deleted->arrived(); }, 60s));
    EXPECT_EQ(deleted->number(), 1) << "and is as good as any other";
    EXPECT_EQ(callForText("jsongettitles", "scenes"), "[]");
    ASSERT_EQ(sdk.events("jsongetall").size(), 2u);
    EXPECT_EQ(sdk.events("jsongetall")[1].text, callForText("jsongetall", ""));
}
