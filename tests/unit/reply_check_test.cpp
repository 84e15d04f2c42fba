// The reply check, armed by hand: nothing in the running system does.

#include "scene/reply_check.h"

#include "config/target_comp.h"
#include "daemon_in_process.h"
#include "main/settings.h"
#include "scene/runner.h"

#include <algorithm>

using testing::ElementsAre;
using testing::IsEmpty;

class ReplyChecking : public OutboundOnItsOwnBus {
protected:
    void SetUp() override
    {
        OutboundOnItsOwnBus::SetUp();
        Check_reply = 1;
        sceneID = 7;
        sceneCompCount = 2;
        scene_device_number_total = 2;
    }
    void TearDown() override
    {
        resetRunner();
        const MutexLock lock(scene_int_mutex);
        for (Scene **slots :
             {replyCheck.pendingOfRun, &replyCheck.pendingOfRun[1], &replyCheck.pendingOfRun[2],
              &replyCheck.rerun, replyCheck.queued, &replyCheck.queued[1]}) {
            if (*slots)
                freeScene(*slots);
        }
        OutboundOnItsOwnBus::TearDown();
    }
    static Scene *newScene(Integer id, Integer dev)
    {
        const Value text(R"({"ID":)" + std::to_string(id) + R"(,"comps":[{"target":{"dev":)" +
                         std::to_string(dev) + R"(,"ch":1},"value":99}]})");
        return setNewScene(text);
    }
    static Scene *newScene()
    {
        const Value text(R"({"title":"Evening","comps":[{"target":{"dev":5,"ch":1},"value":99},
            {"target":{"dev":6,"ch":1},"value":0}]})");
        return setNewScene(text);
    }
    void arm(int run = 1)
    {
        const MutexLock lock(scene_int_mutex);
        deoscene_n_run = run;
        scene_exec_check_enable = 1;
        replyCheck.armed = true;
        replyCheck.busy = false;
        replyCheck.rerun = newScene();
        replyCheck.pendingOfRun[run - 1] = newScene();
        forgetLog();
    }
    // The run that was begun anew is to be verified too: the copy it is run from stays.
    void armAnew(int run)
    {
        const MutexLock lock(scene_int_mutex);
        replyCheck.armed = true;
        replyCheck.pendingOfRun[run - 1] = newScene();
    }
    void queueScenes(const std::vector<Scene *> &scenes)
    {
        const MutexLock lock(scene_int_mutex);
        replyCheck.busy = true;
        replyCheck.queuedCount = static_cast<int>(scenes.size());
        std::copy(scenes.begin(), scenes.end(), replyCheck.queued);
    }
    // How many ticks the check waits before the one that judges.
    int ticksWaited()
    {
        int ticks = 0;
        for (; state().armed && ticks < 100; ++ticks)
            stepReplyCheck(nullptr);
        return ticks - 1;
    }
    static std::vector<Integer> plannedDevices()
    {
        const MutexLock lock(TheadList_mutex);
        std::vector<Integer> devices;
        for (const TARGET_Comp &entry : ELEMENTS(TARGET_Comp, node, &TheadListHead))
            devices.push_back(entry.target.dev);
        return devices;
    }
    ReplyCheck state()
    {
        const MutexLock lock(scene_int_mutex);
        return replyCheck;
    }
    int awaited(int run = 1)
    {
        const MutexLock lock(scene_int_mutex);
        return getListObjNum(&replyCheck.pendingOfRun[run - 1]->comps);
    }
    void report(Integer gid, Integer basicvalue, Integer functype = support::SWITCH)
    {
        GetDev_channel channel = {};
        channel.basicvalue = basicvalue;
        channel.functype = functype;
        matchEvent(gid, &channel);
    }
    std::vector<std::string> outcomes()
    {
        hearEverything();
        return sdk.commandTexts();
    }
    static std::string outcome(Integer ch, Integer value)
    {
        return support::deviceCommand("set_s_sta_num", 511, ch, value);
    }
};

