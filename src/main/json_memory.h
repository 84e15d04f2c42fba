// Noticing that memory ran out while a JSON value was built. The JSON library leaves out what it
// cannot allocate, member by member: the value looks whole and is not. So its allocator counts.

#pragma once

// Makes the JSON library count. Called once, before its first use.
void watchJsonMemory();

// Begun before a value is built or written, on the thread that does it.
class JsonMemory {
public:
    JsonMemory();
    // True when an allocation has failed since: what was built meanwhile is not whole.
    bool ranOut() const;

private:
    unsigned failuresBefore;
};
