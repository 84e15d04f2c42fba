#include "main/threads.h"

#include <csignal>
#include <initializer_list>

int createThread(pthread_t *thread, void *(*body)(void *), void *argument)
{
    sigset_t blocked;
    sigset_t before;
    sigfillset(&blocked);
    for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT})
        sigdelset(&blocked, fault);
    pthread_sigmask(SIG_BLOCK, &blocked, &before);
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    int failure = pthread_attr_setstacksize(&attributes, STACK_BYTES);  // some want a larger least
    if (failure == 0)
        failure = pthread_create(thread, &attributes, body, argument);
    pthread_attr_destroy(&attributes);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return failure;
}
