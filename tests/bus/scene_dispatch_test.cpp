// Scenes on their way to the SDK daemon: the announcement, the planned times, the command that fits
// the channel.

#include "support/daemon_on_its_own_bus.h"

#include <cstdio>
#include <map>

using namespace support;
using testing::ElementsAre;
using testing::IsEmpty;

static std::string comp(int64_t dev, int64_t ch, int64_t value)
{
    return R"({"target":{"dev":)" + std::to_string(dev) + R"(,"if":0,"ch":)" + std::to_string(ch) +
           R"(},"value":)" + std::to_string(value) + "}";
}

static constexpr int64_t GAP_STEP = 505;
static constexpr int64_t WAIT_STEP = 512;

static std::string gap(int64_t tenths)
{
    return comp(GAP_STEP, 0, tenths);
}

// A scene holds one comp for each target: several waits in it differ by their channel.
static std::string pause(int64_t tenths, int64_t ch = 0)
{
    return comp(WAIT_STEP, ch, tenths);
}

static std::string scene(const std::string &title, const std::vector<std::string> &comps,
                         const std::string &members = "")
{
    std::string list;
    for (const std::string &text : comps)
        list += (list.empty() ? "" : ",") + text;
    return R"({"title":")" + title + R"(",)" + members + R"("comps":[)" + list + "]}";
}

class SceneDispatch : public DaemonOnItsOwnBus {
protected:
    void SetUp() override
    {
        DaemonOnItsOwnBus::SetUp();
        sdk.set(device(20, 0, SWITCH));
        sdk.set(device(21, 0, SWITCH));
        sdk.set(device(22, 0, SWITCH));
        // Steps are no commands, even when a device happens to have their number.
        sdk.set(device(GAP_STEP, 0, SWITCH));
        sdk.set(device(WAIT_STEP, 0, SWITCH));
    }
    void startWithScenes(const std::vector<std::string> &scenes)
    {
        std::string list;
        for (const std::string &text : scenes)
            list += (list.empty() ? "" : ",") + text;
        startWith(R"({"scenes":[)" + list + "]}");
        sdk.forgetHeard();
    }
    // The moment before the request: what is planned relative to it is planned no earlier.
    Moment run(const std::string &title)
    {
        const Moment before = Clock::now();
        EXPECT_EQ(callForText("doscene", title), title);
        return before;
    }
    bool eventuallySent(size_t commands)
    {
        return eventually([&] { return sdk.commands().size() >= commands; });
    }
    // Milliseconds from the start of the scene to its n-th command. Stamps are whole milliseconds.
    int64_t delay(Moment start, size_t command) const
    {
        return millisecondsBetween(start, sdk.commands().at(command).at) + 1;
    }
    // The last of the time-table is sent and its spacing is back to normal.
    bool eventuallyDrained(int64_t spacing)
    {
        return eventually([&] {
            const std::string log = daemon.log();
            const size_t line = log.rfind("4.0.do_scene_schedule last_time=");
            unsigned long last = 0, now = 0;
            if (line == std::string::npos ||
                sscanf(log.c_str() + line,
                       "4.0.do_scene_schedule last_time=%lu  tid_ms_timestamp=%lu", &last,
                       &now) != 2)
                return false;
            return now >= last + static_cast<unsigned long>(spacing) + 1000;
        });
    }
};

TEST_F(SceneDispatch, SendsEachCommandAGapAfterTheOneBefore)
{
    startWithScenes({scene("S", {comp(20, 0, 1), comp(21, 0, 2), comp(22, 0, 3)})});
    const Moment start = run("S");
    ASSERT_TRUE(eventuallySent(3));
    EXPECT_THAT(sdk.commandTexts(), ElementsAre(switchCommand(20, 0, 1), switchCommand(21, 0, 2),
                                                switchCommand(22, 0, 3)));
    for (size_t i = 0; i < 3; ++i)
        EXPECT_GE(delay(start, i), static_cast<int64_t>(200 * (i + 1)));
    if (SPEED_COUNTS) {
        EXPECT_LE(delay(start, 2), 1500);
    }
}

TEST_F(SceneDispatch, SendsCommandsAsSignalsOfTheCommandInterface)
{
    startWithScenes({scene("S", {comp(20, 0, 1)})});
    run("S");
    ASSERT_TRUE(eventuallySent(1));
    const Heard command = sdk.commands().at(0);
    EXPECT_EQ(command.kind, Heard::COMMAND);
    EXPECT_EQ(command.member, "command");
    EXPECT_EQ(command.path, "/com/OvrinTech/process/app");
    EXPECT_EQ(command.signature, "s");
}

