// Home security from the inside: what starts an alarm, the scene it runs, what puts the sirens
// back, and that nothing leaves an alarm behind that never ends.

#include "scene/home_security.h"

#include "config/alarm.h"
#include "config/device_value.h"
#include "config/home_scene.h"
#include "config/resume.h"
#include "config/schedule.h"
#include "config/snapshot.h"
#include "config/target_comp.h"
#include "daemon_in_process.h"
#include "main/config_file.h"
#include "main/json_memory.h"
#include "main/scope.h"
#include "scene/runner.h"
#include "support/temp_dir.h"

#include <atomic>
#include <fstream>
#include <pthread.h>
#include <thread>
#include <unistd.h>

using support::eventually;
using testing::ElementsAre;
using testing::IsEmpty;

static constexpr Integer FOREVER = 3600;

TEST(DoorOrMotion, IsADoorThatOpensOrAnyMotion)
{
    const GetDev_dev device = {};
    struct {
        Integer functype;
        Integer mainscene;
        Integer basicvalue;
        int answer;
    } const cases[] = {
        {FUNC_DOOR, 0, 255, 1},  {FUNC_DOOR, 0, 0, 0},     {FUNC_DOOR, 0, 254, 0},
        {FUNC_DOOR, 0, 256, 0},  {FUNC_DOOR, 1, 255, 0},   {FUNC_DOOR, -1, 255, 0},
        {FUNC_PIR, 0, 255, 1},   {FUNC_PIR, 0, 0, 1},      {FUNC_PIR, 0, 1, 1},
        {FUNC_PIR, 1, 255, 0},   {FUNC_SWITCH, 0, 255, 0}, {FUNC_TEMPERATURE, 0, 255, 0},
        {FUNC_SIREN, 0, 255, 0}, {0, 0, 255, 0},           {12, 0, 255, 0},
        {15, 0, 255, 0},
    };
    for (const auto &[functype, mainscene, basicvalue, answer] : cases) {
        GetDev_channel channel = {};
        channel.functype = functype;
        channel.mainscene = mainscene;
        channel.basicvalue = basicvalue;
        EXPECT_EQ(isDoorOrPirSensor(&device, &channel), answer)
            << functype << " " << mainscene << " " << basicvalue;
    }
    EXPECT_THAT(logLines(), IsEmpty());
}

TEST(DoorOrMotion, IsNeitherWithoutADeviceOrAChannel)
{
    const GetDev_dev device = {};
    GetDev_channel motion = {};
    motion.functype = FUNC_PIR;
    EXPECT_EQ(isDoorOrPirSensor(nullptr, &motion), 0);
    EXPECT_EQ(isDoorOrPirSensor(&device, nullptr), 0);
    EXPECT_EQ(isDoorOrPirSensor(nullptr, nullptr), 0);
    const std::string function = "isDoorOrPirSensor";
    EXPECT_THAT(logLines(),
                ElementsAre(LogLine{6, function, "isDoorOrPirSensor(), dev == NULL\n"},
                            LogLine{6, function, "2. channel is NULL\n"},
                            LogLine{6, function, "isDoorOrPirSensor(), dev == NULL\n"}));
}

static std::string compsText(const Scene *scene)
{
    std::string text;
    for (const Comp &comp : ELEMENTS(Comp, node, &scene->comps)) {
        text += (text.empty() ? "" : " ") + std::to_string(comp.target.dev) + "." +
                std::to_string(comp.target.if_) + "." + std::to_string(comp.target.ch) + "=" +
                std::to_string(comp.value);
    }
    return text;
}

static void setSettings(const Alarm &settings)
{
    const MutexLock lock(alarm_mutex);
    ensureAlarm();
    *ovrinAlarm = settings;
}

static void setSirenTypeOfSettings(Integer sirenType)
{
    setSettings(
        {.duration = 0, .enabled = 0, .siren_type = sirenType, .trigger_duration = FOREVER});
}

