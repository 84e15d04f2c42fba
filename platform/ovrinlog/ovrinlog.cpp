// Development stand-in for the device's logging library: one line a call on standard error,
// "LEVEL function:line text". OVRIN_LOG_LEVEL sets the least level shown (default 4).

#include "ovrinlog.h"

#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <unistd.h>

static constexpr int DEFAULT_LEVEL = 4;
static constexpr size_t LINE_SIZE = 4096;

static int leastLevel()
{
    static const int level = [] {
        const char *text = getenv("OVRIN_LOG_LEVEL");
        return text ? atoi(text) : DEFAULT_LEVEL;
    }();
    return level;
}

// The line leaves in one write, so that lines of several threads and processes never mix.
int ovrin_log_write(int level, const char *function, int line, const char *, const char *format,
                    ...)
{
    if (level < leastLevel())
        return 0;

    char text[LINE_SIZE];
    const int prefix = snprintf(text, sizeof text, "%d %s:%d ", level, function, line);
    size_t length = std::min(static_cast<size_t>(std::max(prefix, 0)), sizeof text - 2);

    va_list arguments;
    va_start(arguments, format);
    const int body = vsnprintf(text + length, sizeof text - 1 - length, format, arguments);
    va_end(arguments);
    if (body > 0)
        length += std::min(static_cast<size_t>(body), sizeof text - 2 - length);

    while (length > 0 && text[length - 1] == '\n')
        --length;
    // Whatever a text brings along, a call is one line.
    std::replace_if(
        text, text + length, [](char c) { return c == '\n' || c == '\r'; }, ' ');
    text[length++] = '\n';
    return write(STDERR_FILENO, text, length) < 0 ? -1 : 0;
}
