// The alarm settings: one record, made on first use. The caller holds alarm_mutex.

#pragma once

#include "config/record.h"
#include "main/locks.h"

#include <jansson.h>

struct Alarm {
    Integer duration;  // seconds that the sirens sound
    Integer enabled;   // home security is armed
    Integer siren_type;
    Integer trigger_duration;  // seconds of delay before they sound
};

extern Alarm *ovrinAlarm LOCKING(guarded_by(alarm_mutex));

// Zero-filled.
Alarm *callocAlarm();
// Makes the settings with their defaults when there are none: duration 3, enabled 0, siren_type 1,
// trigger_duration 3.
void ensureAlarm() LOCKING(requires_capability(alarm_mutex));
// 1, or -1 without a source.
int copyAlarmSetting(Alarm *destination, const Alarm *source);
// Frees the settings; ovrinAlarm is null afterwards.
void freeAlarm() LOCKING(requires_capability(alarm_mutex));

// 1 when something was stored or created, else 0. Locks alarm_mutex.
int setAlarm(json_t *object);
json_t *alarmToJson(const Alarm *alarm);
