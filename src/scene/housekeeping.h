// The housekeeping of about once a second: the refresh after start-up, the minute's duties and the
// daily saves.

#pragma once

#include "main/locks.h"

#include <atomic>
#include <ctime>

extern std::atomic<int> startupRefreshPending;  // the start-up device refresh is still due
extern std::atomic<int>
    gateway_app_star2;  // the gateway counts as started: macros run, writes are accepted
extern std::atomic<int> secondsSinceLastEvent;  // kept for completeness; nothing reads it
extern std::atomic<int> sunrise;  // last announced times, seconds since the epoch; 0 when unknown
extern std::atomic<int> sunset;
extern std::atomic<int> astclockflag;  // the position has changed: the minute's duties are due now
extern std::atomic<int> setDSTflag;    // daylight saving is to be read anew

// Touched only while tick_mutex is held.
struct TickCounters {
    int scene_init_index;  // ticks since the last housekeeping
    int watchdogCount;     // seconds within the minute, 1..60; 0 only before the first
    int minuteCount;       // minutes, wraps at 30
    int abortCount;        // minutes since the last "abort", wraps at 5
    int dstReadMinute;     // the minuteCount at which the daylight-saving dates are read
    bool dstChanged;       // a change of enableDTS was seen
    int lastEnableDTS;     // as the last minute saw it
    bool flagofast;        // sun times have been announced
    bool saveAtOneArmed;   // "savedata" at 01:00 is still due
    bool saveAtThirteenArmed;
};
extern TickCounters tickCounters LOCKING(guarded_by(tick_mutex));

// The housekeeping of one second, at the given moment and its local time.
void scene_int(time_t now, const tm &local) LOCKING(requires_capability(tick_mutex));
