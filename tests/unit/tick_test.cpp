// The tick, driven second by second with times of the test's own.

#include "scene/housekeeping.h"
#include "scene/tick.h"

#include "daemon_in_process.h"
#include "main/settings.h"
#include "scene/reply_check.h"
#include "scene/runner.h"

#include <csignal>

static constexpr time_t CLOCK_SET = 1'700'000'000;

class Tick : public OutboundOnItsOwnBus {
protected:
    void second(time_t now = CLOCK_SET)
    {
        const MutexLock lock(tick_mutex);
        const tm local = {};
        scene_int(now, local);
    }
    void seconds(int count, time_t now = CLOCK_SET)
    {
        for (int i = 0; i < count; ++i)
            second(now);
    }
    void minutes(int count)
    {
        for (int i = 0; i < count; ++i) {
            {
                const MutexLock lock(tick_mutex);
                tickCounters.watchdogCount = 60;
            }
            second();
        }
    }
    TickCounters counters()
    {
        const MutexLock lock(tick_mutex);
        return tickCounters;
    }
};

TEST_F(Tick, AsksForAssociationsAt20SecondsWhenTheClockHasBeenSet)
{
    appstart_time_flag = 1;
    seconds(20);
    EXPECT_EQ(sdk.asked("getassociation", 256), 0u);
    second();
    EXPECT_EQ(sdk.asked("getassociation", 256), 1u);
    seconds(5);
    EXPECT_EQ(sdk.asked("getassociation", 256), 1u);
}

TEST_F(Tick, RefreshesTheDevicesOnceAt31Seconds)
{
    appstart_time_flag = 1;
    seconds(31);
    EXPECT_EQ(sdk.asked("getdevice", 256), 0u);
    second();
    EXPECT_EQ(sdk.asked("getswitch", 256), 1u);
    EXPECT_EQ(sdk.asked("getdevice", 256), 1u);
    EXPECT_EQ(startupRefreshPending, 0);
    EXPECT_EQ(logged("Watch dog count 31, \n"), 1u);
    seconds(20);
    EXPECT_EQ(sdk.asked("getdevice", 256), 1u);
}

