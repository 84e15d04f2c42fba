// The journals as JSON documents: what is announced, and what clients read back.

#pragma once

#include "events/event_log.h"

#include <apr_pools.h>
#include <atomic>
#include <jansson.h>

extern std::atomic<uint32_t> recentLogNum;  // records in a "recent" document
extern std::atomic<uint32_t> seqold;        // the sequence that was serialized last
extern std::atomic<int> udn_num;            // what other programs count in nvram: changes of the
extern std::atomic<int> san_num;            // user data, and of the configuration, in seconds

// The document of a macro event, as text that the caller frees.
char *genMacroEvent(const MacroEventLog *log);

// Announces what an add… function returned as "MacroEvent", and frees it; null is left out. Locks
// macroEvent_mutex.
void announceMacroEvent(MacroEventLog *log);

// New values that the caller owns; null for null. The caller holds the list's mutex for a listed
// record. Serializing an older event than the last one resets sunrise and sunset.
json_t *eventLogToJson(const EventLog *log);
json_t *macroEventLogToJson(const MacroEventLog *log);

// The "recent" document, in the pool; null without memory. Locks eventLog_mutex.
char *genRecentEvent(apr_pool_t *pool);

// Everything from a sequence number on, oldest first, in the pool; null without memory. The events
// come with the state of the gateway, for which nvram is asked. Each locks its journal, but not
// while it asks.
char *eventLogsToStrBySeq(ListNode *head, uint32_t sequence, apr_pool_t *pool);
char *macroEventLogsToStrBySeq(ListNode *head, uint32_t sequence, apr_pool_t *pool);
