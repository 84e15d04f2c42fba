// Who waits for which lock of the configuration, and what is free meanwhile.

#include "config/alarm.h"
#include "config/camera.h"
#include "config/document.h"
#include "config/event_filter.h"
#include "config/lists.h"
#include "config/macro.h"
#include "config/reg_device.h"
#include "config/room.h"
#include "config/scene.h"
#include "config/schedule.h"
#include "config/target_comp.h"
#include "config/target_name.h"
#include "daemon_in_process.h"
#include "main/locks.h"

#include <atomic>
#include <functional>
#include <iterator>
#include <thread>

struct LockedList {
    const char *name;
    Mutex *mutex;
    ListNode *head;
};

// In the order in which the whole configuration is emptied.
static const LockedList LISTS[] = {
    {"timeTable", &TheadList_mutex, &TheadListHead},
    {"macros", &macroList_mutex, &macrosListHead},
    {"scenes", &scenesList_mutex, &scenesListHead},
    {"schedules", &schedulesList_mutex, &schedulesListHead},
    {"rooms", &roomsList_mutex, &roomsListHead},
    {"cameras", &camerasList_mutex, &camerasListHead},
    {"targetNames", &targetNamesList_mutex, &targetNamesListHead},
    {"eventFilter", &eventFilter_mutex, &eventFilterListHead},
    {"registeredDevices", &pushDevList_mutex, &pushDevsListHead},
};

// Those that are in the document: all but the time-table.
static const auto DOCUMENT_LISTS = std::vector(std::begin(LISTS) + 1, std::end(LISTS));

// The C library marks a mutex for which a thread sleeps; nothing else tells that it does.
static bool sleepsFor(const Mutex &mutex)
{
    static constexpr int LOCKED_AND_WAITED_FOR = 2;
    return __atomic_load_n(&mutex.__data.__lock, __ATOMIC_ACQUIRE) == LOCKED_AND_WAITED_FOR;
}

// Without waiting, and outside the check of the lock order.
static bool isFree(Mutex &mutex)
{
    if (pthread_mutex_trylock(&mutex) != 0)
        return false;
    pthread_mutex_unlock(&mutex);
    return true;
}

// Runs work on a thread of its own while a mutex is held.
class WorkBehindALock {
public:
    WorkBehindALock(Mutex &held, const std::function<void()> &work) : mutex(held)
    {
        lockMutex(mutex);
        thread = std::jthread([this, work] {
            work();
            done = true;
            support::somethingChanged();
        });
    }
    ~WorkBehindALock()
    {
        release();
    }
    // True when the work has come to the mutex; false when it was done without, or never came.
    bool waits()
    {
        return support::eventually([&] { return done || sleepsFor(mutex); }) && !done;
    }
    bool isDone() const
    {
        return done;
    }
    void release()
    {
        if (!released)
            unlockMutex(mutex);
        released = true;
    }
    void finish()
    {
        release();
        thread.join();
    }

private:
    Mutex &mutex;
    std::atomic<bool> done = false;
    bool released = false;
    std::jthread thread;
};

static int elements(const LockedList &list)
{
    if (pthread_mutex_trylock(list.mutex) != 0)
        return -1;
    const int count = getListObjNum(list.head);
    pthread_mutex_unlock(list.mutex);
    return count;
}

static void expectAllFreeBut(const Mutex &held)
{
    for (const LockedList &list : LISTS) {
        if (list.mutex != &held) {
            EXPECT_TRUE(isFree(*list.mutex)) << list.name;
        }
    }
    EXPECT_TRUE(isFree(alarm_mutex));
    EXPECT_TRUE(isFree(Macro_op_mutex));
}

static const char *const ONE_OF_EVERYTHING = R"({"targetNames":{"a":"b"},"cameras":[{"uid":"u"}],
    "macros":[{"title":"M","scene":{"title":"own"},"triggers":[{"target":{"dev":1}}]}],
    "scenes":[{"title":"S"}],"schedules":[{"title":"T","macro":"M"}],"rooms":[{"title":"R"}],
    "eventFilter":[{"uid":1}],"registeredDevices":[{"token":"t"}],"alarm":{"enabled":1}})";

static constexpr auto caseName = [](const auto &info) { return std::string(info.param.name); };

class DocumentList : public testing::TestWithParam<LockedList> {};

TEST_P(DocumentList, IsBuiltUnderItsOwnMutexAlone)
{
    parseAll(ONE_OF_EVERYTHING);
    std::string text;
    WorkBehindALock building(*GetParam().mutex, [&] { text = takeText(getAllAppConfig()); });
    ASSERT_TRUE(building.waits());
    expectAllFreeBut(*GetParam().mutex);
    EXPECT_FALSE(building.isDone());
    building.finish();
    EXPECT_EQ(text, takeText(getAllAppConfig()));
}

