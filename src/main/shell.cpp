#include "main/shell.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

// The attributes of a child whose signals are those of a fresh program.
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
        posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    }
    ~FreshSignals()
    {
        posix_spawnattr_destroy(&attributes);
    }
    FreshSignals(const FreshSignals &) = delete;
    FreshSignals &operator=(const FreshSignals &) = delete;
};

int runShell(const char *command)
{
    const FreshSignals signals;
    char shell[] = "sh";
    char option[] = "-c";
    char *const arguments[] = {shell, option, const_cast<char *>(command), nullptr};
    pid_t child;
    const int error =
        posix_spawn(&child, "/bin/sh", nullptr, &signals.attributes, arguments, environ);
    if (error != 0) {
        errno = error;
        return -1;
    }
    int status;
    while (waitpid(child, &status, 0) < 0) {
        if (errno != EINTR)
            return -1;
    }
    return status;
}

static constexpr const char *PLAIN_CHARACTERS =
    "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ"
    "0123456789_@%+=:,./-";

bool appendArgument(char *command, size_t size, const char *argument)
{
    const size_t start = strlen(command);
    size_t end = start;
    const auto append = [&](char character) {
        if (end + 1 < size)
            command[end] = character;
        ++end;
    };
    const bool bare = *argument && argument[strspn(argument, PLAIN_CHARACTERS)] == '\0';
    append(' ');
    if (!bare)
        append('\'');
    for (const char *at = argument; *at; ++at) {
        if (*at == '\'') {  // ends the quotes, stands alone, and begins them again
            append('\'');
            append('\\');
            append('\'');
        }
        append(*at);
    }
    if (!bare)
        append('\'');
    const bool fits = end < size;
    command[fits ? end : start] = '\0';
    return fits;
}
