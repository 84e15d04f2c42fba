#include "main/locks.h"

#include "main/log.h"

#include <cstdio>
#include <cstdlib>

// Initialised by appPthreadMutexInit.
Mutex resumeSceneList_mutex;
Mutex defaulSceneList_mutex;
Mutex resumeScheduleList_mutex;
Mutex macroList_mutex;
Mutex scenesList_mutex;
Mutex schedulesList_mutex;
Mutex roomsList_mutex;
Mutex doSceneThrList_mutex;
Mutex homeSceneResumeList_mutex;
Mutex pushDevList_mutex;
Mutex targetNamesList_mutex;
Mutex camerasList_mutex;
Mutex app_config_mutex;
Mutex sysCmdList_mutex;
Mutex eventLog_mutex;
Mutex macroEventLog_mutex;
Mutex allDevs_mutex;
Mutex eventFilter_mutex;
Mutex scene_int_mutex;

Mutex Macro_op_mutex = PTHREAD_MUTEX_INITIALIZER;
Mutex doscene_act_mutex = PTHREAD_MUTEX_INITIALIZER;
Mutex TheadList_mutex = PTHREAD_MUTEX_INITIALIZER;
Mutex equeue_mutex = PTHREAD_MUTEX_INITIALIZER;
Mutex tick_mutex = PTHREAD_MUTEX_INITIALIZER;
Mutex macroEvent_mutex = PTHREAD_MUTEX_INITIALIZER;
Mutex alarm_mutex = PTHREAD_MUTEX_INITIALIZER;
Mutex settings_mutex = PTHREAD_MUTEX_INITIALIZER;
Mutex color_mutex = PTHREAD_MUTEX_INITIALIZER;
Mutex reply_mutex = PTHREAD_MUTEX_INITIALIZER;
Mutex wait_mutex = PTHREAD_MUTEX_INITIALIZER;

struct MutexEntry {
    const char *name;
    Mutex *mutex;
};
#define MUTEX_ENTRY(mutex)                                                                         \
    {                                                                                              \
#mutex, &(mutex)                                                                           \
    }

static constexpr MutexEntry MUTEX_TABLE[] = {
    MUTEX_ENTRY(resumeSceneList_mutex),
    MUTEX_ENTRY(defaulSceneList_mutex),
    MUTEX_ENTRY(resumeScheduleList_mutex),
    MUTEX_ENTRY(macroList_mutex),
    MUTEX_ENTRY(scenesList_mutex),
    MUTEX_ENTRY(schedulesList_mutex),
    MUTEX_ENTRY(roomsList_mutex),
    MUTEX_ENTRY(doSceneThrList_mutex),
    MUTEX_ENTRY(homeSceneResumeList_mutex),
    MUTEX_ENTRY(pushDevList_mutex),
    MUTEX_ENTRY(targetNamesList_mutex),
    MUTEX_ENTRY(camerasList_mutex),
    MUTEX_ENTRY(app_config_mutex),
    MUTEX_ENTRY(sysCmdList_mutex),
    MUTEX_ENTRY(eventLog_mutex),
    MUTEX_ENTRY(macroEventLog_mutex),
    MUTEX_ENTRY(allDevs_mutex),
    MUTEX_ENTRY(eventFilter_mutex),
    MUTEX_ENTRY(scene_int_mutex),
};

#ifdef APP_LOCK_ORDER_CHECK

static constexpr MutexEntry OTHER_MUTEXES[] = {
    MUTEX_ENTRY(Macro_op_mutex), MUTEX_ENTRY(doscene_act_mutex), MUTEX_ENTRY(TheadList_mutex),
    MUTEX_ENTRY(equeue_mutex),   MUTEX_ENTRY(tick_mutex),        MUTEX_ENTRY(macroEvent_mutex),
    MUTEX_ENTRY(alarm_mutex),    MUTEX_ENTRY(settings_mutex),    MUTEX_ENTRY(color_mutex),
    MUTEX_ENTRY(reply_mutex),    MUTEX_ENTRY(wait_mutex),
};

// The promised order, which a run need not have met yet to be held to it.
static constexpr Mutex *PROMISED[][2] = {
    {&equeue_mutex, &tick_mutex},
    {&macroList_mutex, &doSceneThrList_mutex},
    {&doSceneThrList_mutex, &schedulesList_mutex},
    {&doSceneThrList_mutex, &scenesList_mutex},
    {&resumeSceneList_mutex, &doSceneThrList_mutex},
    {&resumeSceneList_mutex, &scenesList_mutex},
    {&schedulesList_mutex, &scenesList_mutex},
    {&scenesList_mutex, &resumeScheduleList_mutex},
    {&resumeScheduleList_mutex, &app_config_mutex},
    {&scenesList_mutex, &Macro_op_mutex},
    {&resumeScheduleList_mutex, &Macro_op_mutex},
    {&homeSceneResumeList_mutex, &doscene_act_mutex},
    {&homeSceneResumeList_mutex, &Macro_op_mutex},
    {&defaulSceneList_mutex, &doscene_act_mutex},
    {&defaulSceneList_mutex, &alarm_mutex},
    {&defaulSceneList_mutex, &allDevs_mutex},
    {&defaulSceneList_mutex, &Macro_op_mutex},
    {&scene_int_mutex, &Macro_op_mutex},
    {&scenesList_mutex, &scene_int_mutex},
    {&scenesList_mutex, &doscene_act_mutex},
    {&resumeSceneList_mutex, &scene_int_mutex},
    {&resumeSceneList_mutex, &doscene_act_mutex},
    {&Macro_op_mutex, &TheadList_mutex},
    {&pushDevList_mutex, &sysCmdList_mutex},
    {&app_config_mutex, &settings_mutex},
};

