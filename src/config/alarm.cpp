#include "config/alarm.h"

#include "config/json_fields.h"

#include <cstdlib>

Alarm *ovrinAlarm;

static constexpr Alarm DEFAULT_ALARM = {
    .duration = 3, .enabled = 0, .siren_type = 1, .trigger_duration = 3};

static constexpr JsonField<Alarm> ALARM_FIELDS[] = {
    {"duration", &Alarm::duration},
    {"enabled", &Alarm::enabled},
    {"siren_type", &Alarm::siren_type},
    {"trigger_duration", &Alarm::trigger_duration},
};

Alarm *callocAlarm()
{
    return callocRecord<Alarm>();
}

void ensureAlarm()
{
    if (ovrinAlarm)
        return;
    ovrinAlarm = callocAlarm();
    if (ovrinAlarm)
        *ovrinAlarm = DEFAULT_ALARM;
}

int copyAlarmSetting(Alarm *destination, const Alarm *source)
{
    if (!source) {
        LOG(ERROR, "src == NULL\n");
        return -1;
    }
    *destination = *source;
    return 1;
}

void freeAlarm()
{
    free(ovrinAlarm);
    ovrinAlarm = nullptr;
}

int setAlarm(json_t *object)
{
    const MutexLock lock(alarm_mutex);
    int stored = 0;
    if (!ovrinAlarm) {
        // Deliberate: members that the first "alarm" leaves out stay 0; the defaults are for an
        // alarm nobody has set.
        ovrinAlarm = callocAlarm();
        if (!ovrinAlarm) {
            LOG(ERROR, "callocAlarm return NULL\n");
            return 0;
        }
        stored = 1;
    }
    return stored | readFields(object, *ovrinAlarm, ALARM_FIELDS);
}

json_t *alarmToJson(const Alarm *alarm)
{
    if (!alarm)
        return nullptr;
    json_t *object = json_object();
    writeFields(object, *alarm, ALARM_FIELDS);
    return object;
}
