// The groups of the configuration, one row for each top-level member of its document: where the
// records are, and how they are set, deleted, renamed and written.

#pragma once

#include "config/list.h"
#include "main/locks.h"

#include <jansson.h>

enum GroupId {
    TARGET_NAMES,
    CAMERAS,
    MACROS,
    SCENES,
    SCHEDULES,
    ROOMS,
    EVENT_FILTERS,
    REGISTERED_DEVICES,
    ALARM,
};

enum JsonKind { OBJECT, ARRAY };

struct Group {
    const char *key;
    JsonKind kind;
    Mutex *mutex;
    ListNode *head = nullptr;  // null for the alarm, which is no list

    // Each takes the member's value, locks what it needs and returns 1 when something was stored,
    // created or deleted, else 0. What is logged when the member is absent or of another kind
    // stands beside it; null says nothing.
    int (*set)(json_t *value);
    const char *setAbsent = nullptr;
    int (*del)(json_t *value) = nullptr;  // null: cannot be deleted
    const char *delAbsent = nullptr;

    // New values that the caller owns. The caller holds the mutex.
    json_t *(*toJson)(ListNode *head);
    json_t *(*titlesToJson)(ListNode *head) = nullptr;  // null for groups without titles

    // 1 when the title was changed. Locks what it needs; null for groups without titles.
    int (*rename)(const char *oldTitle, const char *newTitle) = nullptr;
};

const Group &groupOf(GroupId id);

// The group with titles that a word names, or null.
const Group *titledGroup(const char *word);