TEST_F(ReplyChecking, TicksOffTheEventsItAwaits)
{
    arm();
    report(9, 99);  // another device
    report(6, 1);   // another outcome
    EXPECT_EQ(awaited(), 2);
    report(5, 1);  // both greater than 0
    EXPECT_EQ(awaited(), 1);
    EXPECT_FALSE(state().allReplied);
    report(6, 0);
    EXPECT_EQ(awaited(), 0);
    EXPECT_TRUE(state().allReplied);
    EXPECT_EQ(scene_device_success_number, 2);
}

TEST_F(ReplyChecking, TakesAnyReportOfACurtainAndSaysWhatItNoLongerAwaits)
{
    arm();
    report(6, 50, support::CURTAIN);
    EXPECT_EQ(awaited(), 1);
    report(6, 0);
    EXPECT_EQ(logLines(), (std::vector<LogLine>{{4, "doEvent", "comp2 is null  \n"}}));
}

TEST_F(ReplyChecking, LooksAtNoEventUnlessItIsArmed)
{
    arm();
    Check_reply = 0;
    report(5, 99);
    Check_reply = 1;
    sceneID = 0;
    report(5, 99);
    sceneID = 7;
    for (bool ReplyCheck::*flag : {&ReplyCheck::busy, &ReplyCheck::allReplied}) {
        {
            const MutexLock lock(scene_int_mutex);
            replyCheck.*flag = true;
        }
        report(5, 99);
        const MutexLock lock(scene_int_mutex);
        replyCheck.*flag = false;
    }
    matchEvent(5, nullptr);
    EXPECT_EQ(awaited(), 2);
    {
        const MutexLock lock(scene_int_mutex);
        replyCheck.armed = false;
    }
    report(5, 99);
    EXPECT_EQ(awaited(), 2);
}

TEST_F(ReplyChecking, AnnouncesASuccessAndEnds)
{
    arm();
    report(5, 99);
    report(6, 0);
    stepReplyCheck(nullptr);
    EXPECT_THAT(outcomes(), ElementsAre(outcome(7, 2)));
    EXPECT_EQ(logged("!!!!!!!!!!!!! Match !!!!!!! scene ID=7\n"), 1u);
    EXPECT_EQ(logged(" X2 scene ID=7\n"), 1u);
    EXPECT_EQ(sceneID, 0);
    EXPECT_EQ(scene_exec_check_enable, 0);
    EXPECT_FALSE(state().armed);
    EXPECT_EQ(state().rerun, nullptr);
    EXPECT_EQ(state().pendingOfRun[0], nullptr);
}

TEST_F(ReplyChecking, AnnouncesAnOutcomeUnder99WhenACountWasAnnounced)
{
    arm();
    sceneIdMarker = 99;
    report(5, 99);
    report(6, 0);
    stepReplyCheck(nullptr);
    EXPECT_THAT(outcomes(), ElementsAre(outcome(99, 2)));
    EXPECT_EQ(sceneIdMarker, 0);
}

TEST_F(ReplyChecking, WaitsItsTicksAndThenRunsTheSceneAgain)
{
    arm();
    const int limit = 2 - 0 + 2;  // comps, confirmed, grace
    for (int waited = 0; waited <= limit; ++waited) {
        stepReplyCheck(nullptr);
        EXPECT_EQ(
            logged("############# Not Match !!!!!!! 0.5sec X " + std::to_string(waited) + "\n"),
            1u);
    }
    EXPECT_TRUE(state().armed);
    stepReplyCheck(nullptr);
    EXPECT_EQ(logged("!!!!!!!!!!!!!  Not Match !!!!!!! 0.6sec X 5\n"), 1u);
    EXPECT_EQ(deoscene_n_run, 2);
    EXPECT_FALSE(state().armed);
    EXPECT_EQ(state().waitedTicks, 0);
    const MutexLock lock(TheadList_mutex);
    EXPECT_EQ(getListObjNum(&TheadListHead), 2);
}

TEST_F(ReplyChecking, WaitsATickLessForEachConfirmedCommand)
{
    arm();
    report(5, 99);
    EXPECT_EQ(ticksWaited(), 2 - 1 + 2 + 1);  // comps, confirmed, grace, and the first with none
    EXPECT_EQ(deoscene_n_run, 2);
}

