// A schedule's window, for every minute of a week, and the hour that daylight saving makes of the
// clock's.

#include "schedule/window.h"

#include "schedule/daylight_saving.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <tuple>
#include <vector>

static constexpr int DAY = 24 * 60;  // minutes
static constexpr int WEEK = 7 * DAY;
static constexpr int EVERY_DAY = 0x7F;

static tm timeOfWeek(int minuteOfWeek)
{
    tm local = {};
    local.tm_wday = minuteOfWeek / DAY;
    local.tm_hour = minuteOfWeek % DAY / 60;
    local.tm_min = minuteOfWeek % 60;
    return local;
}

struct Window {
    int start, end;  // minutes of the day

    Schedule schedule(int weekdays = EVERY_DAY) const
    {
        Schedule result = {};
        result.weekdays = weekdays;
        result.start_hour = start / 60;
        result.start_minute = start % 60;
        result.end_hour = end / 60;
        result.end_minute = end % 60;
        return result;
    }
};

// The definition, one minute after the other: from the start the clock is followed, over midnight
// too, until it has shown the end. Within one hour it is not followed over midnight.
static std::array<bool, DAY> minutesOf(const Window &window)
{
    std::array<bool, DAY> minutes{};
    if (window.start / 60 == window.end / 60 && window.end < window.start)
        return minutes;
    int minute = window.start;
    minutes[minute] = true;
    while (minute != window.end) {
        minute = (minute + 1) % DAY;
        minutes[minute] = true;
    }
    return minutes;
}

struct WindowKind {
    const char *name;
    std::vector<Window> windows;
};

static void PrintTo(const WindowKind &kind, std::ostream *out)
{
    *out << kind.name;
}

static constexpr int at(int hour, int minute)
{
    return hour * 60 + minute;
}

class WindowsOfTheWeek : public testing::TestWithParam<WindowKind> {};

