// Schedules that act: their start, their end, and what lies between, a restart too. The clock is
// set by the test, and SIGUSR1 comes from it as it comes from the platform once a minute.

#include "support/daemon_on_its_own_bus.h"
#include "support/wall_clock.h"

#include <csignal>
#include <filesystem>
#include <sys/syscall.h>
#include <unistd.h>

using namespace support;
using testing::ElementsAre;
using testing::IsEmpty;

static constexpr const char *DOCUMENT = "scheduleResumeScene.json";
static const std::string LAMP_ON = switchCommand(20, 0, 255);
static const std::string LAMP_BACK = switchCommand(20, 0, 7);
static const std::string MARKER = switchCommand(30, 0, 1);

static const std::string SCENE_MEMBERS =
    R"("comps":[{"target":{"dev":20,"if":0,"ch":0},"value":255},
        {"target":{"dev":21,"if":0,"ch":2},"value":60}],"buildinSiren":{"siren_type":4})";
static const std::string PRIVATE_SCENE = R"({"title":"Light",)" + SCENE_MEMBERS + "}";
// It waits first, until the scenes here that were planned before it are through.
static const std::string MARKER_SCENE = R"({"title":"Marker","comps":[
    {"target":{"dev":512,"if":0,"ch":0},"value":3},{"target":{"dev":30,"if":0,"ch":0},"value":1}]})";

// What the scene does, in its order, and what puts it back.
static const std::vector<std::string> STARTED = {sysSound(4), LAMP_ON, switchCommand(21, 2, 60)};
static const std::vector<std::string> ENDED = {sysSound(0), LAMP_BACK, switchCommand(21, 2, 33)};

static const std::string STORED =
    R"([{"scene":{"ID":0,"buildinSiren":{"siren_type":0},)"
    R"("comps":[{"target":{"ch":0,"dev":20,"if":0},"value":7},)"
    R"({"target":{"ch":2,"dev":21,"if":0},"value":33}],)"
    R"("icon":"","icon_name":"","invisible":0,"title":"Light"},"title":"Morning"}])";

// From 08:15 to 09:45 on Mondays, if the members do not say otherwise.
static std::string morning(const std::string &members)
{
    return R"({"title":"Morning","weekdays":2,"start_hour":8,"start_minute":15,
        "end_hour":9,"end_minute":45,"enabled":1,)" +
           members + "}";
}
static std::string macroWith(const std::string &scene)
{
    return R"("macro":{"title":"M","scene":)" + scene + "}";
}
static std::string setupWith(const std::string &schedules, const std::string &scenes = "")
{
    return R"({"schedules":[)" + schedules + R"(],"scenes":[)" + MARKER_SCENE +
           (scenes.empty() ? "" : ",") + scenes + "]}";
}
static const std::string PRIVATE_SETUP = setupWith(morning(macroWith(PRIVATE_SCENE)));

class ScheduledDaemon : public DaemonOnItsOwnBus {
protected:
    void SetUp() override
    {
        DaemonOnItsOwnBus::SetUp();
        sdk.set(device(20, 0, SWITCH, 7));
        sdk.set(device(21, 2, DIMMER, 33));
        sdk.set(device(30, 0, SWITCH));
        monday(8, 0);
    }

    void startWith(const std::string &setup, const std::string &zone = "UTC0")
    {
        DaemonOnItsOwnBus::startWith(setup, clock.settings(zone));
        sdk.forgetHeard();
    }
    void startAgain()
    {
        start(clock.settings());
        sdk.forgetHeard();
    }

    void monday(int hour, int minute)
    {
        clock.set(2024, 7, 1, hour, minute, 1);
    }
    // SIGUSR1 is let in only while the main loop sleeps: there it is back when all is done.
    void runSchedules()
    {
        const size_t before = daemon.timesLogged("schedule signal");
        daemon.signal(SIGUSR1);
        ASSERT_TRUE(eventually([&] { return daemon.timesLogged("schedule signal") > before; }));
        ASSERT_TRUE(eventually([&] { return daemon.inMainLoop(); }, 30s));
    }
    void runSchedulesAt(int hour, int minute)
    {
        monday(hour, minute);
        runSchedules();
    }

    // All that has been planned is sent when this returns; the commands since the last time.
    std::vector<std::string> commands()
    {
        callForText("doscene", "Marker");
        EXPECT_TRUE(eventually([&] { return sdk.heard(MARKER); }));
        std::vector<std::string> texts = sdk.commandTexts();
        std::erase(texts, MARKER);
        sdk.forgetHeard();
        return texts;
    }
    std::optional<std::string> stored() const
    {
        return daemon.data.read(DOCUMENT);
    }
    // The devices follow what they were told.
    void devicesFollow()
    {
        sdk.setBasicValue(20, 0, 255);
        sdk.setBasicValue(21, 2, 60);
    }

