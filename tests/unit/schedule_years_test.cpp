// Two years of schedules, minute by minute as the platform asks for them, in zones whose clocks are
// set forward and back: what starts and ends is what a calendar says.

#include "schedule/schedules.h"

#include "config/resume.h"
#include "daemon_in_process.h"
#include "schedule/daylight_saving.h"
#include "support/oracle.h"
#include "support/temp_dir.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <set>
#include <vector>

struct Place {
    const char *name;
    const char *zone;
    const char *saving;  // the gateway's own, as the oracle takes it
    size_t clockChanges;
};

static void PrintTo(const Place &place, std::ostream *out)
{
    *out << place.zone << " " << place.saving;
}

struct TimeTable {
    int weekdays, startHour, startMinute, endHour, endMinute;
};

static constexpr TimeTable TIME_TABLES[] = {
    {0x7F, 0, 0, 23, 59},    // the whole day
    {0x7F, 23, 59, 0, 0},    // its turn
    {0x7F, 2, 30, 3, 30},    // what most clocks leave out or show twice
    {0x7F, 2, 0, 2, 1},      //
    {0x01, 1, 0, 2, 59},     // Sundays, on which most of them are set
    {0x40, 23, 30, 0, 30},   // Saturdays: the night before
    {0x7F, 0, 15, 1, 45},    // others are set at midnight
    {0x3E, 8, 0, 17, 30},    // a working day
    {0x01, 12, 0, 12, 0},    // start and end are the same
    {0x54, 10, 50, 10, 10},  // the end an hour's part before the start
    {0x7F, 1, 59, 3, 0},     //
    {0x00, 12, 0, 13, 0},    // on no day
};

static constexpr time_t FIRST = 1672488000;  // 2022-12-31 12:00 UTC
static constexpr time_t LAST = FIRST + (2 * 365 + 1) * time_t{86400};

struct ScheduleRun {
    time_t minute;
    int schedule;
    std::string what;

    auto operator<=>(const ScheduleRun &) const = default;
};

static void PrintTo(const ScheduleRun &run, std::ostream *out)
{
    const time_t seconds = run.minute * 60;
    tm local;
    localtime_r(&seconds, &local);
    char text[64];
    strftime(text, sizeof text, "%a %F %H:%M %z", &local);
    *out << run.what << " of schedule " << run.schedule << " at " << text;
}

class TwoYearsOfSchedules : public testing::TestWithParam<Place> {
protected:
    void SetUp() override
    {
        // What lies in the way of the document: to store it thousands of times would take minutes.
        std::filesystem::create_directory(folder.file("scheduleResumeScene.json.new"));
        setenv("APP_DATA_DIR", folder.path().c_str(), 1);
        setenv("TZ", GetParam().zone, 1);
        tzset();
        listInit(&schedules);
        for (const TimeTable &times : TIME_TABLES)
            add(times);
        add(TIME_TABLES[0])->enabled = 0;
        freeMacros(&add(TIME_TABLES[0])->macros);
        open = openSchedules();
        saveDaylight();
    }
    void TearDown() override
    {
        freeSchedules(&schedules);
        for (ResumeSchedule &resume : ELEMENTS(ResumeSchedule, node, &resumeScheduleListHead))
            freeResumeSchedule(&resume);
    }

    Schedule *add(const TimeTable &times)
    {
        Schedule *schedule = callocSchedule();
        snprintf(schedule->title, sizeof schedule->title, "%d", added++);
        schedule->enabled = 1;
        schedule->weekdays = times.weekdays;
        schedule->start_hour = times.startHour;
        schedule->start_minute = times.startMinute;
        schedule->end_hour = times.endHour;
        schedule->end_minute = times.endMinute;
        listAddTail(&callocMacro()->node, &schedule->macros);
        listAddTail(&schedule->node, &schedules);
        return schedule;
    }

    static void saveDaylight()
    {
        int start[3], end[3];
        if (sscanf(GetParam().saving, "%d/%d/%d-%d/%d/%d", &start[0], &start[1], &start[2], &end[0],
                   &end[1], &end[2]) != 6)
            return;
        enableDTS = 1;
        save_start_month = start[0];
        save_start_day = start[1];
        save_start_hour = start[2];
        save_end_month = end[0];
        save_end_day = end[1];
        save_end_hour = end[2];
    }

