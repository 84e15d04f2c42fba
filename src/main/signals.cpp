#include "main/signals.h"

#include "main/locks.h"
#include "main/log.h"
#include "main/settings.h"

#include <atomic>
#include <csignal>
#include <sys/wait.h>
#include <unistd.h>

static std::atomic<bool> endRequested;

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
    endRequested = true;
}

static void startDebugger()
{
    static char shell[] = "sh";
    static char option[] = "-c";
    static char command[] =
        "killall -SIGUSR1 debuger &";  // Deliberate: it is named so on the device
    char *const arguments[] = {shell, option, command, nullptr};
    execve("/bin/sh", arguments, environ);
}

// Logs and calls for the debugger in a child: the crash may have happened in the logging library or
// the allocator with a lock held, which would hold up the child for two seconds and this process
// not at all. _Fork takes no lock.
static void sighandler(int number)
{
    app_quit = 1;
    const pid_t child = _Fork();
    if (child == 0) {
        static constexpr unsigned LONGEST_SECONDS = 2;
        for (const int caught : {SIGALRM, SIGUSR1, SIGTERM})
            signal(caught, SIG_DFL);
        sigset_t none;
        sigemptyset(&none);
        sigprocmask(SIG_SETMASK, &none, nullptr);
        alarm(LONGEST_SECONDS);
        LOG(ERROR, "catch %d\n", number);
        startDebugger();
        _exit(1);
    }
    if (child > 0)
        waitpid(child, nullptr, 0);
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
