// The daemon's own calls and signals: who waits for whom on its one outbound connection, and who
// must not.

#include "support/daemon_on_its_own_bus.h"

#include <algorithm>
#include <set>

using namespace support;
using testing::StartsWith;

static constexpr uint16_t REPORT = 5001;
static constexpr Milliseconds AT_ONCE = 50ms;

class Outbound : public DaemonOnItsOwnBus {
protected:
    void SetUp() override
    {
        DaemonOnItsOwnBus::SetUp();
        sdk.set(device(5, 0, DOOR, 255));
        sdk.set(device(6, 0, SWITCH, 1));
        sdk.set(device(20, 0, SWITCH, 7));
    }

    // A macro whose thread asks for four channels of device 30, one after another: with slow
    // answers of that device it waits for most of eight seconds inside a call, while everything
    // else goes on.
    static std::string setupWithSlowMacro()
    {
        return R"({"macros":[{"title":"Slow","enabled":1,"scene":{"title":"S","comps":[
            {"target":{"dev":30,"if":0,"ch":0},"value":1},{"target":{"dev":30,"if":0,"ch":1},"value":1},
            {"target":{"dev":30,"if":0,"ch":2},"value":1},{"target":{"dev":30,"if":0,"ch":3},"value":1}]},
            "triggers":[{"target":{"dev":5,"if":0,"ch":0},"op":"=","threshold":255}]}],
          "scenes":[{"title":"Siren","buildinSiren":{"siren_type":4}},
            {"title":"Lamp","comps":[{"target":{"dev":20,"if":0,"ch":0},"value":255}]}]})";
    }
    void startSlowMacro()
    {
        startWith(setupWithSlowMacro());
        gatewayReady();
        sdk.behave("getdevice", 30, Answer::asUsual().after(1900ms));
        eventHandled(REPORT, 5, 0);
        ASSERT_TRUE(eventually([&] { return sdk.asked("getdevice", 30) == 1; }));
    }
    bool macroStillWaits() const
    {
        return sdk.events("MacroEvent").empty();
    }
    // A busy machine may delay one of them, a connection that is not driven delays them all.
    static void expectMostAtOnce(std::vector<int64_t> delays, const char *what)
    {
        ASSERT_FALSE(delays.empty());
        std::sort(delays.begin(), delays.end());
        if (SPEED_COUNTS) {
            EXPECT_LE(delays[delays.size() / 2], AT_ONCE.count()) << what;
        }
        EXPECT_LE(delays.back(), patience(1000ms).count()) << what;
    }
};

TEST_F(Outbound, CallsFromThePathOfTheCallingThread)
{
    start();
    const std::string mainPath = "/com/OvrinTech/App/" + std::to_string(daemon.pid());
    std::set<std::string> paths;
    for (const NvramRequest &request : platform.requests())
        paths.insert(request.path);
    EXPECT_EQ(paths, std::set<std::string>{mainPath});
    EXPECT_EQ(sdk.calls("getdevice", 256).at(0).path, mainPath);

    gatewayReady();
    platform.forgetRequests();
    callForNumber("jsonsetall", R"({"scenes":[{"title":"Evening"}]})");
    const std::string listenerPath = platform.requests().at(0).path;
    EXPECT_THAT(listenerPath, StartsWith("/com/OvrinTech/App/"));
    EXPECT_NE(listenerPath, mainPath);
    const std::string workerPath = sdk.calls("getdevice", 1).at(0).path;
    EXPECT_NE(workerPath, mainPath);
    EXPECT_NE(workerPath, listenerPath);
}

