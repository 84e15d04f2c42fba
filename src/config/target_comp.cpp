#include "config/target_comp.h"

ListNode TheadListHead = {&TheadListHead, &TheadListHead};

TARGET_Comp *callocTARGET_Comp()
{
    auto *entry = callocRecord<TARGET_Comp>();
    if (entry)
        listInit(&entry->node);
    return entry;
}

TARGET_Comp *searchTargetComp(uint32_t timer, ListNode *head)
{
    for (TARGET_Comp &entry : ELEMENTS(TARGET_Comp, node, head)) {
        if (entry.timer == timer)
            return &entry;
    }
    return nullptr;
}

static bool isDue(const TARGET_Comp &entry, uint32_t now, int32_t timeout)
{
    // Deliberate: the stamps' wrap is not handled; the arithmetic is that of 32-bit words.
    const uint32_t overdue = now - (entry.timer + static_cast<uint32_t>(timeout));
    return entry.timer <= now && static_cast<int32_t>(overdue) > 0;
}

TARGET_Comp *searchanddelTargetComp(uint32_t now, int32_t timeout, ListNode *head)
{
    for (TARGET_Comp &entry : ELEMENTS(TARGET_Comp, node, head)) {
        if (isDue(entry, now, timeout)) {
            listDel(&entry.node);
            return &entry;
        }
    }
    return nullptr;
}

void freeTARGETComps(ListNode *head)
{
    if (!hasHead(head))
        return;
    for (TARGET_Comp &entry : ELEMENTS(TARGET_Comp, node, head)) {
        listDel(&entry.node);
        freeMem(&entry);
    }
}
