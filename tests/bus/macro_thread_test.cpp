// The life of a macro's threads: the waits, the one run of the scene, the retired threads and the
// restore.

#include "support/daemon_on_its_own_bus.h"

#include <set>

using namespace support;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

static constexpr uint16_t REPORT = 5001;
static const std::string LAMP_ON = switchCommand(20, 0, 255);
static const std::string LAMP_BACK = switchCommand(20, 0, 7);

// The macro "Door" fires when device 5 reports 255 and switches device 20, which is at 7 before, to
// 255.
static std::string doorMacro(const std::string &members, int64_t triggerDuration)
{
    return R"({"title":"Door","enabled":1,)" + members + R"(,
        "scene":{"title":"Hall light","ID":3,"comps":[{"target":{"dev":20,"if":0,"ch":0},"value":255}]},
        "triggers":[{"target":{"dev":5,"if":0,"ch":0},"op":"=","threshold":255,"duration":)" +
           std::to_string(triggerDuration) + "}]}";
}

class MacroThreads : public DaemonOnItsOwnBus {
protected:
    void SetUp() override
    {
        DaemonOnItsOwnBus::SetUp();
        sdk.set(device(5, 0, DOOR, 255));
        sdk.set(device(6, 0, DOOR, 255));
        sdk.set(device(20, 0, SWITCH, 7));
        sdk.set(device(21, 0, SWITCH, 8));
    }
    void startWithMacros(const std::string &macros, const std::string &more = "")
    {
        startWith(R"({"macros":[)" + macros + "]" + more + "}");
        gatewayReady();
        sdk.forgetHeard();
    }
    void openDoor()
    {
        eventHandled(REPORT, 5, 0);
    }
    Moment momentOf(const std::string &command) const
    {
        for (const Heard &heard : sdk.commands()) {
            if (heard.text == command)
                return heard.at;
        }
        return {};
    }
    size_t threadsEnded() const
    {
        return daemon.timesLogged(" end\n");
    }
};

TEST_F(MacroThreads, AnnounceTheMacroAndRunItsScene)
{
    startWithMacros(doorMacro(R"("duration":0)", 0));
    const time_t before = time(nullptr);
    openDoor();
    ASSERT_TRUE(eventually([&] { return sdk.heard(LAMP_ON); }));
    const std::vector<Heard> announcements = sdk.events("MacroEvent");
    ASSERT_EQ(announcements.size(), 1u);
    EXPECT_EQ(announcements[0].path, "/com/OvrinTech/process/app/MacroEvent");
    const Json document(announcements[0].text);
    EXPECT_EQ(document.dump(), announcements[0].text);
    EXPECT_THAT(document.keys(), ElementsAre("EventMacro"));
    EXPECT_EQ(document["EventMacro"]["name"].text(), "Door");
    EXPECT_EQ(document["EventMacro"]["scene"].text(), "Hall light");
    EXPECT_GE(document["EventMacro"]["timeStamp"].integer(), before);
}

TEST_F(MacroThreads, TakeTheStepsInTheirOrder)
{
    startWithMacros(doorMacro(R"("duration":0)", 0));
    openDoor();
    ASSERT_TRUE(eventually([&] { return sdk.heard(LAMP_ON); }));
    std::vector<std::string> steps;
    for (const Heard &heard : sdk.everything())
        steps.push_back(heard.kind == Heard::EVENT ? heard.member : heard.text);
    EXPECT_THAT(steps, ElementsAre(plainCommand("getdevice", 5), "recent",
                                   plainCommand("getdevice", 20), "MacroEvent", LAMP_ON));
}

TEST_F(MacroThreads, RunASceneThatIsNamed)
{
    startWithMacros(R"({"title":"Door","enabled":1,"scene":"Hall light",
        "triggers":[{"target":{"dev":5,"if":0,"ch":0},"op":"=","threshold":255}]})",
                    R"(,"scenes":[{"title":"Hall light","comps":[
        {"target":{"dev":20,"if":0,"ch":0},"value":255}]}])");
    openDoor();
    ASSERT_TRUE(eventually([&] { return sdk.heard(LAMP_ON); }));
    EXPECT_EQ(macroEvents().at(0)["scene"].text(), "Hall light");
}

