// Sunrise and sunset: to the second as the same arithmetic computed by another program, and to a
// few minutes as a published algorithm.

#include "schedule/sun_clock.h"

#include "support/oracle.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <vector>

static constexpr int SUNRISE = 1;
static constexpr int SUNSET = 0;
static constexpr int64_t DAY = 86400;
static constexpr int32_t MIDNIGHT_OF_2024_03_20 = 1710892800;  // UTC

struct Moment {
    int32_t now, sunrise, sunset;
};

struct Position {
    double longitude, latitude;
    std::vector<Moment> moments;
};

static std::vector<Position> readTable()
{
    std::vector<Position> table;
    for (const std::string &line : support::askOracle("sun_clock.py")) {
        double longitude, latitude;
        Moment moment;
        if (sscanf(line.c_str(), "position %lf %lf", &longitude, &latitude) == 2)
            table.push_back({longitude, latitude, {}});
        else if (sscanf(line.c_str(), "%d %d %d", &moment.now, &moment.sunrise, &moment.sunset) ==
                 3)
            table.back().moments.push_back(moment);
    }
    return table;
}

TEST(SunClock, EqualsAnotherProgramToTheSecondAt200PositionsOn366Days)
{
    const std::vector<Position> table = readTable();
    ASSERT_EQ(table.size(), 200u);
    size_t differences = 0;
    size_t nights = 0;  // and days that do not end
    for (const auto &[longitude, latitude, moments] : table) {
        ASSERT_EQ(moments.size(), 366u);
        for (const Moment &moment : moments) {
            const int32_t rise = astronomical_clock(moment.now, SUNRISE, longitude, latitude);
            const int32_t set = astronomical_clock(moment.now, SUNSET, longitude, latitude);
            nights += rise == 0 && set == 0;
            if ((rise != moment.sunrise || set != moment.sunset) && ++differences <= 10)
                ADD_FAILURE() << "at " << moment.now << ", " << longitude << " east, " << latitude
                              << " north: " << rise << " and " << set << ", not " << moment.sunrise
                              << " and " << moment.sunset;
        }
    }
    EXPECT_EQ(differences, 0u);
    EXPECT_GT(nights, 5000u) << "the polar regions are among them";
    EXPECT_LT(nights, 20000u);
}

// The equations of the solar calculator of the National Oceanic and Atmospheric Administration's
// Global Monitoring Laboratory ("Solar Calculation Details", gml.noaa.gov/grad/solcalc, with its
// spreadsheets), which are those of Jean Meeus, "Astronomical Algorithms", Willmann-Bell, chapters
// 12, 22, 25 and 28. They are said to be good to a minute between the polar circles.
namespace published {

static double radians(double degrees)
{
    return degrees * M_PI / 180;
}
static double degrees(double radians)
{
    return radians * 180 / M_PI;
}

struct Sun {
    double declination;     // degrees
    double equationOfTime;  // minutes
};

static Sun sunAt(double unixTime)
{
    const double julianDay = unixTime / DAY + 2440587.5;
    const double century = (julianDay - 2451545) / 36525;
    const double meanLongitude =
        std::fmod(280.46646 + century * (36000.76983 + century * 0.0003032), 360);
    const double anomaly = radians(357.52911 + century * (35999.05029 - 0.0001537 * century));
    const double eccentricity = 0.016708634 - century * (0.000042037 + 0.0000001267 * century);
    const double centre =
        std::sin(anomaly) * (1.914602 - century * (0.004817 + 0.000014 * century)) +
        std::sin(2 * anomaly) * (0.019993 - 0.000101 * century) + std::sin(3 * anomaly) * 0.000289;
    const double node = radians(125.04 - 1934.136 * century);
    const double apparent = radians(meanLongitude + centre - 0.00569 - 0.00478 * std::sin(node));
    const double meanObliquity =
        23 +
        (26 + (21.448 - century * (46.815 + century * (0.00059 - century * 0.001813))) / 60) / 60;
    const double obliquity = radians(meanObliquity + 0.00256 * std::cos(node));
    const double y = std::pow(std::tan(obliquity / 2), 2);
    const double l = radians(meanLongitude);
    return {
        .declination = degrees(std::asin(std::sin(obliquity) * std::sin(apparent))),
        .equationOfTime = 4 * degrees(y * std::sin(2 * l) - 2 * eccentricity * std::sin(anomaly) +
                                      4 * eccentricity * y * std::sin(anomaly) * std::cos(2 * l) -
                                      0.5 * y * y * std::sin(4 * l) -
                                      1.25 * eccentricity * eccentricity * std::sin(2 * anomaly)),
    };
}

// Of the day that begins at that midnight (UTC); refined until it stands.
static double sunTime(int64_t midnight, int which, double longitude, double latitude)
{
    double time = static_cast<double>(midnight) + (720 - 4 * longitude) * 60;
    for (int i = 0; i < 5; ++i) {
        const Sun sun = sunAt(time);
        const double north = radians(latitude);
        const double declination = radians(sun.declination);
        const double hourAngle = degrees(
            std::acos(std::cos(radians(90.833)) / (std::cos(north) * std::cos(declination)) -
                      std::tan(north) * std::tan(declination)));
        const double noon = 720 - 4 * longitude - sun.equationOfTime;
        time =
            static_cast<double>(midnight) + (noon + (which == SUNRISE ? -4 : 4) * hourAngle) * 60;
    }
    return time;
}

}  // namespace published

