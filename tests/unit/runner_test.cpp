// Planning scenes into the time-table and sending what is due, driven with times of the test's own.

#include "scene/runner.h"

#include "config/snapshot.h"
#include "config/target_comp.h"
#include "daemon_in_process.h"
#include "main/settings.h"
#include "scene/reply_check.h"

#include <algorithm>
#include <chrono>
#include <map>
#include <thread>

using testing::ElementsAre;

static Scene *sceneOf(const std::string &text)
{
    const Value value(text);
    return setNewScene(value);
}

static std::string compsText(const std::vector<std::pair<Integer, Integer>> &comps, Integer ch = 1)
{
    std::string text;
    for (const auto &[dev, value] : comps) {
        text += std::string(text.empty() ? "" : ",") + R"({"target":{"dev":)" +
                std::to_string(dev) + R"(,"ch":)" + std::to_string(ch) + R"(},"value":)" +
                std::to_string(value) + "}";
    }
    return R"({"comps":[)" + text + "]}";
}

// A planner that ran out of memory has left the mutex held.
LOCKING(no_thread_safety_analysis)
static void letGoOfTheScenes()
{
    unlockMutex(Macro_op_mutex);
}

struct Planned {
    Integer dev;
    uint32_t timer;
    int32_t position;
    int32_t value;

    bool operator==(const Planned &) const = default;
};

static std::vector<Planned> timeTable()
{
    const MutexLock lock(TheadList_mutex);
    std::vector<Planned> result;
    for (const TARGET_Comp &entry : ELEMENTS(TARGET_Comp, node, &TheadListHead))
        result.push_back({entry.target.dev, entry.timer, entry.position, entry.value});
    return result;
}

class Planning : public testing::Test {
protected:
    void TearDown() override
    {
        resetRunner();
    }
    std::vector<Planned> plan(const std::vector<std::pair<Integer, Integer>> &comps,
                              uint32_t now = NOW)
    {
        Scene *scene = sceneOf(compsText(comps));
        doScene_next(nullptr, scene, now);
        freeScene(scene);
        return timeTable();
    }

    static constexpr uint32_t NOW = 500'000;
};

TEST_F(Planning, SpacesCommandsByTheDefaultGap)
{
    EXPECT_THAT(plan({{5, 1}, {6, 2}, {7, 3}}),
                ElementsAre(Planned{5, NOW + 200, 1, 1}, Planned{6, NOW + 400, 2, 2},
                            Planned{7, NOW + 600, 3, 3}));
    EXPECT_EQ(last_time, NOW + 600);
    EXPECT_EQ(json_last_time(), NOW + 600);
    EXPECT_EQ(sceneCompCount, 3);
}

TEST_F(Planning, ChangesTheGapWithAGapStepThatIsNeverQueued)
{
    EXPECT_THAT(plan({{5, 1}, {505, 5}, {6, 2}, {7, 3}}),
                ElementsAre(Planned{5, NOW + 200, 1, 1}, Planned{6, NOW + 700, 3, 2},
                            Planned{7, NOW + 1200, 4, 3}));
    EXPECT_EQ(scene_time_index, 500);
}

TEST_F(Planning, TakesAnyOtherGapStepAsTheDefault)
{
    for (const Integer value : {0LL, -1LL, 100LL, 150LL, 9223372036854775807LL}) {
        resetRunner();
        scene_time_index = 700;
        EXPECT_THAT(plan({{505, value}, {6, 2}}), ElementsAre(Planned{6, NOW + 200, 2, 2}))
            << value;
        EXPECT_EQ(scene_time_index, 200);
    }
    resetRunner();
    EXPECT_THAT(plan({{505, 99}, {6, 2}}), ElementsAre(Planned{6, NOW + 9900, 2, 2}));
}