    static std::vector<ScheduleRun> expectedRuns()
    {
        std::vector<std::string> arguments = {GetParam().zone, std::to_string(FIRST),
                                              std::to_string(LAST), GetParam().saving};
        for (const TimeTable &times : TIME_TABLES) {
            char text[64];
            snprintf(text, sizeof text, "%d/%d:%d-%d:%d", times.weekdays, times.startHour,
                     times.startMinute, times.endHour, times.endMinute);
            arguments.push_back(text);
        }
        std::vector<ScheduleRun> runs;
        for (const std::string &line : support::askOracle("schedule_runs.py", arguments)) {
            long long minute = 0;
            int schedule = 0;
            char what[16] = "";
            EXPECT_EQ(sscanf(line.c_str(), "%lld %d %15s", &minute, &schedule, what), 3) << line;
            runs.push_back({minute, schedule, what});
        }
        return runs;
    }

    // How often each schedule has started and not ended. A start adds a record, an end takes one.
    std::vector<int> openSchedules() const
    {
        std::vector<int> counts(static_cast<size_t>(added));
        for (const ResumeSchedule &resume : ELEMENTS(ResumeSchedule, node, &resumeScheduleListHead))
            ++counts.at(static_cast<size_t>(atoi(resume.title)));
        return counts;
    }

    // Notes what was added or taken since the last time.
    void note(time_t minute, const char *what)
    {
        const std::vector<int> now = openSchedules();
        for (size_t schedule = 0; schedule < now.size(); ++schedule) {
            const int change = now[schedule] - open[schedule];
            for (int i = 0; i < abs(change); ++i)
                runs.push_back({minute, static_cast<int>(schedule), change > 0 ? "start" : "end"});
        }
        EXPECT_NE(now, open) << "the " << what << " says that it acted";
        open = now;
        forgetLog();
    }

    // As the platform has it done once a minute.
    void lookAtTheSchedules(time_t minute)
    {
        const time_t seconds = minute * 60;
        tm local;
        localtime_r(&seconds, &local);
        clockChanges += minute > FIRST / 60 && local.tm_gmtoff != offset;
        offset = local.tm_gmtoff;
        if (checkAllSchedulesStartTime(nullptr, &schedules, local) != 0)
            note(minute, "start");
        if (checkAllSchedulesEndTime(nullptr, &schedules, local) != 0)
            note(minute, "end");
    }

    support::TempDir folder;
    ListNode schedules;
    int added = 0;
    std::vector<ScheduleRun> runs;
    std::vector<int> open;
    long offset = 0;  // of the zone, at the minute before
    size_t clockChanges = 0;
};

TEST_P(TwoYearsOfSchedules, StartAndEndWhenTheCalendarSays)
{
    const std::vector<ScheduleRun> expected = expectedRuns();
    ASSERT_GT(expected.size(), 10'000u);
    for (time_t minute = FIRST / 60; minute <= LAST / 60; ++minute)
        lookAtTheSchedules(minute);
    EXPECT_EQ(clockChanges, GetParam().clockChanges) << "the zone is the one that is meant";

    EXPECT_EQ(std::set(runs.begin(), runs.end()).size(), runs.size())
        << "a schedule starts or ends once in a minute at the most";
    size_t shown = 0;
    for (size_t i = 0; i < std::max(runs.size(), expected.size()) && shown < 5; ++i) {
        const ScheduleRun none{0, -1, "nothing"};
        const ScheduleRun &got = i < runs.size() ? runs[i] : none;
        const ScheduleRun &wanted = i < expected.size() ? expected[i] : none;
        shown += got != wanted;
        EXPECT_EQ(got, wanted);
    }
}

INSTANTIATE_TEST_SUITE_P(
    InZones, TwoYearsOfSchedules,
    testing::Values(Place{"Berlin", "Europe/Berlin", "-", 4},
                    Place{"NewYork", "America/New_York", "-", 4},
                    Place{"LordHowe", "Australia/Lord_Howe", "-", 4},  // by half an hour
                    Place{"Santiago", "America/Santiago", "-", 4},     // at midnight
                    Place{"Chatham", "Pacific/Chatham", "-", 4},       // at 2:45
                    Place{"Casablanca", "Africa/Casablanca", "-", 4},  // for Ramadan
                    Place{"TokyoWithItsOwnSummer", "Asia/Tokyo", "3/31/2-10/27/3", 0},
                    Place{"BerlinWithASummerOfBoth", "Europe/Berlin", "4/1/0-9/30/23", 4}),
    [](const auto &place) { return std::string(place.param.name); });
