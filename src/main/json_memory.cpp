#include "main/json_memory.h"

#include "main/log.h"

#include <cstdlib>
#include <jansson.h>

static thread_local unsigned failures;

static void *countingMalloc(size_t size)
{
    void *memory = malloc(size);
    if (!memory)
        ++failures;
    return memory;
}

void watchJsonMemory()
{
    json_set_alloc_funcs(countingMalloc, free);
}

JsonMemory::JsonMemory() : failuresBefore(failures)
{
}

bool JsonMemory::ranOut() const
{
    if (failures == failuresBefore)
        return false;
    LOG(ERROR, "calloc fail\n");
    return true;
}
