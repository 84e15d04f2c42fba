// Daylight saving as the platform's settings say it: the tick reads them, the schedules follow.

#pragma once

#include <atomic>
#include <ctime>

extern std::atomic<int> enableDTS;  // in force
// The period, in local time.
extern std::atomic<int> save_start_month;
extern std::atomic<int> save_start_day;
extern std::atomic<int> save_start_hour;
extern std::atomic<int> save_end_month;
extern std::atomic<int> save_end_day;
extern std::atomic<int> save_end_hour;

// The hour that a schedule's start and end are compared with, 0..23: one later within the period.
// The date is not moved on.
int scheduleHour(const tm &local);
