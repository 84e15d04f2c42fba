// The named mutexes, the order in which they are taken, and the guard that holds one.

#pragma once

#include <ctime>
#include <pthread.h>

#ifdef __clang__
#define LOCKING(attribute) __attribute__((attribute))
#else
#define LOCKING(attribute)
#endif

// clang-format off
typedef pthread_mutex_t LOCKING(capability("mutex")) Mutex;
// clang-format on

// The plain calls, for the few places that cannot use the guard. A build with APP_LOCK_ORDER_CHECK
// notes who holds what and aborts on the first pair that is taken in both orders.
void lockMutex(Mutex &mutex) LOCKING(acquire_capability(mutex));
void unlockMutex(Mutex &mutex) LOCKING(release_capability(mutex));

class LOCKING(scoped_lockable) MutexLock {
public:
    explicit MutexLock(Mutex &taken) LOCKING(acquire_capability(taken)) : mutex(taken)
    {
        lockMutex(mutex);
    }
    ~MutexLock() LOCKING(release_capability())
    {
        unlockMutex(mutex);
    }
    MutexLock(const MutexLock &) = delete;
    MutexLock &operator=(const MutexLock &) = delete;

private:
    Mutex &mutex;
};

// A condition variable on the monotonic clock: setting the wall clock neither shortens nor
// stretches a wait.
class Condition {
public:
    Condition() noexcept;
    // The caller holds `mutex`. May return early, as condition variables do.
    void wait(Mutex &mutex) LOCKING(requires_capability(mutex));
    // As wait; false when `deadline` (monotonic) has passed.
    bool waitUntil(Mutex &mutex, const timespec &deadline) LOCKING(requires_capability(mutex));
    void wakeAll();

private:
    pthread_cond_t condition;
};

// Now on the monotonic clock plus the given time.
timespec monotonicDeadline(const timespec &fromNow);
// What is left until then; nothing when it has passed.
timespec timeUntil(const timespec &deadline);

// The order of the locks, left before right:
//
//   equeue_mutex → tick_mutex → everything below
//   macroList → doSceneThrList → schedulesList | scenesList
//   resumeSceneList → doSceneThrList | scenesList
//   schedulesList → scenesList → resumeScheduleList → app_config
//   Macro_op → TheadList
//   scenesList | resumeSceneList | defaulSceneList | homeSceneResumeList → doscene_act | scene_int
//     → Macro_op
//   defaulSceneList → alarm | allDevs
//   pushDevList → sysCmdList | eventLog
//   app_config → settings
//
// Macro_op comes after every list of scenes or macros, for copying and freeing a scene takes it.
// Locks that are not named here are held alone, or last.

// One for each configuration list; the list heads are declared beside their records.
extern Mutex resumeSceneList_mutex;
extern Mutex defaulSceneList_mutex;
extern Mutex resumeScheduleList_mutex;
extern Mutex macroList_mutex;
extern Mutex scenesList_mutex;
extern Mutex schedulesList_mutex;
extern Mutex roomsList_mutex;
extern Mutex doSceneThrList_mutex;
extern Mutex homeSceneResumeList_mutex;
extern Mutex pushDevList_mutex;
extern Mutex targetNamesList_mutex;
extern Mutex camerasList_mutex;
extern Mutex app_config_mutex;  // reading and writing appSetup.json, and writing its neighbour
extern Mutex sysCmdList_mutex;
extern Mutex eventLog_mutex;
extern Mutex macroEventLog_mutex;
extern Mutex allDevs_mutex;
extern Mutex eventFilter_mutex;
extern Mutex scene_int_mutex;  // the reply check

// Not in the table of appPthreadMutexInit: they rely on their static initialisation.
extern Mutex Macro_op_mutex;     // a scene while it is copied, listed, freed or planned
extern Mutex doscene_act_mutex;  // the count of a scene's comps and its announcement
extern Mutex TheadList_mutex;    // the time-table
extern Mutex equeue_mutex;       // the event queue
extern Mutex tick_mutex;         // held by a tick and by an event, so that the two never interleave
extern Mutex macroEvent_mutex;   // one announcement of a macro event at a time
extern Mutex alarm_mutex;        // the alarm settings
extern Mutex settings_mutex;     // settings that are no plain integer
extern Mutex color_mutex;        // the colour components that were parsed last
extern Mutex reply_mutex;        // waiting for replies on the outbound connection
extern Mutex wait_mutex;         // interruptible waits

// Initialises the 19 mutexes of the table; ends the process when one cannot be. Called once, before
// the first thread.
void appPthreadMutexInit();
// Logs one line for each mutex of the table.
void showMutexAddr();
