// Schedules as actors: what their start keeps and runs, and what their end puts back.

#include "schedule/schedules.h"

#include "config/lists.h"
#include "config/resume.h"
#include "config/target_comp.h"
#include "daemon_in_process.h"
#include "main/locks.h"
#include "main/scope.h"
#include "scene/runner.h"
#include "schedule/daylight_saving.h"
#include "support/temp_dir.h"

#include <cstdlib>
#include <cstring>
#include <tuple>

using support::plainCommand;
using support::storedLayout;
using testing::ElementsAre;
using testing::IsEmpty;

static constexpr const char *DOCUMENT = "scheduleResumeScene.json";
static constexpr int MONDAY = 1;
static constexpr int TUESDAY = 2;

// On Mondays; its macro's scene switches device 20, which shows 7, to 255.
static const std::string LAMP = R"({"title":"Lamp","enabled":1,"weekdays":2,
    "start_hour":8,"start_minute":15,"end_hour":9,"end_minute":45,
    "macro":{"title":"M","scene":{"title":"Light","comps":[
        {"target":{"dev":20,"if":0,"ch":0},"value":255}]}}})";

class ActingSchedules : public OutboundOnItsOwnBus {
protected:
    void SetUp() override
    {
        OutboundOnItsOwnBus::SetUp();
        setenv("APP_DATA_DIR", folder.path().c_str(), 1);
        for (const int64_t uid : {20, 21, 22})
            sdk.set(support::device(uid, 0, support::SWITCH, uid - 13));
    }
    void TearDown() override
    {
        freeAppConfigList();
        forgetResumes();
        resetRunner();
        OutboundOnItsOwnBus::TearDown();
    }

    static void configure(const std::string &schedules, const std::string &scenes = "[]")
    {
        setScenes(Value(scenes));
        setSchedules(Value(schedules));
    }
    static Schedule *schedule(const char *title = "Lamp")
    {
        const MutexLock lock(schedulesList_mutex);
        return searchSchedule(&schedulesListHead, title);
    }

    static tm timeOf(int weekday, int hour, int minute)
    {
        tm local = {};
        local.tm_mon = 6;
        local.tm_mday = 15;
        local.tm_wday = weekday;
        local.tm_hour = hour;
        local.tm_min = minute;
        return local;
    }
    static int start(int hour = 8, int minute = 15, int weekday = MONDAY)
    {
        const Owned<apr_pool_t> pool = createPool();
        const MutexLock lock(schedulesList_mutex);
        return checkAllSchedulesStartTime(pool.get(), &schedulesListHead,
                                          timeOf(weekday, hour, minute));
    }
    static int end(int hour = 9, int minute = 45, int weekday = MONDAY)
    {
        const Owned<apr_pool_t> pool = createPool();
        const MutexLock lock(schedulesList_mutex);
        return checkAllSchedulesEndTime(pool.get(), &schedulesListHead,
                                        timeOf(weekday, hour, minute));
    }

    static std::vector<std::string> pending()
    {
        const MutexLock lock(resumeScheduleList_mutex);
        std::vector<std::string> result;
        for (const ResumeSchedule &resume : ELEMENTS(ResumeSchedule, node, &resumeScheduleListHead))
            result.push_back(resume.title);
        return result;
    }
    // As a restart does.
    static void forgetResumes()
    {
        const MutexLock lock(resumeScheduleList_mutex);
        for (ResumeSchedule &resume : ELEMENTS(ResumeSchedule, node, &resumeScheduleListHead))
            freeResumeSchedule(&resume);
    }
    // "device=value" of what is planned since the last time.
    static std::vector<std::string> planned()
    {
        std::vector<std::string> result;
        {
            const MutexLock lock(TheadList_mutex);
            for (const TARGET_Comp &entry : ELEMENTS(TARGET_Comp, node, &TheadListHead))
                result.push_back(std::to_string(entry.target.dev) + "=" +
                                 std::to_string(entry.value));
        }
        resetRunner();
        return result;
    }
    std::string stored() const
    {
        return folder.read(DOCUMENT).value_or("(nothing)");
    }
    static std::string resumeText(const std::string &title, int64_t dev, int64_t value)
    {
        return R"({"scene":{"ID":0,"comps":[{"target":{"ch":0,"dev":)" + std::to_string(dev) +
               R"(,"if":0},"value":)" + std::to_string(value) +
               R"(}],"icon":"","icon_name":"","invisible":0,"title":"Light"},"title":")" + title +
               "\"}";
    }

    support::TempDir folder;
};

