// The device snapshot: one picture of every device and channel that the SDK daemon knows, replaced
// as a whole.

#pragma once

#include "config/device.h"
#include "main/locks.h"

#include <apr_pools.h>
#include <jansson.h>

// The current snapshot; null before the first fetch and after a fetch that gave nothing.
extern GetDev *allDevs LOCKING(guarded_by(allDevs_mutex));

// Fetches every device from the SDK daemon and replaces the snapshot; a failure leaves none. Locks
// allDevs_mutex, but not while it waits for the reply.
void updateAllDev(apr_pool_t *pool);

// True when there is a snapshot that holds a device. Locks allDevs_mutex.
bool snapshotHasDevices();

// Parses a "getdevice" reply into a new root that the caller frees; null when it is no JSON object,
// or without memory.
GetDev *setGetDevice(const char *text);
// The levels of that parse. False, or null, without memory.
bool setGetDevice_device(json_t *array, ListNode *head);
bool setGetDevice_device_channel(json_t *array, ListNode *head);
GetDev_channel_meter *setGetDevice_device_channel_meter(json_t *object);
GetDev_channel_switch_color *setGetDevice_device_channel_switch_color(json_t *object);

// The nested objects of an event log; null for null.
json_t *meterToJson(const GetDev_channel_meter *meter);
// Its components are those that were parsed last.
json_t *switchcolorToJson(const GetDev_channel_switch_color *color);