TEST_F(Outbound, SpeaksOnAnotherConnectionThanItListensOn)
{
    start();
    eventHandled(REPORT, 6, 0);
    const std::string sender = sdk.events("recent").at(0).sender;
    EXPECT_EQ(sdk.calls("getdevice", 6).at(0).sender, sender);
    EXPECT_EQ(platform.requests().at(0).sender, sender);
    std::string owner;
    busThread.run([&] {
        const Message question(dbus_message_new_method_call(DBUS_SERVICE_DBUS, DBUS_PATH_DBUS,
                                                            DBUS_INTERFACE_DBUS, "GetNameOwner"));
        const char *name = APP_NAME;
        dbus_message_append_args(question.get(), DBUS_TYPE_STRING, &name, DBUS_TYPE_INVALID);
        const Message answer(dbus_connection_send_with_reply_and_block(
            client.peer.connection(), question.get(), 5000, nullptr));
        const char *text = "";
        if (answer)
            dbus_message_get_args(answer.get(), nullptr, DBUS_TYPE_STRING, &text,
                                  DBUS_TYPE_INVALID);
        owner = text;
    });
    EXPECT_FALSE(owner.empty());
    EXPECT_NE(owner, sender);
}

TEST_F(Outbound, ReadsASettingAnsweredWithoutArgumentsAsTheTextOfANull)
{
    platform.behave("doscenemode", Answer::withoutArguments());
    start();
    EXPECT_TRUE(daemon.logged("Message has no arguments!"));
    EXPECT_TRUE(daemon.logged("nvram read doscenemode value= (null)"));
}

TEST_F(Outbound, TakesACommandAnsweredWithoutArgumentsAsNotAnswered)
{
    start();
    sdk.behave("getdevice", 6, Answer::withoutArguments());
    event(REPORT, 6, 0);
    eventHandled(REPORT, 5, 0);
    EXPECT_TRUE(daemon.logged("Message has no arguments!"));
    EXPECT_TRUE(daemon.logged("sendOvrinSdkCmd failed"));
    EXPECT_EQ(announced(REPORT, 6), 0u);
}

TEST_F(Outbound, SurvivesAnswersThatAreNoText)
{
    platform.behave("customerName", Answer::withANumber());
    platform.behave("TUTK_UUID", Answer::withANumber());
    sdk.behave("getdevice", 6, Answer::withANumber());
    start();
    event(REPORT, 6, 0);
    eventHandled(REPORT, 5, 0);
}

TEST_F(Outbound, GivesACommandTwoSeconds)
{
    start();
    sdk.behave("getdevice", 6, Answer::silence());
    event(REPORT, 6, 0);
    ASSERT_TRUE(eventually([&] { return sdk.asked("getdevice", 6) == 1; }));
    const Moment asked = sdk.calls("getdevice", 6).at(0).at;
    ASSERT_TRUE(daemon.eventuallyLogged("sendOvrinSdkCmd failed"));
    const int64_t waited = millisecondsBetween(asked, Clock::now());
    EXPECT_GE(waited, 1950);
    if (SPEED_COUNTS) {
        EXPECT_LE(waited, 2900);
    }
    EXPECT_TRUE(daemon.logged("No reply"));
    eventHandled(REPORT, 5, 0);
}

TEST_F(Outbound, TakesAnAnswerJustBeforeTheTwoSecondsAreOver)
{
    start();
    sdk.behave("getdevice", 6, Answer::asUsual().after(1600ms));
    eventHandled(REPORT, 6, 0);
    EXPECT_FALSE(daemon.logged("sendOvrinSdkCmd failed"));
    EXPECT_EQ(recent().at(0)["basicValue"].integer(), 1);
}

TEST_F(Outbound, IgnoresAnAnswerThatComesTooLate)
{
    start();
    sdk.behave("getdevice", 6, Answer::asUsual().after(2300ms));
    event(REPORT, 6, 0);
    ASSERT_TRUE(daemon.eventuallyLogged("sendOvrinSdkCmd failed"));
    ASSERT_TRUE(eventually([&] { return sdk.calls("getdevice", 6).at(0).answered != Moment(); }));
    eventHandled(REPORT, 5, 0);
    EXPECT_EQ(recent().at(0)["basicValue"].integer(), 255) << "the answer of the later question";
}