TEST_F(ActingSchedules, KeepWhatTheDevicesShowAndRunTheSceneAtTheStart)
{
    configure("[" + LAMP + "]");
    EXPECT_EQ(start(), 1);
    EXPECT_THAT(planned(), ElementsAre("20=255"));
    EXPECT_EQ(stored(), storedLayout("[" + resumeText("Lamp", 20, 7) + "]"));
    EXPECT_THAT(pending(), ElementsAre("Lamp"));
}

TEST_F(ActingSchedules, PutTheDevicesBackAtTheEnd)
{
    configure("[" + LAMP + "]");
    start();
    planned();
    EXPECT_EQ(end(), 1);
    EXPECT_THAT(planned(), ElementsAre("20=7"));
    EXPECT_THAT(pending(), IsEmpty());
}

TEST_F(ActingSchedules, ActInTheirMinutesOnTheirDaysOnly)
{
    configure("[" + LAMP + "]");
    for (const auto &[weekday, hour, minute] : {std::tuple(TUESDAY, 8, 15),
                                                {0, 8, 15},
                                                {MONDAY, 8, 14},
                                                {MONDAY, 8, 16},
                                                {MONDAY, 7, 15},
                                                {MONDAY, 9, 15},
                                                {MONDAY, 20, 15},
                                                {MONDAY, 9, 45}})
        EXPECT_EQ(start(hour, minute, weekday), 0) << weekday << " " << hour << ":" << minute;
    EXPECT_EQ(start(), 1);
    for (const auto &[weekday, hour, minute] : {std::tuple(TUESDAY, 9, 45),
                                                {0, 9, 45},
                                                {MONDAY, 9, 44},
                                                {MONDAY, 9, 46},
                                                {MONDAY, 8, 45},
                                                {MONDAY, 10, 45},
                                                {MONDAY, 8, 15}})
        EXPECT_EQ(end(hour, minute, weekday), 0) << weekday << " " << hour << ":" << minute;
    EXPECT_EQ(end(), 1);
}

TEST_F(ActingSchedules, AskForEachDeviceOfTheSceneBeforeItRuns)
{
    configure(R"([{"title":"Lamp","enabled":1,"weekdays":2,"start_hour":8,"start_minute":15,
        "macro":{"title":"M","scene":{"title":"Light","comps":[
            {"target":{"dev":20},"value":1},{"target":{"dev":22},"value":2},
            {"target":{"dev":20,"ch":3},"value":3}]}}}])");
    start();
    std::vector<std::string> asked;
    for (const support::Heard &heard : sdk.everything())
        asked.push_back(heard.text);
    EXPECT_THAT(asked, ElementsAre(plainCommand("getdevice", 20), plainCommand("getdevice", 22),
                                   plainCommand("getdevice", 20)));
    EXPECT_THAT(planned(), ElementsAre("20=1", "22=2", "20=3"));
}

TEST_F(ActingSchedules, RunTheSceneThatTheirMacroNames)
{
    configure(R"([{"title":"Lamp","enabled":1,"weekdays":2,"start_hour":8,"start_minute":15,
        "end_hour":9,"end_minute":45,"macro":{"title":"M","scene":"Evening"}}])",
              R"([{"title":"Morning","comps":[{"target":{"dev":20},"value":1}]},
        {"title":"Evening","ID":4,"comps":[{"target":{"dev":21},"value":2}]}])");
    EXPECT_EQ(start(), 1);
    EXPECT_THAT(planned(), ElementsAre("21=2"));
    EXPECT_EQ(end(), 1);
    EXPECT_THAT(planned(), ElementsAre("21=8"));
    const MutexLock lock(scenesList_mutex);
    const Scene *named = searchScene(&scenesListHead, "Evening");
    EXPECT_EQ(FIRST_ELEMENT(Comp, node, &named->comps)->value, 2) << "the scene itself stays";
}