TEST_F(ReplyChecking, WaitsNoTickLessForThemInARerun)
{
    arm(2);
    report(5, 99);
    EXPECT_EQ(ticksWaited(), 2 + 4 + 1);
}

TEST_F(ReplyChecking, WaitsLongerInARerun)
{
    arm(2);
    const int limit = 2 + 4;
    for (int waited = 0; waited <= limit; ++waited)
        stepReplyCheck(nullptr);
    EXPECT_EQ(deoscene_n_run, 2);
    stepReplyCheck(nullptr);
    EXPECT_EQ(deoscene_n_run, 3);
}

TEST_F(ReplyChecking, FailsAfterTheThirdRun)
{
    arm(3);
    for (int i = 0; i < 8; ++i)
        stepReplyCheck(nullptr);
    EXPECT_THAT(outcomes(), ElementsAre(outcome(7, 3)));
    EXPECT_EQ(logged(" X3 scene ID=7\n"), 1u);
    EXPECT_EQ(scene_success, 0);
    EXPECT_EQ(sceneID, 0);
    EXPECT_EQ(deoscene_n_run, 1);
    EXPECT_EQ(state().rerun, nullptr);
}

TEST_F(ReplyChecking, IsUnarmedForGoodAfterTheThirdRun)
{
    arm(3);
    ticksWaited();
    EXPECT_FALSE(state().armed);
    EXPECT_EQ(scene_exec_check_enable, 0);
    EXPECT_EQ(state().pendingOfRun[2], nullptr);
    EXPECT_EQ(state().waitedTicks, 0);
    EXPECT_THAT(plannedDevices(), IsEmpty());
}

TEST_F(ReplyChecking, AnnouncesAFailureUnder99WhenACountWasAnnounced)
{
    arm(3);
    sceneIdMarker = 99;
    ticksWaited();
    EXPECT_THAT(outcomes(), ElementsAre(outcome(99, 3)));
    EXPECT_EQ(logged(" X3 scene ID=7\n"), 1u);
    EXPECT_EQ(sceneIdMarker, 0);
    EXPECT_EQ(sceneID, 0);
}

TEST_F(ReplyChecking, AnnouncesNoFailureOfASceneWithANegativeID)
{
    arm(3);
    sceneID = -7;
    ticksWaited();
    EXPECT_THAT(outcomes(), IsEmpty());
    EXPECT_EQ(logged(" X3 scene ID=-7\n"), 0u);
    EXPECT_EQ(scene_success, 0);
    EXPECT_EQ(sceneID, -7);
    EXPECT_EQ(deoscene_n_run, 1);
    EXPECT_EQ(state().rerun, nullptr);
    EXPECT_EQ(scene_exec_check_enable, 0);
}

TEST_F(ReplyChecking, AnnouncesNoSuccessOfASceneWithANegativeID)
{
    arm();
    sceneID = -7;
    report(5, 99);
    report(6, 0);
    stepReplyCheck(nullptr);
    EXPECT_THAT(outcomes(), IsEmpty());
    EXPECT_EQ(logged("!!!!!!!!!!!!! Match !!!!!!! scene ID=-7\n"), 1u);
    EXPECT_EQ(sceneID, -7);
    EXPECT_FALSE(state().armed);
}

TEST_F(ReplyChecking, RunsASceneThreeTimesInAll)
{
    arm();
    const Scene *rerun = state().rerun;
    EXPECT_EQ(ticksWaited(), 5);
    EXPECT_EQ(deoscene_n_run, 2);
    EXPECT_THAT(plannedDevices(), ElementsAre(5, 6));
    armAnew(2);
    EXPECT_EQ(ticksWaited(), 7);
    EXPECT_EQ(deoscene_n_run, 3);
    EXPECT_THAT(plannedDevices(), ElementsAre(5, 6, 5, 6));
    EXPECT_EQ(state().rerun, rerun);
    EXPECT_EQ(scene_success, 1);
    armAnew(3);
    EXPECT_EQ(ticksWaited(), 7);
    EXPECT_EQ(deoscene_n_run, 1);
    EXPECT_THAT(plannedDevices(), ElementsAre(5, 6, 5, 6)) << "twice more, and no third time";
    EXPECT_EQ(scene_success, 0);
    EXPECT_EQ(state().rerun, nullptr);
    for (const Scene *pending : state().pendingOfRun)
        EXPECT_EQ(pending, nullptr);
    EXPECT_THAT(outcomes(), ElementsAre(outcome(7, 3)));
}