TEST_F(SceneDispatch, AnswersAnUnknownSceneWithItsNameAndRunsNothing)
{
    startWithScenes({scene("S", {comp(20, 0, 1)})});
    run("Nowhere");
    run("s");
    run("S");
    ASSERT_TRUE(eventuallySent(1));
    EXPECT_EQ(sdk.commands().size(), 1u);
}

TEST_F(SceneDispatch, RunsASceneAgainWhileItRuns)
{
    startWithScenes({scene("S", {comp(20, 0, 1), comp(21, 0, 2)})});
    run("S");
    run("S");
    ASSERT_TRUE(eventuallySent(4));
    EXPECT_EQ(sdk.count(switchCommand(20, 0, 1)), 2u);
    EXPECT_EQ(sdk.count(switchCommand(21, 0, 2)), 2u);
}

struct GapCase {
    const char *name;
    int64_t step;
    int64_t milliseconds;
};

class SceneDispatchGap : public SceneDispatch, public testing::WithParamInterface<GapCase> {};

TEST_P(SceneDispatchGap, IsSetByItsStepForTheCommandsAfterIt)
{
    startWithScenes(
        {scene("S", {comp(20, 0, 1), gap(GetParam().step), comp(21, 0, 2), comp(22, 0, 3)})});
    const Moment start = run("S");
    ASSERT_TRUE(eventuallySent(3));
    EXPECT_THAT(sdk.commandTexts(), ElementsAre(switchCommand(20, 0, 1), switchCommand(21, 0, 2),
                                                switchCommand(22, 0, 3)))
        << "the step itself is never sent";
    const int64_t apart = GetParam().milliseconds;
    EXPECT_GE(delay(start, 0), 200);
    EXPECT_GE(delay(start, 1), 200 + apart);
    EXPECT_GE(delay(start, 2), 200 + 2 * apart);
    if (SPEED_COUNTS) {
        EXPECT_LE(delay(start, 2), 200 + 2 * apart + 1200);
    }
}

INSTANTIATE_TEST_SUITE_P(Values, SceneDispatchGap,
                         testing::Values(GapCase{"Five", 5, 500}, GapCase{"One", 1, 100},
                                         GapCase{"Zero", 0, 200}, GapCase{"Negative", -3, 200},
                                         GapCase{"OneHundred", 100, 200},
                                         GapCase{"OneHundredFifty", 150, 200}),
                         caseName);

TEST_F(SceneDispatch, DelaysTheRestByAWaitStepAndByNothingElse)
{
    std::vector<std::string> comps{gap(1)};
    for (int i = 0; i < 10; ++i)
        comps.push_back(pause(1, i));
    comps.push_back(comp(20, 0, 1));
    startWithScenes({scene("S", comps)});
    const Moment start = run("S");
    ASSERT_TRUE(eventuallySent(1));
    EXPECT_GE(delay(start, 0), 1100);
    if (SPEED_COUNTS) {
        EXPECT_LE(delay(start, 0), 1900) << "a gap for each of the waits would make it 2100";
    }
    EXPECT_EQ(sdk.commands().size(), 1u);
}

TEST_F(SceneDispatch, WaitsBetweenTwoCommands)
{
    startWithScenes({scene("S", {comp(20, 0, 1), pause(10), comp(21, 0, 2)})});
    const Moment start = run("S");
    ASSERT_TRUE(eventuallySent(2));
    EXPECT_GE(delay(start, 1), 200 + 1000 + 200);
    EXPECT_THAT(sdk.commandTexts(), ElementsAre(switchCommand(20, 0, 1), switchCommand(21, 0, 2)));
}

TEST_F(SceneDispatch, KeepsAScenesGapUntilTheTimeTableHasDrained)
{
    startWithScenes({scene("Slow", {gap(8), comp(20, 0, 1)}), scene("Plain", {comp(21, 0, 2)})});
    run("Slow");
    const Moment start = run("Plain");
    ASSERT_TRUE(eventuallySent(2));
    EXPECT_GE(delay(start, 1), 800) << "the plain scene is planned with the gap in force";
    ASSERT_TRUE(eventuallyDrained(800));
    listenerIsIdle();  // the line was logged just before the spacing is set back
    sdk.forgetHeard();
    const Moment again = run("Plain");
    ASSERT_TRUE(eventuallySent(1));
    EXPECT_GE(delay(again, 0), 200);
    if (SPEED_COUNTS) {
        EXPECT_LT(delay(again, 0), 750) << "the normal gap";
    }
}

