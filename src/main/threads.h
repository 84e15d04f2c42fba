// Starting threads.

#pragma once

#include <cstddef>
#include <pthread.h>

// What a thread may use for its calls. The usual 8 MB are too much where addresses have 32 bits:
// some 200 threads would take them all. The deepest calls are those of the JSON library, in a
// document that is nested as deep as may be.
inline constexpr size_t STACK_BYTES = size_t{256} * 1024;

// pthread_create for a thread that takes no signal but those of its own faults: SIGTERM then always
// finds the main thread, whose sleep it ends.
int createThread(pthread_t *thread, void *(*body)(void *), void *argument);