TEST_P(DocumentList, IsSetUnderItsOwnMutexAlone)
{
    WorkBehindALock setting(*GetParam().mutex, [] { parseAll(ONE_OF_EVERYTHING); });
    ASSERT_TRUE(setting.waits());
    expectAllFreeBut(*GetParam().mutex);
    EXPECT_EQ(getListObjNum(GetParam().head), 0);
    EXPECT_FALSE(setting.isDone());
    setting.finish();
    EXPECT_EQ(getListObjNum(GetParam().head), 1);
}

INSTANTIATE_TEST_SUITE_P(Each, DocumentList, testing::ValuesIn(DOCUMENT_LISTS), caseName);

TEST(MacroOfASchedule, IsLookedForBeforeTheSchedulesAreLocked)
{
    WorkBehindALock setting(macroList_mutex,
                            [] { parseAll(R"({"schedules":[{"title":"T","macro":"M"}]})"); });
    ASSERT_TRUE(setting.waits());
    expectAllFreeBut(macroList_mutex);
}

class ConfigurationList : public testing::TestWithParam<LockedList> {};

TEST_P(ConfigurationList, IsEmptiedUnderItsOwnMutexInItsTurn)
{
    parseAll(ONE_OF_EVERYTHING);
    listAddTail(&callocTARGET_Comp()->node, &TheadListHead);
    WorkBehindALock emptying(*GetParam().mutex, freeAppConfigList);
    ASSERT_TRUE(emptying.waits());
    bool its = false;
    for (const LockedList &list : LISTS) {
        if (list.mutex == GetParam().mutex) {
            EXPECT_EQ(getListObjNum(list.head), 1);
            its = true;
        } else {
            EXPECT_EQ(elements(list), its ? 1 : 0) << list.name;
        }
    }
    emptying.finish();
    for (const LockedList &list : LISTS)
        EXPECT_EQ(elements(list), 0) << list.name;
}

INSTANTIATE_TEST_SUITE_P(Each, ConfigurationList, testing::ValuesIn(LISTS), caseName);

TEST(AlarmSettings, AreFreedLast)
{
    parseAll(ONE_OF_EVERYTHING);
    WorkBehindALock emptying(alarm_mutex, freeAppConfigList);
    ASSERT_TRUE(emptying.waits());
    for (const LockedList &list : LISTS)
        EXPECT_EQ(elements(list), 0) << list.name;
    EXPECT_NE(ovrinAlarm, nullptr);
    emptying.finish();
    EXPECT_EQ(ovrinAlarm, nullptr);
}

class SceneAtWork : public testing::Test {
protected:
    void SetUp() override
    {
        const Value text(R"({"title":"S","comps":[{"target":{"dev":1},"value":2}]})");
        scene = setNewScene(text);
        forgetLog();
    }
    // That work waits until whoever is at the scene has left it.
    static void expectToWait(const std::function<void()> &work)
    {
        WorkBehindALock waiting(Macro_op_mutex, work);
        EXPECT_TRUE(waiting.waits());
        waiting.finish();
        EXPECT_TRUE(isFree(Macro_op_mutex));
    }

    Scene *scene = nullptr;
};

TEST_F(SceneAtWork, IsNotCopied)
{
    Scene *copy = nullptr;
    expectToWait([&] { copy = copyScene(scene); });
    EXPECT_EQ(getListObjNum(&copy->comps), 1);
    freeScene(copy);
    freeScene(scene);
}

TEST_F(SceneAtWork, IsNotListed)
{
    expectToWait([&] { listScene(scene); });
    EXPECT_EQ(logLines().size(), 2u);  // the scene and its comp
    freeScene(scene);
}

TEST_F(SceneAtWork, IsNotFreed)
{
    ListNode scenes;
    listInit(&scenes);
    listAddTail(&scene->node, &scenes);
    {
        WorkBehindALock freeing(Macro_op_mutex, [&] { freeScene(scene); });
        ASSERT_TRUE(freeing.waits());
        EXPECT_EQ(searchScene(&scenes, "S"), scene);
        EXPECT_EQ(getListObjNum(&scene->comps), 1);
    }
    EXPECT_TRUE(listEmpty(&scenes));
    EXPECT_TRUE(isFree(Macro_op_mutex));
}

TEST_F(SceneAtWork, IsNotCopiedListedOrFreedWithItsMacro)
{
    Macro *macro = callocMacro();
    macro->scene = scene;
    ListNode macros;
    listInit(&macros);
    listAddTail(&macro->node, &macros);
    Macro *copy = nullptr;
    expectToWait([&] { copy = copyMacro(macro); });
    expectToWait([&] { listMacros(&macros); });
    expectToWait([&] { freeMacros(&macros); });
    freeMacro(&copy->node);
}
