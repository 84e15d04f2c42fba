// The reply check: verifies a scene's commands against the device events that come back, and runs
// the scene up to three times. Deliberate: nothing in the running system arms it; it acts once its
// record says so.
//
// unarmed → armed (someone fills the copies, freeing what the slots hold, and sets `armed`) →
// waiting for the expected events, one tick at a time → matched, failed after the third run, or run
// again, for which it has to be armed anew → unarmed.

#pragma once

#include "config/device.h"
#include "config/scene.h"

#include <apr_pools.h>

static constexpr int MAX_RUNS = 3;
static constexpr int MAX_QUEUED_SCENES = 2;
static constexpr int32_t COUNT_MARKER = 99;  // announced in place of a scene's ID

struct ReplyCheck {
    bool armed;       // events are awaited
    bool allReplied;  // every expected event has come
    bool busy;        // a check holds the runner: no other scene is started
    int waitedTicks;
    int idleTicks;
    int queuedCount;
    Scene *pendingOfRun[MAX_RUNS];  // owned copies: what the first, second and third run still wait
                                    // for
    Scene
        *rerun;  // owned copy: the scene as it is run again, and what its events are compared with
    Scene *queued[MAX_QUEUED_SCENES];  // owned copies: scenes that wait for the end of the check
};

extern ReplyCheck replyCheck LOCKING(guarded_by(scene_int_mutex));

// Locks of their own; the caller does not hold scene_int_mutex.
bool replyCheckIsArmed();
bool replyCheckIsBusy();
void forgetQueuedScenes();

// The counts that planning a scene starts anew. Takes no lock.
void resetMatchCounts();

// Compares a device event with what the check awaits. `channel` may be null.
void matchEvent(Integer gid, const GetDev_channel *channel);

// The check's step of each tick, while it is armed.
void stepReplyCheck(apr_pool_t *pool);