static constexpr int MAX_MUTEXES = 40;
static constexpr int MAX_HELD = 16;

static pthread_mutex_t order_mutex = PTHREAD_MUTEX_INITIALIZER;
static const MutexEntry *known[MAX_MUTEXES];  // guarded by order_mutex, as is all below
static int knownCount;
static bool before[MAX_MUTEXES][MAX_MUTEXES];  // before[a][b]: a has been, or is promised to be,
                                               // held when b is taken

static thread_local Mutex *held[MAX_HELD];
static thread_local int heldCount;

static int indexOf(const Mutex *mutex)
{
    for (int i = 0; i < knownCount; ++i) {
        if (known[i]->mutex == mutex)
            return i;
    }
    return -1;
}

static void learnPromisedOrder()
{
    for (const MutexEntry &entry : MUTEX_TABLE)
        known[knownCount++] = &entry;
    for (const MutexEntry &entry : OTHER_MUTEXES)
        known[knownCount++] = &entry;
    for (int i = 0; i < knownCount; ++i) {
        if (known[i]->mutex != &equeue_mutex && known[i]->mutex != &tick_mutex)
            before[indexOf(&tick_mutex)][i] = true;
    }
    for (const auto &pair : PROMISED)
        before[indexOf(pair[0])][indexOf(pair[1])] = true;
}

static bool leadsTo(int from, int to, bool (&visited)[MAX_MUTEXES])
{
    if (from == to)
        return true;
    visited[from] = true;
    for (int next = 0; next < knownCount; ++next) {
        if (before[from][next] && !visited[next] && leadsTo(next, to, visited))
            return true;
    }
    return false;
}

static void noteTaking(Mutex &mutex)
{
    pthread_mutex_lock(&order_mutex);
    if (knownCount == 0)
        learnPromisedOrder();
    const int taken = indexOf(&mutex);
    for (int i = 0; i < heldCount && taken >= 0; ++i) {
        const int holding = indexOf(held[i]);
        bool visited[MAX_MUTEXES] = {};
        if (holding >= 0 && leadsTo(taken, holding, visited)) {
            LOG(ERROR, "lock order: %s is taken while %s is held\n", known[taken]->name,
                known[holding]->name);
            abort();
        }
        if (holding >= 0)
            before[holding][taken] = true;
    }
    pthread_mutex_unlock(&order_mutex);
    if (heldCount < MAX_HELD)
        held[heldCount++] = &mutex;
}

static void noteReleasing(const Mutex &mutex)
{
    for (int i = heldCount - 1; i >= 0; --i) {
        if (held[i] == &mutex) {
            for (--heldCount; i < heldCount; ++i)
                held[i] = held[i + 1];
            return;
        }
    }
}

#else

static void noteTaking(Mutex &)
{
}

static void noteReleasing(const Mutex &)
{
}

#endif

// The two below are what the analysis takes for granted; it cannot look into them.
LOCKING(no_thread_safety_analysis)
void lockMutex(Mutex &mutex)
{
    noteTaking(mutex);
    pthread_mutex_lock(&mutex);
}

LOCKING(no_thread_safety_analysis)
void unlockMutex(Mutex &mutex)
{
    pthread_mutex_unlock(&mutex);
    noteReleasing(mutex);
}

Condition::Condition() noexcept
{
    pthread_condattr_t attributes;
    pthread_condattr_init(&attributes);
    pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
    pthread_cond_init(&condition, &attributes);
    pthread_condattr_destroy(&attributes);
}

void Condition::wait(Mutex &mutex)
{
    pthread_cond_wait(&condition, &mutex);
}

bool Condition::waitUntil(Mutex &mutex, const timespec &deadline)
{
    return pthread_cond_timedwait(&condition, &mutex, &deadline) == 0;
}

void Condition::wakeAll()
{
    pthread_cond_broadcast(&condition);
}

static constexpr long NANOSECONDS = 1'000'000'000;

timespec monotonicDeadline(const timespec &fromNow)
{
    timespec deadline;
    clock_gettime(CLOCK_MONOTONIC, &deadline);
    deadline.tv_sec += fromNow.tv_sec;
    deadline.tv_nsec += fromNow.tv_nsec;
    if (deadline.tv_nsec >= NANOSECONDS) {
        deadline.tv_nsec -= NANOSECONDS;
        ++deadline.tv_sec;
    }
    return deadline;
}

timespec timeUntil(const timespec &deadline)
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    timespec left = {deadline.tv_sec - now.tv_sec, deadline.tv_nsec - now.tv_nsec};
    if (left.tv_nsec < 0) {
        left.tv_nsec += NANOSECONDS;
        --left.tv_sec;
    }
    if (left.tv_sec < 0)
        left = {0, 0};
    return left;
}

void appPthreadMutexInit()
{
    for (const MutexEntry &entry : MUTEX_TABLE) {
        if (pthread_mutex_init(entry.mutex, nullptr) != 0) {
            LOG(ERROR, "Mutex initialization failed\n");
            exit(1);  // NOLINT(concurrency-mt-unsafe): no other thread runs yet
        }
    }
}

void showMutexAddr()
{
    for (const MutexEntry &entry : MUTEX_TABLE)
        LOG(DEBUG, "%s addr: 0x%x 0x%x\n", entry.name, logAddress(entry.mutex),
            logAddress(entry.mutex));
}
