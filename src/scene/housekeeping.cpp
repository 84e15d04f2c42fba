#include "scene/housekeeping.h"

#include "bus/outbound.h"
#include "config/snapshot.h"
#include "main/json_text.h"
#include "main/kept_memory.h"
#include "main/log.h"
#include "main/scope.h"
#include "main/settings.h"
#include "scene/reply_check.h"
#include "scene/sdk_command.h"
#include "schedule/daylight_saving.h"
#include "schedule/sun_clock.h"

#include <cstring>

std::atomic<int> startupRefreshPending{1};
std::atomic<int> gateway_app_star2;
std::atomic<int> secondsSinceLastEvent;
std::atomic<int> sunrise;
std::atomic<int> sunset;
std::atomic<int> astclockflag;
std::atomic<int> setDSTflag{1};
TickCounters tickCounters = {
    .scene_init_index = 0,
    .watchdogCount = 0,
    .minuteCount = 30,
    .abortCount = 0,
    .dstReadMinute = 0,
    .dstChanged = false,
    .lastEnableDTS = 0,
    .flagofast = false,
    .saveAtOneArmed = true,
    .saveAtThirteenArmed = true,
};

static constexpr int SECONDS_OF_A_MINUTE = 60;
static constexpr int ASK_ASSOCIATION_AT = 20;
static constexpr int REFRESH_AT = 31;
static constexpr int SAVE_AT = 50;
static constexpr int MINUTES_OF_A_ROUND = 30;
static constexpr int STARTED_AT_MINUTE = 4;
static constexpr int ABORT_EVERY = 5;
static constexpr int KICK = 77;
static constexpr int WIFI_CHECK_HOUR = 2;
static constexpr int FIRST_SAVE_HOUR = 1;
static constexpr int SECOND_SAVE_HOUR = 13;

// A clock that reads less has never been set. Deliberate: the two differ by one, and at exactly
// 1508689533 neither applies.
static constexpr long long CLOCK_SET_FROM = 1508689534;
static constexpr long long CLOCK_UNSET_BELOW = 1508689533;

// The steps of a second log in its name.
static constexpr const char *SECOND = "scene_int";

static void askSdkDaemon(const char *command, Integer uid)
{
    const Owned<apr_pool_t> pool = createPool();
    sendOvrinSdkCmd(pool.get(), command, uid);
}

static void refreshDevices()
{
    const Owned<apr_pool_t> pool = createPool();
    updateAllDev(pool.get());
}

static void refreshAfterStart(long long now) LOCKING(requires_capability(tick_mutex))
{
    if (startupRefreshPending != 1)
        return;
    const int seconds = tickCounters.watchdogCount;
    if (seconds == ASK_ASSOCIATION_AT && appstart_time_flag == 1)
        askSdkDaemon("getassociation", UID_SDK_DAEMON);
    if (seconds < REFRESH_AT)
        return;
    if (appstart_time_flag == 1 && now >= CLOCK_SET_FROM) {
        startupRefreshPending = 0;
        askSdkDaemon("getswitch", UID_SDK_DAEMON);
        refreshDevices();
        LOG_AS(SECOND, INFO, "Watch dog count %d, \n", seconds);
    } else if (now < CLOCK_UNSET_BELOW) {
        startupRefreshPending = 0;
        refreshDevices();
    }
    if (now >= CLOCK_SET_FROM)
        startupRefreshPending = 0;
}

// The watchdog is fed only while the SDK daemon answers.
static void kickWatchdog()
{
    const Owned<apr_pool_t> pool = createPool();
    if (sendOvrinSdkCmd(pool.get(), "getZWID", 0))
        dbus_signal_json_kick_dog(pool.get(), KICK);
}

static void tellSdkDaemon(const char *command, Integer uid, Integer value)
{
    const Owned<apr_pool_t> pool = createPool();
    sendZwaveCmd(pool.get(), command, uid, NO_CHANNEL, value);
}

static void readDaylightSaving() LOCKING(requires_capability(tick_mutex))
{
    if (setDSTflag.exchange(0) == 1) {
        const Owned<apr_pool_t> pool = createPool();
        const char *value = app_dbus_get_nvram(pool.get(), "setDST");
        enableDTS = value && strcmp(value, "1") == 0 ? 1 : 0;
    }
    TickCounters &count = tickCounters;
    if (enableDTS != count.lastEnableDTS) {
        count.dstChanged = true;
        count.dstReadMinute = count.minuteCount + 1;
    }
    count.lastEnableDTS = enableDTS;
}

static void announceSunTime(std::atomic<int> &announced, int32_t time, const char *command,
                            Integer uid)
{
    if (announced == time)
        return;
    announced = time;
    tellSdkDaemon(command, uid, time);
}

