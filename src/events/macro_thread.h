// Macro threads. Each trigger that fires starts one: it waits the trigger's duration, runs the
// macro's scene unless the scene is active, waits the control duration and, as the macro's last
// thread, puts the devices back.
//
// A macro is idle (no record, no resume scene) → waiting (records) → active (a resume scene exists:
// one thread has run the scene) → idle. A thread is waiting for its trigger → running or repeated →
// waiting for its control duration → ending; the newest thread wins, an older one that notices a
// newer is outdated and skips to its end.

#pragma once

#include "config/macro.h"
#include "config/resume.h"
#include "config/trigger_thread.h"

#include <apr_pools.h>

// Starts a thread for a macro whose trigger fired, with copies of what fired. The caller holds
// macroList_mutex and doSceneThrList_mutex.
void startMacroThread(const Macro &macro, const GetDev_dev &device, const GetDev_channel &channel)
    LOCKING(requires_capability(macroList_mutex, doSceneThrList_mutex));

// The thread's body; takes a TriggerThrData that is in doSceneThrListHead.
void *doSceneThread(void *record);

// Waits, unless a newer thread of the same macro exists when the wait is interrupted: then it marks
// the record outdated and returns at once. Locks doSceneThrList_mutex.
void sceneThreadSleep(Integer seconds, long nanoseconds, TriggerThrData *record);

// A new resume scene, already in resumeSceneListHead: a copy of `scene` that restores the present
// values. Null without memory. All but the pool may be null.
ResumeScene *addResumeScene(apr_pool_t *pool, const Macro *macro, const GetDev_channel *channel,
                            const Scene *scene) LOCKING(requires_capability(resumeSceneList_mutex));

// Sets the values of the scene's commands from the channel's: 100 for 101, 0 for 102, else as it
// is. Gap and wait steps keep theirs.
void byPassSensorVal(const GetDev_channel *channel, Scene *scene);

// Interrupts the waits of every other thread of the macro. The event path does not call it. Locks
// doSceneThrList_mutex.
void int_old_triggerThd(const TriggerThrData *record, const char *macroTitle);
