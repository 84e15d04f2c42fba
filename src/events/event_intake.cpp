#include "events/event_intake.h"

#include "bus/outbound.h"
#include "config/device_value.h"
#include "config/macro.h"
#include "config/room.h"
#include "config/snapshot.h"
#include "events/event_documents.h"
#include "events/macro_thread.h"
#include "events/trigger_check.h"
#include "main/log.h"
#include "main/scope.h"
#include "main/settings.h"
#include "main/util.h"
#include "notify/push.h"
#include "notify/push_text.h"
#include "scene/home_security.h"
#include "scene/housekeeping.h"
#include "scene/reply_check.h"
#include "scene/sdk_command.h"
#include "scene/tick.h"
#include "schedule/window.h"

#include <apr_strings.h>
#include <cstdlib>
#include <pthread.h>

enum EventCode : int {
    EVENT_GATEWAY_READY = 100,
    EVENT_DEVICE_ADDED = 1001,
    EVENT_DEVICE_REMOVED = 1002,
    EVENT_DEVICE_CHANGED = 1003,
    EVENT_TAMPER = 4001,
    EVENT_LOW_BATTERY = 4002,
    EVENT_LOGGED_ONLY_4003 = 4003,
    EVENT_METER_REPORT = 5002,
    EVENT_CHECKBOX = 5004,
};

// Logged and announced, and nothing else.
static constexpr int LOGGED_ONLY[] = {5102, 9999, 5008, 5009, EVENT_LOGGED_ONLY_4003};

static bool isLoggedOnly(int eventCode)
{
    for (const int code : LOGGED_ONLY) {
        if (code == eventCode)
            return true;
    }
    return false;
}

EventFilter *filterEvent(ListNode *filterList, Integer gid, Integer channelID, Integer eventCode)
{
    const auto matches = [](Integer filtered, Integer value) {
        return filtered < 0 || filtered == value;
    };
    for (EventFilter &filter : ELEMENTS_BACKWARDS(EventFilter, node, filterList)) {
        if (matches(filter.uid, gid) && matches(filter.channel, channelID) &&
            matches(filter.eventCode, eventCode)) {
            LOG(DEBUG, "filter dev: %lld ch: %lld eventCode: %lld\n", gid, channelID, eventCode);
            return &filter;
        }
    }
    LOG(DEBUG, "do not filter dev: %lld ch: %lld eventCode: %lld\n", gid, channelID, eventCode);
    return nullptr;
}

// The device that reported, as the SDK daemon shows it now. Owned by the event.
struct Report {
    GetDev *snapshot;
    const GetDev_dev *device;
    const GetDev_channel *channel;
};

static void noteSpecialCodes(apr_pool_t *pool, int eventCode)
{
    if (eventCode == EVENT_GATEWAY_READY)
        gateway_app_star2 = 1;
    if (eventCode == EVENT_CHECKBOX) {
        const char *value = app_dbus_get_nvram(pool, "jsonsetcheckbox");
        checkbox = value ? atoi(value) : 0;
    }
}

static void refreshSnapshot(apr_pool_t *pool, int eventCode)
{
    const bool asked = eventCode == EVENT_DEVICE_ADDED || eventCode == EVENT_DEVICE_REMOVED ||
                       eventCode == EVENT_DEVICE_CHANGED;
    if (asked || !snapshotHasDevices())
        updateAllDev(pool);
}

// False when the SDK daemon did not answer.
static bool fetchReport(apr_pool_t *pool, const DeviceEvent &event, Report &report)
{
    const char *reply = sendOvrinSdkCmd(pool, "getdevice", event.gid);
    if (!reply)
        return false;
    report.snapshot = setGetDevice(reply);
    if (report.snapshot)
        report.device = searchDeviceFromGetDev(report.snapshot, event.gid);
    if (report.device)
        report.channel = searchChannelFromGetDev(report.device, event.channelID);
    return true;
}

static bool isFiltered(const DeviceEvent &event)
{
    const MutexLock lock(eventFilter_mutex);
    return filterEvent(&eventFilterListHead, event.gid, event.channelID, event.eventCode) !=
           nullptr;
}

// A filter suppresses only this signal: the event stays in the log and goes its way.
static void announce(apr_pool_t *pool, const DeviceEvent &event)
{
    if (isFiltered(event))
        return;
    const char *document = genRecentEvent(pool);
    if (document)
        dbus_signal_event(document, "recent");
}

static bool isInSchedule(const Macro &macro, const tm &local)
{
    const MutexLock lock(schedulesList_mutex);
    return checkMacroInSchedules(&schedulesListHead, macro.title, local) != 0;
}

static bool firesMacros(int eventCode, const LoggedEvent &logged)
{
    if (eventCode == EVENT_METER_REPORT && logged.funcType == FUNC_METER)
        return false;
    return eventCode != EVENT_TAMPER && eventCode != EVENT_LOW_BATTERY &&
           eventCode != EVENT_LOGGED_ONLY_4003;
}

// Where a two-button product reports its tamper contact, the room is that of another channel.
struct TamperChannel {
    Integer productCode;
    Integer channel;
    Integer otherwise;  // when that one is in no room
};

static constexpr TamperChannel TAMPER_CHANNELS[] = {
    {0x0101020D, 14, 14}, {0x01010224, 14, 14}, {0x0101020E, 13, 13},
    {0x01010225, 13, 13}, {0x0101020C, 13, 14}, {0x01010223, 13, 14},
};

