// The event queue: a ring of 20 slots between the bus listener, which pushes device events, and one
// worker thread, which hands them to the registered handler one at a time. It is deliberately small
// and lossy: a full queue drops the new event.
//
// States: not started (pushes are ignored) → running (equeue_thread_init) → draining (app_quit is
// set) → ended.

#pragma once

#include "main/locks.h"

#include <cstdint>

struct DeviceEvent {
    uint16_t eventCode;
    uint16_t gid;
    uint8_t channelID;
    uint8_t hasPayload;
    char *payload;  // owned; null without a payload
};

// Takes the event over and frees it, and its payload, when done.
using EventHandler = int (*)(DeviceEvent *event);

// A zero-filled event, or null without memory.
DeviceEvent *callocDeviceEvent();
void freeDeviceEvent(DeviceEvent *event);

// Called once, before the thread starts.
void equeue_doEvent_register(EventHandler handler);

// Empties the ring and starts the worker. Returns 0, also when the thread could not be created:
// every push is then ignored.
int equeue_thread_init();

// Hands the event over; the caller never touches it again. It is freed when it cannot be queued:
// the queue has not been started, is full or the process is ending. Waits while the worker handles
// an event, which throttles the producer.
void equeue_push(DeviceEvent *event);

// Queues for a caller that holds the mutex, without waking the worker; false when the event cannot
// be queued and stays the caller's.
bool equeue_pushLocked(DeviceEvent *event) LOCKING(requires_capability(equeue_mutex));
