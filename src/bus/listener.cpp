#include "bus/listener.h"

#include "bus/connection.h"
#include "bus/handlers.h"
#include "main/log.h"
#include "main/settings.h"

#include <cstring>
#include <pthread.h>
#include <unistd.h>

static constexpr const char *BUS_NAME = "com.ovrinbus.app";
static constexpr const char *EVENT_MATCH = "type='signal',interface='com.OvrinTech.signal.event'";
static constexpr const char *UPDATE_CHECK_PATH = "/com/OvrinTech/message/checkupdat";

static constexpr const char *EVENT_SIGNALS = "com.OvrinTech.signal.event";
static constexpr const char *APP = "com.OvrinTech.app";
static constexpr const char *ZWAVE_EVENT = "com.OvrinTech.zwave.event";

static constexpr int SIGNAL = DBUS_MESSAGE_TYPE_SIGNAL;
static constexpr int METHOD = DBUS_MESSAGE_TYPE_METHOD_CALL;

static HandlerResult acceptAndIgnore(DBusConnection *, DBusMessage *, void *, apr_pool_t *)
{
    return HANDLED;
}

struct Route {
    int type;
    const char *interface;
    const char *member;
    BusHandler handler;
};

// The rows are tried in this order. The object path of a method is not looked at.
static constexpr Route ROUTES[] = {
    {SIGNAL, EVENT_SIGNALS, "triggerAPP", ovrin_dbus_event_signal},
    {SIGNAL, EVENT_SIGNALS, "trigger", acceptAndIgnore},
    {SIGNAL, EVENT_SIGNALS, "command", acceptAndIgnore},
    {METHOD, APP, "jsongettitles", app_dbus_jsonGetTitles},
    {METHOD, APP, "jsongetgroup", app_dbus_jsonGetGroup},
    {METHOD, APP, "jsonsetall", app_dbus_jsonSetAll},
    {METHOD, APP, "enablelock", enableLock},
    {METHOD, APP, "jsongetall", app_dbus_jsonGetAll},
    {METHOD, APP, "doscene", app_dbus_doScene},
    {METHOD, APP, "doscenemode", app_dbus_doScenemode},
    {METHOD, ZWAVE_EVENT, "event", app_dbus_event_method},
};

static const char *orEmpty(const char *text)
{
    return text ? text : "";
}

static const Route *findRoute(DBusMessage *message)
{
    for (const Route &route : ROUTES) {
        if (dbus_message_get_type(message) == route.type &&
            dbus_message_has_interface(message, route.interface) &&
            dbus_message_has_member(message, route.member))
            return &route;
    }
    return nullptr;
}

static HandlerResult route(DBusConnection *connection, DBusMessage *message)
{
    const Route *found = findRoute(message);
    if (!found)
        return NOT_HANDLED;
    const Owned<apr_pool_t> pool = createPool();
    return pool ? found->handler(connection, message, nullptr, pool.get()) : NO_MEMORY;
}

DBusHandlerResult filter_func(DBusConnection *connection, DBusMessage *message, void *)
{
    const char *path = dbus_message_get_path(message);
    const char *member = dbus_message_get_member(message);
    const char *interface = dbus_message_get_interface(message);
    LOG(TRACE, "enter %s, path: %s, method: %s, iface: %s\n", __func__, orEmpty(path),
        orEmpty(member), orEmpty(interface));
    if (!path && !member)
        return DBUS_HANDLER_RESULT_NOT_YET_HANDLED;
    if (path && strcmp(path, UPDATE_CHECK_PATH) == 0 && Enablupdatepush == 1) {
        LOG(ERROR, "match %s, path: %s, method: %s, iface: %s\n", __func__, path, orEmpty(member),
            orEmpty(interface));
        return DBUS_HANDLER_RESULT_NOT_YET_HANDLED;  // for this customer others look for updates
    }
    if (route(connection, message) != HANDLED) {
        LOG(UNHANDLED, "DBUS request not handled, method: %s, iface: %s, path: %s\n",
            orEmpty(member), orEmpty(interface), orEmpty(path));
    }
    return DBUS_HANDLER_RESULT_HANDLED;  // Deliberate: a request that nobody accepted gets no
                                         // answer.
}

static bool ownName(DBusConnection *connection)
{
    BusError error;
    const int reply =
        dbus_bus_request_name(connection, BUS_NAME, DBUS_NAME_FLAG_REPLACE_EXISTING, error);
    if (error.isSet())
        LOG(ERROR, "Name Error (%s)\n", error.message());
    return reply == DBUS_REQUEST_NAME_REPLY_PRIMARY_OWNER;
}

static bool startListening(DBusConnection *connection)
{
    if (!dbus_connection_add_filter(connection, filter_func, nullptr, nullptr))
        return false;
    BusError error;
    dbus_bus_add_match(connection, EVENT_MATCH, error);
    if (error.isSet() || !ownName(connection))
        return false;
    const char *uniqueName = dbus_bus_get_unique_name(connection);
    if (!uniqueName)
        return false;
    LOG(DEBUG, "unique_name: %s\n", uniqueName);
    return true;
}

void *dbus_listen(void *)
{
    pthread_detach(pthread_self());
    DBusConnection *connection = openBus("dbus_conn_listen is NULL\n");
    if (!connection)
        return nullptr;
    if (!startListening(connection)) {
        dbus_connection_close(connection);
        dbus_connection_unref(connection);
        return nullptr;
    }
    while (dbus_connection_read_write_dispatch(connection, -1)) {
    }
    // Without the bus the daemon is of no use to anyone, and nothing here connects anew: the
    // supervisor starts it again.
    LOG(ERROR, "The bus connection is lost\n");
    _exit(1);
}
