// Macro threads from the inside: a macro with several triggers, which no request can make, and one
// whose thread could not be created.

#include "daemon_in_process.h"
#include "events/macro_thread.h"

#include <algorithm>
#include <apr_general.h>
#include <chrono>

using support::eventually;

class StartedMacro : public testing::Test {
protected:
    void SetUp() override
    {
        apr_initialize();
        listInit(&macros);
    }
    void TearDown() override
    {
        freeMacros(&macros);
    }
    struct TriggerSettings {
        Integer dev;
        Integer duration;
        Integer threshold;
    };
    void setUpMacro(const std::vector<TriggerSettings> &triggers)
    {
        const Value text(R"({"title":"M","scene":{"title":"S"},"duration":0})");
        setMacro(text, &macros);
        for (const TriggerSettings &settings : triggers) {
            Trigger *trigger = callocTrigger();
            trigger->target.dev = settings.dev;
            trigger->duration = settings.duration;
            trigger->threshold = settings.threshold;
            listAddTail(&trigger->node, &searchMacro(&macros, "M")->triggers);
        }
    }
    void setUpMacro(Integer triggerDuration)
    {
        setUpMacro({{.dev = 5, .duration = triggerDuration, .threshold = 1}});
    }
    void fire()
    {
        GetDev_dev device = {};
        listInit(&device.channels);
        const GetDev_channel channel = {};
        const MutexLock macroLock(macroList_mutex);
        const MutexLock threadLock(doSceneThrList_mutex);
        startMacroThread(*searchMacro(&macros, "M"), device, channel);
    }
    static int listedRecords()
    {
        const MutexLock lock(doSceneThrList_mutex);
        return getListObjNum(&doSceneThrListHead);
    }
    static size_t linesWith(const std::string &part)
    {
        const std::vector<std::string> texts = logTexts();
        return static_cast<size_t>(
            std::count_if(texts.begin(), texts.end(), [&](const std::string &text) {
                return text.find(part) != std::string::npos;
            }));
    }
    static size_t runs()
    {
        return linesWith("macro 'M' triggered, tid: ");
    }
    static bool eventuallyEnded(size_t threads)
    {
        return eventually([=] { return linesWith(" end\n") == threads; });
    }

    ListNode macros;
};

TEST_F(StartedMacro, WaitsForTheDurationOfItsFirstTrigger)
{
    setUpMacro(
        {{.dev = 6, .duration = 1, .threshold = 1}, {.dev = 5, .duration = 0, .threshold = 1}});
    const auto begin = std::chrono::steady_clock::now();
    fire();
    ASSERT_TRUE(eventuallyEnded(1));
    EXPECT_EQ(runs(), 1u);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::seconds(1));
}

TEST_F(StartedMacro, DoesNotWaitForTheDurationOfAnotherTrigger)
{
    setUpMacro(
        {{.dev = 6, .duration = 0, .threshold = 1}, {.dev = 5, .duration = 1000, .threshold = 1}});
    fire();
    EXPECT_TRUE(eventuallyEnded(1));
    EXPECT_EQ(runs(), 1u);
}

TEST_F(StartedMacro, PassesTheSensorValueOnByTheThresholdOfItsFirstTrigger)
{
    setUpMacro(
        {{.dev = 6, .duration = 0, .threshold = -1}, {.dev = 5, .duration = 0, .threshold = 1}});
    fire();
    ASSERT_TRUE(eventuallyEnded(1));
    EXPECT_EQ(logged("bypass sensor value, uid: 6\n"), 1u);
}

TEST_F(StartedMacro, KeepsItsScenesValuesWhateverTheThresholdOfAnotherTrigger)
{
    setUpMacro(
        {{.dev = 6, .duration = 0, .threshold = 1}, {.dev = 5, .duration = 0, .threshold = -1}});
    fire();
    ASSERT_TRUE(eventuallyEnded(1));
    EXPECT_EQ(linesWith("bypass sensor value"), 0u);
}

