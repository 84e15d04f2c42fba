#include "daemon_in_process.h"

#include "bus/connection.h"
#include "bus/outbound.h"
#include "bus/outbound_io.h"
#include "main/log.h"

#include <apr_general.h>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <mutex>
#include <pthread.h>

// Never destroyed: the daemon's threads log while the process ends.
static std::mutex &logMutex = *new std::mutex;
static std::vector<LogLine> &lines = *new std::vector<LogLine>;

// Stands in for the logging library: the test program's own symbol is found first.
int ovrin_log_write(int level, const char *function, int, const char *, const char *format, ...)
{
    char text[4096];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    const std::lock_guard lock(logMutex);
    lines.push_back({level, function, text});
    return 0;
}

void PrintTo(const LogLine &line, std::ostream *out)
{
    *out << line.level << " " << line.function << " " << line.text;
}

std::vector<LogLine> logLines()
{
    const std::lock_guard lock(logMutex);
    return lines;
}

std::vector<std::string> logTexts()
{
    std::vector<std::string> texts;
    for (const LogLine &line : logLines())
        texts.push_back(line.text);
    return texts;
}

size_t logged(const std::string &text)
{
    size_t count = 0;
    for (const LogLine &line : logLines())
        count += line.text == text ? 1 : 0;
    return count;
}

void forgetLog()
{
    const std::lock_guard lock(logMutex);
    lines.clear();
}

static thread_local int untilFailure;
static thread_local int untilJsonFailure;

void failAllocation(int n)
{
    untilFailure = n;
}

void failJsonAllocation(int n)
{
    untilJsonFailure = n;
}

bool jsonAllocationHasFailed()
{
    return untilJsonFailure == 0;
}

// The linker sends the daemon's calls of calloc and malloc here.
extern "C" void *__real_calloc(size_t count, size_t size);
extern "C" void *__wrap_calloc(size_t count, size_t size)
{
    if (untilFailure > 0 && --untilFailure == 0)
        return nullptr;
    return __real_calloc(count, size);
}

extern "C" void *__real_malloc(size_t size);
extern "C" void *__wrap_malloc(size_t size)
{
    if (untilJsonFailure > 0 && --untilJsonFailure == 0)
        return nullptr;
    return __real_malloc(size);
}

static std::atomic<int> untilThreadFailure;

void failThread(int n)
{
    untilThreadFailure = n;
}

static std::atomic<bool> noThreads;

NoThreads::NoThreads()
{
    noThreads = true;
}

NoThreads::~NoThreads()
{
    noThreads = false;
}

using ThreadBody = void *(void *);
extern "C" int __real_pthread_create(pthread_t *thread, const pthread_attr_t *attributes,
                                     ThreadBody *body, void *argument);
extern "C" int __wrap_pthread_create(pthread_t *thread, const pthread_attr_t *attributes,
                                     ThreadBody *body, void *argument)
{
    if (noThreads || (untilThreadFailure > 0 && --untilThreadFailure == 0))
        return EAGAIN;
    return __real_pthread_create(thread, attributes, body, argument);
}

std::string takeText(json_t *value)
{
    char *text =
        json_dumps(value, JSON_COMPACT | JSON_SORT_KEYS | JSON_ENSURE_ASCII | JSON_ENCODE_ANY);
    const std::string result = text ? text : "(nothing)";
    free(text);
    json_decref(value);
    return result;
}

void OutboundOnItsOwnBus::SetUp()
{
    apr_initialize();
    bus.start();
    setenv("DBUS_SYSTEM_BUS_ADDRESS", bus.address().c_str(), 1);
    platform.join(busThread, bus.address());
    sdk.join(busThread, bus.address());
    dbus_threads_init_default();
    DBusConnection *connection = dbus_conn_init();
    ASSERT_NE(connection, nullptr);
    ASSERT_TRUE(startOutbound(connection, nullptr));
}

void OutboundOnItsOwnBus::TearDown()
{
    stopOutbound();
    sdk.leave();
    platform.leave();
}

void OutboundOnItsOwnBus::hearEverything()
{
    const std::string marker = R"({"marker":)" + std::to_string(++markers) + "}";
    dbus_signal_event(marker.c_str(), "recent");
    ASSERT_TRUE(support::eventually([&] { return sdk.heard(marker); }));
}
