// Helper programs: commands that a shell runs as children of the daemon, and how text gets onto
// their command lines without the shell taking it for its own.

#pragma once

#include <apr_pools.h>
#include <ctime>

static constexpr timespec LONGEST_RUN = {300, 0};

// Runs the command with /bin/sh -c and waits for its end. The child starts with the signal mask and
// dispositions of a fresh program, whatever thread calls, and in a process group of its own; what
// has not ended within the limit is ended with that group, and logged. The shell's wait status; -1
// with errno when it could not be started.
int runShell(const char *command, const timespec &limit = LONGEST_RUN);

// An argument as a word of a command line, in the pool: bare where it holds only letters, digits
// and _@%+=:,./-, else quoted. Null for null or without memory.
char *shellWord(apr_pool_t *pool, const char *text);

// A text in double quotes, in the pool, with what the shell would expand escaped.
char *shellText(apr_pool_t *pool, const char *text);
