#include "config/schedule.h"

#include "config/json_fields.h"

ListNode schedulesListHead = {&schedulesListHead, &schedulesListHead};

static constexpr JsonField<Schedule> SCHEDULE_FIELDS[] = {
    {"title", &Schedule::title,
     WRITE},  // read beside the table: only a new schedule takes its title
    {"icon_name", &Schedule::icon_name},
    {"icon", &Schedule::icon},
    {"enabled", &Schedule::enabled},
    {"home_security_alarm", &Schedule::home_security_alarm},
    {"repeat_type", &Schedule::repeat_type},
    {"weekdays", &Schedule::weekdays},
    {"start_minute", &Schedule::start_minute},
    {"start_hour", &Schedule::start_hour},
    {"start_day", &Schedule::start_day},
    {"start_month", &Schedule::start_month},
    {"end_minute", &Schedule::end_minute},
    {"end_hour", &Schedule::end_hour},
    {"end_day", &Schedule::end_day},
    {"end_month", &Schedule::end_month},
    {"invisible", &Schedule::invisible, WRITE},  // written from the record, never set by a document
};

Schedule *callocSchedule()
{
    auto *schedule = callocRecord<Schedule>();
    if (schedule) {
        listInit(&schedule->macros);
        listInit(&schedule->node);
    }
    return schedule;
}

Schedule *searchSchedule(ListNode *head, const char *title)
{
    return findByText(ELEMENTS(Schedule, node, head), &Schedule::title, title);
}

void freeSchedule(Schedule *schedule)
{
    listDel(&schedule->node);
    freeMacros(&schedule->macros);
    freeMem(schedule);
}

void freeSchedules(ListNode *head)
{
    if (!hasHead(head))
        return;
    for (Schedule &schedule : ELEMENTS(Schedule, node, head))
        freeSchedule(&schedule);
}

void listSchedules(ListNode *head)
{
    for (Schedule &schedule : ELEMENTS(Schedule, node, head)) {
        LOG(DEBUG, "title: %s macro: %s enabled: %lld weekdays: %lld from %lld:%lld to %lld:%lld\n",
            schedule.title, schedule.macro, schedule.enabled, schedule.weekdays,
            schedule.start_hour, schedule.start_minute, schedule.end_hour, schedule.end_minute);
        listMacros(&schedule.macros);
    }
}

// "macro" is irregular: a text names a macro of the macros list, an object is the schedule's own.
// Neither replaces the other.
static int setMacroOfSchedule(json_t *value, Schedule &schedule)
{
    if (json_is_string(value))
        return JsonStrCopy(schedule.macro, json_string_value(value));
    return json_is_object(value) ? setMacro(value, &schedule.macros) : 0;
}

static void lookForMacro(const char *title)
{
    if (!title)
        return;
    const MutexLock lock(macroList_mutex);
    if (!searchMacro(&macrosListHead, title))
        LOG_AS("setSchedules", DEBUG, "macro %s of the schedule is not known\n", title);
}

static int setSchedule(json_t *object)
{
    lookForMacro(memberText(object, "macro"));

    const MutexLock lock(schedulesList_mutex);
    const char *title = memberText(object, "title");
    Schedule *schedule = searchSchedule(&schedulesListHead, title);
    if (!schedule) {
        LOG_AS("setSchedules", INFO, "schedule %s not found, add new schedule\n",
               title ? title : "");
        schedule = callocSchedule();
        if (!schedule) {
            LOG_AS("setSchedules", ERROR, "callocSchedule fail.\n");
            return 0;
        }
        JsonStrCopy(schedule->title, title);
        listAddTail(&schedule->node, &schedulesListHead);
    }
    setMacroOfSchedule(json_object_get(object, "macro"), *schedule);
    readFields(object, *schedule, SCHEDULE_FIELDS);
    return 1;
}

int setSchedules(json_t *array)
{
    int stored = 0;
    for (json_t *schedule : OBJECTS(array, "Macros %d is not an object\n"))
        stored |= setSchedule(schedule);
    return stored;
}

json_t *scheduleToJson(const Schedule *schedule)
{
    if (!schedule) {
        LOG(ERROR, "schedule is NULL\n");
        return nullptr;
    }
    json_t *object = json_object();
    writeFields(object, *schedule, SCHEDULE_FIELDS);
    if (schedule->macro[0] != '\0')
        json_object_set_new(object, "macro", json_string(schedule->macro));
    else if (!listEmpty(&schedule->macros))
        json_object_set_new(object, "macro",
                            macroToJson(FIRST_ELEMENT(Macro, node, &schedule->macros)));
    return object;
}

json_t *schedulesToJson(ListNode *head)
{
    return arrayOf(ELEMENTS(Schedule, node, head), scheduleToJson);
}

json_t *schedulesTitleToJson(ListNode *head)
{
    return arrayOf(ELEMENTS(Schedule, node, head), titleToJson<Schedule>);
}