    WallClock clock;
};

struct SceneCase {
    const char *name;
    std::string setup;
};

static void PrintTo(const SceneCase &sceneCase, std::ostream *out)
{
    *out << sceneCase.name;
}

class ScheduledDaemonWith : public ScheduledDaemon,
                            public testing::WithParamInterface<SceneCase> {};

TEST_P(ScheduledDaemonWith, KeepsRunsAndPutsBackWhatTheDevicesShow)
{
    startWith(GetParam().setup);
    runSchedulesAt(8, 14);
    EXPECT_THAT(commands(), IsEmpty());
    EXPECT_EQ(stored(), std::nullopt);

    runSchedulesAt(8, 15);
    EXPECT_EQ(sdk.asked("getdevice", 20), 1u);
    EXPECT_EQ(sdk.asked("getdevice", 21), 1u);
    EXPECT_EQ(stored(), storedLayout(STORED));
    EXPECT_EQ(commands(), STARTED);
    devicesFollow();

    runSchedulesAt(8, 16);
    runSchedulesAt(9, 44);
    EXPECT_THAT(commands(), IsEmpty());
    runSchedulesAt(9, 45);
    EXPECT_EQ(commands(), ENDED);
    EXPECT_EQ(sdk.asked("getdevice", 20), 0u);
    runSchedulesAt(9, 46);
    EXPECT_THAT(commands(), IsEmpty());
}

TEST_P(ScheduledDaemonWith, DoesSoAnewEachWeek)
{
    startWith(GetParam().setup);
    for (const int day : {1, 8, 15}) {
        sdk.setBasicValue(20, 0, day);
        clock.set(2024, 7, day, 8, 15);
        runSchedules();
        EXPECT_EQ(commands(), STARTED);
        clock.set(2024, 7, day, 9, 45);
        runSchedules();
        EXPECT_THAT(commands(), ElementsAre(ENDED[0], switchCommand(20, 0, day), ENDED[2]));
    }
}

TEST_P(ScheduledDaemonWith, PutsBackWhatTheDevicesShowedBeforeARestart)
{
    startWith(GetParam().setup);
    runSchedulesAt(8, 15);
    EXPECT_EQ(commands(), STARTED);
    devicesFollow();
    daemon.stop();
    startAgain();
    EXPECT_THAT(commands(), IsEmpty());
    EXPECT_EQ(stored(), storedLayout(STORED));
    runSchedulesAt(9, 45);
    EXPECT_EQ(commands(), ENDED);
}

TEST_P(ScheduledDaemonWith, PutsBackWhatTheDevicesShowedBeforeItWasKilled)
{
    startWith(GetParam().setup);
    runSchedulesAt(8, 15);
    daemon.signal(SIGKILL);
    ASSERT_TRUE(eventually([&] { return !daemon.running(); }));
    devicesFollow();
    startAgain();
    runSchedulesAt(9, 45);
    EXPECT_EQ(commands(), ENDED);
}

INSTANTIATE_TEST_SUITE_P(Scenes, ScheduledDaemonWith,
                         testing::Values(SceneCase{"APrivateScene", PRIVATE_SETUP},
                                         SceneCase{"ANamedScene",
                                                   setupWith(morning(macroWith(R"("Light")")),
                                                             PRIVATE_SCENE)}),
                         caseName);

TEST_F(ScheduledDaemon, RunsTheNamedSceneAsItIsAtTheStartAndEndsWhatItRan)
{
    startWith(setupWith(morning(macroWith(R"("Light")")), PRIVATE_SCENE));
    gatewayReady();
    callForNumber("jsonsetall", R"({"scenes":[{"title":"Light",
        "comps":[{"target":{"dev":20,"if":0,"ch":0},"value":50}]}]})");
    runSchedulesAt(8, 15);
    EXPECT_THAT(commands(), ElementsAre(sysSound(4), switchCommand(20, 0, 50), STARTED.at(2)));
    callForNumber("jsonsetall", R"({"scenes":[{"title":"Light",
        "comps":[{"target":{"dev":20,"if":0,"ch":0},"value":99}]}]})");
    runSchedulesAt(9, 45);
    EXPECT_EQ(commands(), ENDED);
}