TEST_F(Planning, WaitsWithAWaitStepThatAddsNoGap)
{
    EXPECT_THAT(plan({{5, 1}, {512, 30}, {6, 2}}),
                ElementsAre(Planned{5, NOW + 200, 1, 1}, Planned{512, NOW + 3200, 2, 30},
                            Planned{6, NOW + 3400, 3, 2}));
}

TEST_F(Planning, GoesBackInTimeWithANegativeWait)
{
    EXPECT_THAT(plan({{5, 1}, {512, -3}, {6, 2}}),
                ElementsAre(Planned{5, NOW + 200, 1, 1}, Planned{512, NOW - 100, 2, -3},
                            Planned{6, NOW + 100, 3, 2}));
    EXPECT_EQ(last_time, NOW + 200);  // the latest of them, not the last
}

TEST_F(Planning, SurvivesAnyNumberAsAWait)
{
    EXPECT_EQ(plan({{512, 9223372036854775807LL}}).size(), 1u);
    resetRunner();
    EXPECT_EQ(plan({{512, -9223372036854775807LL}}).size(), 1u);
    resetRunner();
    EXPECT_THAT(plan({{5, 4294967297}}),
                ElementsAre(Planned{5, NOW + 200, 1, 1}));  // the low 32 bits
}

TEST_F(Planning, OfAGapStepAloneSetsTheGapAndTheLastTime)
{
    EXPECT_THAT(plan({{505, 5}}), ElementsAre());
    EXPECT_EQ(scene_time_index, 500);
    EXPECT_EQ(last_time, NOW);
    EXPECT_EQ(json_last_time(), NOW);
    EXPECT_EQ(sceneCompCount, 1);
}

