// Helper programs: commands that a shell runs as children of the daemon.

#pragma once

#include <cstddef>

// Runs the command with /bin/sh -c and waits for its end. The child starts with the signal mask and
// dispositions of a fresh program, whatever thread calls. The shell's wait status; -1 with errno
// when it could not be started.
int runShell(const char *command);

// Appends a space and an argument to a command line of `size` bytes: bare where it holds only
// letters, digits and _@%+=:,./-, else quoted so that it reaches the program as it is. False, with
// the command line as it was, when it does not fit.
bool appendArgument(char *command, size_t size, const char *argument);
