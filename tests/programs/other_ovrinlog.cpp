// A logging library as a device may have one: each call becomes a line of the file that
// APP_TEST_LOG_FILE names, "level|function|line|tag|text", and nothing goes to standard error.

#include "ovrinlog.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>

static constexpr size_t LINE_SIZE = 4096;

int ovrin_log_write(int level, const char *function, int line, const char *tag, const char *format,
                    ...)
{
    const char *path = getenv("APP_TEST_LOG_FILE");
    const int file = path ? open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600) : -1;
    if (file < 0)
        return -1;
    char text[LINE_SIZE];
    const int prefix = snprintf(text, sizeof text, "%d|%s|%d|%s|", level, function, line, tag);
    size_t length = static_cast<size_t>(std::clamp<int>(prefix, 0, LINE_SIZE - 2));
    va_list arguments;
    va_start(arguments, format);
    const int body = vsnprintf(text + length, sizeof text - length - 1, format, arguments);
    va_end(arguments);
    length = std::min(length + static_cast<size_t>(std::max(body, 0)), sizeof text - 2);
    if (text[length - 1] != '\n')
        text[length++] = '\n';
    const ssize_t written = write(file, text, length);
    close(file);
    return written < 0 ? -1 : 0;
}