TEST_P(WindowsOfTheWeek, HoldTheMinutesOfTheirDefinitionOnTheirDays)
{
    for (const Window &window : GetParam().windows) {
        const std::array<bool, DAY> minutes = minutesOf(window);
        for (const int weekdays : {EVERY_DAY, 0, 1, 1 << 6, 0x3E, 0x41, 0x15}) {
            const Schedule schedule = window.schedule(weekdays);
            int differences = 0;
            for (int minute = 0; minute < WEEK; ++minute) {
                const tm local = timeOfWeek(minute);
                const bool selected = (weekdays >> (minute / DAY)) % 2 == 1;
                differences += inTime(local, schedule) != (minutes[minute % DAY] ? 1 : 0);
                differences +=
                    TimeInSchedule(schedule, local) != (selected && minutes[minute % DAY] ? 1 : 0);
            }
            EXPECT_EQ(differences, 0)
                << "from " << window.start / 60 << ":" << window.start % 60 << " to "
                << window.end / 60 << ":" << window.end % 60 << " on the days " << weekdays;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    OfEveryKind, WindowsOfTheWeek,
    testing::Values(
        WindowKind{"OfTheSameHour",
                   {{at(10, 10), at(10, 50)}, {at(0, 0), at(0, 59)}, {at(23, 1), at(23, 59)}}},
        WindowKind{"OfOneMinute",
                   {{at(10, 10), at(10, 10)}, {at(0, 0), at(0, 0)}, {at(23, 59), at(23, 59)}}},
        WindowKind{"ReversedWithinAnHour",
                   {{at(10, 50), at(10, 10)}, {at(0, 1), at(0, 0)}, {at(23, 59), at(23, 0)}}},
        WindowKind{"OfTheSameDay",
                   {{at(8, 30), at(17, 15)},
                    {at(8, 50), at(9, 10)},
                    {at(8, 10), at(9, 50)},
                    {at(0, 0), at(23, 59)},
                    {at(8, 59), at(9, 0)},
                    {at(0, 30), at(1, 30)}}},
        WindowKind{"OverMidnight",
                   {{at(22, 0), at(6, 0)},
                    {at(23, 59), at(0, 0)},
                    {at(22, 50), at(21, 10)},
                    {at(9, 10), at(8, 50)},
                    {at(23, 0), at(0, 59)},
                    {at(1, 0), at(0, 0)},
                    {at(12, 1), at(11, 59)}}}),
    [](const auto &kind) { return std::string(kind.param.name); });

TEST(Window, OfAnyTwoHoursHoldsTheMinutesOfItsDefinition)
{
    static constexpr int MINUTES[] = {0, 29, 30, 59};
    for (int hours = 0; hours < 24 * 24; ++hours) {
        for (const int startMinute : MINUTES) {
            for (const int endMinute : MINUTES) {
                const Window window = {at(hours / 24, startMinute), at(hours % 24, endMinute)};
                const Schedule schedule = window.schedule();
                const std::array<bool, DAY> minutes = minutesOf(window);
                int differences = 0;
                for (int minute = 0; minute < DAY; ++minute)
                    differences +=
                        inTime(timeOfWeek(minute), schedule) != (minutes[minute] ? 1 : 0);
                ASSERT_EQ(differences, 0) << window.start << " to " << window.end;
            }
        }
    }
}

TEST(Window, IsOpenOnEveryCombinationOfDaysFromSundayOn)
{
    for (int weekdays = 0; weekdays <= EVERY_DAY; ++weekdays) {
        const Schedule schedule = Window{at(12, 0), at(12, 0)}.schedule(weekdays);
        for (int day = 0; day < 7; ++day) {
            tm noon = {};
            noon.tm_wday = day;
            noon.tm_hour = 12;
            const int bits[7] = {1, 2, 4, 8, 16, 32, 64};  // Sunday … Saturday
            EXPECT_EQ(TimeInSchedule(schedule, noon), (weekdays & bits[day]) != 0 ? 1 : 0)
                << weekdays << " on day " << day;
        }
    }
}

TEST(Window, OverMidnightIsOpenInTheMorningOfItsOwnDaysOnly)
{
    const Schedule sundays = Window{at(22, 0), at(6, 0)}.schedule(1);
    EXPECT_EQ(TimeInSchedule(sundays, timeOfWeek(at(5, 0))), 1) << "Sunday morning";
    EXPECT_EQ(TimeInSchedule(sundays, timeOfWeek(at(23, 0))), 1) << "Sunday night";
    EXPECT_EQ(TimeInSchedule(sundays, timeOfWeek(DAY + at(5, 0))), 0) << "Monday morning";
    EXPECT_EQ(TimeInSchedule(sundays, timeOfWeek(6 * DAY + at(23, 0))), 0) << "Saturday night";
}

// A list of two schedules, which a test may change.
class ScheduleList : public testing::Test {
protected:
    void SetUp() override
    {
        listInit(&head);
        for (Schedule *schedule : {&morning, &night}) {
            schedule->enabled = 1;
            schedule->home_security_alarm = 1;
            strcpy(schedule->macro, "Door");
            listAddTail(&schedule->node, &head);
        }
    }
    int gate(int minuteOfWeek, const char *macro = "Door")
    {
        return checkMacroInSchedules(&head, macro, timeOfWeek(minuteOfWeek));
    }
    int alarm(int minuteOfWeek)
    {
        return checkAlarmInSchedules(&head, timeOfWeek(minuteOfWeek));
    }

    ListNode head;
    Schedule morning = Window{at(6, 0), at(8, 0)}.schedule(0x3E);
    Schedule night = Window{at(22, 30), at(5, 0)}.schedule(0x41);
};

TEST_F(ScheduleList, IsInForceInEachMinuteInWhichOneOfItsSchedulesIs)
{
    const std::array<bool, DAY> mornings = minutesOf({at(6, 0), at(8, 0)});
    const std::array<bool, DAY> nights = minutesOf({at(22, 30), at(5, 0)});
    int open = 0;
    for (int minute = 0; minute < WEEK; ++minute) {
        const bool weekend = minute / DAY == 0 || minute / DAY == 6;
        const int expected = (weekend ? nights : mornings)[minute % DAY] ? 1 : 0;
        open += expected;
        ASSERT_EQ(gate(minute), expected) << minute;
        ASSERT_EQ(alarm(minute), expected) << minute;
    }
    EXPECT_EQ(open, 5 * 121 + 2 * (90 + 301));
}

TEST_F(ScheduleList, LeavesOutWhatIsNotEnabled)
{
    morning.enabled = 0;
    EXPECT_EQ(gate(DAY + at(7, 0)), 0);
    EXPECT_EQ(alarm(DAY + at(7, 0)), 0);
    for (const int enabled : {2, -1, 255}) {  // any number but 0
        morning.enabled = enabled;
        EXPECT_EQ(gate(DAY + at(7, 0)), 1) << enabled;
        EXPECT_EQ(alarm(DAY + at(7, 0)), 1) << enabled;
    }
}

TEST_F(ScheduleList, GuardsTheHomeByItsHomeSecuritySchedulesAlone)
{
    for (const int mark : {0, 2, -1, 3}) {  // any number but 1
        morning.home_security_alarm = mark;
        EXPECT_EQ(alarm(DAY + at(7, 0)), 0) << mark;
        EXPECT_EQ(gate(DAY + at(7, 0)), 1) << mark;
    }
    EXPECT_EQ(alarm(at(23, 0)), 1) << "the other one still does";
}

TEST_F(ScheduleList, GuardsTheHomeWhateverMacroItsSchedulesName)
{
    morning.macro[0] = '\0';
    EXPECT_EQ(alarm(DAY + at(7, 0)), 1);
    EXPECT_EQ(gate(DAY + at(7, 0)), 0);
}

TEST_F(ScheduleList, GatesTheMacroThatItsSchedulesName)
{
    strcpy(night.macro, "Window");
    EXPECT_EQ(gate(at(23, 0), "Window"), 1);
    EXPECT_EQ(gate(at(23, 0), "Door"), 0);
    EXPECT_EQ(gate(at(23, 0), "window"), 0);
    EXPECT_EQ(gate(at(23, 0), "Windo"), 0);
    EXPECT_EQ(gate(at(23, 0), ""), 0);
}

TEST_F(ScheduleList, ThatIsEmptyIsNeverInForce)
{
    ListNode nothing;
    listInit(&nothing);
    EXPECT_EQ(checkAlarmInSchedules(&nothing, timeOfWeek(at(12, 0))), 0);
    EXPECT_EQ(checkMacroInSchedules(&nothing, "Door", timeOfWeek(at(12, 0))), 0);
}

struct SavingPeriod {
    int startMonth, startDay, startHour, endMonth, endDay, endHour;
};

class DaylightSaving : public testing::Test {
protected:
    static void save(const SavingPeriod &period)
    {
        save_start_month = period.startMonth;
        save_start_day = period.startDay;
        save_start_hour = period.startHour;
        save_end_month = period.endMonth;
        save_end_day = period.endDay;
        save_end_hour = period.endHour;
        enableDTS = 1;
    }
    static int hourAt(int month, int day, int hour)
    {
        tm local = {};
        local.tm_mon = month - 1;
        local.tm_mday = day;
        local.tm_hour = hour;
        return scheduleHour(local);
    }
};

static constexpr SavingPeriod SUMMER = {3, 31, 2, 10, 27, 3};
static constexpr int DAYS_OF_MONTH[] = {31, 29, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};

TEST_F(DaylightSaving, BeginsWithTheHourOfItsFirstDay)
{
    save(SUMMER);
    EXPECT_EQ(hourAt(3, 30, 23), 23);
    EXPECT_EQ(hourAt(3, 31, 0), 0);
    EXPECT_EQ(hourAt(3, 31, 1), 1);
    EXPECT_EQ(hourAt(3, 31, 2), 3);
    EXPECT_EQ(hourAt(4, 1, 0), 1);
}

TEST_F(DaylightSaving, EndsAfterTheHourOfItsLastDay)
{
    save(SUMMER);
    EXPECT_EQ(hourAt(10, 26, 23), 0);
    EXPECT_EQ(hourAt(10, 27, 2), 3);
    EXPECT_EQ(hourAt(10, 27, 3), 4);
    EXPECT_EQ(hourAt(10, 27, 4), 4);
    EXPECT_EQ(hourAt(10, 28, 0), 0);
}

TEST_F(DaylightSaving, MakesTheLastHourOfADayTheFirst)
{
    save(SUMMER);
    EXPECT_EQ(hourAt(7, 1, 22), 23);
    EXPECT_EQ(hourAt(7, 1, 23), 0);
}

TEST_F(DaylightSaving, IsTheTimeBetweenItsEndsInEveryHourOfAYear)
{
    static constexpr SavingPeriod PERIODS[] = {
        SUMMER,
        {3, 1, 0, 4, 30, 23},
        {1, 1, 0, 12, 31, 23},
        {5, 31, 23, 6, 1, 0},
        {2, 29, 12, 9, 15, 12},
    };
    for (const SavingPeriod &period : PERIODS) {
        save(period);
        const std::tuple start(period.startMonth, period.startDay, period.startHour);
        const std::tuple end(period.endMonth, period.endDay, period.endHour);
        for (int month = 1; month <= 12; ++month) {
            for (int day = 1; day <= DAYS_OF_MONTH[month - 1]; ++day) {
                for (int hour = 0; hour < 24; ++hour) {
                    const std::tuple now(month, day, hour);
                    const bool saving = start <= now && now <= end;
                    ASSERT_EQ(hourAt(month, day, hour), saving ? (hour + 1) % 24 : hour)
                        << "month " << month << " day " << day;
                }
            }
        }
    }
}

// Odd but relied upon: to be after its start or before its end is enough in its one month.
TEST_F(DaylightSaving, WithinOneMonthIsTheWholeOfIt)
{
    save({6, 10, 5, 6, 20, 5});
    EXPECT_EQ(hourAt(5, 31, 12), 12);
    EXPECT_EQ(hourAt(6, 1, 0), 1);
    EXPECT_EQ(hourAt(6, 10, 4), 5);
    EXPECT_EQ(hourAt(6, 15, 12), 13);
    EXPECT_EQ(hourAt(6, 20, 6), 7);
    EXPECT_EQ(hourAt(6, 30, 22), 23);
    EXPECT_EQ(hourAt(7, 1, 12), 12);
}

TEST_F(DaylightSaving, OfOneDayIsItsHoursBetween)
{
    save({6, 10, 5, 6, 10, 7});
    EXPECT_EQ(hourAt(6, 10, 4), 5) << "before the end";
    EXPECT_EQ(hourAt(6, 10, 8), 9) << "after the start";
    EXPECT_EQ(hourAt(6, 9, 12), 13) << "an earlier day of the month";
    EXPECT_EQ(hourAt(6, 11, 12), 13) << "a later one";
}

TEST_F(DaylightSaving, OverTheTurnOfTheYearNeverComes)
{
    save({10, 1, 2, 3, 31, 3});
    for (int month = 1; month <= 12; ++month)
        EXPECT_EQ(hourAt(month, 15, 12), 12) << month;
}

TEST_F(DaylightSaving, IsInForceOnlyWhenTheSettingIsOne)
{
    save(SUMMER);
    for (const int setting : {0, 2, -1}) {
        enableDTS = setting;
        EXPECT_EQ(hourAt(7, 1, 12), 12) << setting;
    }
    enableDTS = 1;
    EXPECT_EQ(hourAt(7, 1, 12), 13);
}

TEST_F(DaylightSaving, WithoutItsDatesNeverComes)
{
    save({});
    for (int month = 1; month <= 12; ++month)
        EXPECT_EQ(hourAt(month, 1, 0), 0) << month;
}

TEST_F(DaylightSaving, DoesNotMoveTheWindowOfAGate)
{
    save(SUMMER);
    Schedule schedule = Window{at(8, 0), at(9, 0)}.schedule();
    schedule.enabled = 1;
    schedule.home_security_alarm = 1;
    strcpy(schedule.macro, "Door");
    ListNode head;
    listInit(&head);
    listAddTail(&schedule.node, &head);
    tm local = timeOfWeek(at(7, 30));
    local.tm_mon = 6;
    local.tm_mday = 1;
    EXPECT_EQ(checkMacroInSchedules(&head, "Door", local), 0);
    EXPECT_EQ(checkAlarmInSchedules(&head, local), 0);
    local.tm_hour = 8;
    EXPECT_EQ(checkMacroInSchedules(&head, "Door", local), 1);
    EXPECT_EQ(checkAlarmInSchedules(&head, local), 1);
}