// It shows that the published equations were written down as they are meant: a sunrise and a sunset
// as almanacs give them.
TEST(SunClock, TheEquationsItIsComparedWithGiveAnAlmanacsTimes)
{
    static constexpr int64_t MIDNIGHT_OF_2024_06_20 = 1718841600;
    // Greenwich, at the summer solstice: 03:43 and 20:21 UTC.
    EXPECT_NEAR(published::sunTime(MIDNIGHT_OF_2024_06_20, SUNRISE, 0, 51.48),
                static_cast<double>(MIDNIGHT_OF_2024_06_20) + (3 * 60 + 43) * 60, 90);
    EXPECT_NEAR(published::sunTime(MIDNIGHT_OF_2024_06_20, SUNSET, 0, 51.48),
                static_cast<double>(MIDNIGHT_OF_2024_06_20) + (20 * 60 + 21) * 60, 90);
}

TEST(SunClock, IsWithin4MinutesOfThePublishedAlgorithmBelow60Degrees)
{
    static constexpr int64_t MIDNIGHT_OF_2024_01_01 = 1704067200;
    double farthest = 0;
    double sum = 0;
    size_t count = 0;
    for (double latitude = -59.9; latitude < 60; latitude += 5.99) {
        for (double longitude = -172; longitude <= 172; longitude += 43) {
            const int zone = static_cast<int>((longitude + 7.5) / 15);
            for (int64_t day = 0; day < 366; ++day) {
                const int64_t midnight = MIDNIGHT_OF_2024_01_01 + day * DAY;
                const auto noon = static_cast<int32_t>(midnight + DAY / 2 - zone * 3600);
                for (const int which : {SUNRISE, SUNSET}) {
                    const double difference =
                        astronomical_clock(noon, which, longitude, latitude) -
                        published::sunTime(midnight, which, longitude, latitude);
                    if (std::fabs(difference) > farthest)
                        farthest = std::fabs(difference);
                    sum += difference;
                    ++count;
                }
            }
        }
    }
    RecordProperty("FarthestSeconds", std::to_string(farthest));
    RecordProperty("MeanSeconds", std::to_string(sum / static_cast<double>(count)));
    EXPECT_LE(farthest, 4 * 60);
    EXPECT_NEAR(sum / static_cast<double>(count), -30, 15) << "whole minutes: half of one less";
}