TEST_F(Planning, OfAnEmptySceneSetsTheLastTimeButReportsNone)
{
    plan({{5, 1}}, 1'000);
    EXPECT_EQ(plan({}).size(), 1u);
    EXPECT_EQ(last_time, NOW);
    EXPECT_EQ(json_last_time(), 1'200);
    EXPECT_EQ(sceneCompCount, 0);
    EXPECT_EQ(scene_time_index, 200);
}

TEST_F(Planning, StartsEachSceneFromItsOwnMoment)
{
    plan({{5, 1}, {6, 1}});
    EXPECT_THAT(plan({{7, 1}}, NOW + 100),
                ElementsAre(Planned{5, NOW + 200, 1, 1}, Planned{6, NOW + 400, 2, 1},
                            Planned{7, NOW + 300, 1, 1}));
    EXPECT_EQ(last_time, NOW + 400);  // it never goes back
}

TEST_F(Planning, PullsALastTimeBackThatIsPastOrTooFar)
{
    last_time = NOW - 1;
    plan({});
    EXPECT_EQ(last_time, NOW);
    last_time = NOW + 120'000;
    plan({});
    EXPECT_EQ(last_time, NOW + 120'000);
    last_time = NOW + 120'001;
    plan({});
    EXPECT_EQ(last_time, NOW);
    EXPECT_EQ(json_last_time(), 0);  // nothing was planned
}

TEST_F(Planning, PlansTwoScenesOfOneMillisecondWhole)
{
    plan({{5, 1}, {6, 1}});
    EXPECT_EQ(plan({{7, 1}, {8, 1}}).size(), 4u);
    EXPECT_EQ(searchTargetComp(NOW + 200, &TheadListHead)->target.dev, 5);
}

TEST_F(Planning, GivesASceneUpWithoutMemoryAndKeepsItsMutex)
{
    Scene *scene = sceneOf(compsText({{5, 1}, {6, 1}, {7, 1}}));
    failAllocation(2);
    doScene_next(nullptr, scene, NOW);
    EXPECT_EQ(logged("1.5.callocTARGET_Comp fail \n"), 1u);
    EXPECT_THAT(timeTable(), ElementsAre(Planned{5, NOW + 200, 1, 1}));
    EXPECT_EQ(pthread_mutex_trylock(&Macro_op_mutex), EBUSY);
    letGoOfTheScenes();
    freeScene(scene);
}

TEST_F(Planning, OfNoSceneIsLogged)
{
    doScene_next(nullptr, nullptr);
    doScene(nullptr, nullptr);
    EXPECT_EQ(logLines(), (std::vector<LogLine>{{6, "doScene_next", "scene is NULL\n"},
                                                {6, "doScene", "scene is NULL\n"}}));
}

static constexpr uint32_t WRAP = 1'000'000'000;

static int64_t wallClockMilliseconds()
{
    const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::milliseconds>(sinceEpoch).count();
}

TEST(MillisecondStamp, IsTheWallClocksAndWrapsEveryMillionSeconds)
{
    const int64_t before = wallClockMilliseconds();
    const uint32_t stamp = millisecondStamp();
    const int64_t after = wallClockMilliseconds();
    EXPECT_LT(stamp, WRAP);
    // Counted round the wrap, which may come between any two of the three.
    const int64_t sinceBefore = (stamp - before % WRAP + WRAP) % WRAP;
    EXPECT_LE(sinceBefore, after - before);
}

// The dispatch, one tick at a time.
class Dispatch : public OutboundOnItsOwnBus {
protected:
    void SetUp() override
    {
        OutboundOnItsOwnBus::SetUp();
        apr_pool_create(&pool, nullptr);
        for (int64_t uid = 1; uid <= 100; ++uid)
            sdk.set(support::device(uid, 1, support::SWITCH));
    }
    void TearDown() override
    {
        resetRunner();
        {
            const MutexLock lock(allDevs_mutex);
            if (allDevs)
                freeGetDevice(allDevs);
            allDevs = nullptr;
        }
        apr_pool_destroy(pool);
        OutboundOnItsOwnBus::TearDown();
    }
    void know()
    {
        updateAllDev(pool);
        sdk.forgetHeard();
    }
    void runScene(const std::string &text)
    {
        Scene *scene = sceneOf(text);
        doScene_next(pool, scene, now);
        freeScene(scene);
    }
    // One tick of 95 ms; how many entries it took out of the time-table.
    size_t tick()
    {
        now += 95;
        const size_t before = timeTable().size();
        dispatchStep(now);
        return before - timeTable().size();
    }
    // The ticks up to the next check, all of them at that moment; what tick() tells of them.
    size_t check(uint32_t moment)
    {
        now = moment;
        const size_t before = timeTable().size();
        for (int ticks = scene_time_index / 100; ticks > 0; --ticks)
            dispatchStep(now);
        return before - timeTable().size();
    }
    // Checks that found something pending.
    static size_t checksMade()
    {
        const std::vector<std::string> texts = logTexts();
        return static_cast<size_t>(
            std::count_if(texts.begin(), texts.end(), [](const std::string &text) {
                return text.rfind("4.0.do_scene_schedule last_time=", 0) == 0;
            }));
    }
    void drain()
    {
        while (!timeTable().empty())
            tick();
        hearEverything();
    }
    // The time-table has drained; the time that a run goes on for after that passes.
    void endRun()
    {
        const uint32_t end = last_time + static_cast<uint32_t>(scene_time_index) + 1'000;
        while (now < end + 200)
            tick();
    }
    std::vector<std::string> sent(const std::string &text)
    {
        runScene(text);
        drain();
        return sdk.commandTexts();
    }

    apr_pool_t *pool = nullptr;
    uint32_t now = 400'000;
};

TEST_F(Dispatch, SendsOneCommandACheckAndNoneBeforeItsTime)
{
    know();
    runScene(compsText({{5, 1}, {6, 2}, {7, 3}}));
    std::map<size_t, uint32_t> sentAt;
    size_t count = 0;
    for (int i = 0; i < 20; ++i) {
        const size_t step = tick();
        ASSERT_LE(step, 1u);
        if (step == 1)
            sentAt[++count] = now - 400'000;
    }
    ASSERT_EQ(count, 3u);
    for (size_t n = 1; n <= 3; ++n) {
        EXPECT_GE(sentAt[n], 200 * n);
        EXPECT_EQ(sentAt[n] % 190, 0u);  // every second tick of 95 ms
    }
    hearEverything();
    EXPECT_THAT(sdk.commandTexts(),
                ElementsAre(support::switchCommand(5, 1, 1), support::switchCommand(6, 1, 2),
                            support::switchCommand(7, 1, 3)));
}

TEST_F(Dispatch, ChecksEveryFifthTickWithAGapOf500)
{
    know();
    runScene(compsText({{505, 5}, {5, 1}, {6, 2}}));
    std::vector<int> ticks;
    for (int i = 1; i <= 30; ++i) {
        if (tick() == 1)
            ticks.push_back(i);
    }
    ASSERT_EQ(ticks.size(), 2u);
    EXPECT_EQ(ticks[0] % 5, 0);
    EXPECT_EQ(ticks[1] % 5, 0);
}

TEST_F(Dispatch, ChecksEveryNinetyNinthTickWithTheGreatestGap)
{
    know();
    runScene(compsText({{505, 99}, {5, 1}, {6, 2}}));
    EXPECT_EQ(last_time, 400'000 + 2 * 9'900);
    std::vector<int> ticks;
    for (int i = 1; !timeTable().empty(); ++i) {
        ASSERT_LE(i, 400);
        if (tick() == 1)
            ticks.push_back(i);
    }
    EXPECT_THAT(ticks, ElementsAre(2 * 99, 3 * 99));  // at 18.8 s and 28.2 s
    hearEverything();
    EXPECT_THAT(sdk.commandTexts(),
                ElementsAre(support::switchCommand(5, 1, 1), support::switchCommand(6, 1, 2)));
}

// Of two seconds between two checks 1,800 ms are more than the gap: so much longer an entry waits.
TEST_F(Dispatch, LetsAnEntryWaitForOneMoreCheckWhenTicksWereLate)
{
    know();
    runScene(compsText({{5, 1}}));
    EXPECT_EQ(check(400'000), 0u);
    EXPECT_EQ(check(402'000), 0u) << "overdue by 1,800 ms";
    EXPECT_EQ(check(402'190), 1u);
}

TEST_F(Dispatch, SendsAnEntryThatIsOverdueByMoreThanTicksWereLate)
{
    know();
    runScene(compsText({{5, 1}}));
    EXPECT_EQ(check(400'001), 0u);
    EXPECT_EQ(check(402'001), 1u) << "overdue by 1,801 ms";
}

TEST_F(Dispatch, SendsNothingAtTheFirstCheckAfterALongIdleTime)
{
    know();
    sent(compsText({{5, 1}}));
    endRun();
    now += 60'000;
    runScene(compsText({{6, 2}}));
    EXPECT_EQ(check(now + 1'000), 0u);
    EXPECT_EQ(check(now + 190), 1u);
}

// Deliberate, as the stamps' wrap is not handled: what was planned beyond it is never due, and what
// is planned after it goes out.
TEST_F(Dispatch, KeepsWhatIsPlannedBeyondTheWrapAndSendsWhatIsPlannedAfterIt)
{
    know();
    now = WRAP - 100;
    runScene(compsText({{505, 1}, {5, 1}, {6, 1}}));
    const std::vector<Planned> beyond = timeTable();
    EXPECT_THAT(beyond, ElementsAre(Planned{5, WRAP, 2, 1}, Planned{6, WRAP + 100, 3, 1}));
    EXPECT_EQ(check(WRAP - 5), 0u);
    EXPECT_EQ(check(20), 0u);

    now = 50;
    runScene(compsText({{7, 1}, {8, 1}}));
    EXPECT_EQ(last_time, 250);
    for (int i = 0; i < 100; ++i)
        tick();
    EXPECT_EQ(timeTable(), beyond);
    EXPECT_EQ(scene_time_index, 100) << "the run does not end";
    hearEverything();
    EXPECT_THAT(sdk.commandTexts(),
                ElementsAre(support::switchCommand(7, 1, 1), support::switchCommand(8, 1, 1)));
}

TEST_F(Dispatch, DoesNotBeginWithASceneThatWasGivenUpWithoutMemory)
{
    know();
    Scene *scene = sceneOf(compsText({{5, 1}, {6, 1}}));
    failAllocation(2);
    doScene_next(pool, scene, now);
    letGoOfTheScenes();
    freeScene(scene);
    ASSERT_EQ(timeTable().size(), 1u);
    for (int i = 0; i < 30; ++i)
        EXPECT_EQ(tick(), 0u);
    EXPECT_EQ(checksMade(), 0u);
    EXPECT_THAT(sent(compsText({{7, 1}})),
                ElementsAre(support::switchCommand(5, 1, 1), support::switchCommand(7, 1, 1)))
        << "what was planned goes out with the next scene";
}

TEST_F(Dispatch, EndsNoRunWhoseTimeIsOverBeforeAllIsSent)
{
    know();
    runScene(compsText({{505, 1}, {5, 1}, {6, 1}}));
    const uint32_t end = last_time + 100 + 1'000;
    EXPECT_EQ(check(end), 0u);
    EXPECT_EQ(check(end + 100), 1u);
    EXPECT_EQ(scene_time_index, 100);
    EXPECT_EQ(check(end + 200), 1u);
    EXPECT_EQ(scene_time_index, 200) << "it ends with the check that sends the last";
    forgetLog();
    EXPECT_EQ(check(end + 400), 0u);
    EXPECT_EQ(checksMade(), 0u);
}

TEST_F(Dispatch, EndsTheRunOfAGapStepAloneAsAnyOther)
{
    runScene(compsText({{505, 5}}));
    EXPECT_EQ(check(400'000 + 500 + 999), 0u);
    EXPECT_EQ(scene_time_index, 500);
    EXPECT_EQ(check(400'000 + 500 + 1'000), 0u);
    EXPECT_EQ(scene_time_index, 200);
    EXPECT_EQ(checksMade(), 2u);
    EXPECT_EQ(check(402'000), 0u);
    EXPECT_EQ(checksMade(), 2u);
}

TEST_F(Dispatch, ChecksForAnEmptySceneUntilItsRunIsOver)
{
    runScene(compsText({}));
    EXPECT_EQ(check(400'000 + 200 + 999), 0u);
    EXPECT_EQ(check(400'000 + 200 + 1'000), 0u);
    EXPECT_EQ(checksMade(), 2u);
    EXPECT_EQ(check(402'000), 0u);
    EXPECT_EQ(checksMade(), 2u);
    EXPECT_THAT(sdk.commandTexts(), ElementsAre());
}

// One second back: the whole scene is due before its first gap has passed.
TEST_F(Dispatch, SendsAtOnceWhatANegativeWaitPlansInThePast)
{
    know();
    runScene(compsText({{505, 1}, {512, -10}, {5, 1}, {6, 2}}));
    EXPECT_EQ(check(now), 0u);  // the first check since long ago
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(check(now + 10), 1u);
    hearEverything();
    EXPECT_THAT(sdk.commandTexts(),
                ElementsAre(support::switchCommand(5, 1, 1), support::switchCommand(6, 1, 2)));
}

TEST_F(Dispatch, DropsCommandsWhileNoDeviceIsKnown)
{
    runScene(compsText({{5, 1}, {769, 2}}));
    drain();
    EXPECT_THAT(sdk.commandTexts(),
                ElementsAre(R"({"control":{"cmd":"snapshot","uid":769,"val":2}})"));
    endRun();
    forgetLog();
    EXPECT_EQ(check(now + 1'000), 0u);
    EXPECT_EQ(checksMade(), 0u) << "the run is over";
}

TEST_F(Dispatch, ReturnsToTheDefaultGapOneSecondAfterTheLastPlannedTime)
{
    know();
    runScene(compsText({{505, 1}, {5, 1}}));
    drain();
    EXPECT_EQ(scene_time_index, 100);
    const uint32_t end = last_time + 100 + 1000;
    while (scene_time_index == 100) {
        ASSERT_LT(now, end + 95);
        tick();
    }
    EXPECT_GE(now, end);
    EXPECT_EQ(scene_time_index, 200);
}

TEST_F(Dispatch, ChoosesTheCommandByTheChannelsType)
{
    struct Row {
        int64_t functype;
        int64_t value;
        std::string cmd;
        bool withChannel;
    };
    const Row rows[] = {{22, 110, "getswitch", true},
                        {23, 110, "getswitch", true},
                        {22, 99, "switch", true},
                        {23, 99, "switch", true},
                        {24, 110, "switch", true},
                        {26, 50, "switch", true},
                        {28, 1, "switch", true},
                        {32, 1, "thermostatfan", false},
                        {33, 2, "thermostatmode", false},
                        {35, 3, "simpleAVcontrol", true},
                        {47, 1, "snapshot", true},
                        {13, 1, "switch", true},
                        {0, 1, "switch", true}};
    int64_t uid = 0;
    std::vector<std::string> expected;
    std::vector<std::pair<Integer, Integer>> comps;
    for (const Row &row : rows) {
        sdk.set(support::device(++uid, 1, row.functype));
        comps.push_back({uid, row.value});
        expected.push_back(support::deviceCommand(
            row.cmd, uid, row.withChannel ? std::optional<int64_t>(1) : std::nullopt, row.value));
    }
    know();
    EXPECT_EQ(sent(compsText(comps)), expected);
}

TEST_F(Dispatch, SendsASetPointAsACall)
{
    sdk.set(support::device(5, 1, support::THERMOSTAT_SETPOINT));
    know();
    EXPECT_THAT(sent(compsText({{5, 215}})),
                ElementsAre(R"({"control":{"cmd":"thermostattemp","temp":215,"uid":5,"unit":1}})"));
    EXPECT_EQ(sdk.commands().at(0).kind, support::Heard::CALL);
}

TEST_F(Dispatch, SendsNothingToSilentChannelsUnknownDevicesAndWaitSteps)
{
    sdk.set(support::device(5, 1, support::MUTE_TYPE));
    know();
    EXPECT_THAT(sent(compsText({{5, 1}, {700, 1}, {512, 1}, {6, 1}})),
                ElementsAre(support::switchCommand(6, 1, 1)));
}

TEST_F(Dispatch, SwitchesAnUnknownChannelAllTheSame)
{
    know();
    EXPECT_THAT(sent(compsText({{5, 1}}, 9)), ElementsAre(support::switchCommand(5, 9, 1)));
    EXPECT_THAT(logTexts(), testing::Contains(
                                testing::StartsWith("not found dev: 5, ch : 9, allDev addr: 0x")));
}

TEST_F(Dispatch, TakesDevicesAbove768ForCameras)
{
    sdk.set(support::device(768, 1, support::SWITCH));
    know();
    EXPECT_THAT(sent(compsText({{768, 1}, {769, 1}})),
                ElementsAre(support::switchCommand(768, 1, 1),
                            R"({"control":{"cmd":"snapshot","uid":769,"val":1}})"));
}

TEST_F(Dispatch, RepeatsNoAudioVideoCommandInARerun)
{
    sdk.set(support::device(5, 1, support::AV_CONTROL));
    know();
    deoscene_n_run = 2;
    EXPECT_THAT(sent(compsText({{5, 1}, {6, 1}})), ElementsAre(support::switchCommand(6, 1, 1)));
    deoscene_n_run = 1;
}

TEST_F(Dispatch, PlaysTheSirenAtOnceAndWithoutADevice)
{
    runScene(R"({"comps":[],"buildinSiren":{"siren_type":4}})");
    hearEverything();
    EXPECT_THAT(sdk.commandTexts(), ElementsAre(R"({"control":{"cmd":"syssound","val":4}})"));
    forgetLog();
    runScene(R"({"comps":[]})");
    EXPECT_EQ(logged("scene->buildinSiren is NULL, will not controll buildin-siren\n"), 1u);
}

TEST_F(Dispatch, SendsNegativeValuesWithTheirSign)
{
    know();
    EXPECT_THAT(sent(compsText({{5, -7}})), ElementsAre(support::switchCommand(5, 1, -7)));
}

// 100 rounds of two scenes of 20 commands each, planned by two threads at once.
TEST_F(Dispatch, SendsTwoScenesAtOnceWholeAndEachInItsOrder)
{
    know();
    for (int round = 0; round < 100; ++round) {
        std::vector<std::pair<Integer, Integer>> comps[2];
        for (int i = 1; i <= 20; ++i) {
            comps[0].push_back({i, round});
            comps[1].push_back({20 + i, round});
        }
        Scene *scenes[2] = {sceneOf(compsText(comps[0])), sceneOf(compsText(comps[1]))};
        const uint32_t start = now;
        std::thread planners[2];
        for (int i = 0; i < 2; ++i)
            planners[i] = std::thread([&, i] { doScene_next(nullptr, scenes[i], start); });
        dispatchStep(start);  // meanwhile
        for (std::thread &planner : planners)
            planner.join();
        const std::vector<Planned> planned = timeTable();
        ASSERT_EQ(planned.size(), 40u);
        std::map<Integer, uint32_t> plannedAt;
        for (const Planned &entry : planned)
            plannedAt[entry.dev] = entry.timer;
        while (!timeTable().empty()) {
            std::map<Integer, bool> before;
            for (const Planned &entry : timeTable())
                before[entry.dev] = true;
            tick();
            for (const Planned &entry : timeTable())
                before.erase(entry.dev);
            for (const auto &[dev, sentNow] : before)
                ASSERT_GE(now, plannedAt[dev]) << "sent before its planned time";
        }
        for (Scene *scene : scenes)
            freeScene(scene);
    }
    hearEverything();
    std::vector<std::string> expected[2];
    for (int round = 0; round < 100; ++round) {
        for (int i = 1; i <= 20; ++i) {
            expected[0].push_back(support::switchCommand(i, 1, round));
            expected[1].push_back(support::switchCommand(20 + i, 1, round));
        }
    }
    std::vector<std::string> heard[2];
    for (const support::Heard &command : sdk.commands())
        heard[command.uid() > 20 ? 1 : 0].push_back(command.text);
    EXPECT_EQ(heard[0], expected[0]);
    EXPECT_EQ(heard[1], expected[1]);
}

class Announcement : public Dispatch {
protected:
    std::vector<std::string> announced(const std::string &text)
    {
        Scene *scene = sceneOf(text);
        doScene(pool, scene);
        freeScene(scene);
        hearEverything();
        return sdk.commandTexts();
    }
    void TearDown() override
    {
        Check_reply = 0;
        sceneHasWaitStep = 0;
        Dispatch::TearDown();
    }
};

TEST_F(Announcement, NamesTheScenesID)
{
    Check_reply = 1;
    EXPECT_THAT(announced(R"({"ID":7,"comps":[{"target":{"dev":5}}]})"),
                ElementsAre(R"({"control":{"chid":7,"cmd":"set_s_sta_num","uid":511,"val":1}})"));
    EXPECT_EQ(sceneID, 7);
    EXPECT_EQ(logged("*** doScene start, DEVICE_UID_511_SCENE_STATUS sceneID=7\n"), 1u);
}

TEST_F(Announcement, NamesTheNumberOfCompsWithoutAnID)
{
    Check_reply = 1;
    EXPECT_THAT(announced(R"({"comps":[{"target":{"dev":5}},{"target":{"dev":6}}]})"),
                ElementsAre(R"({"control":{"chid":99,"cmd":"set_s_sta_num","uid":511,"val":1}})"));
    EXPECT_EQ(sceneID, 2);
    EXPECT_EQ(sceneIdMarker, 99);
    EXPECT_EQ(scene_device_number_total, 2);
}

TEST_F(Announcement, IsNotMadeWithoutReplyCheck)
{
    scene_device_success_number = 5;
    EXPECT_THAT(announced(R"({"ID":7,"comps":[{"target":{"dev":5}}]})"), ElementsAre());
    EXPECT_EQ(scene_device_success_number, 0);
    EXPECT_EQ(timeTable().size(), 1u);
}

TEST_F(Announcement, LeavesTheConfirmedAloneAndForgetsTheQueuedScenes)
{
    Check_reply = 1;
    scene_device_success_number = 5;
    {
        const MutexLock lock(scene_int_mutex);
        replyCheck.queuedCount = 2;
    }
    EXPECT_EQ(announced(R"({"ID":7,"comps":[{"target":{"dev":5}}]})").size(), 1u);
    EXPECT_EQ(scene_device_success_number, 5);
    const MutexLock lock(scene_int_mutex);
    EXPECT_EQ(replyCheck.queuedCount, 0);
}

// Deliberate: a copy has no ID, and a macro runs a copy.
TEST_F(Announcement, NamesTheNumberOfCompsOfACopy)
{
    Check_reply = 1;
    Scene *scene = sceneOf(R"({"ID":7,"comps":[{"target":{"dev":5}},{"target":{"dev":6}}]})");
    Scene *copy = copyScene(scene);
    doScene(pool, copy);
    freeScene(copy);
    freeScene(scene);
    hearEverything();
    EXPECT_THAT(sdk.commandTexts(),
                ElementsAre(R"({"control":{"chid":99,"cmd":"set_s_sta_num","uid":511,"val":1}})"));
    EXPECT_EQ(sceneID, 2);
}

TEST_F(Announcement, KeepsTheNumberOfCompsThatACheckVerifies)
{
    scene_device_number_total = 9;
    scene_exec_check_enable = 1;
    announced(R"({"comps":[{"target":{"dev":5}}]})");
    EXPECT_EQ(scene_device_number_total, 9);
    EXPECT_EQ(sceneCompCount, 1);
    Check_reply = 1;
    announced(R"({"comps":[{"target":{"dev":5}}]})");
    EXPECT_EQ(sceneID, 9) << "and announces it";
    Check_reply = 0;
    scene_exec_check_enable = 0;
    announced(R"({"comps":[{"target":{"dev":5}}]})");
    EXPECT_EQ(scene_device_number_total, 1);
}

TEST_F(Announcement, IsNotMadeForASceneWithAWaitStepNorForLaterOnes)
{
    Check_reply = 1;
    EXPECT_THAT(announced(R"({"ID":7,"comps":[{"target":{"dev":512},"value":1}]})"), ElementsAre());
    EXPECT_THAT(announced(R"({"ID":8,"comps":[{"target":{"dev":5}}]})"), ElementsAre());
}

TEST_F(Announcement, AndRunAreLeftOutWhileACheckIsBusy)
{
    Check_reply = 1;
    {
        const MutexLock lock(scene_int_mutex);
        replyCheck.busy = true;
    }
    EXPECT_THAT(announced(R"({"ID":7,"comps":[{"target":{"dev":5}}]})"), ElementsAre());
    EXPECT_TRUE(timeTable().empty());
    const MutexLock lock(scene_int_mutex);
    replyCheck.busy = false;
}
