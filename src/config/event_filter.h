// Event filters: which events are not announced. A negative field is not set. Nothing here locks
// but addEventFilter and delEventFilter; the caller holds eventFilter_mutex.

#pragma once

#include "config/record.h"
#include "main/locks.h"

#include <jansson.h>

struct EventFilter {
    Integer uid;
    Integer channel;
    Integer eventCode;
    ListNode node;
};

extern ListNode eventFilterListHead LOCKING(guarded_by(eventFilter_mutex));

EventFilter *callocEventFilter();
// The newest filter whose fields are each equal to the given one, or both not set; null when there
// is none, or when nothing is given at all.
EventFilter *searchEventFliter(ListNode *head, Integer uid, Integer channel, Integer eventCode);
void freeEventFilter(EventFilter *filter);
void freeEventFilterList(ListNode *head);

// Each returns 1 when something was stored or created, else 0.
int setEventFilter(json_t *array);
int addEventFilter(json_t *object, ListNode *head);  // locks eventFilter_mutex

// Each returns 1 when something was deleted, else 0.
int delEventFilters(json_t *array);
int delEventFilter(json_t *object, ListNode *head);  // locks eventFilter_mutex

json_t *eventFilterToJson(ListNode *head);
