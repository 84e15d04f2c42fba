// Triggers: the conditions of a macro. A trigger lives in its macro; the caller holds what guards
// the macro.

#pragma once

#include "config/record.h"

#include <jansson.h>

struct Trigger {
    Text op;
    Text field;
    Integer duration;  // seconds
    Integer threshold;
    Integer dataunit;  // 1 Celsius, 2 Fahrenheit
    TargetId target;
    ListNode node;
};

Trigger *callocTrigger();
Trigger *copyTrigger(const Trigger *source);
// Appends copies of the source's triggers; false without memory.
bool copyTriggers(const ListNode *source, ListNode *destination);
Trigger *searchTrigger(Integer dev, Integer if_, Integer ch, ListNode *head);
void freeTrigger(Trigger *trigger);
void freeTriggers(ListNode *head);
void listTrigger(const Trigger *trigger);
void listTriggers(ListNode *head);

// 1 when something was stored or created, else 0.
int setTrigger(json_t *array, ListNode *head);
// Deletes each trigger whose target the array names; 1 when one was deleted, else 0.
int delTrigger(json_t *array, ListNode *head);
json_t *triggerToJson(const Trigger *trigger);
