// A schedule's weekly window as a gate. The local time is an argument; the caller holds
// schedulesList_mutex for a list.

#pragma once

#include "config/schedule.h"

#include <ctime>

// 1 when the time of day lies in the schedule's window, both ends included.
int inTime(const tm &local, const Schedule &schedule);

// Whether the bit of the day of the week is set, Sunday first.
bool isDaySelected(const Schedule &schedule, const tm &local);

// 1 when the day of the week is selected and the time of day lies in the window.
int TimeInSchedule(const Schedule &schedule, const tm &local);

// 1 when some enabled schedule that names the macro has the given time in its window; 0 also for a
// null name.
int checkMacroInSchedules(ListNode *head, const char *macroName, const tm &local);

// 1 when some enabled home-security schedule has the given time in its window.
int checkAlarmInSchedules(ListNode *head, const tm &local);
