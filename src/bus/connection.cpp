#include "bus/connection.h"

#include "bus/listener.h"
#include "bus/outbound_io.h"
#include "main/log.h"
#include "main/scope.h"

#include <pthread.h>

DBusConnection *openBus(const char *nullMessage)
{
    BusError error;
    DBusConnection *connection = dbus_bus_get_private(DBUS_BUS_SYSTEM, error);
    if (error.isSet()) {
        LOG(ERROR, "Connection Error (%s)\n", error.message());
        return nullptr;
    }
    if (!connection) {
        LOG(ERROR, "%s", nullMessage);
        return nullptr;
    }
    dbus_connection_set_exit_on_disconnect(connection, FALSE);
    return connection;
}

DBusConnection *dbus_conn_init()
{
    return openBus("dbus_conn is NULL\n");
}

int app_dbus_init()
{
    dbus_threads_init_default();
    DBusConnection *connection = dbus_conn_init();
    if (!connection || !startOutbound(connection)) {
        LOG(ERROR, "dbus_conn_init failed.\n");
        return -1;
    }
    pthread_t listener;
    if (pthread_create(&listener, nullptr, dbus_listen, nullptr) != 0) {
        LOG(ERROR, "pthread_create fail\n");
        // No stale pointer stays behind: later calls see that there is no connection.
        stopOutbound();
        return -1;
    }
    return 0;
}
