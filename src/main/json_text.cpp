#include "main/json_text.h"

#include "main/json_memory.h"
#include "main/log.h"
#include "main/scope.h"
#include "main/secrets.h"

#include <cstdio>
#include <cstring>

// The line on which the text nests too deep, or 0. Strings are skipped: what looks like a bracket
// there opens nothing.
static int lineOfExcessDepth(const char *text)
{
    int line = 1;
    int depth = 0;
    bool inString = false;
    for (const char *at = text; *at; ++at) {
        if (*at == '\n')
            ++line;
        if (inString) {
            if (*at == '\\' && at[1])
                ++at;
            else if (*at == '"')
                inString = false;
        } else if (*at == '"') {
            inString = true;
        } else if (*at == '{' || *at == '[') {
            if (++depth > MAX_JSON_DEPTH)
                return line;
        } else if (*at == '}' || *at == ']') {
            --depth;
        }
    }
    return 0;
}

json_t *loadJson(const char *text, json_error_t *error)
{
    const int line = lineOfExcessDepth(text);
    if (line != 0) {
        *error = {};
        error->line = line;
        snprintf(error->text, sizeof error->text, "maximum parsing depth reached");
        return nullptr;
    }
    const JsonMemory memory;
    json_t *value = parseSafely(text, error);
    if (!memory.ranOut())
        return value;
    // A number may have lost a digit, and what the library refuses may be as good as it was
    // written.
    json_decref(value);
    *error = {};
    snprintf(error->text, sizeof error->text, "out of memory");
    error->text[sizeof error->text - 1] = json_error_out_of_memory;  // as json_error_code reads it
    return nullptr;
}

// The library shows where it stopped reading, which may be a password.
static void hideSecrets(const char *text, json_error_t *error)
{
    char *shown = strstr(error->text, " near '");
    if (!shown)
        return;
    const Owned<char> masked(withoutSecrets(text));
    if (!masked || strcmp(masked.get(), text) != 0)
        *shown = '\0';
}

json_t *loadJsonOrLog(const char *text, const char *caller)
{
    json_error_t error;
    json_t *value = loadJson(text, &error);
    if (!value) {
        hideSecrets(text, &error);
        LOG_AS(caller, ERROR, "error: on line %d: %s\n", error.line, error.text);
    }
    return value;
}
