// The configuration document: merged into the lists, deleted from them, and built from them.
//
// Each function locks list by list; the caller holds nothing.

#pragma once

#include <jansson.h>

// Merges a document into the configuration and announces the result as "jsongetall". Returns the
// result of the last group that was present, 1 or 0; 0 when the text is no JSON object. Elements
// are added or updated, never removed.
int parseAll(const char *text);

// Deletes what a document of the same shape names and announces the result as "jsongetall". Returns
// as parseAll does. Elements are removed whole or in part, never created.
int parseToDel(const char *text);

// Changes a title: the text is an array of the group's word, the old and the new title. 1 when the
// title was changed, else 0. What refers to the old title keeps it.
int parseRename(const char *text);

// The whole configuration as a new value that the caller owns; null without memory.
json_t *getAllAppConfig();
