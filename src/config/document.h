// The configuration document: merged into the lists, and built from them.

#pragma once

#include <jansson.h>

// Merges a document into the configuration and announces the result as "jsongetall". Returns the
// result of the last group that was present, 1 or 0; 0 when the text is no JSON object. Elements
// are added or updated, never removed. Locks list by list; the caller holds nothing.
int parseAll(const char *text);

// The whole configuration as a new value that the caller owns; null without memory. Locks list by
// list; the caller holds nothing.
json_t *getAllAppConfig();
