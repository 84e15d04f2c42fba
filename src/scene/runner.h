// Running a scene. Its commands are not sent at once: each is planned at a millisecond of the
// time-table, and the tick sends what has fallen due, one command a check.
//
// idle → planned (doScene_next) → draining, one entry a check → idle, a gap and one second after
// the last planned time.

#pragma once

#include "config/scene.h"

#include <apr_pools.h>
#include <atomic>
#include <cstdint>

static constexpr int DEFAULT_GAP_MILLISECONDS = 200;

extern std::atomic<int32_t> scene_time_index;  // gap between commands, ms
extern std::atomic<uint32_t> last_time;      // planned time of the latest queued command, ms stamp
extern std::atomic<int32_t> sceneCompCount;  // comps of the scene being run
extern std::atomic<int32_t> sceneHasWaitStep;  // a run scene contains a wait step: no reply check
extern std::atomic<int32_t> sceneID;           // announced to device 511
extern std::atomic<int32_t> sceneIdMarker;     // 99 when a count was announced in place of an ID
extern std::atomic<int32_t> scene_device_number_total;
extern std::atomic<int32_t> scene_device_success_number;
extern std::atomic<int32_t> deoscene_n_run;  // which run of the scene is under way: 1, 2 or 3
extern std::atomic<int32_t> scene_success;
extern std::atomic<int32_t> scene_exec_check_enable;

// last_time as it was when commands were planned last, sign-extended: the event logs report it.
long long json_last_time();

// The wall clock's stamp: (seconds mod 1,000,000) × 1000 + milliseconds.
uint32_t millisecondStamp();

// Announces and plans a scene. Returns when it is planned. The caller owns the scene or holds what
// guards it.
void doScene(apr_pool_t *pool, Scene *scene);

// Plans the scene's comps into the time-table, from the given moment on.
void doScene_next(apr_pool_t *pool, Scene *scene, uint32_t now = millisecondStamp());

// From now to the planned time of the latest command; 0 when that has passed.
uint32_t millisecondsToLastCommand();

// The step of each tick: sends at most one command that is due. Called by the tick thread only.
void dispatchStep(uint32_t now);

// Forgets what is planned and the state of dispatching, as at start. For tests: neither a tick nor
// a planner may be at work.
void resetRunner();