TEST_F(ScheduledDaemon, GoesByTheLocalTimeOfItsZone)
{
    startWith(PRIVATE_SETUP, "CET-1CEST,M3.5.0,M10.5.0/3");
    runSchedulesAt(8, 15);
    EXPECT_THAT(commands(), IsEmpty());
    clock.set(2024, 7, 8, 6, 15);
    runSchedules();
    EXPECT_EQ(commands(), STARTED);
    clock.set(2024, 12, 30, 8, 45);  // its end in winter
    runSchedules();
    EXPECT_EQ(commands(), ENDED);
}

TEST_F(ScheduledDaemon, GoesByTheDayOfTheWeek)
{
    startWith(PRIVATE_SETUP);
    for (const int tuesdayToSunday : {2, 3, 4, 5, 6, 7}) {
        clock.set(2024, 7, tuesdayToSunday, 8, 15);
        runSchedules();
    }
    EXPECT_THAT(commands(), IsEmpty());
    clock.set(2024, 7, 8, 8, 15);
    runSchedules();
    EXPECT_EQ(commands(), STARTED);
}

// Then a clock of 32 bits is back in 1901.
TEST_F(ScheduledDaemon, GoesOnAfterJanuary2038)
{
    clock.set(2040, 7, 2, 8, 0, 1);
    startWith(PRIVATE_SETUP);
    clock.set(2040, 7, 2, 8, 15, 1);
    runSchedules();
    EXPECT_EQ(commands(), STARTED);
    devicesFollow();
    clock.set(2040, 7, 2, 9, 45, 1);
    runSchedules();
    EXPECT_EQ(commands(), ENDED);
}

TEST_F(ScheduledDaemon, SeesTheHourOfItsDaylightSaving)
{
    platform.set("setDST", "1");
    platform.set("setsavingtime", R"({"startmonth":3,"startday":31,"starthour":2,
        "endmonth":10,"endday":27,"endhour":3})");
    startWith(PRIVATE_SETUP);
    callWithoutReply("setastclock_lon", {std::string("0")});  // the minute's work, at once
    ASSERT_TRUE(daemon.eventuallyLogged("nvram read setsavingtime= "));
    sdk.forgetHeard();
    runSchedulesAt(8, 15);
    EXPECT_THAT(commands(), IsEmpty());
    clock.set(2024, 7, 8, 7, 15);
    runSchedules();
    EXPECT_EQ(commands(), STARTED);
    clock.set(2024, 12, 30, 9, 45);  // no longer in force
    runSchedules();
    EXPECT_EQ(commands(), ENDED);
}

TEST_F(ScheduledDaemon, StartsOnesAndEndsOthersInTheSameMinute)
{
    startWith(setupWith(
        morning(macroWith(PRIVATE_SCENE)) +
        R"(,{"title":"Noon","weekdays":2,"start_hour":9,"start_minute":45,"end_hour":10,"enabled":1,
        "macro":{"title":"N","scene":{"title":"N","comps":[{"target":{"dev":20},"value":5}]}}})"));
    runSchedulesAt(8, 15);
    commands();
    devicesFollow();
    runSchedulesAt(9, 45);
    EXPECT_THAT(commands(), ElementsAre(sysSound(0), switchCommand(20, 0, 5), LAMP_BACK, ENDED[2]))
        << "the starts come first";
    runSchedulesAt(10, 0);
    EXPECT_THAT(commands(), ElementsAre(LAMP_ON)) << "as it was at its start";
}

struct IdleCase {
    const char *name;
    std::string schedule;
};

static void PrintTo(const IdleCase &idleCase, std::ostream *out)
{
    *out << idleCase.name;
}

class ScheduledDaemonIdle : public ScheduledDaemon, public testing::WithParamInterface<IdleCase> {};

TEST_P(ScheduledDaemonIdle, DoesNotActForASchedule)
{
    startWith(R"({"macros":[{"title":"M","enabled":1,"scene":)" + PRIVATE_SCENE +
              R"(}],"schedules":[)" + GetParam().schedule + R"(],"scenes":[)" + MARKER_SCENE +
              "]}");
    runSchedulesAt(8, 15);
    runSchedulesAt(9, 45);
    EXPECT_EQ(sdk.asked("getdevice", 20), 0u);
    EXPECT_THAT(commands(), IsEmpty());
    EXPECT_EQ(stored(), std::nullopt);
}

