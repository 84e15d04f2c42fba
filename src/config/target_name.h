// Target names: the user's names for device channels, by the key "dev.if.ch". Nothing here locks
// but setTargetNames and delTargetNames; the caller holds targetNamesList_mutex.

#pragma once

#include "config/record.h"
#include "main/locks.h"

#include <jansson.h>

struct TargetName {
    Text key;
    Text value;
    ListNode node;
};

extern ListNode targetNamesListHead LOCKING(guarded_by(targetNamesList_mutex));

TargetName *callocTargetName();
TargetName *searchTargetName(ListNode *head, const char *key);
void freeTargetName(TargetName *name);
void freeTargetNames(ListNode *head);

// 1 when something was stored or created, else 0. Locks targetNamesList_mutex.
int setTargetNames(json_t *object);

// Deletes the names of the object's members, whatever their values. 1 when one was deleted, else 0.
// Locks targetNamesList_mutex.
int delTargetNames(json_t *object);

// One member for each name.
json_t *targetNamesToJson(ListNode *head);
