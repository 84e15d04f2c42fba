#include "main/signals.h"

#include "main/locks.h"
#include "main/log.h"
#include "main/settings.h"

#include <csignal>
#include <spawn.h>
#include <unistd.h>

static volatile sig_atomic_t endRequested;

void blockTickSignals()
{
    sigset_t tickSignals;
    sigemptyset(&tickSignals);
    sigaddset(&tickSignals, SIGALRM);
    sigaddset(&tickSignals, SIGUSR1);
    pthread_sigmask(SIG_BLOCK, &tickSignals, nullptr);
}

// Schedules are looked at on demand, and only on the main thread: there the signal arrives in the
// sleep of the main loop, where nothing is held.
static void scheduleSignalHandler(int)
{
    if (gettid() != mainPid)
        return;
    LOG(DEBUG, "schedule signal\n");
}

// SIGALRM is waited for by the tick thread and blocked everywhere else, so this never runs. It is
// there so that a stray delivery could not end the process.
static void alarmHandler(int)
{
}

static void endHandler(int)
{
    endRequested = 1;
}

static void startDebugger()
{
    // posix_spawn takes no lock of the allocator, which the interrupted thread may hold.
    static char shell[] = "sh";
    static char option[] = "-c";
    static char command[] =
        "killall -SIGUSR1 debuger &";  // Deliberate: the process is named so on the device
    char *const arguments[] = {shell, option, command, nullptr};
    sigset_t none;
    sigset_t defaults;
    sigemptyset(&none);
    sigfillset(&defaults);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setsigdefault(&attributes, &defaults);
    pid_t child;
    posix_spawn(&child, "/bin/sh", nullptr, &attributes, arguments, environ);
}

static void sighandler(int number)
{
    // Should the crash have happened inside the logging library or with its lock held, the alarm
    // ends the process.
    signal(SIGALRM, SIG_DFL);
    sigset_t alarmOnly;
    sigemptyset(&alarmOnly);
    sigaddset(&alarmOnly, SIGALRM);
    pthread_sigmask(SIG_UNBLOCK, &alarmOnly, nullptr);
    alarm(2);

    LOG(ERROR, "catch %d\n", number);
    app_quit = 1;
    startDebugger();
    _exit(1);
}

static void install(int number, void (*handler)(int), int flags)
{
    struct sigaction action = {};
    action.sa_handler = handler;
    action.sa_flags = flags;
    sigemptyset(&action.sa_mask);
    sigaddset(&action.sa_mask, SIGALRM);
    sigaddset(&action.sa_mask, SIGUSR1);
    sigaction(number, &action, nullptr);
}

void installSignalHandlers()
{
    install(SIGUSR1, scheduleSignalHandler, SA_RESTART);
    install(SIGSEGV, sighandler, static_cast<int>(SA_RESETHAND));
    install(SIGALRM, alarmHandler, SA_RESTART);
}

void runMainLoop()
{
    install(SIGTERM, endHandler, 0);
    sigset_t scheduleSignal;
    sigemptyset(&scheduleSignal);
    sigaddset(&scheduleSignal, SIGUSR1);
    pthread_sigmask(SIG_UNBLOCK, &scheduleSignal, nullptr);

    while (app_quit == 0 && !endRequested)
        sleep(1);

    const MutexLock noFileIsBeingWritten(app_config_mutex);
}
