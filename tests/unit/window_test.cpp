#include "schedule/window.h"

#include "daemon_in_process.h"

#include <cstring>

static int inWindow(const Schedule &schedule, int hour, int minute)
{
    tm local = {};
    local.tm_hour = hour;
    local.tm_min = minute;
    return inTime(local, schedule);
}

static Schedule window(int startHour, int startMinute, int endHour, int endMinute)
{
    Schedule schedule = {};
    schedule.start_hour = startHour;
    schedule.start_minute = startMinute;
    schedule.end_hour = endHour;
    schedule.end_minute = endMinute;
    return schedule;
}

TEST(Window, OverMidnightIncludesBothItsMinutes)
{
    const Schedule night = window(22, 0, 6, 0);
    EXPECT_EQ(inWindow(night, 21, 59), 0);
    EXPECT_EQ(inWindow(night, 22, 0), 1);
    EXPECT_EQ(inWindow(night, 23, 30), 1);
    EXPECT_EQ(inWindow(night, 0, 0), 1);
    EXPECT_EQ(inWindow(night, 6, 0), 1);
    EXPECT_EQ(inWindow(night, 6, 1), 0);
}

TEST(Window, OfOneHourDoesNotGoRoundMidnight)
{
    for (int minute = 0; minute < 24 * 60; ++minute)
        EXPECT_EQ(inWindow(window(10, 50, 10, 10), minute / 60, minute % 60), 0);
    EXPECT_EQ(inWindow(window(10, 10, 10, 50), 10, 10), 1);
    EXPECT_EQ(inWindow(window(10, 10, 10, 50), 10, 50), 1);
    EXPECT_EQ(inWindow(window(10, 10, 10, 50), 10, 51), 0);
}

TEST(Window, GatesTheMacroItNamesOnItsDaysWhileEnabled)
{
    Schedule schedule = window(8, 0, 17, 30);
    strcpy(schedule.macro, "M");
    schedule.enabled = 1;
    schedule.weekdays = 1 << 2;  // Tuesday
    ListNode head;
    listInit(&head);
    listAddTail(&schedule.node, &head);
    tm local = {};
    local.tm_hour = 12;
    local.tm_wday = 2;
    EXPECT_EQ(checkMacroInSchedules(&head, "M", local), 1);
    EXPECT_EQ(checkMacroInSchedules(&head, "m", local), 0);
    EXPECT_EQ(checkMacroInSchedules(&head, nullptr, local), 0);
    local.tm_wday = 3;
    EXPECT_EQ(checkMacroInSchedules(&head, "M", local), 0);
    local.tm_wday = 2;
    schedule.enabled = 0;
    EXPECT_EQ(checkMacroInSchedules(&head, "M", local), 0);
}