static size_t lengthOf(Mutex &mutex, ListNode *head)
{
    const MutexLock lock(mutex);
    return static_cast<size_t>(getListObjNum(head));
}

static size_t runningAlarms()
{
    return lengthOf(defaulSceneList_mutex, &defaulSceneListHead);
}

static size_t resumeRecords()
{
    return lengthOf(homeSceneResumeList_mutex, &resumeHomeSceneListHead);
}

// The values that the time-table will send, in their order.
static std::vector<int32_t> plannedValues()
{
    const MutexLock lock(TheadList_mutex);
    std::vector<int32_t> values;
    for (const TARGET_Comp &entry : ELEMENTS(TARGET_Comp, node, &TheadListHead))
        values.push_back(entry.value);
    return values;
}

// Two sirens, which show 3 and 7.
class Sirens : public OutboundOnItsOwnBus {
protected:
    void SetUp() override
    {
        setenv("APP_DATA_DIR", folder.path().c_str(), 1);
        OutboundOnItsOwnBus::SetUp();
        pool = createPool();
        sdk.set(support::device(5, 0, support::DOOR, 255));
        sdk.set({.uid = 30,
                 .channels = {{.chid = 0, .functype = support::SWITCH, .basicvalue = 1},
                              {.chid = 1, .functype = support::SIREN, .basicvalue = 3},
                              {.chid = 2, .functype = support::SIREN, .basicvalue = 7}}});
        updateAllDev(pool.get());
        sdk.forgetHeard();
        forgetLog();
    }
    void TearDown() override
    {
        setHomeSceneEnable(pool.get(), 0);
        EXPECT_TRUE(eventually([] { return runningAlarms() == 0; })) << "an alarm does not end";
        pool.reset();
        OutboundOnItsOwnBus::TearDown();
    }

    support::TempDir folder;
    Owned<apr_pool_t> pool;
};

TEST_F(Sirens, OfTheSnapshotMakeTheHomeScene)
{
    setSirenTypeOfSettings(6);
    Scene *scene = addAllSirenToHomeScene();
    ASSERT_NE(scene, nullptr);
    EXPECT_STREQ(scene->title, "Home Scene");
    EXPECT_EQ(compsText(scene), "30.0.1=0 30.0.2=0");
    ASSERT_NE(scene->buildinSiren, nullptr);
    EXPECT_EQ(scene->buildinSiren->siren_type, 6);
    EXPECT_EQ(logged("uid 30 chid: 1 add to homeScene\n"), 1u);
    EXPECT_EQ(logged("uid 30 chid: 2 add to homeScene\n"), 1u);
    freeScene(scene);
}

TEST_F(Sirens, MakeASceneWithoutAlarmSettings)
{
    Scene *scene = addAllSirenToHomeScene();
    ASSERT_NE(scene, nullptr);
    EXPECT_EQ(compsText(scene), "30.0.1=0 30.0.2=0");
    ASSERT_NE(scene->buildinSiren, nullptr);
    EXPECT_EQ(scene->buildinSiren->siren_type, 0);
    EXPECT_EQ(logged("ovrinAlarm is NULL\n"), 1u);
    freeScene(scene);
}

TEST_F(Sirens, ThatNobodyKnowsMakeASceneWithoutATitle)
{
    sdk.remove(30);
    updateAllDev(pool.get());
    setSirenTypeOfSettings(6);
    Scene *scene = addAllSirenToHomeScene();
    ASSERT_NE(scene, nullptr);
    EXPECT_STREQ(scene->title, "");
    EXPECT_EQ(compsText(scene), "");
    EXPECT_EQ(scene->buildinSiren->siren_type, 6);
    EXPECT_EQ(logged("allDev is NULL\n"), 0u);
    freeScene(scene);
}