TEST_F(ActingSchedules, PreferTheNamedSceneToTheMacrosOwn)
{
    configure("[" + LAMP + "]",
              R"([{"title":"Evening","comps":[{"target":{"dev":21},"value":2}]}])");
    strcpy(FIRST_ELEMENT(Macro, node, &schedule()->macros)->sceneName, "Evening");
    start();
    EXPECT_THAT(planned(), ElementsAre("21=2"));
    strcpy(FIRST_ELEMENT(Macro, node, &schedule()->macros)->sceneName, "Nowhere");
    start();
    EXPECT_THAT(planned(), IsEmpty());
}

TEST_F(ActingSchedules, StartAndEndWithoutTheSceneThatTheirMacroNames)
{
    configure(R"([{"title":"Lamp","enabled":1,"weekdays":2,"start_hour":8,"start_minute":15,
        "end_hour":9,"end_minute":45,"macro":{"title":"M","scene":"Nowhere"}}])");
    EXPECT_EQ(start(), 1);
    EXPECT_EQ(stored(), storedLayout(R"([{"title":"Lamp"}])"));
    EXPECT_EQ(end(), 1);
    EXPECT_THAT(planned(), IsEmpty());
    EXPECT_THAT(pending(), IsEmpty());
}

TEST_F(ActingSchedules, RunTheFirstOfTheirMacros)
{
    configure("[" + LAMP + R"(,{"title":"Lamp","macro":{"title":"N","scene":{"comps":[
        {"target":{"dev":21},"value":1}]}}}])");
    start();
    EXPECT_THAT(planned(), ElementsAre("20=255"));
}

TEST_F(ActingSchedules, DoNotStartWithTheNameOfAMacroAlone)
{
    setMacros(Value(R"([{"title":"M","scene":{"comps":[{"target":{"dev":20},"value":1}]}}])"));
    configure(R"([{"title":"Gate","enabled":1,"weekdays":2,"start_hour":8,"start_minute":15,
        "end_hour":9,"end_minute":45,"macro":"M"}])");
    EXPECT_EQ(start(), 0);
    EXPECT_THAT(pending(), IsEmpty());
    EXPECT_EQ(stored(), "(nothing)");
    EXPECT_EQ(end(), 0);
}

TEST_F(ActingSchedules, ActWhateverNumberEnablesThem)
{
    configure("[" + LAMP + "]");
    for (const int enabled : {1, 2, -1}) {
        schedule()->enabled = enabled;
        EXPECT_EQ(start(), 1) << enabled;
        EXPECT_EQ(end(), 1) << enabled;
    }
    schedule()->enabled = 0;
    EXPECT_EQ(start(), 0);
    EXPECT_EQ(end(), 0);
}

TEST_F(ActingSchedules, OfTheSameMinuteAllAct)
{
    configure("[" + LAMP + R"(,{"title":"Second","enabled":1,"weekdays":127,
        "start_hour":8,"start_minute":15,"end_hour":9,"end_minute":45,
        "macro":{"title":"M","scene":{"title":"Light","comps":[{"target":{"dev":21},"value":1}]}}},
        {"title":"Other","enabled":1,"weekdays":127,"start_hour":8,"start_minute":16}])");
    EXPECT_EQ(start(), 1);
    EXPECT_THAT(planned(), ElementsAre("20=255", "21=1"));
    EXPECT_EQ(stored(), storedLayout("[" + resumeText("Lamp", 20, 7) + "," +
                                     resumeText("Second", 21, 8) + "]"));
    EXPECT_EQ(end(), 1);
    EXPECT_THAT(planned(), ElementsAre("20=7", "21=8"));
}

TEST_F(ActingSchedules, NeverEndWhenStartAndEndAreTheSame)
{
    configure(R"([{"title":"Lamp","enabled":1,"weekdays":2,"start_hour":8,"start_minute":15,
        "end_hour":8,"end_minute":15,
        "macro":{"title":"M","scene":{"comps":[{"target":{"dev":20},"value":1}]}}}])");
    EXPECT_EQ(start(), 1);
    EXPECT_THAT(planned(), ElementsAre("20=1"));
    EXPECT_EQ(end(8, 15), 0);
    EXPECT_THAT(planned(), IsEmpty());
    EXPECT_THAT(pending(), ElementsAre("Lamp"));
}

TEST_F(ActingSchedules, EndWhenOnlyTheHourOrTheMinuteIsTheSame)
{
    configure("[" + LAMP + "]");
    schedule()->end_hour = 8;
    start();
    EXPECT_EQ(end(8, 45), 1);
    schedule()->end_hour = 9;
    schedule()->end_minute = 15;
    start();
    EXPECT_EQ(end(9, 15), 1);
}

