#include "config/event_filter.h"

#include "config/json_fields.h"

ListNode eventFilterListHead = {&eventFilterListHead, &eventFilterListHead};

struct FilterField {
    const char *key;
    Integer EventFilter::*field;
};

// Not a JsonField table: an absent member is -1, and a negative field is left out.
static constexpr FilterField FILTER_FIELDS[] = {
    {"uid", &EventFilter::uid},
    {"channel", &EventFilter::channel},
    {"eventCode", &EventFilter::eventCode},
};

EventFilter *callocEventFilter()
{
    auto *filter = callocRecord<EventFilter>();
    if (filter)
        listInit(&filter->node);
    return filter;
}

static bool sameField(Integer value, Integer other)
{
    return (value < 0 && other < 0) || value == other;
}

EventFilter *searchEventFliter(ListNode *head, Integer uid, Integer channel, Integer eventCode)
{
    if (uid < 0 && channel < 0 && eventCode < 0) {
        LOG(ERROR, "uid, channel, eventCode all small than zero\n");
        return nullptr;
    }
    for (EventFilter &filter : ELEMENTS_BACKWARDS(EventFilter, node, head)) {
        if (sameField(filter.uid, uid) && sameField(filter.channel, channel) &&
            sameField(filter.eventCode, eventCode))
            return &filter;
    }
    return nullptr;
}

void freeEventFilter(EventFilter *filter)
{
    listDel(&filter->node);
    freeMem(filter);
}

void freeEventFilterList(ListNode *head)
{
    if (!hasHead(head))
        return;
    for (EventFilter &filter : ELEMENTS(EventFilter, node, head))
        freeEventFilter(&filter);
}

static EventFilter readFilter(const json_t *object)
{
    EventFilter filter = {};
    for (const FilterField &member : FILTER_FIELDS) {
        const json_t *value = json_object_get(object, member.key);
        filter.*member.field = json_is_integer(value) ? json_integer_value(value) : -1;
    }
    return filter;
}

int addEventFilter(json_t *object, ListNode *head)
{
    const EventFilter wanted = readFilter(object);
    const MutexLock lock(eventFilter_mutex);
    if (searchEventFliter(head, wanted.uid, wanted.channel, wanted.eventCode))
        return 1;  // stored already
    EventFilter *filter = callocEventFilter();
    if (!filter)
        return 0;
    *filter = wanted;
    listAddTail(&filter->node, head);
    return 1;
}

int setEventFilter(json_t *array)
{
    int stored = 0;
    for (json_t *filter : OBJECTS(array, "filter %d is not an object\n"))
        stored |= addEventFilter(filter, &eventFilterListHead);
    return stored;
}

int delEventFilter(json_t *object, ListNode *head)
{
    const EventFilter named = readFilter(object);
    const MutexLock lock(eventFilter_mutex);
    EventFilter *filter = searchEventFliter(head, named.uid, named.channel, named.eventCode);
    if (!filter)
        return 0;
    freeEventFilter(filter);
    return 1;
}

int delEventFilters(json_t *array)
{
    int deleted = 0;
    for (json_t *filter : OBJECTS(array, "filter %d is not an object\n"))
        deleted |= delEventFilter(filter, &eventFilterListHead);
    return deleted;
}

static json_t *filterToJson(const EventFilter *filter)
{
    json_t *object = json_object();
    for (const FilterField &member : FILTER_FIELDS) {
        if (filter->*member.field >= 0)
            json_object_set_new(object, member.key, json_integer(filter->*member.field));
    }
    return object;
}

json_t *eventFilterToJson(ListNode *head)
{
    return arrayOf(ELEMENTS(EventFilter, node, head), filterToJson);
}
