// Starting threads.

#pragma once

#include <pthread.h>

// pthread_create with default attributes for a thread that takes no signal but those of its own
// faults: SIGTERM then always finds the main thread, whose sleep it ends.
int createThread(pthread_t *thread, void *(*body)(void *), void *argument);
