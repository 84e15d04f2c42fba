// What all records share: their memory, and the shapes of the families of operations.

#pragma once

#include "config/list.h"
#include "main/log.h"
#include "main/util.h"

#include <cstddef>
#include <cstring>
#include <type_traits>

// Every number of a record, flags and hours included, is a JSON integer. %lld prints it on every
// machine.
using Integer = long long;
static_assert(sizeof(Integer) == 8);

using Text = char[TEXT_SIZE];

// A device channel.
struct TargetId {
    Integer dev;
    Integer if_;
    Integer ch;

    bool operator==(const TargetId &) const = default;
};

// Zero-filled memory for one element, or null.
void *callocMem(size_t size);
// Frees; null is logged.
void freeMem(void *memory);

// A zero-filled record, or null; logs in the name of the calloc… function that calls it.
template <typename Record>
Record *callocRecord(const char *caller = __builtin_FUNCTION(), int line = __builtin_LINE())
{
    static_assert(std::is_trivially_destructible_v<Record> && std::is_standard_layout_v<Record>);
    auto *record = static_cast<Record *>(callocMem(sizeof(Record)));
    if (!record)
        ovrin_log_write(ERROR, caller, line, "app", "calloc fail\n");
    return record;
}

// Number of elements; 0 for null.
int getListObjNum(const ListNode *head);

// What a plural free… does first: a null head is logged in the name of the caller. True when there
// is a list.
inline bool hasHead(const ListNode *head, const char *caller = __builtin_FUNCTION(),
                    int line = __builtin_LINE())
{
    if (!head)
        ovrin_log_write(ERROR, caller, line, "app", "head is NULL\n");
    return head != nullptr;
}

// The first record of a walk whose text field equals `text`, or null; null for a null text.
template <typename Record>
Record *findByText(const ListWalk<Record> &walk, Text Record::*field, const char *text)
{
    if (!text)
        return nullptr;
    for (Record &record : walk) {
        if (strcmp(record.*field, text) == 0)
            return &record;
    }
    return nullptr;
}

// The first record of a walk whose target is the given channel, or null.
template <typename Record>
Record *findByTarget(const ListWalk<Record> &walk, const TargetId &target)
{
    for (Record &record : walk) {
        if (record.target == target)
            return &record;
    }
    return nullptr;
}

// Gives the first record titled `oldTitle` a title that no record of the walk has: 1 when it was
// changed, else 0, logged in the name of the rename… function that calls it.
template <typename Record>
int renameTitle(const ListWalk<Record> &walk, const char *oldTitle, const char *newTitle,
                const char *caller = __builtin_FUNCTION(), int line = __builtin_LINE())
{
    const auto refuse = [&](const char *format, const char *title) {
        ovrin_log_write(ERROR, caller, line, "app", format, title);
        return 0;
    };
    if (!oldTitle || !newTitle)
        return refuse("title is NULL\n", nullptr);
    Record *record = findByText(walk, &Record::title, oldTitle);
    if (!record)
        return refuse("Not find oldTitle: %s\n", oldTitle);
    if (findByText(walk, &Record::title, newTitle))
        return refuse("there has been a %s title\n", newTitle);
    return JsonStrCopy(record->title, newTitle);
}
