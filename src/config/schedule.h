// Schedules: weekly time windows that gate macros or run them. Nothing here locks its list but
// setSchedules, delSchedules and renameScheduleTitle; freeing and listing take Macro_op_mutex for
// the scenes of embedded macros; the caller holds schedulesList_mutex for the schedules list.

#pragma once

#include "config/macro.h"

struct Schedule {
    Text title;
    Text macro;  // title of a macro of the macros list; shown while it is not empty
    Text icon_name;
    Text icon;
    Integer enabled;
    Integer home_security_alarm;
    Integer repeat_type;
    Integer end_minute;
    Integer end_hour;
    Integer weekdays;  // bit 0 Sunday … bit 6 Saturday
    Integer start_hour;
    Integer end_day;
    Integer start_day;
    Integer start_minute;
    Integer end_month;
    Integer start_month;
    Integer invisible;
    ListNode macros;  // embedded macros; the first is the schedule's
    ListNode node;
};

extern ListNode schedulesListHead LOCKING(guarded_by(schedulesList_mutex));

Schedule *callocSchedule();
Schedule *searchSchedule(ListNode *head, const char *title);
void freeSchedule(Schedule *schedule);
void freeSchedules(ListNode *head);
void listSchedules(ListNode *head);

// 1 when something was stored or created, else 0. Locks schedulesList_mutex, and macroList_mutex
// before it.
int setSchedules(json_t *array);

// 1 when something was deleted, else 0. A schedule that does not exist ends it. Locks
// schedulesList_mutex.
int delSchedules(json_t *array);

// 1 when the title was changed, else 0. Locks schedulesList_mutex.
int renameScheduleTitle(const char *oldTitle, const char *newTitle);

json_t *scheduleToJson(const Schedule *schedule);
json_t *schedulesToJson(ListNode *head);
json_t *schedulesTitleToJson(ListNode *head);
