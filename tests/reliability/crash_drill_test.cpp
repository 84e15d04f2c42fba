// kill -9 in every state in which the daemon waits: what the next life knows of it, and what is
// lost for good. The outcome of each state is a row of the table in docs/reliability.md.

#include "support/daemon_on_its_own_bus.h"
#include "support/scale.h"
#include "support/wall_clock.h"

#include <csignal>
#include <random>
#include <thread>

using namespace support;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

static constexpr const char *SWITCH_APP = "com.OvrinTech.switch.app";
static constexpr const char *RESUME_FILE = "scheduleResumeScene.json";
static constexpr uint16_t REPORT = 5001;
static constexpr uint16_t LOGGED_ONLY = 9999;
static constexpr int64_t SOUND = 4;

static const std::string LAMP_ON = switchCommand(20, 0, 255);
static const std::string LAMP_BACK = switchCommand(20, 0, 7);
static const std::string SIREN_ON = switchCommand(30, 0, SOUND);
static const std::string MARKER = switchCommand(40, 0, 1);

static const std::string SCENES =
    R"("scenes":[{"title":"Light","comps":[{"target":{"dev":20,"if":0,"ch":0},"value":255}]},
       {"title":"Marker","comps":[{"target":{"dev":512,"if":0,"ch":0},"value":3},
          {"target":{"dev":40,"if":0,"ch":0},"value":1}]}])";

static std::string macroSetup(int triggerDuration, int controlDuration)
{
    return "{" + SCENES + R"(,"macros":[{"title":"Door","enabled":1,"scene":"Light","duration":)" +
           std::to_string(controlDuration) + R"(,"triggers":[{"duration":)" +
           std::to_string(triggerDuration) +
           R"(,"target":{"dev":5,"if":0,"ch":0},"op":"=","threshold":255}]}]})";
}

class CrashDrill : public ConfigurableDaemon {
protected:
    const int kills = inFull(100, SPEED_COUNTS ? 4 : 2);
    // Sensors that set off nothing themselves: 6 is a switch.
    void SetUp() override
    {
        ConfigurableDaemon::SetUp();
        sdk.set(device(5, 0, DOOR, 255));
        sdk.set(device(6, 0, SWITCH, 1));
        sdk.set(device(20, 0, SWITCH, 7));
        sdk.set(device(30, 0, SIREN, 0));
        sdk.set(device(40, 0, SWITCH, 0));
    }
    // What the daemon keeps for good, as it tells it.
    Json configuration()
    {
        return Json(callForText("jsongetall", ""));
    }
    // The event and all that it starts have been done with.
    void openDoor()
    {
        eventHandled(REPORT, 5, 0);
        eventHandled(LOGGED_ONLY, 6, 0);
    }
    // At some moment of the state, whose beginning this is.
    void crashAndStart(const std::vector<std::string> &settings = {})
    {
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 30'000));
        const Json before = configuration();
        daemon.signal(SIGKILL);
        ASSERT_TRUE(eventually([&] { return !daemon.running(); }));
        ASSERT_TRUE(eventually([&] { return !client.peer.nameHasOwner(APP_NAME); }));
        sdk.forgetHeard();
        start(settings);
        gatewayReady();
        EXPECT_EQ(configuration(), before);
        // The journals are kept in memory alone; the event that says the gateway is there is new.
        EXPECT_EQ(Json(callForText("jsongetmacroeventbyseq", "0"))["macroEventLog"].size(), 0u);
        EXPECT_EQ(recent().size(), 1u);
        ++done;
    }
    // All that has been planned is sent when this returns; the commands since the last start.
    std::vector<std::string> commands()
    {
        const size_t markers = sdk.count(MARKER);
        callForText("doscene", "Marker");
        EXPECT_TRUE(eventually([&] { return sdk.count(MARKER) > markers; }));
        std::vector<std::string> texts = sdk.commandTexts();
        std::erase(texts, MARKER);
        return texts;
    }
    void TearDown() override
    {
        figure("kills", done, "kills");
        ConfigurableDaemon::TearDown();
    }

    std::mt19937 random{7};
    int64_t done = 0;
};

