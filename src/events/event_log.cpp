#include "events/event_log.h"

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

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <span>
#include <sys/time.h>

ListNode eventLogListHead = {&eventLogListHead, &eventLogListHead};
ListNode macroEventLogListHead = {&macroEventLogListHead, &macroEventLogListHead};
std::atomic<uint32_t> recentLogNum{1};
std::atomic<uint32_t> seqold;

static int eventLogCount LOCKING(guarded_by(eventLog_mutex));
static uint64_t lastSequence LOCKING(guarded_by(eventLog_mutex));
static int macroEventLogCount LOCKING(guarded_by(macroEventLog_mutex));
static Integer lastMacroSequence LOCKING(guarded_by(macroEventLog_mutex));

EventLog *callocEventLog()
{
    auto *log = callocRecord<EventLog>();
    if (log)
        listInit(&log->node);
    return log;
}

MacroEventLog *callocMacroEventLog()
{
    auto *log = callocRecord<MacroEventLog>();
    if (log)
        listInit(&log->node);
    return log;
}

void freeEventLog(EventLog *log)
{
    listDel(&log->node);
    free(log->meter);
    free(log->switch_color);
    free(log->payload);
    freeMem(log);
}

void freeMacroEventLog(MacroEventLog *log)
{
    listDel(&log->node);
    free(log->name);
    free(log->scene);
    freeMem(log);
}

// A product code as the device reports it, hexadecimal; -1 when it is none.
static Integer parseProductCode(const char *code)
{
    char *end = nullptr;
    errno = 0;
    const Integer value = strtoll(code, &end, 16);
    return end == code || errno != 0 ? -1 : value;
}

static void fillFromChannel(EventLog &log, const GetDev_channel &channel)
{
    log.funcType = channel.functype;
    log.dataUnit = channel.sensorunit;
    log.basicValue = channel.basicvalue;
    log.Dim_ON_Value = channel.Dim_ON_Value;
    log.sensorValue = channel.sensorvalue;
    strcpy(log.funcName, channel.name);
    log.switch_color = copyGetDev_dev_channel_switch_color(channel.switch_color);
    if (channel.meter)
        log.meter = copyGetDev_dev_channel_meter(channel.meter);
}

static void dropOldest() LOCKING(requires_capability(eventLog_mutex))
{
    freeEventLog(FIRST_ELEMENT(EventLog, node, &eventLogListHead));
    --eventLogCount;
}

bool addEventLog(Integer eventCode, Integer gid, Integer channelID, const char *payload,
                 const GetDev_dev *device, const GetDev_channel *channel, LoggedEvent *logged)
{
    timeval now;
    gettimeofday(&now, nullptr);
    *logged = {.uid = gid,
               .channelID = channelID,
               .productCode = device ? parseProductCode(device->code) : -1,
               .funcType = channel ? channel->functype : 0};
    EventLog *log = callocEventLog();
    if (!log)
        return false;
    log->eventCode = eventCode;
    log->uid = gid;
    log->channelID = channelID;
    log->payload = copyText(payload);
    log->productCode = logged->productCode;
    if (device)
        log->battery = device->battery;
    if (channel)
        fillFromChannel(*log, *channel);
    log->Scene_schedule_time = json_last_time();
    log->timeStamp = now.tv_sec;
    log->timeStamp_ms = now.tv_usec / 1000;

    const MutexLock lock(eventLog_mutex);
    log->sequence = static_cast<uint32_t>(++lastSequence);
    listAddTail(&log->node, &eventLogListHead);
    if (++eventLogCount > EVENT_LOG_CAPACITY)
        dropOldest();
    return true;
}

static MacroEventLog *copyMacroEventLog(const MacroEventLog &source)
{
    MacroEventLog *copy = callocMacroEventLog();
    if (!copy)
        return nullptr;
    copy->sequence = source.sequence;
    copy->name = copyText(source.name);
    copy->scene = copyText(source.scene);
    copy->timeStamp = source.timeStamp;
    return copy;
}

// Takes the record into the journal; a copy for its announcement.
static MacroEventLog *enterMacroEventLog(MacroEventLog *log)
{
    log->timeStamp = time(nullptr);
    const MutexLock lock(macroEventLog_mutex);
    log->sequence = ++lastMacroSequence;
    listAddTail(&log->node, &macroEventLogListHead);
    MacroEventLog *copy = copyMacroEventLog(*log);
    if (++macroEventLogCount > MACRO_EVENT_LOG_CAPACITY) {
        freeMacroEventLog(FIRST_ELEMENT(MacroEventLog, node, &macroEventLogListHead));
        --macroEventLogCount;
    }
    return copy;
}

MacroEventLog *addMacroEventLog(const TriggerThrData *data, const Scene *scene)
{
    if (!data) {
        LOG(ERROR, "data is NULL.\n");
        return nullptr;
    }
    MacroEventLog *log = callocMacroEventLog();
    if (!log)
        return nullptr;
    if (data->macro && data->macro->title[0] != '\0')
        log->name = copyText(data->macro->title);
    else
        LOG(ERROR, "data->macroTitle is NULL\n");
    if (scene)
        log->scene = copyText(scene->title);
    else
        LOG(ERROR, "data->macro->title is NULL\n");
    return enterMacroEventLog(log);
}

MacroEventLog *addMacroEventLogInAlarm()
{
    MacroEventLog *log = callocMacroEventLog();
    if (!log)
        return nullptr;
    log->scene = copyText("Home Security Alarm");
    return enterMacroEventLog(log);
}

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

char *genRecentEvent(apr_pool_t *pool)
{
    const JsonMemory memory;
    const Owned<json_t> root(json_object());
    json_object_set_new(root.get(), "send.dat_ts", json_integer(configTime()));
    setText(root.get(), "mac", lan_mac);
    json_object_set_new(root.get(), "eventLog", newestEvents(recentLogNum));
    if (memory.ranOut())
        return nullptr;
    const Owned<char> text(json_dumps_dbg(root.get(), JSON_TEXT_FLAGS));
    return text ? copyToPool(pool, text.get()) : nullptr;
}
