// Does a trigger hold for the event that has just been logged? Nothing here locks a list; the
// caller holds macroList_mutex for a list of macros, or for the triggers of one.

#pragma once

#include "config/macro.h"
#include "config/trigger.h"
#include "events/event_log.h"

#include <cstdint>

// 1 when the trigger holds, 0 when it does not, -1 when an argument is null; callers take any other
// than 0 as "holds".
int32_t checkTrigger(const Trigger *trigger, const GetDev_channel *channel,
                     const LoggedEvent *event);

// 1 when some trigger of the list is on that device, else 0. A null list is an empty one, here and
// below.
int findDevFromTriggers(ListNode *triggers, Integer gid);

// The greatest priority of the list's macros, at least 0; -1 for an empty list.
Integer findMaxPriorityFromMacros(ListNode *macros);

// Frees every macro below the greatest priority that has a trigger on that device (Macro_op_mutex
// is taken). The list, or null when it is null or empty. Deliberate: the event path does not call
// it; a priority does not decide which macros fire.
ListNode *keepMaxPriority(ListNode *macros, Integer gid);