TEST_F(Sirens, MakeASceneWithoutASnapshot)
{
    sdk.behave("getdevice", 256, support::Answer::refusing());
    updateAllDev(pool.get());
    setSirenTypeOfSettings(6);
    Scene *scene = addAllSirenToHomeScene();
    ASSERT_NE(scene, nullptr);
    EXPECT_EQ(compsText(scene), "");
    EXPECT_EQ(scene->buildinSiren->siren_type, 6);
    EXPECT_EQ(logged("allDev is NULL\n"), 1u);
    freeScene(scene);
}

static Scene *sceneOf(const std::string &text)
{
    const Value value(text);
    return setNewScene(value);
}

static constexpr const char *HOME_SCENE = R"({"title":"Home Scene","buildinSiren":{"siren_type":6},
    "comps":[{"target":{"dev":30,"ch":1},"value":1},{"target":{"dev":30,"ch":2},"value":2}]})";

TEST_F(Sirens, AllTakeTheSirenTypeForTheirValue)
{
    Scene *scene = sceneOf(HOME_SCENE);
    setSirenType(scene, 99, 4);
    EXPECT_EQ(compsText(scene), "30.0.1=4 30.0.2=4");
    EXPECT_EQ(scene->buildinSiren->siren_type, 6) << "the built-in siren is set elsewhere";
    freeScene(scene);
}

class SirensResume : public Sirens {
protected:
    // The comps of the one record that the scene has left in the resume list.
    std::string prepare(const std::string &text)
    {
        Scene *scene = sceneOf(text);
        const std::string before = compsText(scene);
        prepareHomeSceneResumeData(pool.get(), scene);
        EXPECT_EQ(compsText(scene), before) << "the scene itself stays as it is";
        freeScene(scene);
        const MutexLock lock(homeSceneResumeList_mutex);
        EXPECT_EQ(getListObjNum(&resumeHomeSceneListHead), 1);
        const HomeSceneResume *resume =
            FIRST_ELEMENT(HomeSceneResume, node, &resumeHomeSceneListHead);
        if (resume->scene->buildinSiren) {
            EXPECT_EQ(resume->scene->buildinSiren->siren_type, 0);
        }
        return compsText(resume->scene);
    }
};

TEST_F(SirensResume, HoldsWhatTheyShowNow)
{
    EXPECT_EQ(prepare(HOME_SCENE), "30.0.1=3 30.0.2=7");
    EXPECT_EQ(sdk.asked("getdevice", 256), 1u);
    EXPECT_EQ(sdk.everything().size(), 1u) << "one question for all of them";
    EXPECT_THAT(logTexts(), testing::Not(testing::Contains("getDev is NULL\n")));
}

TEST_F(SirensResume, StopsAtTheFirstThatIsUnknown)
{
    EXPECT_EQ(prepare(R"({"comps":[{"target":{"dev":30,"ch":2},"value":1},
        {"target":{"dev":31,"ch":1},"value":1},{"target":{"dev":30,"ch":1},"value":1}]})"),
              "30.0.2=7 31.0.1=1 30.0.1=1");
    EXPECT_EQ(logged("getChannelFromGetDev_dev fails\n"), 1u);
}

TEST_F(SirensResume, KeepsTheValuesWithoutAnAnswer)
{
    sdk.behave("getdevice", 256, support::Answer::refusing());
    EXPECT_EQ(prepare(HOME_SCENE), "30.0.1=1 30.0.2=2");
    EXPECT_EQ(logged("getDev is NULL\n"), 1u);
}

TEST_F(SirensResume, AsksNothingForASceneWithoutComps)
{
    EXPECT_EQ(prepare(R"({"title":"Home Scene","buildinSiren":{"siren_type":6}})"), "");
    EXPECT_EQ(sdk.everything().size(), 0u);
    EXPECT_EQ(logged("homeScene->compsListHead empty\n"), 1u);
}