INSTANTIATE_TEST_SUITE_P(
    OfAKind, ScheduledDaemonIdle,
    testing::Values(IdleCase{"ThatIsDisabled",
                             morning(macroWith(PRIVATE_SCENE) + R"(,"enabled":0)")},
                    IdleCase{"ThatOnlyNamesAMacro", morning(R"("macro":"M")")},
                    IdleCase{"WithoutAMacro", morning(R"("icon":"")")},
                    IdleCase{"OnNoDay", morning(macroWith(PRIVATE_SCENE) + R"(,"weekdays":0)")}),
    caseName);

TEST_F(ScheduledDaemon, NeverPutsBackWhenStartAndEndAreTheSame)
{
    startWith(setupWith(morning(macroWith(PRIVATE_SCENE) + R"(,"end_hour":8,"end_minute":15)")));
    runSchedulesAt(8, 15);
    EXPECT_EQ(commands(), STARTED);
    EXPECT_EQ(stored(), storedLayout(STORED));
    clock.set(2024, 7, 8, 8, 15);
    runSchedules();
    EXPECT_EQ(commands(), STARTED) << "a week later";
}

TEST_F(ScheduledDaemon, EndsASceneThatIsNot)
{
    startWith(setupWith(morning(macroWith(R"("Nowhere")"))));
    runSchedulesAt(8, 15);
    EXPECT_EQ(stored(), storedLayout(R"([{"title":"Morning"}])"));
    runSchedulesAt(9, 45);
    EXPECT_THAT(commands(), IsEmpty());
    EXPECT_TRUE(daemon.logged("scene is NULL"));
}

TEST_F(ScheduledDaemon, EndsWithNothingStored)
{
    startWith(PRIVATE_SETUP);
    runSchedulesAt(9, 45);
    EXPECT_TRUE(daemon.logged("jsonStr == NULL"));
    EXPECT_THAT(commands(), IsEmpty());
    EXPECT_EQ(stored(), std::nullopt);
}

struct DamagedCase {
    const char *name;
    std::string bytes;
    const char *log;
};

static void PrintTo(const DamagedCase &damaged, std::ostream *out)
{
    *out << damaged.name;
}

class ScheduledDaemonDamaged : public ScheduledDaemon,
                               public testing::WithParamInterface<DamagedCase> {};

// At an end it is read for what is pending, at a start for what is stored already.
TEST_P(ScheduledDaemonDamaged, LogsItsDocumentAndGoesOn)
{
    daemon.data.write(DOCUMENT, GetParam().bytes);
    startWith(PRIVATE_SETUP);
    runSchedulesAt(9, 45);
    EXPECT_TRUE(daemon.logged(GetParam().log));
    EXPECT_THAT(commands(), IsEmpty());

    daemon.data.write(DOCUMENT, GetParam().bytes);
    clock.set(2024, 7, 8, 8, 15);
    runSchedules();
    EXPECT_EQ(commands(), STARTED);
    clock.set(2024, 7, 8, 9, 45);
    runSchedules();
    EXPECT_EQ(commands(), ENDED);
}

INSTANTIATE_TEST_SUITE_P(
    Documents, ScheduledDaemonDamaged,
    testing::Values(DamagedCase{"OfNoBytes", "", "is empty."},
                    DamagedCase{"OfThreeBytes", "[{}", "jsonStr == NULL"},
                    DamagedCase{"CutShort", storedLayout(STORED).substr(0, 90),
                                "parseResumeSchedule:"},
                    DamagedCase{"OfNoJson", storedLayout("nonsense"), "error: on line 1: "},
                    DamagedCase{"OfBinary", std::string("\xFF\x00\x01\xFE\x80\x81\x00\xC3", 8),
                                "error: on line 1: "},
                    DamagedCase{"ThatIsAnObject", storedLayout(R"({"title":"Morning"})"),
                                "error: root is not an object"},
                    DamagedCase{"OfNumbers", storedLayout("[1,2,3]"), "a resume is not an object"},
                    DamagedCase{"NestedTooDeep", storedLayout(std::string(1'000'000, '[')),
                                "maximum parsing depth reached"}),
    caseName);

struct OddCase {
    const char *name;
    std::string text;
    std::vector<std::string> commands;  // at the end
};

static void PrintTo(const OddCase &odd, std::ostream *out)
{
    *out << odd.name;
}

class ScheduledDaemonOdd : public ScheduledDaemon, public testing::WithParamInterface<OddCase> {};

TEST_P(ScheduledDaemonOdd, EndsWithWhatItsDocumentHolds)
{
    daemon.data.write(DOCUMENT, storedLayout(GetParam().text));
    startWith(PRIVATE_SETUP);
    runSchedulesAt(9, 45);
    EXPECT_EQ(commands(), GetParam().commands);
}

