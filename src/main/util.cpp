#include "main/util.h"

#include "main/json_memory.h"
#include "main/locks.h"
#include "main/log.h"
#include "main/secrets.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

const tm *getCurTime()
{
    static thread_local tm local;
    const time_t now = time(nullptr);
    const MutexLock lock(settings_mutex);  // the zone is one for all threads
    tzset();                               // a zone that changes while the daemon runs is followed
    localtime_r(&now, &local);
    return &local;
}

char *json_dumps_dbg(const json_t *value, size_t flags)
{
    const JsonMemory memory;
    char *text = json_dumps(value, flags);
    if (!memory.ranOut())
        return text;
    free(text);
    return nullptr;
}

const char *errorText(int error)
{
    static thread_local char text[TEXT_SIZE];
    return strerror_r(error, text, sizeof text);
}

// Sleeps to a fixed moment: the remainders that the system reports are a little too long, and would
// add up with every signal.
void doNanoSleep(long seconds, long nanoseconds)
{
    static constexpr long NANOSECONDS = 1'000'000'000;
    if (seconds < 0 || nanoseconds < 0 || nanoseconds >= NANOSECONDS)
        return;
    const timespec deadline = monotonicDeadline({seconds, nanoseconds});
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &deadline, nullptr) == EINTR) {
        const timespec remaining = timeUntil(deadline);
        LOG(INFO, "remaining time: %ld.%ld sec, tid: %d\n", static_cast<long>(remaining.tv_sec),
            remaining.tv_nsec, gettid());
    }
}

int JsonStrCopy(char *destination, const char *source, const char *member)
{
    if (!destination || !source) {
        LOG(ERROR, "NULL error, dst: 0x%x, src: 0x%x\n", logAddress(destination),
            logAddress(source));
        return 0;
    }
    // Deliberate: at most 126 characters, one less than the field could hold.
    if (strlen(source) >= TEXT_SIZE - 1) {
        LOG(ERROR, "src str too long: %s\n", member && isSecret(member) ? "***" : source);
        return 0;
    }
    strcpy(destination, source);
    return 1;
}

// The greatest length of at most `length` bytes at which no character of `text` is cut in two.
static size_t wholeCharacters(const char *text, size_t length)
{
    while (length > 0 && (static_cast<unsigned char>(text[length]) & 0xC0) == 0x80)
        --length;
    return length;
}

static void copyPart(const char *caller, char *destination, size_t size, const char *source,
                     size_t length)
{
    if (length >= size) {
        length = wholeCharacters(source, size - 1);
        LOG_AS(caller, ERROR, "text is cut to %zu bytes\n", length);  // it may be a secret
    }
    memcpy(destination, source, length);
    destination[length] = '\0';
}

void copyBounded(char *destination, size_t size, const char *source, const char *caller)
{
    copyPart(caller, destination, size, source, strlen(source));
}

char *copyNameBeforeParen(char (&destination)[TEXT_SIZE], const char *source)
{
    const char *parenthesis = strchr(source, '(');
    size_t length = strlen(source);
    // Deliberate: the character before the parenthesis goes too, as a rule a space. A character,
    // not a byte: the name stays valid UTF-8.
    if (parenthesis && parenthesis > source)
        length = wholeCharacters(source, static_cast<size_t>(parenthesis - source) - 1);
    copyPart(__func__, destination, sizeof destination, source, length);
    return destination;
}

char *copyText(const char *text)
{
    if (!text)
        return nullptr;
    const size_t size = strlen(text) + 1;
    void *copy = calloc(1, size);
    if (!copy) {
        LOG(ERROR, "calloc fail\n");
        return nullptr;
    }
    return static_cast<char *>(memcpy(copy, text, size));
}

char *copyToPool(apr_pool_t *pool, const char *text)
{
    const size_t size = strlen(text) + 1;
    void *copy = pool ? apr_palloc(pool, size) : nullptr;
    return copy ? static_cast<char *>(memcpy(copy, text, size)) : nullptr;
}
