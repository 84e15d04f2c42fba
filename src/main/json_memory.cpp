#include "main/json_memory.h"

#include "main/log.h"

#include <cstdlib>

static thread_local unsigned failures;

// Of a parse. The library reads a token into a buffer that doubles when it is full, and goes on
// without the character that it had no memory for.
//
// When that was a string's closing quote and there were memory for the string again, it would copy
// on past the string's end: after a failure nothing but the buffer's next try gets any.
//
// When that was the character behind a number it would abort: the first two sizes that the buffer
// grows to are there before the parse begins, and no number is longer.
struct Spare {
    size_t size;
    void *memory;
};
static thread_local Spare spares[] = {{32, nullptr}, {64, nullptr}};
static thread_local bool parsing;
static thread_local size_t failedSize;  // 0: nothing has failed in this parse

static void *takeSpare(size_t size)
{
    for (Spare &spare : spares) {
        if (spare.size == size && spare.memory) {
            void *memory = spare.memory;
            spare.memory = nullptr;
            return memory;
        }
    }
    return nullptr;
}

static void *countingMalloc(size_t size)
{
    const bool refused = failedSize != 0 && size != failedSize;
    void *memory = refused ? nullptr : malloc(size);
    if (!memory && parsing)
        memory = takeSpare(size);
    if (memory)
        return memory;
    ++failures;
    if (parsing && failedSize == 0)
        failedSize = size;
    return nullptr;
}

void watchJsonMemory()
{
    json_set_alloc_funcs(countingMalloc, free);
}

static bool getSpares()
{
    for (Spare &spare : spares) {
        spare.memory = countingMalloc(spare.size);
        if (!spare.memory)
            return false;
    }
    return true;
}

static void freeSpares()
{
    for (Spare &spare : spares) {
        free(spare.memory);
        spare.memory = nullptr;
    }
}

json_t *parseSafely(const char *text, json_error_t *error)
{
    json_t *value = nullptr;
    if (getSpares()) {
        parsing = true;
        value = json_loads(text, 0, error);
        parsing = false;
        failedSize = 0;
    }
    freeSpares();
    return value;
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