TEST_F(SceneDispatch, SendsTheCommandThatFitsTheChannel)
{
    sdk.set({.uid = 30,
             .channels = {{.chid = 0, .functype = METER},
                          {.chid = 1, .functype = SWITCH},
                          {.chid = 2, .functype = DIMMER},
                          {.chid = 3, .functype = CURTAIN},
                          {.chid = 4, .functype = LOCK},
                          {.chid = 5, .functype = THERMOSTAT_FAN},
                          {.chid = 6, .functype = THERMOSTAT_MODE},
                          {.chid = 7, .functype = THERMOSTAT_SETPOINT},
                          {.chid = 8, .functype = AV_CONTROL},
                          {.chid = 9, .functype = MUTE_TYPE},
                          {.chid = 10, .functype = SNAPSHOT},
                          {.chid = 11, .functype = 99}}});
    startWithScenes(
        {scene("S", {gap(1), comp(30, 0, 110), comp(30, 1, 110), comp(30, 2, 110), comp(30, 3, 1),
                     comp(30, 4, 2), comp(30, 5, 3), comp(30, 6, 4), comp(30, 7, 215),
                     comp(30, 8, 5), comp(30, 9, 6), comp(30, 10, 7), comp(30, 11, 8)})});
    run("S");
    ASSERT_TRUE(eventuallySent(11));
    EXPECT_THAT(sdk.commandTexts(),
                ElementsAre(R"({"control":{"chid":0,"cmd":"getswitch","uid":30,"val":110}})",
                            R"({"control":{"chid":1,"cmd":"getswitch","uid":30,"val":110}})",
                            R"({"control":{"chid":2,"cmd":"switch","uid":30,"val":110}})",
                            R"({"control":{"chid":3,"cmd":"switch","uid":30,"val":1}})",
                            R"({"control":{"chid":4,"cmd":"switch","uid":30,"val":2}})",
                            R"({"control":{"cmd":"thermostatfan","uid":30,"val":3}})",
                            R"({"control":{"cmd":"thermostatmode","uid":30,"val":4}})",
                            R"({"control":{"cmd":"thermostattemp","temp":215,"uid":30,"unit":1}})",
                            R"({"control":{"chid":8,"cmd":"simpleAVcontrol","uid":30,"val":5}})",
                            R"({"control":{"chid":10,"cmd":"snapshot","uid":30,"val":7}})",
                            R"({"control":{"chid":11,"cmd":"switch","uid":30,"val":8}})"));
    for (const Heard &command : sdk.commands())
        EXPECT_EQ(command.kind == Heard::CALL, command.cmd() == "thermostattemp") << command.text;
}

TEST_F(SceneDispatch, SwitchesAMeteringPlugWithAnyOtherValue)
{
    sdk.set(device(30, 4, METER));
    startWithScenes({scene("S", {comp(30, 4, 99)})});
    run("S");
    ASSERT_TRUE(eventuallySent(1));
    EXPECT_EQ(sdk.commandTexts().at(0), switchCommand(30, 4, 99));
}

TEST_F(SceneDispatch, SendsNothingToAnUnknownDevice)
{
    startWithScenes({scene("S", {gap(1), comp(77, 0, 1), comp(768, 0, 1), comp(20, 0, 1)})});
    run("S");
    ASSERT_TRUE(eventuallySent(1));
    EXPECT_THAT(sdk.commandTexts(), ElementsAre(switchCommand(20, 0, 1)));
}

TEST_F(SceneDispatch, SwitchesAnUnknownChannelAllTheSame)
{
    startWithScenes({scene("S", {gap(1), comp(20, 5, 1), comp(20, -1, 2)})});
    run("S");
    ASSERT_TRUE(eventuallySent(2));
    EXPECT_THAT(
        sdk.commandTexts(),
        ElementsAre(switchCommand(20, 5, 1), R"({"control":{"cmd":"switch","uid":20,"val":2}})"));
    EXPECT_TRUE(daemon.logged("not found dev: 20, ch : 5, allDev addr: "));
}

TEST_F(SceneDispatch, TakesASnapshotOfACamera)
{
    startWithScenes({scene("S", {gap(1), comp(769, 0, 1), comp(100000, 3, 2)})});
    run("S");
    ASSERT_TRUE(eventuallySent(2));
    EXPECT_THAT(sdk.commandTexts(),
                ElementsAre(R"({"control":{"cmd":"snapshot","uid":769,"val":1}})",
                            R"({"control":{"cmd":"snapshot","uid":100000,"val":2}})"));
}