static void announceSun(time_t now) LOCKING(requires_capability(tick_mutex))
{
    if (enast == 1) {
        double longitude;
        double latitude;
        {
            const MutexLock lock(settings_mutex);
            longitude = lon;
            latitude = lat;
        }
        const auto moment = static_cast<int32_t>(now);
        announceSunTime(sunrise, astronomical_clock(moment, 1, longitude, latitude),
                        "sunrise_time_set", UID_SUNRISE);
        announceSunTime(sunset, astronomical_clock(moment, 0, longitude, latitude),
                        "sunset_time_set", UID_SUNSET);
        LOG_AS(SECOND, INFO,
               "sunrise timestamp =%d, sunset timestamp=%d\ntimestamp now=%d, lon=%f, lat=%f  "
               "enast=%d\n",
               sunrise.load(), sunset.load(), moment, longitude, latitude, enast.load());
        tickCounters.flagofast = true;
    } else if (tickCounters.flagofast) {
        tellSdkDaemon("sunrise_time_set", UID_SUNRISE, 0);
        tellSdkDaemon("sunset_time_set", UID_SUNSET, 0);
        tickCounters.flagofast = false;
    }
}

struct SavingMember {
    const char *key;
    std::atomic<int> *date;
};

static constexpr SavingMember SAVING_MEMBERS[] = {
    {"startmonth", &save_start_month}, {"startday", &save_start_day},
    {"starthour", &save_start_hour},   {"endmonth", &save_end_month},
    {"endday", &save_end_day},         {"endhour", &save_end_hour},
};

// What is missing counts as 0, also all of it.
static void readSavingTime()
{
    const Owned<apr_pool_t> pool = createPool();
    const char *text = app_dbus_get_nvram(pool.get(), "setsavingtime");
    json_error_t error;
    const Owned<json_t> root(text ? loadJson(text, &error) : nullptr);
    for (const SavingMember &member : SAVING_MEMBERS)
        *member.date =
            static_cast<int>(json_integer_value(json_object_get(root.get(), member.key)));
    LOG_AS(SECOND, INFO,
           "nvram read setsavingtime= %s, smonth =%d,sday =%d,shour =%d,emonth =%d,eday "
           "=%d,ehour =%d\n",
           text ? text : "", save_start_month.load(), save_start_day.load(), save_start_hour.load(),
           save_end_month.load(), save_end_day.load(), save_end_hour.load());
}

// A platform that cannot say how its Wi-Fi is set is started anew, at night.
static void checkWifi()
{
    const Owned<apr_pool_t> pool = createPool();
    const char *mode = app_dbus_get_nvram(pool.get(), "WifiMode");
    LOG_AS(SECOND, INFO, "nvram read wifi mode= %s\n", mode ? mode : "");
    if (!mode)
        askSdkDaemon("rebootplatform", UID_SDK_DAEMON);
}

static void runMinuteBlock(time_t now, const tm &local) LOCKING(requires_capability(tick_mutex))
{
    TickCounters &count = tickCounters;
    astclockflag = 0;
    count.watchdogCount = 1;
    readDaylightSaving();
    announceSun(now);
    tellSdkDaemon("sunrise_set_trig_time_judge", UID_SUNRISE, 0);
    kickWatchdog();
    ++count.minuteCount;
    ++count.abortCount;
    if (count.minuteCount == STARTED_AT_MINUTE || appstart_time_flag == 0)
        gateway_app_star2 = 1;
    LOG_AS(SECOND, INFO, "resettime1440= %d  hour = %d gateway_app_star2 =%d\n", count.minuteCount,
           local.tm_hour, gateway_app_star2.load());
    // Deliberate: the change stays noted, so the dates are read again when the count comes round.
    if (count.minuteCount == count.dstReadMinute && count.dstChanged)
        readSavingTime();
    if (count.minuteCount >= MINUTES_OF_A_ROUND && local.tm_hour == WIFI_CHECK_HOUR) {
        count.minuteCount = 0;
        checkWifi();
    }
    if (count.minuteCount >= MINUTES_OF_A_ROUND)
        count.minuteCount = 0;
    if (count.abortCount >= ABORT_EVERY) {
        count.abortCount = 0;
        askSdkDaemon("abort", UID_SDK_DAEMON);
    }
    returnFreeMemory();
}

// Each save arms the other.
static void saveDaily(int hour) LOCKING(requires_capability(tick_mutex))
{
    TickCounters &count = tickCounters;
    if (hour == FIRST_SAVE_HOUR && count.saveAtOneArmed) {
        askSdkDaemon("savedata", UID_SDK_DAEMON);
        count.saveAtOneArmed = false;
        count.saveAtThirteenArmed = true;
    } else if (hour == SECOND_SAVE_HOUR && count.saveAtThirteenArmed) {
        askSdkDaemon("savedata", UID_SDK_DAEMON);
        count.saveAtThirteenArmed = false;
        count.saveAtOneArmed = true;
    }
}

void scene_int(time_t now, const tm &local)
{
    ++secondsSinceLastEvent;
    if (replyCheckIsArmed()) {
        const Owned<apr_pool_t> pool = createPool();
        stepReplyCheck(pool.get());
        return;
    }
    refreshAfterStart(now);
    if (tickCounters.watchdogCount == SECONDS_OF_A_MINUTE) {
        LOG(INFO, "Watch dog count %d, abort count =%d appstart_time_flag=%d\n",
            tickCounters.watchdogCount, tickCounters.abortCount, appstart_time_flag.load());
    }
    if (++tickCounters.watchdogCount > SECONDS_OF_A_MINUTE || astclockflag == 1)
        runMinuteBlock(now, local);
    if (tickCounters.watchdogCount == SAVE_AT)
        saveDaily(local.tm_hour);
}
