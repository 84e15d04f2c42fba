// An index over a list for the time of one request: a request of n elements looks up n names, and
// walking the list for each would cost n². The list stays the truth. Records may be appended
// meanwhile, none removed or renamed, so it lives on the one thread that changes the lists: the
// listener's, or at start the main thread.

#pragma once

#include "config/record.h"

#include <cstdint>
#include <cstdlib>

template <typename Record> class TextIndex {
public:
    // `lookUps`: how often it will be asked at the most, and how many records may be added. For a
    // few the walk is cheaper.
    TextIndex(const ListWalk<Record> &indexedWalk, Text Record::*keyField, size_t expectedLookUps)
        : walk(indexedWalk), field(keyField), lookUps(expectedLookUps)
    {
    }
    ~TextIndex()
    {
        free(slots);
    }
    TextIndex(const TextIndex &) = delete;
    TextIndex &operator=(const TextIndex &) = delete;

    // The first record of the list with that text, or null; null for a null text. The caller holds
    // what guards the list.
    Record *find(const char *text)
    {
        if (!text)
            return nullptr;
        if (!slots && lookUps >= WORTH_INDEXING)
            build();
        return slots ? *slotOf(text) : findByText(walk, field, text);
    }
    // To be called for each record that is appended to the list.
    void add(Record &record)
    {
        Record **slot = slots ? slotOf(record.*field) : nullptr;
        if (slot && !*slot)  // of two with the same text the first is found, as a walk would
            *slot = &record;
    }

private:
    static constexpr size_t WORTH_INDEXING = 16;

    void build()
    {
        size_t records = lookUps;
        for ([[maybe_unused]] const Record &record : walk)
            ++records;
        for (capacity = 1; capacity < 2 * records;)
            capacity *= 2;
        slots = static_cast<Record **>(calloc(capacity, sizeof(Record *)));
        if (!slots) {
            lookUps = 0;  // without memory every look-up walks
            return;
        }
        for (Record &record : walk)
            add(record);
    }

    // Where the record with that text is, or would be: there is always a free slot.
    Record **slotOf(const char *text) const
    {
        size_t at = hash(text) & (capacity - 1);
        while (slots[at] && strcmp(slots[at]->*field, text) != 0)
            at = (at + 1) & (capacity - 1);
        return &slots[at];
    }
    static uint32_t hash(const char *text)  // FNV-1a
    {
        uint32_t value = 2166136261U;
        for (; *text; ++text)
            value = (value ^ static_cast<unsigned char>(*text)) * 16777619U;
        return value;
    }

    ListWalk<Record> walk;
    Text Record::*field;
    size_t lookUps;
    size_t capacity = 0;  // a power of two, at least twice the records
    Record **slots = nullptr;
};