INSTANTIATE_TEST_SUITE_P(
    Documents, ScheduledDaemonOdd,
    testing::Values(
        OddCase{"OfOthersBeforeIt",
                R"([{"title":"Evening"},5,{"title":"Morning","scene":{"comps":[
                    {"target":{"dev":20},"value":3}]}}])",
                {switchCommand(20, 0, 3)}},
        OddCase{"WithItTwice",
                R"([{"title":"Morning","scene":{"comps":[{"target":{"dev":20},"value":3}]}},
                    {"title":"Morning","scene":{"comps":[{"target":{"dev":20},"value":4}]}}])",
                {switchCommand(20, 0, 3)}},
        OddCase{"WithoutItsScene", R"([{"title":"Morning"}])", {}},
        OddCase{"WithANumberForItsScene", R"([{"title":"Morning","scene":5}])", {}},
        OddCase{"InOtherCapitals",
                R"([{"title":"morning","scene":{"comps":[{"target":{"dev":20},"value":3}]}}])",
                {}}),
    caseName);

TEST_F(ScheduledDaemon, RunsItsSchedulesOnTheMainThreadAlone)
{
    startWith(PRIVATE_SETUP);
    monday(8, 15);
    const std::string folder = "/proc/" + std::to_string(daemon.pid()) + "/task";
    int others = 0;
    for (const auto &entry : std::filesystem::directory_iterator(folder)) {
        const pid_t tid = std::stoi(entry.path().filename());
        if (tid == daemon.pid())
            continue;
        ASSERT_EQ(syscall(SYS_tgkill, daemon.pid(), tid, SIGUSR1), 0);
        ++others;
    }
    EXPECT_GE(others, 4);
    EXPECT_THAT(commands(), IsEmpty());
    EXPECT_EQ(stored(), std::nullopt);
    ASSERT_EQ(syscall(SYS_tgkill, daemon.pid(), daemon.pid(), SIGUSR1), 0);
    EXPECT_TRUE(eventually([&] { return sdk.heard(LAMP_ON); }));
}

TEST_F(ScheduledDaemon, StartsWhatASilentSdkDaemonDelays)
{
    startWith(PRIVATE_SETUP);
    sdk.behave("getdevice", 20, Answer::silence());
    sdk.behave("getdevice", 21, Answer::silence());
    monday(8, 15);
    daemon.signal(SIGUSR1);
    ASSERT_TRUE(eventually([&] { return sdk.asked("getdevice", 20) == 1; }));
    EXPECT_THAT(commands(), IsEmpty()) << "meanwhile scenes run, and methods are answered";
    EXPECT_EQ(stored(), std::nullopt) << "it still waits";

    ASSERT_TRUE(eventually([&] { return sdk.heard(STARTED.back()); }, 12s));
    EXPECT_TRUE(eventually([&] { return daemon.inMainLoop(); }));
    EXPECT_EQ(daemon.timesLogged("getChannelFromGetDev_dev fails"), 2u);
    std::string keptValues = STORED;  // the scene's own, as nobody said what the devices show
    keptValues.replace(keptValues.find(":7}"), 3, ":255}");
    keptValues.replace(keptValues.find(":33}"), 4, ":60}");
    EXPECT_EQ(stored(), storedLayout(keptValues));

    sdk.forgetBehaviour("getdevice", 20);
    runSchedulesAt(9, 45);
    EXPECT_TRUE(eventually([&] { return sdk.count(LAMP_ON) == 2; }));
}

TEST_F(ScheduledDaemon, IsAskedForItsSchedulesWithoutTheSdkDaemon)
{
    sdk.leave();
    daemon.writeSetup(PRIVATE_SETUP);
    launch(clock.settings());
    waitUntilStarted();
    runSchedulesAt(8, 15);
    EXPECT_TRUE(stored().has_value());
    runSchedulesAt(9, 45);
    EXPECT_EQ(Json(callForText("jsongettitles", "schedules")).size(), 1u);
}

TEST_F(ScheduledDaemon, KeepsWhatIsPendingOnAFolderThatIsGone)
{
    startWith(PRIVATE_SETUP);
    std::filesystem::remove_all(daemon.data.path());
    runSchedulesAt(8, 15);
    EXPECT_TRUE(daemon.logged("cannot be stored: "));
    EXPECT_EQ(commands(), STARTED);
    runSchedulesAt(9, 45);
    EXPECT_EQ(commands(), ENDED);
}
