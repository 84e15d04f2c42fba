#include "config/trigger_thread.h"

ListNode doSceneThrListHead = {&doSceneThrListHead, &doSceneThrListHead};

TriggerThrData *callocTriggerThrData()
{
    auto *data = callocRecord<TriggerThrData>();
    if (data)
        listInit(&data->node);
    return data;
}

void freeTriggerThrData(TriggerThrData *data)
{
    listDel(&data->node);
    if (data->macro)
        freeMacro(&data->macro->node);
    if (data->channel)
        freeGetDevice_dev_channel(data->channel);
    if (data->device)
        freeGetDevice_dev(data->device);
    freeMem(data);
}

void listTriggerThrDataList(ListNode *head)
{
    for (const TriggerThrData &data : ELEMENTS(TriggerThrData, node, head))
        LOG(DEBUG, "macro: %s outdated: %d\n", data.macro ? data.macro->title : "", data.outdated);
}

static bool belongsTo(const TriggerThrData &data, const char *title)
{
    return data.macro && title && strcmp(data.macro->title, title) == 0;
}

int countDoSceneThdListItems(ListNode *head, const char *title)
{
    int count = 0;
    for (const TriggerThrData &data : ELEMENTS(TriggerThrData, node, head))
        count += belongsTo(data, title) ? 1 : 0;
    return count;
}

static TriggerThrData *firstOf(const ListWalk<TriggerThrData> &walk, const char *title)
{
    for (TriggerThrData &data : walk) {
        if (belongsTo(data, title))
            return &data;
    }
    return nullptr;
}

TriggerThrData *searchMacroInTriggerThrList(ListNode *head, const char *macroTitle)
{
    return firstOf(ELEMENTS(TriggerThrData, node, head), macroTitle);
}

TriggerThrData *searchLastMacroInTriggerThrList(ListNode *head, const char *macroTitle)
{
    return firstOf(ELEMENTS_BACKWARDS(TriggerThrData, node, head), macroTitle);
}