TEST_F(StartedMacro, WithoutATriggerRunsAtOnce)
{
    setUpMacro(std::vector<TriggerSettings>());
    fire();
    EXPECT_TRUE(eventuallyEnded(1));
    EXPECT_EQ(runs(), 1u);
}

class ThreadlessMacro : public StartedMacro {
protected:
    void fireInVain()
    {
        failThread(1);
        fire();
        EXPECT_EQ(logged("pthread_create fail\n"), ++failures);
    }
    size_t failures = 0;
};

TEST_F(ThreadlessMacro, IsLoggedAsAnErrorOfTheEvent)
{
    setUpMacro(0);
    fireInVain();
    const std::vector<LogLine> lines = logLines();
    EXPECT_THAT(lines, testing::Contains(LogLine{6, "doEvent", "pthread_create fail\n"}));
    EXPECT_EQ(listedRecords(), 1);
    EXPECT_EQ(runs(), 0u);
}

TEST_F(ThreadlessMacro, RunsAndEndsWithTheNextTrigger)
{
    setUpMacro(0);
    fireInVain();
    fire();
    ASSERT_TRUE(eventuallyEnded(1));
    EXPECT_EQ(runs(), 1u);
    EXPECT_EQ(linesWith("not found resume"), 0u);
    EXPECT_EQ(listedRecords(), 0) << "the record without a thread is gone, too";
    const MutexLock lock(resumeSceneList_mutex);
    EXPECT_TRUE(listEmpty(&resumeSceneListHead)) << "the macro is idle";
}

TEST_F(ThreadlessMacro, RunsAnewEachTime)
{
    setUpMacro(0);
    for (size_t round = 1; round <= 3; ++round) {
        fireInVain();
        fireInVain();
        EXPECT_EQ(listedRecords(), 1) << "one such record is enough";
        fire();
        ASSERT_TRUE(eventuallyEnded(round));
        EXPECT_EQ(runs(), round);
    }
}

TEST_F(ThreadlessMacro, DoesNotRetireTheThreadThatWaits)
{
    setUpMacro(1);
    fire();
    fireInVain();
    ASSERT_TRUE(eventuallyEnded(1));
    EXPECT_EQ(linesWith("outdated."), 0u);
    EXPECT_EQ(runs(), 1u);
    EXPECT_EQ(listedRecords(), 0);
}

TEST_F(ThreadlessMacro, DoesNotKeepTheLastThreadFromTheRestore)
{
    // Below zero the thread does not wait: it finds the other record when its own work is done.
    setUpMacro(-1);
    searchMacro(&macros, "M")->duration = -1;
    {
        const MutexLock lock(resumeSceneList_mutex);
        fire();
        fireInVain();
    }
    ASSERT_TRUE(eventuallyEnded(1));
    EXPECT_EQ(listedRecords(), 0);
    const MutexLock lock(resumeSceneList_mutex);
    EXPECT_TRUE(listEmpty(&resumeSceneListHead));
}

TEST_F(ThreadlessMacro, DoesNotKeepAThreadFromTheRestoreThatHasFoundItselfTheLast)
{
    setUpMacro(0);
    searchMacro(&macros, "M")->duration = 1;
    fire();
    ASSERT_TRUE(eventually([] { return linesWith("do sleep(control duration)") == 1; }));
    {
        const MutexLock lock(resumeSceneList_mutex);  // as another macro that asks for its devices
        ASSERT_TRUE(eventually([] { return linesWith("after control sleep") == 1; }));
        for (int i = 0; i < 300; ++i)  // longer than it takes from there to the lock
            fireInVain();
    }
    ASSERT_TRUE(eventuallyEnded(1));
    EXPECT_EQ(listedRecords(), 0);
    const MutexLock lock(resumeSceneList_mutex);
    EXPECT_TRUE(listEmpty(&resumeSceneListHead));
}