TEST_F(SirensResume, IsRunNewestFirstWhenTheConfigurationIsReadAnew)
{
    for (const int64_t value : {4, 5}) {
        sdk.set({.uid = 30,
                 .channels = {{.chid = 1, .functype = support::SIREN, .basicvalue = value}}});
        Scene *scene = sceneOf(R"({"comps":[{"target":{"dev":30,"ch":1},"value":1}]})");
        prepareHomeSceneResumeData(pool.get(), scene);
        freeScene(scene);
    }
    appConfigParser(pool.get());
    EXPECT_THAT(plannedValues(), ElementsAre(5));
    EXPECT_EQ(resumeRecords(), 1u);
    resetRunner();
    setHomeSceneEnable(pool.get(), 0);  // as does a disarm, with the oldest
    EXPECT_THAT(plannedValues(), ElementsAre(4));
    EXPECT_EQ(resumeRecords(), 0u);
}

// The door of the snapshot opens.
class AnAlarm : public Sirens {
protected:
    void SetUp() override
    {
        Sirens::SetUp();
        const std::string text =
            support::deviceText({{5, support::device(5, 0, support::DOOR, 255)}}, 5);
        reported = setGetDevice(text.c_str());
        door = searchDeviceFromGetDev(reported, 5);
    }
    void TearDown() override
    {
        failAllocation(0);
        Sirens::TearDown();
        freeGetDevice(reported);
    }
    void openDoor()
    {
        const Owned<apr_pool_t> own = createPool();
        homeSceneDetach(own.get(), 5, 0, door, searchChannelFromGetDev(door, 0));
    }
    void arm(Integer entryDelay = FOREVER)
    {
        setSettings({.duration = 0, .enabled = 1, .siren_type = 6, .trigger_duration = entryDelay});
    }
    void disarm()
    {
        setHomeSceneEnable(pool.get(), 0);
    }
    // Begins an alarm in which one allocation has failed: one that lacks what is looked for.
    template <typename Predicate> void beginWhenMemoryRunsOut(Predicate lacks)
    {
        const auto hasBegun = [&] {
            const MutexLock lock(defaulSceneList_mutex);
            const HomeSceneData *alarm = FIRST_ELEMENT(HomeSceneData, node, &defaulSceneListHead);
            return alarm && lacks(*alarm);
        };
        for (int n = 1; n <= 60 && !hasBegun(); ++n) {
            disarm();
            ASSERT_TRUE(eventually([] { return runningAlarms() == 0; }));
            hearEverything();
            sdk.forgetHeard();
            resetRunner();  // what the disarm has planned
            arm(0);
            failAllocation(n);
            openDoor();
            failAllocation(0);
        }
        ASSERT_TRUE(hasBegun());
    }
    size_t macroEvents()
    {
        return sdk.events("MacroEvent").size();
    }
    void expectWholeAlarm()
    {
        ASSERT_EQ(runningAlarms(), 0u);
        resetRunner();
        sdk.forgetHeard();
        arm(0);
        openDoor();
        EXPECT_EQ(runningAlarms(), 1u);
        ASSERT_TRUE(eventually([] { return runningAlarms() == 0; }));
        hearEverything();
        EXPECT_EQ(sdk.count(support::sysSound(6)), 1u);
        EXPECT_EQ(macroEvents(), 1u);
        EXPECT_THAT(plannedValues(), ElementsAre(6, 6, 3, 7));
        EXPECT_EQ(resumeRecords(), 0u);
    }

    GetDev *reported = nullptr;
    GetDev_dev *door = nullptr;
};

TEST_F(AnAlarm, RunsFromTheDoorToTheSirensPutBack)
{
    expectWholeAlarm();
    const MutexLock lock(defaulSceneList_mutex);
    EXPECT_EQ(HomeScene, nullptr) << "the next alarm builds it anew";
}