TEST_F(MacroThreads, RunTheNamedSceneAsItIsWhenItsTimeComes)
{
    startWithMacros(R"({"title":"Door","enabled":1,"scene":"Hall light",
        "triggers":[{"target":{"dev":5,"if":0,"ch":0},"op":"=","threshold":255,"duration":1}]})",
                    R"(,"scenes":[{"title":"Hall light","comps":[
        {"target":{"dev":20,"if":0,"ch":0},"value":255}]}])");
    openDoor();
    ASSERT_EQ(callForNumber("jsonsetall", R"({"scenes":[{"title":"Hall light","comps":[
        {"target":{"dev":20,"if":0,"ch":0},"value":55}]}]})"),
              1);
    ASSERT_TRUE(eventually([&] { return sdk.heard(switchCommand(20, 0, 55)); }));
    EXPECT_FALSE(sdk.heard(LAMP_ON));
}

TEST_F(MacroThreads, RunThePrivateSceneAsItWasWhenTheMacroFired)
{
    startWithMacros(doorMacro(R"("duration":0)", 1));
    openDoor();
    ASSERT_EQ(callForNumber("jsonsetall", R"({"macros":[{"title":"Door","scene":{"comps":[
        {"target":{"dev":20,"if":0,"ch":0},"value":55}]}}]})"),
              1);
    ASSERT_TRUE(eventually([&] { return sdk.heard(LAMP_ON); }));
    EXPECT_FALSE(sdk.heard(switchCommand(20, 0, 55)));
}

TEST_F(MacroThreads, SurviveASceneThatDoesNotExist)
{
    startWithMacros(R"({"title":"Door","enabled":1,"scene":"Nowhere","duration":1,
        "triggers":[{"target":{"dev":5,"if":0,"ch":0},"op":"=","threshold":255}]})");
    openDoor();
    ASSERT_TRUE(daemon.eventuallyLogged("not found resume, tid:"));
    EXPECT_TRUE(daemon.logged("scene is NULL"));
    EXPECT_TRUE(daemon.logged("data->macro->title is NULL"));
    EXPECT_THAT(sdk.commandTexts(), IsEmpty());
    ASSERT_TRUE(eventually([&] { return macroEvents().size() == 1; }));
    EXPECT_EQ(macroEvents().at(0)["name"].text(), "Door");
    openDoor();
    EXPECT_TRUE(eventually([&] { return macroEvents().size() == 2; })) << "the macro is idle again";
}

TEST_F(MacroThreads, DoNotWaitForATriggerDurationOfZero)
{
    startWithMacros(doorMacro(R"("duration":0)", 0));
    openDoor();
    ASSERT_TRUE(eventually([&] { return macroEvents().size() == 1; }));
    const int64_t waited =
        millisecondsBetween(sdk.events("recent").at(0).at, sdk.events("MacroEvent").at(0).at);
    if (SPEED_COUNTS) {
        EXPECT_LT(waited, 700) << "a millisecond, not a second";
    }
}

TEST_F(MacroThreads, WaitForTheTriggerDuration)
{
    startWithMacros(doorMacro(R"("duration":0)", 2));
    openDoor();
    ASSERT_TRUE(eventually([&] { return macroEvents().size() == 1; }));
    const int64_t waited =
        millisecondsBetween(sdk.events("recent").at(0).at, sdk.events("MacroEvent").at(0).at);
    EXPECT_GE(waited, 1950);
    if (SPEED_COUNTS) {
        EXPECT_LT(waited, 2900);
    }
}

TEST_F(MacroThreads, RestoreTheDeviceAfterTheControlDuration)
{
    startWithMacros(doorMacro(R"("duration":1)", 0));
    openDoor();
    ASSERT_TRUE(eventually([&] { return sdk.heard(LAMP_BACK); }));
    EXPECT_THAT(sdk.commandTexts(), ElementsAre(LAMP_ON, LAMP_BACK));
    EXPECT_GE(millisecondsBetween(sdk.events("MacroEvent").at(0).at, momentOf(LAMP_BACK)), 1000);
    EXPECT_TRUE(daemon.eventuallyLogged(" end"));
    EXPECT_FALSE(daemon.logged("not found resume"));
    EXPECT_FALSE(daemon.logged("resumeSceneList is not empty."));
}

TEST_F(MacroThreads, LeaveTheDeviceAsItIsWithAControlDurationOfZero)
{
    startWithMacros(doorMacro(R"("duration":0)", 0));
    openDoor();
    ASSERT_TRUE(eventually([&] { return threadsEnded() == 1; }));
    openDoor();
    ASSERT_TRUE(eventually([&] { return sdk.count(LAMP_ON) == 2; }));
    EXPECT_EQ(macroEvents().size(), 2u) << "the first run was over, so the scene ran again";
    EXPECT_THAT(sdk.commandTexts(), ElementsAre(LAMP_ON, LAMP_ON));
    EXPECT_EQ(sdk.asked("getdevice", 20), 2u) << "its value was stored all the same";
}