TEST_F(Outbound, FailsAtOnceWithoutTheOtherSide)
{
    start();
    sdk.leave();
    const size_t from = daemon.logSize();
    const Moment before = Clock::now();
    event(REPORT, 6, 0);
    ASSERT_TRUE(daemon.eventuallyLogged("sendOvrinSdkCmd failed", from));
    if (SPEED_COUNTS) {
        EXPECT_LT(millisecondsBetween(before, Clock::now()), 1500);
    }
}

TEST_F(Outbound, SendsSignalsOfOtherThreadsWhileACallWaits)
{
    startSlowMacro();
    std::vector<int64_t> delays;
    for (int i = 0; i < 15 && macroStillWaits(); ++i) {
        const size_t before = sdk.count(sysSound(4));
        const Moment asked = Clock::now();
        callForText("doscene", "Siren");
        ASSERT_TRUE(eventually([&] { return sdk.count(sysSound(4)) > before; }));
        const Heard sound = sdk.commands().back();
        EXPECT_GE(sound.callsWaiting, 1u) << "the signal had waited for the call";
        delays.push_back(millisecondsBetween(asked, sound.at));
    }
    EXPECT_TRUE(macroStillWaits());
    expectMostAtOnce(delays, "a command");
}

TEST_F(Outbound, AnnouncesEventsWhileACallWaits)
{
    startSlowMacro();
    std::vector<int64_t> delays;
    for (int i = 0; i < 15 && macroStillWaits(); ++i) {
        const Moment reported = Clock::now();
        eventHandled(REPORT, 6, 0);
        const Heard announcement = sdk.events("recent").back();
        EXPECT_GE(announcement.callsWaiting, 1u);
        delays.push_back(millisecondsBetween(reported, announcement.at));
    }
    EXPECT_TRUE(macroStillWaits());
    expectMostAtOnce(delays, "an announcement");
}

TEST_F(Outbound, ReadsTheNvramWhileACallWaits)
{
    startSlowMacro();
    platform.forgetRequests();
    std::vector<int64_t> delays;
    for (int i = 0; i < 15 && macroStillWaits(); ++i) {
        const Moment asked = Clock::now();
        EXPECT_EQ(
            callForNumber("jsonsetall", R"({"alarm":{"duration":)" + std::to_string(i) + "}}"), 1);
        delays.push_back(millisecondsBetween(asked, Clock::now()));
    }
    EXPECT_EQ(platform.answered("enablelock"), delays.size());
    EXPECT_TRUE(macroStillWaits());
    expectMostAtOnce(delays, "a set that reads the nvram");
}

TEST_F(Outbound, DispatchesScenesWhileACallWaits)
{
    startSlowMacro();
    callForText("doscene", "Lamp");
    ASSERT_TRUE(eventually([&] { return sdk.heard(switchCommand(20, 0, 255)); }));
    EXPECT_GE(sdk.commands().back().callsWaiting, 1u);
    EXPECT_TRUE(macroStillWaits());
}

// Alarms from outside make the minute of the watchdog come within the macro's wait.
TEST_F(Outbound, FeedsTheWatchdogWhileACallWaits)
{
    startSlowMacro();
    tickUntil([&] { return !sdk.kicks().empty() || !macroStillWaits(); });
    ASSERT_FALSE(sdk.kicks().empty());
    EXPECT_GE(sdk.kicks().at(0).callsWaiting, 1u);
    const Heard question = sdk.calls("getZWID", 0).at(0);
    if (SPEED_COUNTS) {
        EXPECT_LE(millisecondsBetween(question.answered, sdk.kicks().at(0).at), AT_ONCE.count());
    }
}