TEST_F(ReplyChecking, RunsTheFirstOfTwoQueuedScenesAtItsEndAndForgetsTheOther)
{
    arm();
    report(5, 99);
    report(6, 0);
    queueScenes({newScene(8, 1), newScene(9, 2)});
    stepReplyCheck(nullptr);
    EXPECT_THAT(outcomes(), ElementsAre(outcome(7, 2), outcome(8, 1)));
    EXPECT_THAT(plannedDevices(), ElementsAre(1));
    EXPECT_EQ(sceneID, 8);
    EXPECT_EQ(state().queuedCount, 0);
    EXPECT_FALSE(state().busy);
    EXPECT_EQ(state().queued[0], nullptr);
    EXPECT_EQ(state().queued[1], nullptr);
}

TEST_F(ReplyChecking, RunsTheQueuedSceneAfterTheThirdFailureToo)
{
    arm(3);
    queueScenes({newScene(8, 1)});
    ticksWaited();
    EXPECT_THAT(outcomes(), ElementsAre(outcome(7, 3), outcome(8, 1)));
    EXPECT_THAT(plannedDevices(), ElementsAre(1));
    EXPECT_EQ(state().queuedCount, 0);
    EXPECT_FALSE(state().busy);
}

TEST_F(ReplyChecking, WithoutAQueuedSceneForgetsTheOnesThatWereQueuedBefore)
{
    arm();
    report(5, 99);
    report(6, 0);
    queueScenes({newScene(8, 1), newScene(9, 2)});
    forgetQueuedScenes();
    stepReplyCheck(nullptr);
    EXPECT_THAT(outcomes(), ElementsAre(outcome(7, 2)));
    EXPECT_THAT(plannedDevices(), IsEmpty());
    EXPECT_FALSE(state().busy);
    EXPECT_EQ(state().queued[0], nullptr);
    EXPECT_EQ(state().queued[1], nullptr);
}

TEST_F(ReplyChecking, IsGivenUpAfterThreeTicksWithNothingToVerify)
{
    arm();
    sceneID = 0;
    stepReplyCheck(nullptr);
    stepReplyCheck(nullptr);
    EXPECT_TRUE(state().armed);
    scene_success = 0;
    stepReplyCheck(nullptr);
    EXPECT_FALSE(state().armed);
    EXPECT_EQ(scene_success, 1);
    EXPECT_EQ(scene_device_success_number, 2);
    EXPECT_EQ(logged("In Check_reply  scene_exec_check_enable2= 0\n"), 1u);
}

TEST_F(ReplyChecking, IsGivenUpWithoutTheModeToo)
{
    arm();
    Check_reply = 0;
    EXPECT_EQ(ticksWaited(), 2);
    EXPECT_EQ(scene_exec_check_enable, 0);
    EXPECT_EQ(scene_device_success_number, 2);
    EXPECT_THAT(outcomes(), IsEmpty());
}

TEST_F(ReplyChecking, IsGivenUpForASceneWithAWaitStepAndThenVerifiesTheNext)
{
    arm();
    sceneHasWaitStep = 1;
    report(5, 99);
    EXPECT_EQ(ticksWaited(), 2);
    EXPECT_EQ(sceneHasWaitStep, 0);
    EXPECT_EQ(scene_exec_check_enable, 0);
    EXPECT_EQ(scene_device_success_number, 2);
    EXPECT_EQ(sceneID, 7);
    EXPECT_EQ(logged("In Check_reply  scene_exec_check_enable2= 0\n"), 1u);
    armAnew(2);
    stepReplyCheck(nullptr);
    EXPECT_EQ(logged("############# Not Match !!!!!!! 0.5sec X 0\n"), 1u);
}

TEST_F(ReplyChecking, CountsThreeIdleTicksAnewEachTime)
{
    arm();
    sceneID = 0;
    EXPECT_EQ(ticksWaited(), 2);
    armAnew(2);
    EXPECT_EQ(ticksWaited(), 2);
}
