// Reading JSON texts that come from outside: the bus, the SDK daemon, the stored files.

#pragma once

#include <jansson.h>

// What may be nested. The library parses by recursion and would go deeper than the stack of a small
// thread allows.
static constexpr int MAX_JSON_DEPTH = 64;

// The text's value, which the caller owns; null with the reason in `error` when it is no JSON
// object or array, or nested more than MAX_JSON_DEPTH deep. The text may not be null.
json_t *loadJson(const char *text, json_error_t *error);

// As loadJson; a text that is no JSON is logged with its line, in the name of the caller.
json_t *loadJsonOrLog(const char *text, const char *caller = __builtin_FUNCTION());