TEST_F(MacroThreads, RestoreAtOnceAfterAControlDurationBelowZero)
{
    startWithMacros(doorMacro(R"("duration":-1)", 0));
    openDoor();
    ASSERT_TRUE(eventually([&] { return sdk.heard(LAMP_BACK); }));
    EXPECT_THAT(sdk.commandTexts(), ElementsAre(LAMP_ON, LAMP_BACK));
    EXPECT_TRUE(daemon.logged("do sleep(control duration): -1 sec, tid: "));
    EXPECT_FALSE(daemon.logged("remaining time: "));
}

TEST_F(MacroThreads, DoNotWaitForATriggerDurationBelowZero)
{
    startWithMacros(doorMacro(R"("duration":0)", -9223372036854775807));
    openDoor();
    ASSERT_TRUE(eventually([&] { return sdk.heard(LAMP_ON); }));
    EXPECT_FALSE(daemon.logged("remaining time: "));
}

TEST_F(MacroThreads, LeaveTheScenesValuesAtAThresholdThatIsMinusOneIn32BitsOnly)
{
    sdk.set(device(5, 0, DIMMER, 42));
    startWithMacros(R"({"title":"Follow","enabled":1,"scene":{"title":"S","comps":[
            {"target":{"dev":20,"if":0,"ch":0},"value":1}]},
        "triggers":[{"target":{"dev":5,"if":0,"ch":0},"op":"!=","threshold":4294967295}]})");
    openDoor();
    ASSERT_TRUE(eventually([&] { return sdk.commands().size() == 1; }));
    EXPECT_THAT(sdk.commandTexts(), ElementsAre(switchCommand(20, 0, 1)));
}

struct RestoreCase {
    const char *name;
    int mode;
    int64_t value;
};

class MacroThreadsRestore : public MacroThreads, public testing::WithParamInterface<RestoreCase> {};

TEST_P(MacroThreadsRestore, PutsTheDeviceToTheValueOfTheMode)
{
    startWithMacros(
        doorMacro(R"("duration":1,"duration_type":)" + std::to_string(GetParam().mode), 0));
    openDoor();
    const std::string restored = switchCommand(20, 0, GetParam().value);
    ASSERT_TRUE(eventually([&] { return sdk.commands().size() == 2; }));
    EXPECT_THAT(sdk.commandTexts(), ElementsAre(LAMP_ON, restored));
}

INSTANTIATE_TEST_SUITE_P(Modes, MacroThreadsRestore,
                         testing::Values(RestoreCase{"AsItWas", 0, 7}, RestoreCase{"Off", 1, 0},
                                         RestoreCase{"On", 2, 99}),
                         caseName);

TEST_F(MacroThreads, RestoreTheSensorValueOfADeviceThatHasOne)
{
    sdk.set({.uid = 20,
             .channels = {{.functype = THERMOSTAT_MODE, .basicvalue = 7, .sensorvalue = 3}}});
    startWithMacros(doorMacro(R"("duration":1)", 0));
    openDoor();
    ASSERT_TRUE(eventually(
        [&] { return sdk.heard(deviceCommand("thermostatmode", 20, std::nullopt, 3)); }));
}

TEST_F(MacroThreads, PutADeviceThatCannotBeReadToTheScenesOwnValue)
{
    sdk.behave("getdevice", 20, Answer::refusing());
    startWithMacros(doorMacro(R"("duration":1)", 0));
    openDoor();
    EXPECT_TRUE(eventually([&] { return sdk.count(LAMP_ON) == 2; }));
    EXPECT_TRUE(daemon.logged("getChannelFromGetDev_dev fails"));
}

TEST_F(MacroThreads, RestoreWithoutTheBuiltInSiren)
{
    startWithMacros(R"({"title":"Door","enabled":1,"duration":1,"scene":{"title":"S",
        "buildinSiren":{"siren_type":4},"comps":[{"target":{"dev":20,"if":0,"ch":0},"value":255}]},
        "triggers":[{"target":{"dev":5,"if":0,"ch":0},"op":"=","threshold":255}]})");
    openDoor();
    ASSERT_TRUE(eventually([&] { return sdk.heard(LAMP_BACK); }));
    EXPECT_THAT(sdk.commandTexts(), ElementsAre(sysSound(4), LAMP_ON, sysSound(0), LAMP_BACK));
}