struct ZoneCase {
    double longitude;
    int hours;
};

// Where the longitude's day begins, the sunrise of the day before gives way to that of the new one.
TEST(SunClock, TakesTheDayOfTheZoneThatTheLongitudeGives)
{
    static constexpr ZoneCase CASES[] = {
        {0, 0},      {7.4, 0},     {7.5, 1},    {22.4, 1},  {121.5, 8},  {180, 12},
        {-7.4, 0},   {-7.5, 0},    {-7.6, 0},   {-22.4, 0}, {-22.5, -1},  // towards zero
        {-37.4, -1}, {-121.5, -7}, {-180, -11},
    };
    for (const ZoneCase &place : CASES) {
        const int32_t dayBegins = MIDNIGHT_OF_2024_03_20 - place.hours * 3600;
        const auto sunriseAt = [&](int32_t now) {
            return astronomical_clock(now, SUNRISE, place.longitude, 40);
        };
        const int32_t today = sunriseAt(dayBegins);
        EXPECT_EQ(sunriseAt(dayBegins + DAY - 1), today) << place.longitude;
        EXPECT_NEAR(sunriseAt(dayBegins - 1), today - DAY, 180) << place.longitude;
        EXPECT_NEAR(sunriseAt(dayBegins + DAY), today + DAY, 180) << place.longitude;
        // And it rises in that day's morning, as the sun goes.
        EXPECT_NEAR(today, MIDNIGHT_OF_2024_03_20 + 6 * 3600 - place.longitude * 240, 1200);
    }
}

TEST(SunClock, HasNothingToDoWithTheSystemsTimeZone)
{
    setenv("TZ", "UTC0", 1);
    tzset();
    const int32_t inUtc = astronomical_clock(MIDNIGHT_OF_2024_03_20, SUNSET, -73.97, 40.78);
    setenv("TZ", "XXX-11", 1);
    tzset();
    EXPECT_EQ(astronomical_clock(MIDNIGHT_OF_2024_03_20, SUNSET, -73.97, 40.78), inUtc);
}

TEST(SunClock, GivesWholeMinutes)
{
    for (int32_t now = MIDNIGHT_OF_2024_03_20; now < MIDNIGHT_OF_2024_03_20 + 366 * DAY;
         now += 40003) {
        EXPECT_EQ(astronomical_clock(now, SUNRISE, 13.4, 52.5) % 60, 0) << now;
        EXPECT_EQ(astronomical_clock(now, SUNSET, 13.4, 52.5) % 60, 0) << now;
    }
}

TEST(SunClock, GivesNothingWhereTheSunStaysUpOrDown)
{
    static constexpr int32_t SOLSTICES[] = {1718884800, 1734782400};  // June and December 2024
    for (const int32_t now : SOLSTICES) {
        for (const double latitude : {-90.0, -80.0, -68.0, 68.0, 80.0, 90.0}) {
            EXPECT_EQ(astronomical_clock(now, SUNRISE, 25, latitude), 0) << latitude;
            EXPECT_EQ(astronomical_clock(now, SUNSET, 25, latitude), 0) << latitude;
        }
        EXPECT_NE(astronomical_clock(now, SUNRISE, 25, 65), 0);
        EXPECT_NE(astronomical_clock(now, SUNSET, 25, -65), 0);
    }
}

TEST(SunClock, GivesNothingForAPositionThatIsNone)
{
    for (const double nowhere : {1e300, -1e300, 1e10, HUGE_VAL, -HUGE_VAL, std::nan("")}) {
        EXPECT_EQ(astronomical_clock(MIDNIGHT_OF_2024_03_20, SUNRISE, nowhere, 50), 0) << nowhere;
        EXPECT_EQ(astronomical_clock(MIDNIGHT_OF_2024_03_20, SUNRISE, 10, nowhere), 0) << nowhere;
    }
}