TEST_F(AnAlarm, HoldsCopiesOfWhatSetItOff)
{
    arm();
    openDoor();
    const MutexLock lock(defaulSceneList_mutex);
    const HomeSceneData *data = FIRST_ELEMENT(HomeSceneData, node, &defaulSceneListHead);
    ASSERT_NE(data, nullptr);
    EXPECT_EQ(data->dev, 5);
    EXPECT_EQ(data->ch, 0);
    EXPECT_EQ(data->alarmSetting.siren_type, 6);
    EXPECT_EQ(data->alarmSetting.trigger_duration, FOREVER);
    ASSERT_NE(data->device, nullptr);
    EXPECT_NE(data->device, door);
    EXPECT_EQ(data->device->uid, 5);
    ASSERT_NE(data->channel, nullptr);
    EXPECT_EQ(data->channel->functype, FUNC_DOOR);
}

TEST_F(AnAlarm, SetsEverySirenToTheTypeOfItsSettings)
{
    arm();
    openDoor();
    const MutexLock lock(defaulSceneList_mutex);
    ASSERT_NE(HomeScene, nullptr);
    EXPECT_EQ(compsText(HomeScene), "30.0.1=6 30.0.2=6");
    EXPECT_EQ(HomeScene->buildinSiren->siren_type, 6);
}

TEST_F(AnAlarm, GivesTheHomeSceneASirenOfItsOwnWhenItHasNone)
{
    {
        const MutexLock lock(defaulSceneList_mutex);
        HomeScene = sceneOf(R"({"title":"Home Scene"})");
    }
    arm();
    openDoor();
    const MutexLock lock(defaulSceneList_mutex);
    ASSERT_NE(HomeScene->buildinSiren, nullptr);
    EXPECT_EQ(HomeScene->buildinSiren->siren_type, 6);
}

TEST_F(AnAlarm, NeedsAlarmSettings)
{
    {
        const MutexLock lock(alarm_mutex);
        ASSERT_EQ(ovrinAlarm, nullptr);
    }
    openDoor();
    EXPECT_EQ(runningAlarms(), 0u);
    const Value schedules(R"([{"title":"Always","enabled":1,"home_security_alarm":1,
        "weekdays":127,"end_hour":23,"end_minute":59}])");
    ASSERT_EQ(setSchedules(schedules), 1);
    openDoor();
    EXPECT_EQ(runningAlarms(), 0u);
    EXPECT_EQ(logged("callocHomeSceneData fail or copyDefaultScene return NULL\n"), 1u);
    arm();
    openDoor();
    EXPECT_EQ(runningAlarms(), 1u);
}

// The letter of the kernel for what the thread does; 'S' while it waits for a lock.
static char stateOf(pid_t thread)
{
    std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/stat");
    std::string line;
    std::getline(file, line);
    const size_t end = line.rfind(')');
    return end == std::string::npos || end + 2 >= line.size() ? '?' : line[end + 2];
}

TEST_F(AnAlarm, IsStartedOnceByTwoEventsAtOnce)
{
    setSirenTypeOfSettings(6);
    openDoor();  // builds the scene, for which the second event would wait otherwise
    ASSERT_EQ(runningAlarms(), 0u);
    std::atomic<pid_t> threads[2] = {};
    std::thread events[2];
    {
        const MutexLock lock(alarm_mutex);  // keeps both between their look and their start
        ovrinAlarm->enabled = 1;
        for (size_t i = 0; i < 2; ++i) {
            events[i] = std::thread([this, &id = threads[i]] {
                id = gettid();
                openDoor();
            });
        }
        EXPECT_TRUE(eventually([&] {
            return threads[0] && threads[1] && stateOf(threads[0]) == 'S' &&
                   stateOf(threads[1]) == 'S';
        }));
    }
    for (std::thread &event : events)
        event.join();
    EXPECT_EQ(runningAlarms(), 1u);
    EXPECT_EQ(resumeRecords(), 1u);
    EXPECT_EQ(sdk.asked("getdevice", 256), 1u);
}

