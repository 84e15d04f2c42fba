// The waits of macro threads, and what interrupts them.

#include "config/trigger_thread.h"
#include "daemon_in_process.h"
#include "events/macro_thread.h"
#include "main/waits.h"

#include <cstring>
#include <thread>

using namespace std::chrono_literals;
using support::eventually;

class MacroWait : public testing::Test {
protected:
    TriggerThrData *list(const char *title)
    {
        TriggerThrData *data = callocTriggerThrData();
        data->macro = callocMacro();
        strcpy(data->macro->title, title);
        const MutexLock lock(doSceneThrList_mutex);
        listAddTail(&data->node, &doSceneThrListHead);
        return data;
    }
    void TearDown() override
    {
        const MutexLock lock(doSceneThrList_mutex);
        for (TriggerThrData &data : ELEMENTS(TriggerThrData, node, &doSceneThrListHead))
            freeTriggerThrData(&data);
    }
    // Interrupts until the waiting thread has said so, for it may not wait yet.
    void interruptUntil(const std::string &line)
    {
        ASSERT_TRUE(eventually([&] {
            interruptWaits();
            for (const std::string &text : logTexts()) {
                if (text.find(line) != std::string::npos)
                    return true;
            }
            return false;
        }));
    }
};

TEST_F(MacroWait, GoesOnAfterAnInterruptionWhileItIsTheNewest)
{
    TriggerThrData *record = list("M");
    const auto begin = std::chrono::steady_clock::now();
    std::thread thread([&] { sceneThreadSleep(1, 0, record); });
    interruptUntil("remaining time: 0.");
    thread.join();
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 1s);
    EXPECT_EQ(record->outdated, 0);
}

TEST_F(MacroWait, EndsWhenANewerOneOfTheSameMacroIsListed)
{
    TriggerThrData *record = list("M");
    std::thread thread([&] { sceneThreadSleep(1000, 0, record); });
    interruptUntil("remaining time: ");
    list("other");
    interruptWaits();
    {
        const MutexLock lock(doSceneThrList_mutex);
        EXPECT_EQ(record->outdated, 0);
    }
    list("M");
    interruptUntil("outdated.\n");
    thread.join();
    EXPECT_EQ(record->outdated, 1);
}

TEST_F(MacroWait, NoticesAnInterruptionThatCameBeforeIt)
{
    TriggerThrData *record = list("M");
    list("M");
    interruptWait(record->wait);
    sceneThreadSleep(1000, 0, record);
    EXPECT_EQ(record->outdated, 1);
}

TEST_F(MacroWait, OfNegativeLengthIsNone)
{
    sceneThreadSleep(-5, 0, list("M"));
    EXPECT_TRUE(logLines().empty());
}

TEST_F(MacroWait, OfAnyLengthCanBeEnded)
{
    TriggerThrData *record = list("M");
    list("M");
    interruptWait(record->wait);
    sceneThreadSleep(9223372036854775807LL, 0, record);
    EXPECT_EQ(record->outdated, 1);
}

TEST_F(MacroWait, IsInterruptedForAllOtherThreadsOfAMacro)
{
    TriggerThrData *record = list("M");
    TriggerThrData *newest = list("M");
    std::thread thread([&] { sceneThreadSleep(1000, 0, record); });
    ASSERT_TRUE(eventually([&] {
        int_old_triggerThd(newest, "M");
        return logged("pthread_kill: No such process\n") > 0;  // the record has no thread
    }));
    thread.join();
    EXPECT_EQ(record->outdated, 1);
    int_old_triggerThd(newest, nullptr);
    EXPECT_EQ(logged("macroTitle is NULL\n"), 1u);
}

TEST(BypassedSensorValue, IsSetOnAllCommandsButTheSteps)
{
    struct Case {
        Integer sensor;
        Integer value;
    };
    for (const Case &expected : {Case{101, 100}, Case{102, 0}, Case{55, 55}, Case{-3, -3}}) {
        const Value text(
            R"({"comps":[{"target":{"dev":5},"value":7},{"target":{"dev":505},"value":7},
            {"target":{"dev":512},"value":7},{"target":{"dev":6},"value":7}]})");
        Scene *scene = setNewScene(text);
        GetDev_channel channel = {};
        channel.functype = 11;
        channel.sensorvalue = expected.sensor;
        byPassSensorVal(&channel, scene);
        std::vector<Integer> values;
        for (const Comp &comp : ELEMENTS(Comp, node, &scene->comps))
            values.push_back(comp.value);
        EXPECT_THAT(values, testing::ElementsAre(expected.value, 7, 7, expected.value));
        freeScene(scene);
    }
}

TEST(ResumeRecord, HoldsACopyOfTheSceneTheTitleAndTheNotifications)
{
    const Value text(R"({"title":"M","duration_type":7,"enabled_notifications":["pns","x"]})");
    ListNode macros;
    listInit(&macros);
    setMacro(text, &macros);
    const Value sceneText(R"({"title":"S","buildinSiren":{"siren_type":4}})");
    Scene *scene = setNewScene(sceneText);
    GetDev_channel channel = {};
    channel.functype = 256 + 13;
    const MutexLock lock(resumeSceneList_mutex);
    ResumeScene *resume = addResumeScene(nullptr, searchMacro(&macros, "M"), &channel, scene);
    EXPECT_EQ(searchResumeScene(&resumeSceneListHead, "M"), resume);
    EXPECT_NE(resume->scene, scene);
    EXPECT_STREQ(resume->scene->title, "S");
    EXPECT_EQ(resume->scene->buildinSiren->siren_type, 0);
    EXPECT_STREQ(resume->enabled_notifications[0], "pns");
    EXPECT_EQ(resume->enabled_notifications[2], nullptr);
    EXPECT_EQ(resume->triggerFunctionType, 13);
    freeResumeScene(resume);
    freeScene(scene);
    freeMacros(&macros);
}