TEST_F(Tick, RefreshesWithoutAskingSwitchesWhenTheClockWasNeverSet)
{
    seconds(32, 1'508'689'532);
    EXPECT_EQ(sdk.asked("getassociation", 256), 0u);
    EXPECT_EQ(sdk.asked("getswitch", 256), 0u);
    EXPECT_EQ(sdk.asked("getdevice", 256), 1u);
    EXPECT_EQ(startupRefreshPending, 0);
}

TEST_F(Tick, DoesNeitherAtTheVeryBorderOfTheClock)
{
    appstart_time_flag = 1;
    seconds(40, 1'508'689'533);
    EXPECT_EQ(sdk.asked("getdevice", 256), 0u);
    EXPECT_EQ(startupRefreshPending, 1);
    second(1'508'689'534);
    EXPECT_EQ(sdk.asked("getdevice", 256), 1u);
}

TEST_F(Tick, RefreshesNothingWithASetClockThatNobodyReported)
{
    seconds(32);
    EXPECT_EQ(sdk.asked("getdevice", 256), 0u);
    EXPECT_EQ(startupRefreshPending, 0);
}

TEST_F(Tick, RunsTheMinuteBlockEverySixtySeconds)
{
    startupRefreshPending = 0;
    seconds(60);
    EXPECT_EQ(sdk.asked("getZWID", 0), 0u);
    second();
    EXPECT_EQ(sdk.asked("getZWID", 0), 1u);
    EXPECT_EQ(counters().watchdogCount, 1);
    EXPECT_EQ(logged("Watch dog count 60, abort count =0 appstart_time_flag=0\n"), 1u);
    seconds(59);
    EXPECT_EQ(sdk.asked("getZWID", 0), 1u);
    second();
    EXPECT_EQ(sdk.asked("getZWID", 0), 2u);
}

TEST_F(Tick, KicksTheWatchdogOnlyWhenTheSdkDaemonAnswers)
{
    minutes(1);
    hearEverything();
    ASSERT_EQ(sdk.kicks().size(), 1u);
    EXPECT_EQ(sdk.kicks()[0].number, 77u);
    EXPECT_EQ(sdk.kicks()[0].signature, "q");
    sdk.leave();
    minutes(1);
    sdk.join(busThread, bus.address());
    hearEverything();
    EXPECT_EQ(sdk.kicks().size(), 1u);
}

TEST_F(Tick, CountsThirtyMinutesFromThirty)
{
    minutes(1);
    EXPECT_EQ(counters().minuteCount, 0);  // 31 was reset
    EXPECT_EQ(logged("resettime1440= 31  hour = 0 gateway_app_star2 =1\n"), 1u);
    minutes(29);
    EXPECT_EQ(counters().minuteCount, 29);
    minutes(1);
    EXPECT_EQ(counters().minuteCount, 0);
}

TEST_F(Tick, TakesTheGatewayForStartedInItsFourthMinute)
{
    appstart_time_flag = 1;
    minutes(4);  // 31 → 0, 1, 2, 3
    EXPECT_EQ(gateway_app_star2, 0);
    minutes(1);
    EXPECT_EQ(gateway_app_star2, 1);
}

TEST_F(Tick, TakesTheGatewayForStartedAtOnceWhenTheClockWasNotSet)
{
    appstart_time_flag = 0;
    minutes(1);
    EXPECT_EQ(gateway_app_star2, 1);
}

TEST_F(Tick, SendsAbortEveryFifthMinute)
{
    minutes(4);
    EXPECT_EQ(sdk.asked("abort", 256), 0u);
    minutes(1);
    EXPECT_EQ(sdk.asked("abort", 256), 1u);
    minutes(4);
    EXPECT_EQ(sdk.asked("abort", 256), 1u);
    minutes(1);
    EXPECT_EQ(sdk.asked("abort", 256), 2u);
}

TEST_F(Tick, DoesTheHousekeepingEveryTenthTime)
{
    const MutexLock lock(tick_mutex);
    for (int i = 0; i < 9; ++i)
        do_scene_schedule(SIGALRM);
    EXPECT_EQ(tickCounters.watchdogCount, 0);
    EXPECT_EQ(tickCounters.scene_init_index, 9);
    do_scene_schedule(SIGALRM);
    EXPECT_EQ(tickCounters.watchdogCount, 1);
    EXPECT_EQ(tickCounters.scene_init_index, 0);
    ualarm(0, 0);
}

TEST_F(Tick, DoesNothingElseWhileTheReplyCheckIsArmed)
{
    {
        const MutexLock lock(scene_int_mutex);
        replyCheck.armed = true;
    }
    second();
    EXPECT_EQ(counters().watchdogCount, 0);
    seconds(2);  // the third idle tick disarms it
    second();
    EXPECT_EQ(counters().watchdogCount, 1);
}

class Alarm95 : public testing::Test {
protected:
    void SetUp() override
    {
        sigset_t alarmSignal;
        sigemptyset(&alarmSignal);
        sigaddset(&alarmSignal, SIGALRM);
        pthread_sigmask(SIG_BLOCK, &alarmSignal, nullptr);
    }
    void TearDown() override
    {
        ualarm(0, 0);
        comesWithin({});
    }
    static bool comesWithin(timespec time)
    {
        sigset_t alarmSignal;
        sigemptyset(&alarmSignal);
        sigaddset(&alarmSignal, SIGALRM);
        return sigtimedwait(&alarmSignal, nullptr, &time) == SIGALRM;
    }
    useconds_t leftAfterPause(useconds_t armed)
    {
        ualarm(armed, 0);
        {
            const TickPause pause;
            EXPECT_EQ(ualarm(0, 0), 0u);  // nothing is armed meanwhile
        }
        return ualarm(0, 0);
    }
};

TEST_F(Alarm95, IsArmedAnewAfterAPauseWithWhatWasLeft)
{
    const useconds_t left = leftAfterPause(900'000);
    EXPECT_GT(left, 500'000u);
    EXPECT_LE(left, 900'000u);
}

TEST_F(Alarm95, ThatIsAllButDueIsNotPutOff)
{
    static constexpr useconds_t LONGEST = 100;
    static constexpr timespec LESS_THAN_A_TICK = {0, 50'000'000};
    for (useconds_t i = 0; i < 50 * LONGEST && !HasFailure(); ++i) {
        ualarm(1 + i % LONGEST, 0);
        {
            const TickPause pause;
        }
        EXPECT_TRUE(comesWithin(LESS_THAN_A_TICK));
        ualarm(0, 0);
    }
}

TEST_F(Alarm95, IsArmedForAWholeTickWhenNothingWasLeft)
{
    const useconds_t left = leftAfterPause(0);
    EXPECT_GT(left, 6u);
    EXPECT_LE(left, 95'000u);
}
