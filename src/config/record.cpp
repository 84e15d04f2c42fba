#include "config/record.h"

#include <cstdlib>

void *callocMem(size_t size)
{
    return calloc(1, size);
}

void freeMem(void *memory)
{
    if (!memory) {
        LOG(ERROR, "freeMem: p is NULL\n");
        return;
    }
    free(memory);
}

int getListObjNum(const ListNode *head)
{
    int count = 0;
    if (head) {
        for (const ListNode *node = head->next; node != head; node = node->next)
            ++count;
    }
    return count;
}
