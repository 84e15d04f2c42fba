// The two journals, kept in memory only: every device event, and every run of a macro. Each record
// has a sequence number, so that a client can ask for what is new to it.

#pragma once

#include "config/device.h"
#include "config/scene.h"
#include "config/trigger_thread.h"

#include <cstdint>

struct EventLog {
    Integer eventCode;
    Integer uid;
    Integer channelID;
    Integer productCode;  // -1 when it is not known
    Integer funcType;
    Integer sensorValue;
    Integer basicValue;
    Integer Dim_ON_Value;
    Integer dataUnit;
    Integer Scene_schedule_time;
    uint32_t sequence;
    Text funcName;
    Integer timeStamp;     // seconds
    Integer timeStamp_ms;  // the milliseconds of that second
    GetDev_channel_meter *meter;
    GetDev_channel_switch_color *switch_color;
    char *payload;
    Integer battery;
    ListNode node;
};

struct MacroEventLog {
    Integer sequence;
    char *name;   // of the macro; owned, null when unknown
    char *scene;  // its name; owned, null when unknown
    Integer timeStamp;
    ListNode node;
};

static constexpr int EVENT_LOG_CAPACITY = 200;
static constexpr int MACRO_EVENT_LOG_CAPACITY = 100;
static constexpr Integer EVENT_PUSH_SENT = 5032;

// Oldest first.
extern ListNode eventLogListHead LOCKING(guarded_by(eventLog_mutex));
extern ListNode macroEventLogListHead LOCKING(guarded_by(macroEventLog_mutex));

EventLog *callocEventLog();
MacroEventLog *callocMacroEventLog();
// Each unlinks the record and frees it with what it owns.
void freeEventLog(EventLog *log);
void freeMacroEventLog(MacroEventLog *log);

// What an event's steps need of its record: the record itself may be dropped at any time by later
// ones.
struct LoggedEvent {
    Integer uid;
    Integer channelID;
    Integer productCode;
    Integer funcType;
};

// Logs an event; `payload`, `device` and `channel` may be null. `logged` gets what the event's
// later steps need. False without memory: nothing is logged then.
bool addEventLog(Integer eventCode, Integer gid, Integer channelID, const char *payload,
                 const GetDev_dev *device, const GetDev_channel *channel, LoggedEvent *logged);

// Logs a macro run. Returns a copy of the record for its announcement, which the caller frees with
// freeMacroEventLog; null without a record or memory. `scene` may be null.
MacroEventLog *addMacroEventLog(const TriggerThrData *data, const Scene *scene);

// The same for an alarm: no macro, and "Home Security Alarm" for the scene.
MacroEventLog *addMacroEventLogInAlarm();

// For tests: the next event gets the number after this one.
void continueEventSequence(uint64_t last);
