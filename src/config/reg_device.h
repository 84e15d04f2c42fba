// Phones registered for push notifications, found by their token. Nothing here locks but
// setRegisteredDevices and delRegisterDevices; the caller holds pushDevList_mutex.

#pragma once

#include "config/record.h"
#include "main/locks.h"

#include <jansson.h>

static constexpr size_t TOKEN_SIZE = 1024;

struct RegDevice {
    Text app_id;
    Text email;
    Text password;
    Text platform;  // "ios" or "android"
    char token[TOKEN_SIZE];
    Text username;
    Text ver;
    Text gateway_name;
    Integer disable_notifications;
    Integer update_ts;
};

// The list element that carries a phone.
struct RegDevices {
    RegDevice *device;  // owned
    ListNode node;
};

extern ListNode pushDevsListHead LOCKING(guarded_by(pushDevList_mutex));

RegDevice *callocRegDevice();
// With its RegDevice; null without memory.
RegDevices *callocRegDevices();
// Copies the whole phone into a new one.
RegDevice *copyRegDev(const RegDevice *source);
RegDevices *searchRegDev(ListNode *head, const char *token);
// The phone to keep of duplicates: the one registered earliest; of two of the same time, the one
// that names its gateway.
RegDevices *searchEarlyPushDev(ListNode *head);
void addRegDevToList(RegDevices *device, ListNode *head);

void freeRegDev(RegDevice *device);
void free_reg_dev_info(RegDevices *device);
void free_reg_dev_info_list(ListNode *head);

// Each returns 1 when something was stored or created, else 0.
int setRegisteredDevices(json_t *array);  // locks pushDevList_mutex
int setRegisteredDevice(json_t *object, ListNode *head);

// 1 when something was deleted, else 0. Locks pushDevList_mutex.
int delRegisterDevices(json_t *array);

json_t *registeredDevicesToJson(ListNode *head);
