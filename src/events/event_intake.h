// Device events: the one handler that the event queue calls, on its worker thread. Every automation
// starts here.

#pragma once

#include "config/event_filter.h"
#include "main/equeue.h"

// Handles one event and frees it. Returns 0. The tick stands still meanwhile.
int doEvent(DeviceEvent *event);

// The newest filter that matches the event, or null. A filter's negative field matches anything.
// The caller holds eventFilter_mutex.
EventFilter *filterEvent(ListNode *filterList, Integer gid, Integer channelID, Integer eventCode);
