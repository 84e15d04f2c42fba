#include "events/event_documents.h"

#include "bus/outbound.h"
#include "config/snapshot.h"
#include "main/json_memory.h"
#include "main/json_text.h"
#include "main/locks.h"
#include "main/log.h"
#include "main/scope.h"
#include "main/settings.h"
#include "main/stored_file.h"
#include "main/util.h"
#include "scene/housekeeping.h"
#include "scene/runner.h"

#include <cstdlib>
#include <ctime>
#include <span>

std::atomic<uint32_t> recentLogNum{1};
std::atomic<uint32_t> seqold;
std::atomic<int> udn_num;
std::atomic<int> san_num;

static void setText(json_t *object, const char *key, const char *text)
{
    if (text)
        json_object_set_new(object, key, json_string(text));
}

char *genMacroEvent(const MacroEventLog *log)
{
    const JsonMemory memory;
    json_t *event = json_object();
    setText(event, "name", log->name);
    setText(event, "mac", lan_mac);
    setText(event, "scene", log->scene);
    json_object_set_new(event, "timeStamp", json_integer(time(nullptr)));  // of the announcement
    const Owned<json_t> root(json_object());
    json_object_set_new(root.get(), "EventMacro", event);
    return memory.ranOut() ? nullptr : json_dumps_dbg(root.get(), JSON_TEXT_FLAGS);
}

void announceMacroEvent(MacroEventLog *log)
{
    if (!log)
        return;
    {
        const MutexLock lock(macroEvent_mutex);  // two announcements never interleave
        const Owned<char> document(genMacroEvent(log));
        if (document)
            dbus_signal_event(document.get(), "MacroEvent");
    }
    freeMacroEventLog(log);
}

struct LogMember {
    const char *key;
    Integer EventLog::*field;
};

static constexpr LogMember COMMON_MEMBERS[] = {
    {"eventCode", &EventLog::eventCode},
    {"timeStamp", &EventLog::timeStamp},
    {"timeStamp_ms", &EventLog::timeStamp_ms},
    {"Scene_schedule_time", &EventLog::Scene_schedule_time},
};

static constexpr LogMember DEVICE_MEMBERS[] = {
    {"uid", &EventLog::uid},
    {"channelID", &EventLog::channelID},
    {"productCode", &EventLog::productCode},
    {"funcType", &EventLog::funcType},
    {"sensorValue", &EventLog::sensorValue},
    {"basicValue", &EventLog::basicValue},
    {"Dim_ON_Value", &EventLog::Dim_ON_Value},
    {"dataUnit", &EventLog::dataUnit},
    {"battery", &EventLog::battery},
};

static void writeMembers(json_t *object, const EventLog &log, std::span<const LogMember> members)
{
    for (const LogMember &member : members)
        json_object_set_new(object, member.key, json_integer(log.*member.field));
}

static void setObject(json_t *object, const char *key, json_t *value)
{
    if (value)
        json_object_set_new(object, key, value);
}

// Deliberate: a look back at an older record makes the sun clock compute, and announce, its times
// anew.
static void noteSerialized(uint32_t sequence)
{
    if (sequence < seqold.exchange(sequence)) {
        sunrise = 0;
        sunset = 0;
    }
}

json_t *eventLogToJson(const EventLog *log)
{
    if (!log) {
        LOG(ERROR, "eLog is NULL\n");
        return nullptr;
    }
    json_t *object = json_object();
    writeMembers(object, *log, COMMON_MEMBERS);
    json_object_set_new(object, "sequence", json_integer(log->sequence));
    if (log->eventCode != EVENT_PUSH_SENT) {
        json_object_set_new(object, "funcName", json_string(log->funcName));
        writeMembers(object, *log, DEVICE_MEMBERS);
        setObject(object, "meter", meterToJson(log->meter));
        setObject(object, "switch_color", switchcolorToJson(log->switch_color));
    }
    if (log->payload) {
        json_error_t error;
        setObject(object, "payload", loadJson(log->payload, &error));
    }
    noteSerialized(log->sequence);
    return object;
}

static json_t *newestEvents(uint32_t number)
{
    json_t *array = json_array();
    const MutexLock lock(eventLog_mutex);
    for (const EventLog &log : ELEMENTS_BACKWARDS(EventLog, node, &eventLogListHead)) {
        if (number-- == 0)
            break;
        json_array_append_new(array, eventLogToJson(&log));
    }
    return array;
}

