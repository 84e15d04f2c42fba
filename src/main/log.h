// The one way to log: LOG(level, format, ...) adds the calling function and the line.

#pragma once

#include <ovrinlog.h>

enum LogLevel {
    TRACE = 2,      // entry to and exit from the main paths
    DEBUG = 3,      // values, addresses, small functions
    INFO = 4,       // information and decisions
    UNHANDLED = 5,  // a bus request that no handler accepted
    ERROR = 6,      // errors and failures
};

#define LOG(level, ...) LOG_AS(__func__, level, __VA_ARGS__)
// The same for a step that logs in the name of the function it belongs to.
#define LOG_AS(function, level, ...)                                                               \
    ovrin_log_write((level), (function), __LINE__, "app", __VA_ARGS__)

// printf wants an unsigned number for the "0x%x" of the address texts, whatever a pointer's size.
inline unsigned logAddress(const void *pointer)
{
    return static_cast<unsigned>(reinterpret_cast<unsigned long>(pointer));
}
