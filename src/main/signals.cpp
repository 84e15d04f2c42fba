#include "main/signals.h"

#include "main/locks.h"
#include "main/log.h"
#include "main/settings.h"
#include "schedule/schedules.h"

#include <atomic>
#include <csignal>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

static std::atomic<bool> endRequested;
static std::atomic<bool> schedulesRequested;

void blockTickSignals()
{
    sigset_t tickSignals;
    sigemptyset(&tickSignals);
    sigaddset(&tickSignals, SIGALRM);
    sigaddset(&tickSignals, SIGUSR1);
    pthread_sigmask(SIG_BLOCK, &tickSignals, nullptr);
}

// Schedules are looked at on demand, and only on the main thread, whose loop does it: what locks
// and allocates has no place in a handler.
static void scheduleSignalHandler(int)
{
    if (gettid() == mainPid)
        schedulesRequested = true;
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

// In a child: signals as at the start of a program. Takes no lock.
static void resetSignals()
{
    for (const int number : {SIGALRM, SIGUSR1, SIGSEGV, SIGTERM, SIGINT, SIGPIPE})
        signal(number, SIG_DFL);
    sigset_t none;
    sigemptyset(&none);
    pthread_sigmask(SIG_SETMASK, &none, nullptr);
}

static void awaitChild(pid_t child)
{
    if (child > 0)
        waitpid(child, nullptr, 0);
}

// The crash may have happened in the logging library or the allocator, with a lock held that nobody
// will release. So one child logs, for two seconds at the most, and another calls for the debugger;
// _Fork takes no lock.
static void sighandler(int number)
{
    static constexpr unsigned LONGEST_SECONDS = 2;
    app_quit = 1;
    const pid_t logging = _Fork();
    if (logging == 0) {
        resetSignals();
        alarm(LONGEST_SECONDS);
        LOG(ERROR, "catch %d\n", number);
        _exit(0);
    }
    awaitChild(logging);
    const pid_t calling = _Fork();
    if (calling == 0) {
        resetSignals();
        startDebugger();
        _exit(1);
    }
    awaitChild(calling);
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
    signal(SIGCHLD, SIG_DFL);  // ignored, as whoever starts the daemon may have it, children could
                               // not be waited for
}

// What ends the sleep; let in only there, so that none comes between a look and the sleep.
static constexpr int AWAITED[] = {SIGUSR1, SIGTERM, SIGINT};

static void blockAwaitedSignals()
{
    sigset_t awaited;
    sigemptyset(&awaited);
    for (const int number : AWAITED)
        sigaddset(&awaited, number);
    pthread_sigmask(SIG_BLOCK, &awaited, nullptr);
}

static void sleepForSignals()
{
    sigset_t letIn;
    pthread_sigmask(SIG_SETMASK, nullptr, &letIn);
    for (const int number : AWAITED)
        sigdelset(&letIn, number);
    ppoll(nullptr, 0, nullptr, &letIn);
}

// Not analysed: the lock is never given back, so that no file is opened any more on the way out.
LOCKING(no_thread_safety_analysis)
void runMainLoop()
{
    blockAwaitedSignals();
    install(SIGTERM, endHandler, 0);
    install(SIGINT, endHandler, 0);
    while (app_quit == 0 && !endRequested) {
        sleepForSignals();
        if (schedulesRequested.exchange(false)) {
            LOG_AS("main", DEBUG, "schedule signal\n");
            doSchedules();
        }
    }
    lockMutex(app_config_mutex);
}
