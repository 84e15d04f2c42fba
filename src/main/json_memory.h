// Noticing that memory ran out while a JSON value was built. The JSON library leaves out what it
// cannot allocate, member by member: the value looks whole and is not. So its allocator counts.

#pragma once

#include <jansson.h>

// Makes the JSON library count. Called once, before its first use.
void watchJsonMemory();

// As json_loads, which breaks the heap or aborts when memory runs out in the middle of a token. A
// value that is read although memory ran out may lack a character.
json_t *parseSafely(const char *text, json_error_t *error);

// Begun before a value is built or written, on the thread that does it.
class JsonMemory {
public:
    JsonMemory();
    // True when an allocation has failed since: what was built meanwhile is not whole.
    bool ranOut() const;

private:
    unsigned failuresBefore;
};
