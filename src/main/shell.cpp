#include "main/shell.h"

#include "main/locks.h"
#include "main/log.h"
#include "main/util.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

// The attributes of a child whose signals are those of a fresh program, and which leads a process
// group of its own.
struct FreshSignals {
    posix_spawnattr_t attributes;

    FreshSignals()
    {
        sigset_t none;
        sigset_t all;
        sigemptyset(&none);
        sigfillset(&all);
        posix_spawnattr_init(&attributes);
        posix_spawnattr_setsigmask(&attributes, &none);
        posix_spawnattr_setsigdefault(&attributes, &all);
        posix_spawnattr_setpgroup(&attributes, 0);
        posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF |
                                                  POSIX_SPAWN_SETPGROUP);
    }
    ~FreshSignals()
    {
        posix_spawnattr_destroy(&attributes);
    }
    FreshSignals(const FreshSignals &) = delete;
    FreshSignals &operator=(const FreshSignals &) = delete;
};

static constexpr long FIRST_LOOK = 1'000'000;  // ns
static constexpr long SELDOMEST_LOOK = 50'000'000;

// Looks more and more seldom: most helpers are quick, and none is waited for by anyone in a hurry.
// False when it has not ended in time.
static bool awaitEnd(pid_t child, int &status, const timespec &limit)
{
    const timespec deadline = monotonicDeadline(limit);
    long pause = FIRST_LOOK;
    for (;;) {
        const pid_t ended = waitpid(child, &status, WNOHANG);
        if (ended == child)
            return true;
        if (ended < 0 && errno != EINTR) {
            status = -1;
            return true;
        }
        const timespec left = timeUntil(deadline);
        if (left.tv_sec == 0 && left.tv_nsec == 0)
            return false;
        const timespec look = {0, pause};
        nanosleep(&look, nullptr);
        pause = std::min(2 * pause, SELDOMEST_LOOK);
    }
}

// The program that a command line starts; what follows may be a secret.
static int programLength(const char *command)
{
    return static_cast<int>(strcspn(command, " "));
}

int runShell(const char *command, const timespec &limit)
{
    const FreshSignals signals;
    char shell[] = "sh";
    char option[] = "-c";
    char *const arguments[] = {shell, option, const_cast<char *>(command), nullptr};
    pid_t child;
    const int error =
        posix_spawn(&child, "/bin/sh", nullptr, &signals.attributes, arguments, environ);
    if (error != 0) {
        LOG(ERROR, "%.*s: %s\n", programLength(command), command, errorText(error));
        errno = error;
        return -1;
    }
    int status = -1;
    if (!awaitEnd(child, status, limit)) {
        LOG(ERROR, "%.*s has not ended and is killed\n", programLength(command), command);
        kill(-child, SIGKILL);
        waitpid(child, &status, 0);
    }
    return status;
}

static constexpr const char *PLAIN_CHARACTERS =
    "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ"
    "0123456789_@%+=:,./-";

static bool isPlain(const char *text)
{
    return *text && text[strspn(text, PLAIN_CHARACTERS)] == '\0';
}

char *shellText(apr_pool_t *pool, const char *text)
{
    if (!text)
        return nullptr;
    char *quoted = static_cast<char *>(apr_palloc(pool, 2 * strlen(text) + 3));
    if (!quoted)
        return nullptr;
    char *end = quoted;
    *end++ = '"';
    for (; *text; ++text) {
        if (strchr("\"\\`$", *text))
            *end++ = '\\';
        *end++ = *text;
    }
    *end++ = '"';
    *end = '\0';
    return quoted;
}

char *shellWord(apr_pool_t *pool, const char *text)
{
    if (!text)
        return nullptr;
    return isPlain(text) ? copyToPool(pool, text) : shellText(pool, text);
}
