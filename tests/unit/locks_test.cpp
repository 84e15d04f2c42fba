#include "main/locks.h"

#include "daemon_in_process.h"

TEST(MutexTable, NamesItsNineteenMutexes)
{
    appPthreadMutexInit();
    showMutexAddr();
    ASSERT_EQ(logLines().size(), 19u);
    EXPECT_THAT(logTexts().front(),
                testing::MatchesRegex("resumeSceneList_mutex addr: 0x[0-9a-f]+ 0x[0-9a-f]+\n"));
    EXPECT_THAT(logTexts()[1], testing::StartsWith("defaulSceneList_mutex addr: "));
    EXPECT_THAT(logTexts().back(), testing::StartsWith("scene_int_mutex addr: "));
}

#ifdef APP_LOCK_ORDER_CHECK

TEST(LockOrder, IsHeldToWhatIsPromised)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            const MutexLock first(scenesList_mutex);
            const MutexLock second(macroList_mutex);
        },
        testing::KilledBySignal(SIGABRT), "");
}

TEST(LockOrder, IsLearnedFromTheFirstRun)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    {
        const MutexLock first(camerasList_mutex);
        const MutexLock second(roomsList_mutex);
    }
    EXPECT_EXIT(
        {
            {
                const MutexLock first(camerasList_mutex);
                const MutexLock second(roomsList_mutex);
            }
            const MutexLock first(roomsList_mutex);
            const MutexLock second(camerasList_mutex);
        },
        testing::KilledBySignal(SIGABRT), "");
}

TEST(LockOrder, KeptIsNoComplaint)
{
    const MutexLock first(macroList_mutex);
    const MutexLock second(doSceneThrList_mutex);
    const MutexLock third(scenesList_mutex);
    const MutexLock fourth(Macro_op_mutex);
    EXPECT_TRUE(logLines().empty());
}

#endif