TEST_F(ActingSchedules, EndWithNothingKept)
{
    configure("[" + LAMP + "]");
    EXPECT_EQ(end(), 0);
    EXPECT_THAT(planned(), IsEmpty());
    EXPECT_EQ(logged("jsonStr == NULL\n"), 1u);
}

TEST_F(ActingSchedules, EndOnceForEachStart)
{
    configure("[" + LAMP + "]");
    start();
    sdk.setBasicValue(20, 0, 99);
    start();
    planned();
    EXPECT_THAT(pending(), ElementsAre("Lamp", "Lamp"));
    EXPECT_EQ(end(), 1);
    EXPECT_THAT(planned(), ElementsAre("20=7")) << "the oldest first";
    EXPECT_EQ(end(), 1);
    EXPECT_THAT(planned(), ElementsAre("20=99"));
    EXPECT_THAT(pending(), IsEmpty());
}

TEST_F(ActingSchedules, TakeTheirOwnRecordFromAmongOthers)
{
    configure("[" + LAMP + R"(,{"title":"lamp","enabled":1,"weekdays":2,"start_hour":8,
        "start_minute":15,"end_hour":10,"macro":{"title":"M"}}])");
    ListNode *first = &schedule()->node;  // which now starts last
    listDel(first);
    listAddTail(first, &schedulesListHead);
    start();
    EXPECT_THAT(pending(), ElementsAre("lamp", "Lamp"));
    EXPECT_EQ(end(), 1);
    EXPECT_THAT(pending(), ElementsAre("lamp"));
}

TEST_F(ActingSchedules, EndAfterARestart)
{
    configure("[" + LAMP + "]");
    start();
    planned();
    forgetResumes();
    sdk.setBasicValue(20, 0, 255);
    EXPECT_EQ(end(), 1);
    EXPECT_THAT(planned(), ElementsAre("20=7"));
}

TEST_F(ActingSchedules, KeepTheRecordsOfOthersWhenTheyEndAfterARestart)
{
    configure("[" + LAMP + "]");
    folder.write(DOCUMENT,
                 storedLayout("[" + resumeText("Other", 21, 3) + "," + resumeText("Lamp", 20, 4) +
                              "," + resumeText("Third", 22, 5) + "]"));
    EXPECT_EQ(end(), 1);
    EXPECT_THAT(planned(), ElementsAre("20=4"));
    EXPECT_THAT(pending(), ElementsAre("Other", "Third"));
}

TEST_F(ActingSchedules, ReadTheDocumentOnlyWhenNothingIsPending)
{
    configure("[" + LAMP + R"(,{"title":"Other","enabled":1,"weekdays":2,"start_hour":7,
        "end_hour":10,"macro":{"title":"M"}}])");
    start(7, 0);
    folder.write(DOCUMENT, storedLayout("[" + resumeText("Lamp", 20, 4) + "]"));
    EXPECT_EQ(end(), 0);
    EXPECT_THAT(planned(), IsEmpty());
    EXPECT_THAT(pending(), ElementsAre("Other"));
}

// Relied upon: the document is written at a start only.
TEST_F(ActingSchedules, LeaveTheDocumentAsItIsAtTheEnd)
{
    configure("[" + LAMP + "]");
    start();
    const std::string before = stored();
    end();
    EXPECT_EQ(stored(), before);
    sdk.setBasicValue(20, 0, 1);
    start();
    EXPECT_EQ(stored(), storedLayout("[" + resumeText("Lamp", 20, 1) + "]"));
}

TEST_F(ActingSchedules, EndAlsoWithoutTheirMacro)
{
    configure("[" + LAMP + "]");
    start();
    planned();
    freeMacros(&schedule()->macros);
    EXPECT_EQ(end(), 1);
    EXPECT_THAT(planned(), ElementsAre("20=7"));
}