TEST_F(CrashDrill, InTheTriggerWaitForgetsThatTheMacroWasTriggered)
{
    startReady(macroSetup(3600, 0));
    for (int i = 0; i < kills && !HasFailure(); ++i) {
        openDoor();
        ASSERT_THAT(macroEvents(), IsEmpty()) << "it waits";
        crashAndStart();
        EXPECT_THAT(macroEvents(), IsEmpty());
        EXPECT_THAT(sdk.commandTexts(), IsEmpty());
    }
    ASSERT_EQ(set(R"({"macros":[{"title":"Door","triggers":[
        {"target":{"dev":5,"if":0,"ch":0},"op":"=","threshold":255,"duration":0}]}]})"),
              1);
    openDoor();
    ASSERT_TRUE(eventually([&] { return macroEvents().size() == 1; }))
        << "the next one triggers it";
    EXPECT_THAT(commands(), ElementsAre(LAMP_ON));
}

TEST_F(CrashDrill, InTheControlWaitLeavesTheDevicesAsTheSceneSetThem)
{
    startReady(macroSetup(0, 3600));
    for (int i = 0; i < kills && !HasFailure(); ++i) {
        sdk.setBasicValue(20, 0, 7);
        openDoor();
        ASSERT_TRUE(eventually([&] { return sdk.heard(LAMP_ON); }));
        sdk.setBasicValue(20, 0, 255);
        crashAndStart();
        EXPECT_THAT(macroEvents(), IsEmpty());
        EXPECT_THAT(sdk.commandTexts(), IsEmpty()) << "what they showed before is forgotten";
    }
    EXPECT_THAT(commands(), IsEmpty());
    // The macro is idle: the next trigger runs it, and what it puts back is what it finds.
    ASSERT_EQ(set(R"({"macros":[{"title":"Door","duration":1}]})"), 1);
    sdk.forgetHeard();
    openDoor();
    ASSERT_TRUE(eventually([&] { return sdk.count(LAMP_ON) == 2; })) << "once on, once put back";
    EXPECT_EQ(macroEvents().size(), 1u);
    EXPECT_FALSE(sdk.heard(LAMP_BACK));
}

TEST_F(CrashDrill, InTheMiddleOfASceneForgetsTheCommandsToCome)
{
    static const std::string SECOND_ON = switchCommand(21, 0, 255);
    sdk.set(device(21, 0, SWITCH, 7));
    WallClock clock;
    const auto sendHalf = [&] {
        clock.set(2024, 7, 1, 8, 0);
        callForText("doscene", "Halves");
        ASSERT_TRUE(eventually([&] { return sdk.heard(LAMP_ON); }));
    };
    clock.set(2024, 7, 1, 8, 0);
    startWith(R"({"scenes":[{"title":"Halves","comps":[
                  {"target":{"dev":20,"if":0,"ch":0},"value":255},
                  {"target":{"dev":512,"if":0,"ch":0},"value":36000},
                  {"target":{"dev":21,"if":0,"ch":0},"value":255}]},)" +
                  SCENES.substr(SCENES.find('{')) + "}",
              clock.settings());
    gatewayReady();
    for (int i = 0; i < kills && !HasFailure(); ++i) {
        ASSERT_NO_FATAL_FAILURE(sendHalf());
        EXPECT_FALSE(sdk.heard(SECOND_ON));
        crashAndStart(clock.settings());
        clock.set(2024, 7, 1, 10, 0);
        EXPECT_THAT(commands(), IsEmpty()) << "an hour after the first one";
    }
    // The next run sends all of it.
    sdk.forgetHeard();
    ASSERT_NO_FATAL_FAILURE(sendHalf());
    clock.set(2024, 7, 1, 10, 0);
    EXPECT_TRUE(eventually([&] { return sdk.heard(SECOND_ON); }));
    EXPECT_THAT(sdk.commandTexts(), ElementsAre(LAMP_ON, SECOND_ON));
}