TEST_F(AnAlarm, ThatGetsNoThreadIsGivenUp)
{
    arm();
    {
        const NoThreads now;
        openDoor();
    }
    EXPECT_EQ(logged("pthread_create fail\n"), 1u);
    EXPECT_EQ(runningAlarms(), 0u);
    EXPECT_EQ(resumeRecords(), 0u);
    hearEverything();
    EXPECT_FALSE(sdk.heard(support::sysSound(6)));
    EXPECT_EQ(macroEvents(), 0u);
    expectWholeAlarm();
}

TEST_F(AnAlarm, ThatRunsOutOfMemoryLeavesNothingBehind)
{
    // More than an alarm takes until its thread is there.
    for (int n = 1; n <= 60; ++n) {
        arm();
        failAllocation(n);
        openDoor();
        failAllocation(0);
        disarm();
        ASSERT_TRUE(eventually([] { return runningAlarms() == 0; })) << n;
        ASSERT_EQ(resumeRecords(), 0u) << n;
    }
    EXPECT_EQ(logged("callocHomeSceneData fail or copyDefaultScene return NULL\n"), 1u);
    expectWholeAlarm();
}

TEST_F(AnAlarm, SoundsWithoutTheCopiesThatFoundNoMemory)
{
    beginWhenMemoryRunsOut([](const HomeSceneData &alarm) { return !alarm.channel; });
    ASSERT_TRUE(eventually([] { return runningAlarms() == 0; }));
    hearEverything();
    EXPECT_EQ(macroEvents(), 1u);
    EXPECT_EQ(sdk.count(support::sysSound(6)), 1u);
}

TEST_F(AnAlarm, EndsWithSilenceWithoutARecordOfWhatTheSirensShowed)
{
    for (const size_t records : {0u, 1u}) {  // without a record, and with one that holds no scene
        beginWhenMemoryRunsOut([=](const HomeSceneData &alarm) {
            return alarm.withoutRecord && resumeRecords() == records;
        });
        ASSERT_TRUE(eventually([] { return runningAlarms() == 0; }));
        hearEverything();
        EXPECT_THAT(plannedValues(), ElementsAre(6, 6, 0, 0));
        EXPECT_EQ(sdk.count(support::sysSound(6)), 1u);
        EXPECT_EQ(sdk.count(support::sysSound(0)), 1u);
        EXPECT_EQ(resumeRecords(), 0u);
    }
}

TEST_F(AnAlarm, IsAnnouncedWithoutAHomeScene)
{
    arm(0);
    failAllocation(1);  // the scene
    openDoor();
    failAllocation(0);
    ASSERT_TRUE(eventually([] { return runningAlarms() == 0; }));
    hearEverything();
    EXPECT_EQ(logged("scene is NULL\n"), 1u);
    EXPECT_EQ(macroEvents(), 1u);
    EXPECT_THAT(plannedValues(), IsEmpty());
}

TEST_F(AnAlarm, IsCancelledWithoutItsSceneItsLogOrItsAnnouncement)
{
    arm();
    openDoor();
    disarm();
    ASSERT_TRUE(eventually([] { return runningAlarms() == 0; }));
    hearEverything();
    EXPECT_EQ(macroEvents(), 0u);
    EXPECT_FALSE(sdk.heard(support::sysSound(6)));
    EXPECT_THAT(plannedValues(), ElementsAre(3, 7)) << "what the sirens show anyway";
    EXPECT_EQ(logged("sleep(data->alarmSetting.duration): 0 secs\n"), 0u);
}

TEST_F(AnAlarm, IsArmedWithoutAFileWhenThereIsNoMemoryForTheDocument)
{
    watchJsonMemory();
    failJsonAllocation(1);
    setHomeSceneEnable(pool.get(), 1);
    failJsonAllocation(0);
    EXPECT_EQ(logged("root is NULL\n"), 1u);
    EXPECT_FALSE(folder.read("appSetup.json"));
    openDoor();
    EXPECT_EQ(runningAlarms(), 1u);
}
