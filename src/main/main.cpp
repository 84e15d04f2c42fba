// The daemon's start, in its fixed order, and the main thread's sleep.

#include "bus/connection.h"
#include "bus/outbound_io.h"
#include "config/snapshot.h"
#include "events/event_intake.h"
#include "main/config_file.h"
#include "main/equeue.h"
#include "main/json_memory.h"
#include "main/kept_memory.h"
#include "main/log.h"
#include "main/scope.h"
#include "main/settings.h"
#include "main/signals.h"
#include "scene/tick.h"

#include <apr_general.h>
#include <cstdio>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

static constexpr useconds_t FIRST_ALARM_MICROSECONDS = 999999;
static constexpr const char *LAN_INTERFACE = "eth2.2";

static constexpr const char *USAGE = "Usage: app [--help | --version]\n";
static constexpr const char *HELP =
    "\n"
    "The automation daemon of a home gateway: scenes, macros, schedules, alarm and notifications.\n"
    "Without arguments it runs in the foreground, as com.ovrinbus.app on the system bus, until\n"
    "SIGTERM.\n"
    "\n"
    "  --help     this text\n"
    "  --version  the version\n"
    "\n"
    "Environment:\n"
    "  APP_DATA_DIR             folder of the stored documents (default /mnt/OvrinData)\n"
    "  DBUS_SYSTEM_BUS_ADDRESS  bus to use in place of the system bus\n"
    "  OVRIN_LOG_LEVEL          least level that is logged, 2 (trace) to 6 (error), default 4\n"
    "  PATH                     where the programs that deliver pushes are found\n"
    "  TZ                       time zone of the schedules, where it is not the system's\n"
    "\n"
    "Files, in that folder:\n"
    "  appSetup.json            the configuration: four bytes of length, then JSON\n"
    "  scheduleResumeScene.json what the schedules in force will put back\n"
    "  *_bak, *_bak2            their two backups\n"
    "  *.new, *.copy            what is being written; the next start completes it\n"
    "\n"
    "Signals:\n"
    "  SIGTERM, SIGINT          end the daemon, no file half written\n"
    "  SIGUSR1                  look at the schedules, to be sent once a minute\n"
    "  SIGALRM                  the daemon's own tick\n"
    "  SIGSEGV                  a crash: SIGUSR1 to debuger, and the end\n"
    "\n"
    "Exit status: 0 ended by a signal, 1 the bus is lost or something failed, 2 wrong usage.\n";

static int answerArguments(const char *argument)
{
    if (strcmp(argument, "--help") == 0) {
        printf("%s%s", USAGE, HELP);
        return 0;
    }
    if (strcmp(argument, "--version") == 0) {
        puts("app " APP_VERSION);
        return 0;
    }
    fprintf(stderr, "app: unknown argument '%s'\n%s", argument, USAGE);
    return 2;
}

static void startUp()
{
    const Owned<apr_pool_t> pool = createPool();
    appConfigInit(pool.get());
    startTickThread();
    app_dbus_init();
    updateAllDev(pool.get());
    lan_mac = hardwareAddress(LAN_INTERFACE);
    readSettings(pool.get());
}

int main(int argc, char **argv)
{
    if (argc > 1)
        return answerArguments(argc == 2 ? argv[1] : argv[2]);

    limitKeptMemory();
    umask(S_IRWXG | S_IRWXO);  // what is written, copies by the shell included, holds passwords
    watchJsonMemory();
    blockTickSignals();
    mainPid = gettid();
    LOG(DEBUG, "mainPid: %d\n", mainPid.load());
    installSignalHandlers();
    ualarm(FIRST_ALARM_MICROSECONDS, 0);
    if (apr_initialize() != APR_SUCCESS) {
        LOG(ERROR, "apr_initialize fail\n");
        return 1;
    }
    limitKeptPoolMemory();
    startUp();
    equeue_doEvent_register(doEvent);
    equeue_thread_init();
    app_quit = 0;
    showMutexAddr();
    if (!dbus_conn)
        endWithoutBus("There is no bus to serve");
    runMainLoop();
    return app_quit;
}
