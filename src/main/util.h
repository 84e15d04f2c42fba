// Small helpers that every subsystem shares.

#pragma once

#include <apr_pools.h>
#include <cstddef>
#include <ctime>
#include <jansson.h>

// Every text field of a configuration record.
static constexpr size_t TEXT_SIZE = 128;

// Compact, ASCII-only, sorted keys: the form of every reply, file, signal payload and command.
static constexpr size_t JSON_TEXT_FLAGS = JSON_COMPACT | JSON_ENSURE_ASCII | JSON_SORT_KEYS;

// Local time now. The result belongs to the calling thread and lasts until its next call.
const tm *getCurTime();

// json_dumps; the caller frees the text. Null when `value` is null or memory has run out.
char *json_dumps_dbg(const json_t *value, size_t flags);

// What an error number means. The result belongs to the calling thread and lasts until its next
// call.
const char *errorText(int error);

// Sleeps for the whole time, whatever signals arrive.
void doNanoSleep(long seconds, long nanoseconds);

// Copies a text into a 128-byte field; 1 when it was copied. A text of 127 characters or more is
// refused and leaves the field as it was; the log shows it unless the member, which may be null,
// holds a secret.
int JsonStrCopy(char *destination, const char *source, const char *member = nullptr);

// Copies a device's name up to its parenthesis, without the character before it: "Lamp (2)" gives
// "Lamp", "Lamp(2)" gives "Lam". Cut to the field. Returns the destination. The source
// may not be null.
char *copyNameBeforeParen(char (&destination)[TEXT_SIZE], const char *source);

// Copies what fits of a text, NUL-terminated and never ending within a character; logs when it had
// to cut. Source may not be null.
void copyBounded(char *destination, size_t size, const char *source,
                 const char *caller = __builtin_FUNCTION());

// A new copy of a text that the caller frees; null for null or without memory, which is logged.
char *copyText(const char *text);

// A copy of a text, which may not be null, in the pool; null without a pool or memory.
char *copyToPool(apr_pool_t *pool, const char *text);