TEST_F(SceneDispatch, CutsAValueOfMoreThanThirtyTwoBits)
{
    startWithScenes({scene("S", {comp(20, 0, 4294967297)})});
    run("S");
    ASSERT_TRUE(eventuallySent(1));
    EXPECT_THAT(sdk.commandTexts(), ElementsAre(switchCommand(20, 0, 1)));
}

TEST_F(SceneDispatch, SoundsTheBuiltInSirenAtOnce)
{
    startWithScenes({scene("S", {comp(20, 0, 1)}, R"("buildinSiren":{"siren_type":4},)")});
    const Moment start = run("S");
    ASSERT_TRUE(eventuallySent(2));
    EXPECT_THAT(sdk.commandTexts(),
                ElementsAre(R"({"control":{"cmd":"syssound","val":4}})", switchCommand(20, 0, 1)));
    if (SPEED_COUNTS) {
        EXPECT_LT(delay(start, 0), 200);
    }
}

TEST_F(SceneDispatch, AnnouncesARunOnlyInTheMode)
{
    startWithScenes(
        {scene("Numbered", {comp(20, 0, 1)}, R"("ID":7,"buildinSiren":{"siren_type":4},)"),
         scene("Plain", {comp(21, 0, 1)})});
    EXPECT_EQ(callForText("doscenemode", "1"), "1");
    run("Numbered");
    ASSERT_TRUE(eventuallySent(3));
    EXPECT_THAT(sdk.commandTexts(),
                ElementsAre(R"({"control":{"chid":7,"cmd":"set_s_sta_num","uid":511,"val":1}})",
                            sysSound(4), switchCommand(20, 0, 1)));
    sdk.forgetHeard();
    run("Plain");
    ASSERT_TRUE(eventuallySent(2));
    EXPECT_THAT(sdk.commandTexts(),
                ElementsAre(R"({"control":{"chid":99,"cmd":"set_s_sta_num","uid":511,"val":1}})",
                            switchCommand(21, 0, 1)));
    sdk.forgetHeard();
    EXPECT_EQ(callForText("doscenemode", "2"), "2");
    run("Plain");
    ASSERT_TRUE(eventuallySent(2)) << "any other text leaves the mode on";
    sdk.forgetHeard();
    EXPECT_EQ(callForText("doscenemode", "0"), "0");
    run("Numbered");
    ASSERT_TRUE(eventuallySent(2));
    EXPECT_THAT(sdk.commandTexts(), ElementsAre(sysSound(4), switchCommand(20, 0, 1)));
}

TEST_F(SceneDispatch, AnnouncesTheRunOfAMacrosSceneWithoutItsID)
{
    sdk.set(device(5, 0, DOOR, 255));
    startWith(R"({"macros":[{"title":"M","enabled":1,"scene":)" +
              scene("S", {comp(20, 0, 1), comp(21, 0, 2)}, R"("ID":7,)") + R"(,
        "triggers":[{"target":{"dev":5,"if":0,"ch":0},"op":"=","threshold":255}]}]})");
    gatewayReady();
    callForText("doscenemode", "1");
    sdk.forgetHeard();
    eventHandled(5001, 5, 0);
    ASSERT_TRUE(eventuallySent(3));
    EXPECT_THAT(sdk.commandTexts(),
                ElementsAre(R"({"control":{"chid":99,"cmd":"set_s_sta_num","uid":511,"val":1}})",
                            switchCommand(20, 0, 1), switchCommand(21, 0, 2)));
}

TEST_F(SceneDispatch, NeverWritesTheModeToTheNvram)
{
    startWithScenes({});
    platform.forgetRequests();
    callForText("doscenemode", "1");
    callForText("doscenemode", "on");
    EXPECT_THAT(platform.askedKeys(), IsEmpty());
    EXPECT_EQ(daemon.timesLogged("scene name 1: 1"), 1u);
}

TEST_F(SceneDispatch, NeverAnnouncesASceneWithAWaitStepNorAnyAfterIt)
{
    startWithScenes({scene("Waits", {pause(1), comp(20, 0, 1)}, R"("ID":7,)"),
                     scene("Plain", {comp(21, 0, 1)}, R"("ID":8,)")});
    callForText("doscenemode", "1");
    run("Waits");
    ASSERT_TRUE(eventuallySent(1));
    run("Plain");
    ASSERT_TRUE(eventuallySent(2));
    EXPECT_THAT(sdk.commandTexts(), ElementsAre(switchCommand(20, 0, 1), switchCommand(21, 0, 1)));
}