// The document as text in the pool; null when memory ran out while it was built.
static char *documentText(apr_pool_t *pool, const json_t *root, const JsonMemory &memory)
{
    if (memory.ranOut())
        return nullptr;
    const Owned<char> text(json_dumps_dbg(root, JSON_TEXT_FLAGS));
    return text ? copyToPool(pool, text.get()) : nullptr;
}

char *genRecentEvent(apr_pool_t *pool)
{
    const JsonMemory memory;
    const Owned<json_t> root(json_object());
    json_object_set_new(root.get(), "send.dat_ts", json_integer(configTime()));
    setText(root.get(), "mac", lan_mac);
    json_object_set_new(root.get(), "eventLog", newestEvents(recentLogNum));
    return documentText(pool, root.get(), memory);
}

json_t *macroEventLogToJson(const MacroEventLog *log)
{
    if (!log) {
        LOG(ERROR, "log  is NULL\n");
        return nullptr;
    }
    json_t *object = json_object();
    setText(object, "name", log->name);
    setText(object, "scene", log->scene);
    json_object_set_new(object, "timeStamp", json_integer(log->timeStamp));
    json_object_set_new(object, "sequence", json_integer(log->sequence));
    return object;
}

struct StatusMember {
    const char *key;
    std::atomic<int> *value;
};

static constexpr StatusMember STATUS_MEMBERS[] = {
    {"checkbox", &checkbox},
    {"scene_exec_check_enable", &scene_exec_check_enable},
    {"scene_success", &scene_success},
    {"gateway_app_star", &startupRefreshPending},
    {"deoscene_n_run", &deoscene_n_run},
    {"scene_device_success_number", &scene_device_success_number},
    {"scene_device_number_total", &scene_device_number_total},
};

// A number that another program counts in nvram; without an answer the last one is kept and not
// reported.
static void reportCount(apr_pool_t *pool, json_t *root, const char *nvramKey, const char *key,
                        std::atomic<int> &count)
{
    const char *value = app_dbus_get_nvram(pool, nvramKey);
    if (!value)
        return;
    count = atoi(value);
    json_object_set_new(root, key, json_integer(count));
}

// When the configuration was touched last, as far as anyone knows.
static long long currentConfigTime(time_t now)
{
    static constexpr time_t CLOCK_SET_FROM = 1548069799;
    long long seconds = configTime();
    if (seconds == 0)
        seconds = now;
    if (seconds < san_num)
        seconds = san_num;
    else if (seconds < udn_num)
        seconds = udn_num;
    if (now < CLOCK_SET_FROM)
        seconds = san_num;
    setConfigTime(seconds);
    return seconds;
}

static json_t *eventsFrom(ListNode *head, uint32_t sequence)
{
    json_t *array = json_array();
    const MutexLock lock(eventLog_mutex);
    for (const EventLog &log : ELEMENTS(EventLog, node, head)) {
        if (log.sequence >= sequence)
            json_array_append_new(array, eventLogToJson(&log));
    }
    return array;
}

char *eventLogsToStrBySeq(ListNode *head, uint32_t sequence, apr_pool_t *pool)
{
    const JsonMemory memory;
    const Owned<json_t> root(json_object());
    json_object_set_new(root.get(), "eventLog", eventsFrom(head, sequence));
    for (const StatusMember &member : STATUS_MEMBERS)
        json_object_set_new(root.get(), member.key, json_integer(*member.value));
    const time_t now = time(nullptr);
    json_object_set_new(root.get(), "Now_timeStamp", json_integer(now));
    reportCount(pool, root.get(), "jsongetuserdata_number", "udn", udn_num);
    reportCount(pool, root.get(), "jsonsetall_number", "san", san_num);
    json_object_set_new(root.get(), "send.dat_ts", json_integer(currentConfigTime(now)));
    return documentText(pool, root.get(), memory);
}

static json_t *macroEventsFrom(ListNode *head, uint32_t sequence)
{
    json_t *array = json_array();
    const MutexLock lock(macroEventLog_mutex);
    for (const MacroEventLog &log : ELEMENTS(MacroEventLog, node, head)) {
        if (log.sequence >= sequence)
            json_array_append_new(array, macroEventLogToJson(&log));
    }
    return array;
}

char *macroEventLogsToStrBySeq(ListNode *head, uint32_t sequence, apr_pool_t *pool)
{
    const JsonMemory memory;
    const Owned<json_t> root(json_object());
    json_object_set_new(root.get(), "macroEventLog", macroEventsFrom(head, sequence));
    setText(root.get(), "mac", lan_mac);
    return documentText(pool, root.get(), memory);
}
