// Development stand-in for the device's logging library: one line a call on standard error,
// "LEVEL function:line text". OVRIN_LOG_LEVEL sets the least level shown (default 4).
//
// Where standard error is no terminal, "<n>" stands before the line: how grave it is, as the
// readers of services' output take it (sd-daemon's levels, 3 error to 7 debug).

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

static bool isOnTerminal()
{
    static const bool answer = isatty(STDERR_FILENO) != 0;
    return answer;
}

static int gravity(int level)
{
    enum { ERROR = 3, WARNING = 4, INFO = 6, DEBUG = 7 };
    if (level >= 6)
        return ERROR;
    return level == 5 ? WARNING : level == 4 ? INFO : DEBUG;
}

// How much of the text the beginning of the line takes.
static size_t writePrefix(char *text, size_t size, int level, const char *function, int line)
{
    const int length = isOnTerminal() ? snprintf(text, size, "%d %s:%d ", level, function, line)
                                      : snprintf(text, size, "<%d>%d %s:%d ", gravity(level), level,
                                                 function, line);
    return static_cast<size_t>(std::max(length, 0));
}

// The line leaves in one write, so that lines of several threads and processes never mix.
int ovrin_log_write(int level, const char *function, int line, const char *, const char *format,
                    ...)
{
    if (level < leastLevel())
        return 0;

    char text[LINE_SIZE];
    size_t length =
        std::min(writePrefix(text, sizeof text, level, function, line), sizeof text - 2);

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