TEST_F(CrashDrill, InAScheduleWindowLosesNothing)
{
    WallClock clock;
    const auto at = [&](int hour, int minute) {
        clock.set(2024, 7, 1, hour, minute, 1);  // a Monday
        const size_t before = daemon.timesLogged("schedule signal");
        daemon.signal(SIGUSR1);
        ASSERT_TRUE(eventually([&] { return daemon.timesLogged("schedule signal") > before; }));
        ASSERT_TRUE(eventually([&] { return daemon.inMainLoop(); }));
    };
    clock.set(2024, 7, 1, 8, 0, 1);
    startWith("{" + SCENES + R"(,"schedules":[{"title":"Morning","weekdays":2,"start_hour":8,
                  "start_minute":15,"end_hour":9,"end_minute":45,"enabled":1,
                  "macro":{"title":"M","scene":{"title":"Own",
                    "comps":[{"target":{"dev":20,"if":0,"ch":0},"value":255}]}}}]})",
              clock.settings());
    gatewayReady();
    for (int i = 0; i < kills && !HasFailure(); ++i) {
        sdk.setBasicValue(20, 0, 7);
        at(8, 15);
        ASSERT_TRUE(daemon.data.read(RESUME_FILE));
        ASSERT_TRUE(eventually([&] { return sdk.heard(LAMP_ON); }));
        sdk.setBasicValue(20, 0, 255);
        crashAndStart(clock.settings());
        EXPECT_THAT(sdk.commandTexts(), IsEmpty());
        at(9, 45);
        ASSERT_TRUE(eventually([&] { return sdk.heard(LAMP_BACK); }));
        EXPECT_THAT(sdk.commandTexts(), ElementsAre(LAMP_BACK));
        sdk.forgetHeard();
    }
}

static std::string alarmSetup(int entryDelay, int duration)
{
    return "{" + SCENES + R"(,"alarm":{"enabled":1,"siren_type":)" + std::to_string(SOUND) +
           R"(,"trigger_duration":)" + std::to_string(entryDelay) + R"(,"duration":)" +
           std::to_string(duration) + "}}";
}

TEST_F(CrashDrill, InTheEntryDelayForgetsTheAlarmAndStaysArmed)
{
    startReady(alarmSetup(3600, 3600));
    const auto alarms = [&] { return sdk.asked("getdevice", 256); };
    for (int i = 0; i < kills && !HasFailure(); ++i) {
        sdk.forgetHeard();
        openDoor();
        ASSERT_EQ(alarms(), 1u) << "it has begun";
        crashAndStart();
        EXPECT_EQ(configuration()["alarm"]["enabled"].integer(), 1);
        EXPECT_THAT(macroEvents(), IsEmpty());
        EXPECT_THAT(sdk.commandTexts(), IsEmpty());
    }
    sdk.forgetHeard();
    openDoor();
    EXPECT_EQ(alarms(), 1u) << "the next one begins an alarm";
    EXPECT_THAT(commands(), IsEmpty());
}

TEST_F(CrashDrill, WhileTheSirensSoundLeavesThemToTheirOwnTimeAndStaysArmed)
{
    startReady(alarmSetup(1, 3600));
    const auto setHomeScene = [&](int32_t enable) {
        const auto reply = client.call(SWITCH_APP, "setHomeScene", {enable});
        EXPECT_TRUE(eventually([&] { return reply->arrived(); }));
    };
    for (int i = 0; i < inFull(100, 2) && !HasFailure(); ++i) {
        sdk.setBasicValue(30, 0, 0);
        openDoor();
        ASSERT_TRUE(eventually([&] { return sdk.heard(SIREN_ON) && sdk.heard(sysSound(SOUND)); }));
        sdk.setBasicValue(30, 0, SOUND);
        crashAndStart();
        EXPECT_EQ(configuration()["alarm"]["enabled"].integer(), 1);
        EXPECT_THAT(commands(), IsEmpty());
        setHomeScene(0);
        setHomeScene(1);
        EXPECT_THAT(commands(), IsEmpty()) << "there is no record of what to put back";
    }
    // The next alarm silences the gateway's own siren; the others show that they sound.
    ASSERT_EQ(set(R"({"alarm":{"duration":0}})"), 1);
    sdk.forgetHeard();
    openDoor();
    ASSERT_TRUE(eventually([&] { return sdk.count(SIREN_ON) == 2 && sdk.heard(sysSound(0)); }));
    EXPECT_THAT(commands(), UnorderedElementsAre(sysSound(SOUND), SIREN_ON, sysSound(0), SIREN_ON));
}
