// Macro threads: one record for each thread of a macro whose trigger fired. All threads of all
// macros share the list, oldest first. The caller holds doSceneThrList_mutex.

#pragma once

#include "config/device.h"
#include "config/macro.h"
#include "main/waits.h"

#include <pthread.h>

struct TriggerThrData {
    pthread_t thread;  // written by thread creation; 0 when that failed
    int threadFailed;  // the thread could not be created
    int outdated;      // a newer thread of the same macro has replaced this one; written by its own
                       // thread only
    WaitPoint wait;    // interrupted when a newer thread of the macro starts
    Macro *macro;      // owned copies of what fired
    GetDev_channel *channel;
    GetDev_dev *device;
    ListNode node;
};

extern ListNode doSceneThrListHead LOCKING(guarded_by(doSceneThrList_mutex));

TriggerThrData *callocTriggerThrData();
// Unlinks the record and frees it with its copies.
void freeTriggerThrData(TriggerThrData *data);
void listTriggerThrDataList(ListNode *head);

// How many records belong to the macro of that title; 0 for a null or empty list.
int countDoSceneThdListItems(ListNode *head, const char *title);
// The oldest, and the newest, record of the macro of that title, or null.
TriggerThrData *searchMacroInTriggerThrList(ListNode *head, const char *macroTitle);
TriggerThrData *searchLastMacroInTriggerThrList(ListNode *head, const char *macroTitle);