TEST_F(MacroThreads, RunTheSceneOnceWhileItIsActiveAndRestoreOnceAfterTheLast)
{
    startWithMacros(doorMacro(R"("duration":1)", 0));
    openDoor();
    ASSERT_TRUE(eventually([&] { return macroEvents().size() == 1; }));
    openDoor();
    ASSERT_TRUE(
        eventually([&] { return daemon.timesLogged("macro 'Door' triggered repeatedly") == 1; }));
    openDoor();
    ASSERT_TRUE(
        eventually([&] { return daemon.timesLogged("macro 'Door' triggered repeatedly") == 2; }));
    const Moment last = Clock::now();

    ASSERT_TRUE(eventually([&] { return sdk.heard(LAMP_BACK); }));
    EXPECT_GE(millisecondsBetween(last, momentOf(LAMP_BACK)), 950)
        << "a second after the last trigger";
    ASSERT_TRUE(eventually([&] { return threadsEnded() == 3; }));
    EXPECT_EQ(macroEvents().size(), 1u);
    EXPECT_THAT(sdk.commandTexts(), ElementsAre(LAMP_ON, LAMP_BACK));
    EXPECT_EQ(sdk.asked("getdevice", 20), 1u);
    EXPECT_FALSE(daemon.logged("not found resume"));
}

TEST_F(MacroThreads, BeginAgainAfterTheRestore)
{
    startWithMacros(doorMacro(R"("duration":1)", 0));
    openDoor();
    ASSERT_TRUE(eventually([&] { return threadsEnded() == 1; }));
    sdk.setBasicValue(20, 0, 9);
    openDoor();
    ASSERT_TRUE(eventually([&] { return sdk.heard(switchCommand(20, 0, 9)); }));
    EXPECT_THAT(sdk.commandTexts(),
                ElementsAre(LAMP_ON, LAMP_BACK, LAMP_ON, switchCommand(20, 0, 9)));
}

TEST_F(MacroThreads, RetireWithinASecondWhenTheMacroFiresAgainDuringTheTriggerWait)
{
    startWithMacros(doorMacro(R"("duration":0)", 3));
    openDoor();
    const size_t from = daemon.logSize();
    openDoor();
    const Moment second = Clock::now();
    ASSERT_TRUE(daemon.eventuallyLogged(" outdated.", from));
    if (SPEED_COUNTS) {
        EXPECT_LE(millisecondsBetween(second, Clock::now()), 1500);
    }
    EXPECT_EQ(macroEvents().size(), 0u) << "the older one retires, the newer one waits on";
    ASSERT_TRUE(eventually([&] { return threadsEnded() == 2; }));
    ASSERT_TRUE(eventually([&] { return macroEvents().size() == 1; }));
    EXPECT_EQ(daemon.timesLogged(" outdated."), 1u);
    EXPECT_GE(millisecondsBetween(sdk.events("recent").at(1).at, sdk.events("MacroEvent").at(0).at),
              2950)
        << "the wait of the newest counts";
    ASSERT_TRUE(eventually([&] { return sdk.heard(LAMP_ON); }));
    EXPECT_EQ(sdk.count(LAMP_ON), 1u);
}

TEST_F(MacroThreads, RetireDuringTheControlWaitToo)
{
    startWithMacros(doorMacro(R"("duration":3)", 0));
    openDoor();
    ASSERT_TRUE(eventually([&] { return daemon.logged("do sleep(control duration): 3 sec"); }));
    openDoor();
    EXPECT_TRUE(daemon.eventuallyLogged(" outdated.")) << "the first thread's wait has ended early";
    ASSERT_TRUE(eventually([&] { return sdk.heard(LAMP_BACK); }));
    EXPECT_GE(millisecondsBetween(sdk.events("recent").at(1).at, momentOf(LAMP_BACK)), 2950);
    EXPECT_THAT(sdk.commandTexts(), ElementsAre(LAMP_ON, LAMP_BACK));
    EXPECT_FALSE(daemon.logged("not found resume"));
}