TEST_F(ActingSchedules, NeverSoundTheBuiltInSirenAtTheEnd)
{
    configure(R"([{"title":"Lamp","enabled":1,"weekdays":2,"start_hour":8,"start_minute":15,
        "end_hour":9,"end_minute":45,
        "macro":{"title":"M","scene":{"title":"S","buildinSiren":{"siren_type":4}}}}])");
    start();
    end();
    hearEverything();
    EXPECT_EQ(sdk.count(support::sysSound(4)), 1u);
    EXPECT_EQ(sdk.count(support::sysSound(0)), 1u);
    EXPECT_EQ(stored(), storedLayout(R"([{"scene":{"ID":0,"buildinSiren":{"siren_type":0},)"
                                     R"("comps":[],"icon":"","icon_name":"","invisible":0,)"
                                     R"("title":"S"},"title":"Lamp"}])"));
}

TEST_F(ActingSchedules, KeepTheScenesValueOfADeviceThatCannotBeRead)
{
    sdk.behave("getdevice", 20, support::Answer::refusing());
    configure("[" + LAMP + "]");
    EXPECT_EQ(start(), 1);
    EXPECT_THAT(planned(), ElementsAre("20=255"));
    EXPECT_EQ(stored(), storedLayout("[" + resumeText("Lamp", 20, 255) + "]"));
}

TEST_F(ActingSchedules, KeepTheStepsOfTheScene)
{
    configure(R"([{"title":"Lamp","enabled":1,"weekdays":2,"start_hour":8,"start_minute":15,
        "end_hour":9,"end_minute":45,"macro":{"title":"M","scene":{"comps":[
            {"target":{"dev":505},"value":3},{"target":{"dev":20},"value":1},
            {"target":{"dev":512},"value":4},{"target":{"dev":21},"value":2}]}}}])");
    start();
    EXPECT_THAT(planned(), ElementsAre("20=1", "512=4", "21=2"));
    end();
    EXPECT_THAT(planned(), ElementsAre("20=7", "512=4", "21=8"));
}

class ActingSchedulesInSummer : public ActingSchedules {
protected:
    void SetUp() override
    {
        ActingSchedules::SetUp();
        save_start_month = 6;
        save_start_day = 1;
        save_end_month = 8;
        save_end_day = 31;
        save_end_hour = 23;
        enableDTS = 1;
    }
};

TEST_F(ActingSchedulesInSummer, StartAndEndAnHourEarlierByTheClock)
{
    configure("[" + LAMP + "]");
    EXPECT_EQ(start(8, 15), 0);
    EXPECT_EQ(start(7, 15), 1);
    EXPECT_EQ(end(9, 45), 0);
    EXPECT_EQ(end(8, 45), 1);
}

TEST_F(ActingSchedulesInSummer, ActInTheFirstHourOfADayWhenTheClockShowsItsLast)
{
    configure(R"([{"title":"Lamp","enabled":1,"weekdays":2,"start_hour":0,"start_minute":15,
        "end_hour":0,"end_minute":45,"macro":{"title":"M"}}])");
    EXPECT_EQ(start(0, 15), 0);
    EXPECT_EQ(start(23, 15, MONDAY - 1), 0) << "the date is not moved on";
    EXPECT_EQ(start(23, 15), 1);
    EXPECT_EQ(end(0, 45, TUESDAY), 0);
    EXPECT_EQ(end(23, 45), 1);
}

TEST_F(ActingSchedulesInSummer, FollowTheClockOnceItIsOver)
{
    configure("[" + LAMP + "]");
    enableDTS = 0;
    EXPECT_EQ(start(7, 15), 0);
    EXPECT_EQ(start(8, 15), 1);
}

TEST_F(ActingSchedules, LeaveNothingBehindWhenMemoryRunsOut)
{
    // The record; two copies of the scene with its comp; what the device shows, in three; the
    // document, read once and written twice. The next is the runner's own.
    static constexpr int ALLOCATIONS = 11;
    std::vector<int> kept;
    std::vector<int> ran;
    for (int n = 1; n <= ALLOCATIONS; ++n) {  // the leak checker looks at what is left
        configure("[" + LAMP + "]");
        folder.write(DOCUMENT, storedLayout("[]"));
        failAllocation(n);
        start();
        failAllocation(0);
        if (!pending().empty())
            kept.push_back(n);
        if (!planned().empty())
            ran.push_back(n);
        forgetResumes();
    }
    EXPECT_THAT(kept, ElementsAre(2, 3, 4, 5, 6, 7, 8, 9, 10, 11));
    EXPECT_THAT(ran, ElementsAre(6, 7, 8, 9, 10, 11)) << "without the copy there is nothing to run";
}
