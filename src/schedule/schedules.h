// Schedules as actors: at the start minute the scene of the schedule's macro runs, after what its
// devices show was kept; at the end minute the devices are put back.
//
// Everything here sends "getdevice" to the SDK daemon where devices' values are kept, and waits for
// the replies.

#pragma once

#include "config/schedule.h"

#include <apr_pools.h>
#include <ctime>

// Each returns 1 when it acted. The caller holds schedulesList_mutex; they lock scenesList_mutex
// and resumeScheduleList_mutex.
int matchScheduleStartTime(apr_pool_t *pool, const Schedule *schedule, const tm &local);
int matchScheduleEndTime(apr_pool_t *pool, const Schedule *schedule, const tm &local);

// The same for every enabled schedule of the list: 1 when any acted.
int checkAllSchedulesStartTime(apr_pool_t *pool, ListNode *head, const tm &local);
int checkAllSchedulesEndTime(apr_pool_t *pool, ListNode *head, const tm &local);

// Starts and ends what is due this minute. Run on the main thread when SIGUSR1 asks for it; the
// platform does so once a minute. Locks what it needs.
void doSchedules();