TEST_F(MacroThreads, AWaitThatIsInterruptedGoesOnForTheRest)
{
    startWithMacros(doorMacro(R"("duration":0)", 2));
    openDoor();
    ASSERT_TRUE(daemon.eventuallyLogged("remaining time: "));
    ASSERT_TRUE(eventually([&] { return macroEvents().size() == 1; }));
    EXPECT_GE(millisecondsBetween(sdk.events("recent").at(0).at, sdk.events("MacroEvent").at(0).at),
              1950);
    EXPECT_FALSE(daemon.logged(" outdated."));
}

TEST_F(MacroThreads, OfDifferentMacrosDoNotRetireEachOther)
{
    startWithMacros(doorMacro(R"("duration":0)", 1) + "," + R"({"title":"Other","enabled":1,
        "scene":{"title":"O","comps":[{"target":{"dev":21,"if":0,"ch":0},"value":2}]},
        "triggers":[{"target":{"dev":6,"if":0,"ch":0},"op":"=","threshold":255,"duration":1}]})");
    openDoor();
    eventHandled(REPORT, 6, 0);
    EXPECT_TRUE(
        eventually([&] { return sdk.heard(LAMP_ON) && sdk.heard(switchCommand(21, 0, 2)); }));
    EXPECT_FALSE(daemon.logged(" outdated."));
    EXPECT_EQ(macroEvents().size(), 2u);
}

struct BypassCase {
    const char *name;
    int64_t reported;
    int64_t sent;
};

class MacroThreadsBypass : public MacroThreads, public testing::WithParamInterface<BypassCase> {};

TEST_P(MacroThreadsBypass, PassTheSensorValueOnToTheSceneAtAThresholdOfMinusOne)
{
    sdk.set(device(5, 0, DIMMER, GetParam().reported));
    startWithMacros(R"({"title":"Follow","enabled":1,"scene":{"title":"S","comps":[
            {"target":{"dev":505,"if":0,"ch":0},"value":1},
            {"target":{"dev":20,"if":0,"ch":0},"value":1},
            {"target":{"dev":512,"if":0,"ch":0},"value":1},
            {"target":{"dev":21,"if":0,"ch":0},"value":2}]},
        "triggers":[{"target":{"dev":5,"if":0,"ch":0},"op":"!=","threshold":-1}]})");
    openDoor();
    ASSERT_TRUE(eventually([&] { return sdk.commands().size() == 2; }));
    EXPECT_THAT(sdk.commandTexts(), ElementsAre(switchCommand(20, 0, GetParam().sent),
                                                switchCommand(21, 0, GetParam().sent)));
    EXPECT_TRUE(daemon.logged("bypass sensor value, uid: 5"));
}

INSTANTIATE_TEST_SUITE_P(Values, MacroThreadsBypass,
                         testing::Values(BypassCase{"AsItIs", 42, 42},
                                         BypassCase{"FullAs101", 101, 100},
                                         BypassCase{"OffAs102", 102, 0},
                                         BypassCase{"Negative", -7, -7}),
                         caseName);

TEST_F(MacroThreads, CallFromAPathOfTheirOwn)
{
    startWithMacros(doorMacro(R"("duration":0)", 0));
    openDoor();
    ASSERT_TRUE(eventually([&] { return sdk.heard(LAMP_ON); }));
    const std::string workerPath = sdk.calls("getdevice", 5).at(0).path;
    const std::string macroPath = sdk.calls("getdevice", 20).at(0).path;
    EXPECT_THAT(workerPath, StartsWith("/com/OvrinTech/App/"));
    EXPECT_THAT(macroPath, StartsWith("/com/OvrinTech/App/"));
    EXPECT_NE(workerPath, macroPath);
}

TEST_F(MacroThreads, AreThereForEachOfManyMacrosAtOnce)
{
    std::string macros;
    for (int i = 0; i < 20; ++i) {
        const std::string number = std::to_string(i);
        macros += (i ? "," : "") + (R"({"title":"M)" + number + R"(","enabled":1,"duration":1,
            "scene":{"title":"S)" + number +
                                    R"("},
            "triggers":[{"target":{"dev":5,"if":0,"ch":0},"op":"=","threshold":255}]})");
    }
    startWithMacros(macros);
    openDoor();
    ASSERT_TRUE(eventually([&] { return threadsEnded() == 20 && macroEvents().size() >= 20; }));
    std::set<std::string> names;
    for (const Json &macroEvent : macroEvents())
        names.insert(macroEvent["name"].text());
    EXPECT_EQ(names.size(), 20u);
    EXPECT_EQ(macroEvents().size(), 20u);
}