static const char *tamperRoom(apr_pool_t *pool, const DeviceEvent &event, Integer productCode)
{
    for (const TamperChannel &row : TAMPER_CHANNELS) {
        if (row.productCode != productCode)
            continue;
        const char *room = roomOf(pool, &roomsListHead, event.gid, row.channel);
        return room ? room : roomOf(pool, &roomsListHead, event.gid, row.otherwise);
    }
    return roomOf(pool, &roomsListHead, event.gid, event.channelID);
}

static void pushTamper(apr_pool_t *pool, const DeviceEvent &event, const char *name,
                       Integer productCode)
{
    const char *room = tamperRoom(pool, event, productCode);
    const bool japanese = pushLanguage(pool) == JAPANESE;
    const char *text =
        room ? apr_psprintf(pool,
                            japanese ? "%s in %s 取り外し感知 !!" : "%s in %s tamper trigger !!",
                            name, room)
             : apr_psprintf(pool, japanese ? "%s  取り外し感知 !!" : "%s  tamper trigger !!", name);
    sendPush(pool, text);
}

static void pushLowBattery(apr_pool_t *pool, const DeviceEvent &event, const char *name)
{
    const char *room = roomOf(pool, &roomsListHead, event.gid, event.channelID);
    sendPush(pool, room ? apr_psprintf(pool, "%s in %s low battery  !!", name, room)
                        : apr_psprintf(pool, "%s  low battery !!", name));
}

// The hour from which the next low-battery push may go out. The event worker alone uses it.
static int hourold;

// At most one an hour, from 08:00 to 22:59. Deliberate: after one at 22:xx the next has to wait for
// some event of hour 23, which starts the count anew.
static bool mayPushLowBattery(int hour)
{
    static constexpr int FIRST_HOUR = 8;
    static constexpr int END_HOUR = 23;
    return hour >= FIRST_HOUR && hour < END_HOUR && hourold <= hour;
}

// Sends the push of an event that has one of its own, which ends the event; false when it has none.
static bool pushAlone(apr_pool_t *pool, const DeviceEvent &event, const GetDev_channel *channel,
                      const LoggedEvent &logged, int hour)
{
    // Deliberate: the notification is wanted where the value is 0.
    if (event.eventCode == EVENT_TAMPER && channel && channel->tampernotify == 0) {
        pushTamper(pool, event, channel->name, logged.productCode);
        return true;
    }
    if (hourold <= hour)
        hourold = 0;
    if (event.eventCode == EVENT_LOW_BATTERY && channel && channel->lowbattnotify == 0 &&
        mayPushLowBattery(hour)) {
        hourold = hour + 1;
        pushLowBattery(pool, event, channel->name);
        return true;
    }
    return false;
}

// An event as the macros' triggers see it.
struct TriggerEvent {
    int eventCode;
    tm local;  // when the macros are matched
    const LoggedEvent &logged;
    const GetDev_dev &device;
    const GetDev_channel &channel;
};

static bool fires(const Macro &macro, const Trigger &trigger, const TriggerEvent &event)
{
    // The schedules are asked last: most triggers are not about this device.
    return firesMacros(event.eventCode, event.logged) &&
           checkTrigger(&trigger, &event.channel, &event.logged) != 0 &&
           ((macro.enabled & 1) != 0 || isInSchedule(macro, event.local));
}

static void matchMacros(const TriggerEvent &event)
{
    // Both are held for the whole loop: a macro thread that it starts waits until the loop is done.
    const MutexLock macros(macroList_mutex);
    const MutexLock threads(doSceneThrList_mutex);
    for (const Macro &macro : ELEMENTS(Macro, node, &macrosListHead)) {
        for (const Trigger &trigger : ELEMENTS(Trigger, node, &macro.triggers)) {
            if (fires(macro, trigger, event) && gateway_app_star2 == 1)
                startMacroThread(macro, event.device, event.channel);
        }
    }
}

// The event's steps; what ended them early, or null.
static const char *handleEvent(apr_pool_t *pool, const DeviceEvent &event, Report &report)
{
    const tm begun = *getCurTime();
    noteSpecialCodes(pool, event.eventCode);
    refreshSnapshot(pool, event.eventCode);
    if (!fetchReport(pool, event, report))
        return "sendOvrinSdkCmd failed\n";
    matchEvent(event.gid, report.channel);

    LoggedEvent logged;
    if (addEventLog(event.eventCode, event.gid, event.channelID, event.payload, report.device,
                    report.channel, &logged))
        announce(pool, event);
    if (isLoggedOnly(event.eventCode))
        return nullptr;
    if (pushAlone(pool, event, report.channel, logged, begun.tm_hour))
        return nullptr;
    if (!report.device)
        return "triggeredDev is NULL\n";
    if (!report.channel)
        return "triggeredChannel is NULL\n";
    homeSceneDetach(pool, event.gid, event.channelID, report.device, report.channel);
    matchMacros({event.eventCode, *getCurTime(), logged, *report.device, *report.channel});
    return nullptr;
}

// Deliberate: the worker detaches itself, with its first event; twice would be undefined.
static void detachWorker()
{
    static thread_local bool detached;
    if (!detached)
        pthread_detach(pthread_self());
    detached = true;
}

int doEvent(DeviceEvent *event)
{
    secondsSinceLastEvent = 0;
    const TickPause tickStandsStill;
    detachWorker();
    Report report = {};
    {
        const Owned<apr_pool_t> pool = createPool();
        const char *complaint = handleEvent(pool.get(), *event, report);
        if (complaint)
            LOG(ERROR, "%s", complaint);
    }
    if (report.snapshot)
        freeGetDevice(report.snapshot);
    freeDeviceEvent(event);
    return 0;
}