TEST_F(SceneDispatch, KeepsTwoScenesStartedAtOnceWholeAndInOrder)
{
    std::string macros;
    for (int macro = 0; macro < 2; ++macro) {
        std::vector<std::string> comps{gap(1)};
        for (int i = 0; i < 20; ++i)
            comps.push_back(comp(40 + macro, i, i));
        sdk.set({.uid = 40 + macro, .channels = {}});
        macros += (macro ? "," : "") + (R"({"title":"M)" + std::to_string(macro) + R"(","enabled":1,
            "scene":)" + scene("S" + std::to_string(macro), comps) +
                                        R"(,
            "triggers":[{"target":{"dev":5,"if":0,"ch":0},"op":"=","threshold":255}]})");
    }
    sdk.set(device(5, 0, DOOR, 255));
    startWith(R"({"macros":[)" + macros + "]}");
    gatewayReady();
    sdk.forgetHeard();

    eventHandled(5001, 5, 0);
    ASSERT_TRUE(eventually([&] { return sdk.commands().size() >= 40; }, 15s));
    const Moment start = sdk.events("recent").at(0).at;
    std::vector<std::string> sent[2];
    for (size_t i = 0; i < sdk.commands().size(); ++i) {
        const Heard command = sdk.commands().at(i);
        std::vector<std::string> &own = sent[command.uid() - 40];
        own.push_back(command.text);
        EXPECT_GE(delay(start, i), static_cast<int64_t>(100 * own.size())) << command.text;
    }
    for (int macro = 0; macro < 2; ++macro) {
        ASSERT_EQ(sent[macro].size(), 20u);
        for (int i = 0; i < 20; ++i)
            EXPECT_EQ(sent[macro][static_cast<size_t>(i)], switchCommand(40 + macro, i, i));
    }
}

TEST_F(SceneDispatch, LosesAndDoublesNothingOfManyScenesPlannedAtOnce)
{
    static constexpr size_t ROUNDS = 10;
    static constexpr size_t COMMANDS = 20;
    std::vector<std::string> scenes;
    for (int64_t uid = 20; uid <= 21; ++uid) {
        std::vector<std::string> comps{gap(1)};
        for (size_t i = 0; i < COMMANDS; ++i)
            comps.push_back(comp(uid, static_cast<int64_t>(i), 1));
        scenes.push_back(scene(std::to_string(uid), comps));
    }
    startWithScenes(scenes);
    const Moment start = Clock::now();
    for (size_t i = 0; i < ROUNDS; ++i) {
        client.call(APP, "doscene", {"20"});
        client.call(APP, "doscene", {"21"});
    }
    const auto switched = [&] {
        std::vector<Heard> commands = sdk.commands();
        std::erase_if(commands, [](const Heard &heard) { return heard.uid() == 509; });
        return commands;  // without what the tick has to say about the sun
    };
    ASSERT_TRUE(tickUntil([&] { return switched().size() >= 2 * ROUNDS * COMMANDS; }));
    const std::vector<Heard> commands = switched();
    std::map<std::string, size_t> sent;
    for (const Heard &command : commands) {
        const int64_t chid = Json(command.text)["control"]["chid"].integer();
        ++sent[command.text];
        EXPECT_GE(millisecondsBetween(start, command.at), 100 * (chid + 1) - 1)
            << command.text << ", and the stamps are whole milliseconds";
    }
    EXPECT_EQ(sent.size(), 2 * COMMANDS);
    for (const auto &[command, times] : sent)
        EXPECT_EQ(times, ROUNDS) << command;
}

TEST_F(SceneDispatch, GoesOnAfterASetPointThatNobodyAnswers)
{
    sdk.set(device(30, 0, THERMOSTAT_SETPOINT));
    sdk.behave("thermostattemp", 30, Answer::silence());
    startWithScenes({scene("S", {gap(1), comp(30, 0, 215), comp(20, 0, 1)})});
    run("S");
    ASSERT_TRUE(eventuallySent(2));
    EXPECT_GE(millisecondsBetween(sdk.commands().at(0).at, sdk.commands().at(1).at), 1900)
        << "the set-point is the one command whose reply is waited for";
}

TEST_F(SceneDispatch, ListensAgainAsSoonAsASceneIsPlanned)
{
    std::vector<std::string> comps;
    for (int i = 0; i < 10; ++i)
        comps.push_back(comp(20, i, 1));
    startWithScenes({scene("S", comps)});
    run("S");
    listenerIsIdle();
    EXPECT_LT(sdk.commands().size(), 10u) << "the reply does not wait for the commands";
    ASSERT_TRUE(eventuallySent(10));
}
