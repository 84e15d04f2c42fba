#include "schedule/window.h"

#include <cstring>

int inTime(const tm &local, const Schedule &schedule)
{
    const Integer hour = local.tm_hour;
    const Integer minute = local.tm_min;
    // Deliberate: a window within one hour whose end is before its start is empty; it does not go
    // round midnight.
    if (schedule.start_hour == schedule.end_hour)
        return hour == schedule.start_hour && schedule.start_minute <= minute &&
               minute <= schedule.end_minute;

    const bool inFirstHour = hour == schedule.start_hour && minute >= schedule.start_minute;
    const bool inLastHour = hour == schedule.end_hour && minute <= schedule.end_minute;
    const bool between = schedule.end_hour > schedule.start_hour
                             ? schedule.start_hour < hour && hour < schedule.end_hour
                             : hour > schedule.start_hour || hour < schedule.end_hour;
    return inFirstHour || inLastHour || between;
}

bool isDaySelected(const Schedule &schedule, const tm &local)
{
    return ((schedule.weekdays >> local.tm_wday) & 1) != 0;
}

int TimeInSchedule(const Schedule &schedule, const tm &local)
{
    return isDaySelected(schedule, local) && inTime(local, schedule);
}

int checkMacroInSchedules(ListNode *head, const char *macroName, const tm &local)
{
    if (!macroName)
        return 0;
    for (const Schedule &schedule : ELEMENTS(Schedule, node, head)) {
        if (schedule.enabled != 0 && strcmp(schedule.macro, macroName) == 0 &&
            TimeInSchedule(schedule, local))
            return 1;
    }
    return 0;
}

int checkAlarmInSchedules(ListNode *head, const tm &local)
{
    for (const Schedule &schedule : ELEMENTS(Schedule, node, head)) {
        if (schedule.enabled != 0 && schedule.home_security_alarm == 1 &&
            TimeInSchedule(schedule, local))
            return 1;
    }
    return 0;
}
