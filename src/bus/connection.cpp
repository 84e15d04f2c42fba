#include "bus/connection.h"

#include "bus/listener.h"
#include "bus/outbound_io.h"
#include "main/locks.h"
#include "main/log.h"
#include "main/scope.h"
#include "main/threads.h"

#include <cstring>
#include <pthread.h>
#include <unistd.h>

DBusConnection *openBus(const char *caller, const char *nullMessage)
{
    BusError error;
    DBusConnection *connection = dbus_bus_get_private(DBUS_BUS_SYSTEM, error);
    if (error.isSet()) {
        LOG_AS(caller, ERROR, "Connection Error (%s)\n", error.message());
        return nullptr;
    }
    if (!connection) {
        LOG_AS(caller, ERROR, "%s", nullMessage);
        return nullptr;
    }
    dbus_connection_set_exit_on_disconnect(connection, FALSE);
    return connection;
}

DBusConnection *dbus_conn_init()
{
    return openBus(__func__, "dbus_conn is NULL\n");
}

void endWithoutBus(const char *why)
{
    // Both connections may find the bus gone at once. The first never lets go of the mutex, so that
    // the line is there, once, before the process ends.
    const MutexLock noFileIsBeingWritten(app_config_mutex);
    LOG(ERROR, "%s\n", why);
    _exit(1);
}

static void endForLostBus()
{
    endWithoutBus("The bus connection is lost");
}

int app_dbus_init()
{
    if (!dbus_threads_init_default()) {
        LOG(ERROR, "Out Of Memory!\n");
        return -1;
    }
    DBusConnection *connection = dbus_conn_init();
    if (!connection) {
        LOG(ERROR, "dbus_conn_init failed.\n");
        return -1;
    }
    // The connection is published last: nobody uses it yet should it have to be closed again.
    pthread_t listener;
    if (createThread(&listener, dbus_listen, nullptr) != 0) {
        LOG(ERROR, "pthread_create fail\n");
        dbus_connection_close(connection);
        dbus_connection_unref(connection);
        return -1;
    }
    return startOutbound(connection, endForLostBus) ? 0 : -1;
}

bool busCarries(const char *text, const char *caller)
{
    static constexpr size_t LONGEST_TEXT = size_t{16} * 1024 * 1024;  // buses take 32 MiB a message
    if (strlen(text) > LONGEST_TEXT)
        LOG_AS(caller, ERROR, "The text is too long for the bus\n");
    else if (!dbus_validate_utf8(text, nullptr))
        LOG_AS(caller, ERROR, "The text is no UTF-8\n");
    else
        return true;
    return false;
}
