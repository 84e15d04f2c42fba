// The time-table: commands that are planned and wait for their time. The caller holds
// TheadList_mutex.

#pragma once

#include "config/record.h"
#include "main/locks.h"

#include <cstdint>

struct TARGET_Comp {
    int32_t position;  // in its scene, from 1
    int32_t value;     // the low 32 bits of the comp's value
    uint32_t timer;    // planned time, millisecond stamp
    int32_t seconds;   // of the clock when it was planned
    TargetId target;
    ListNode node;
};

extern ListNode TheadListHead LOCKING(guarded_by(TheadList_mutex));

TARGET_Comp *callocTARGET_Comp();
// The entry planned for exactly this stamp, or null. It is still queued: whoever finds it may look
// at it, not use it anew.
TARGET_Comp *searchTargetComp(uint32_t timer, ListNode *head);
// Unlinks and returns the first entry that is due: planned for `now` or before, and by more than
// the time-out. The caller owns it; null when none is due. Stamps wrap every 1,000,000 s and are
// compared as they are.
TARGET_Comp *searchanddelTargetComp(uint32_t now, int32_t timeout, ListNode *head);
void freeTARGETComps(ListNode *head);
