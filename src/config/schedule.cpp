#include "config/schedule.h"

#include "config/json_fields.h"
#include "config/text_index.h"

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

static void lookForMacro(const char *title, TextIndex<Macro> &macros)
{
    if (!title)
        return;
    const MutexLock lock(macroList_mutex);
    if (!macros.find(title))
        LOG_AS("setSchedules", DEBUG, "macro %s of the schedule is not known\n", title);
}

static void logUnknown(const char *caller, const char *title)
{
    LOG_AS(caller, INFO, "schedule %s not found, add new schedule\n", title ? title : "");
}

static int setSchedule(json_t *object, TextIndex<Schedule> &schedules)
{
    const MutexLock lock(schedulesList_mutex);
    const char *title = memberText(object, "title");
    Schedule *schedule = schedules.find(title);
    if (!schedule) {
        logUnknown("setSchedules", title);
        schedule = callocSchedule();
        if (!schedule) {
            LOG_AS("setSchedules", ERROR, "callocSchedule fail.\n");
            return 0;
        }
        JsonStrCopy(schedule->title, title);
        listAddTail(&schedule->node, &schedulesListHead);
        schedules.add(*schedule);
    }
    setMacroOfSchedule(json_object_get(object, "macro"), *schedule);
    readFields(object, *schedule, SCHEDULE_FIELDS);
    return 1;
}

int setSchedules(json_t *array)
{
    const size_t size = json_array_size(array);
    TextIndex<Schedule> schedules(ELEMENTS(Schedule, node, &schedulesListHead), &Schedule::title,
                                  size);
    TextIndex<Macro> macros(ELEMENTS(Macro, node, &macrosListHead), &Macro::title, size);
    int stored = 0;
    for (json_t *schedule : OBJECTS(array, "Macros %d is not an object\n")) {
        lookForMacro(memberText(schedule, "macro"), macros);
        stored |= setSchedule(schedule, schedules);
    }
    return stored;
}

static int delMacroOfSchedule(json_t *value, Schedule &schedule)
{
    if (json_is_object(value))
        return delMacro(value, &schedule.macros);
    if (strcmp(json_string_value(value), schedule.macro) != 0)
        return 0;
    schedule.macro[0] = '\0';
    return 1;
}

int delSchedules(json_t *array)
{
    int deleted = 0;
    for (json_t *object : OBJECTS(array, "Macros %d is not an object\n")) {
        const char *title = memberText(object, "title");
        const MutexLock lock(schedulesList_mutex);
        Schedule *schedule = searchSchedule(&schedulesListHead, title);
        if (!schedule) {
            logUnknown(__func__, title);  // Deliberate: the text of setting serves here too.
            break;
        }
        json_t *macro = json_object_get(object, "macro");
        if (json_is_object(macro) || json_is_string(macro)) {
            deleted |= delMacroOfSchedule(macro, *schedule);
        } else {
            freeSchedule(schedule);
            deleted = 1;
        }
    }
    return deleted;
}

int renameScheduleTitle(const char *oldTitle, const char *newTitle)
{
    const MutexLock lock(schedulesList_mutex);
    return renameTitle(ELEMENTS(Schedule, node, &schedulesListHead), oldTitle, newTitle);
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
