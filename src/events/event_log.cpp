#include "events/event_log.h"

#include "main/locks.h"
#include "main/log.h"
#include "main/util.h"
#include "scene/runner.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <sys/time.h>

ListNode eventLogListHead = {&eventLogListHead, &eventLogListHead};
ListNode macroEventLogListHead = {&macroEventLogListHead, &macroEventLogListHead};

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
    if (data->macro)
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

void continueEventSequence(uint64_t last)
{
    const MutexLock lock(eventLog_mutex);
    lastSequence = last;
}