TEST_F(Outbound, LetsCallsOfSeveralThreadsOverlap)
{
    startSlowMacro();
    sdk.behave("getdevice", 6, Answer::asUsual().after(300ms));
    const Moment reported = Clock::now();
    eventHandled(REPORT, 6, 0);
    const Heard question = sdk.calls("getdevice", 6).at(0);
    EXPECT_GE(question.callsWaiting, 1u) << "it was asked while the other was not answered";
    EXPECT_TRUE(macroStillWaits());
    if (SPEED_COUNTS) {
        EXPECT_LT(millisecondsBetween(reported, Clock::now()), 900);
    }
}

TEST_F(Outbound, KeepsTheMessagesOfAThreadInOrder)
{
    startWith(R"({"scenes":[{"title":"Siren","buildinSiren":{"siren_type":4}}]})");
    callForText("doscenemode", "1");
    for (int i = 0; i < 50; ++i)
        client.call(APP, "doscene", {"Siren"});
    ASSERT_TRUE(eventually([&] { return sdk.commands().size() >= 100; }));
    const std::vector<std::string> texts = sdk.commandTexts();
    ASSERT_EQ(texts.size(), 100u);
    for (size_t i = 0; i < texts.size(); i += 2) {
        EXPECT_EQ(texts[i], deviceCommand("set_s_sta_num", 511, 99, 1)) << i;
        EXPECT_EQ(texts[i + 1], sysSound(4)) << i;
    }
}

// Without the bus the daemon is of no use: it ends, and whoever supervises it starts it again.
// Nobody who waits for an answer keeps it from that.
TEST_F(Outbound, EndsAtOnceWhenTheBusGoesAwayWhoeverWaits)
{
    startWith(setupWithSlowMacro());
    gatewayReady();
    sdk.behave("getdevice", 30, Answer::silence());
    sdk.behave("getdevice", 6, Answer::silence());
    eventHandled(REPORT, 5, 0);
    event(REPORT, 6, 0);
    ASSERT_TRUE(eventually(
        [&] { return sdk.asked("getdevice", 30) == 1 && sdk.asked("getdevice", 6) == 1; }));
    const Moment gone = Clock::now();
    bus.stop();
    daemon.expectEnd(1);
    endsOrderly = false;
    if (SPEED_COUNTS) {
        EXPECT_LT(millisecondsBetween(gone, Clock::now()), 1500);
    }
    EXPECT_EQ(daemon.timesLogged("The bus connection is lost"), 1u);
}

TEST_F(Outbound, LeavesAWholeConfigurationBehindWhenTheBusGoesAway)
{
    startWith(setupWithSlowMacro());
    gatewayReady();
    for (int i = 0; i < 20; ++i)
        client.call(APP, "jsonsetall",
                    {R"({"scenes":[{"title":"Scene )" + std::to_string(i) + R"("}]})"});
    ASSERT_TRUE(eventually([&] { return platform.asked("enablelock") >= 5; }));
    bus.stop();
    daemon.expectEnd(1);
    endsOrderly = false;
    EXPECT_GE(Json(daemon.storedSetup())["scenes"].size(), 2u);
}

TEST_F(Outbound, WorksWithPeersThatLeaveAndComeBack)
{
    startWith(R"({"scenes":[{"title":"Siren","buildinSiren":{"siren_type":4}}]})");
    gatewayReady();
    sdk.leave();
    platform.leave();
    const size_t from = daemon.logSize();
    event(REPORT, 5, 0);
    ASSERT_TRUE(daemon.eventuallyLogged("sendOvrinSdkCmd failed", from));
    callForText("doscene", "Siren");

    platform.join(busThread, bus.address());
    sdk.join(busThread, bus.address());
    sdk.forgetHeard();
    platform.forgetRequests();
    eventHandled(REPORT, 5, 0);
    EXPECT_EQ(callForNumber("jsonsetall", R"({"scenes":[{"title":"Evening"}]})"), 1);
    EXPECT_EQ(platform.answered("enablelock"), 1u);
    callForText("doscene", "Siren");
    EXPECT_TRUE(eventually([&] { return sdk.heard(sysSound(4)); }));
}
