#include "bus/listener.h"

#include "bus/connection.h"
#include "bus/handlers.h"
#include "main/log.h"
#include "main/settings.h"

#include <cstring>
#include <pthread.h>

static constexpr const char *BUS_NAME = "com.ovrinbus.app";
static constexpr const char *EVENT_MATCH = "type='signal',interface='com.OvrinTech.signal.event'";
static constexpr const char *UPDATE_CHECK_PATH = "/com/OvrinTech/message/checkupdat";

static constexpr const char *EVENT_SIGNALS = "com.OvrinTech.signal.event";
static constexpr const char *APP = "com.OvrinTech.app";
static constexpr const char *SWITCH_APP = "com.OvrinTech.switch.app";
static constexpr const char *PUSH_MESSAGES = "com.OvrinTech.message.pushMsg";
static constexpr const char *ZWAVE_EVENT = "com.OvrinTech.zwave.event";

static constexpr int SIGNAL = DBUS_MESSAGE_TYPE_SIGNAL;
static constexpr int METHOD = DBUS_MESSAGE_TYPE_METHOD_CALL;

static HandlerResult acceptAndIgnore(DBusConnection *, DBusMessage *, void *, apr_pool_t *)
{
    return HANDLED;
}

static constexpr Route ROUTES[] = {
    {SIGNAL, EVENT_SIGNALS, "triggerAPP", ovrin_dbus_event_signal},
    {SIGNAL, EVENT_SIGNALS, "trigger", acceptAndIgnore},
    {SIGNAL, EVENT_SIGNALS, "command", acceptAndIgnore},
    {METHOD, APP, "jsongettitles", app_dbus_jsonGetTitles},
    {METHOD, APP, "jsongetgroup", app_dbus_jsonGetGroup},
    {METHOD, APP, "jsonsetall", app_dbus_jsonSetAll},
    {METHOD, APP, "enablelock", enableLock},
    {METHOD, APP, "jsongetall", app_dbus_jsonGetAll},
    {METHOD, APP, "jsondel", app_dbus_jsonDel},
    {METHOD, APP, "jsonrename", app_dbus_jsonRename},
    {METHOD, APP, "jsongeteventbyseq", app_dbus_jsonGetEventBySeq},
    {METHOD, APP, "jsongetmacroeventbyseq", app_dbus_jsonGetMacroEventBySeq},
    {METHOD, APP, "doscene", app_dbus_doScene},
    {METHOD, APP, "doscenemode", app_dbus_doScenemode},
    {METHOD, APP, "setDST", app_dbus_setDST},
    {METHOD, APP, "enableastclock", app_dbus_enableastclock},
    {METHOD, APP, "setastclock_lon", reloadPosition},
    {METHOD, APP, "setastclock_lat", reloadPosition},
    {METHOD, APP, "getDat", app_dbus_getDat},
    {METHOD, SWITCH_APP, "setHomeScene", app_dbus_setHomeScene},
    {METHOD, SWITCH_APP, "resetConfig", app_dbus_reset_config},
    {METHOD, SWITCH_APP, "backupConfig", app_dbus_backup_config},
    {METHOD, SWITCH_APP, "restoreConfig", app_dbus_restore_config},
    {METHOD, SWITCH_APP, "restoreConfig2", app_dbus_restore_config2},
    {METHOD, SWITCH_APP, "backupOvrinData", app_dbus_backup_OvrinData},
    {METHOD, PUSH_MESSAGES, "message", app_dbus_send_push},
    {METHOD, APP, "setRecentEventLogNum", app_dbus_set_eventLog_recentNum},
    {METHOD, ZWAVE_EVENT, "event", app_dbus_event_method},
};

std::span<const Route> routes()
{
    return ROUTES;
}

static const char *orNull(const char *text)
{
    return text ? text : "(null)";
}

// A method call may leave its interface out; it then goes by its member alone.
static bool matches(DBusMessage *message, const Route &route)
{
    return route.type == METHOD
               ? dbus_message_is_method_call(message, route.interface, route.member)
               : dbus_message_is_signal(message, route.interface, route.member);
}

static const Route *findRoute(DBusMessage *message)
{
    for (const Route &route : ROUTES) {
        if (matches(message, route))
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

DBusHandlerResult filter_func(DBusConnection *connection, DBusMessage *message, void *) noexcept
{
    const char *path = dbus_message_get_path(message);
    const char *member = dbus_message_get_member(message);
    const char *interface = dbus_message_get_interface(message);
    LOG(TRACE, "enter %s, path: %s, method: %s, iface: %s\n", __func__, orNull(path),
        orNull(member), orNull(interface));
    if (!path && !member)
        return DBUS_HANDLER_RESULT_NOT_YET_HANDLED;
    if (path && strcmp(path, UPDATE_CHECK_PATH) == 0 && Enablupdatepush == 1) {
        LOG(ERROR, "match %s, path: %s, method: %s, iface: %s\n", __func__, path, orNull(member),
            orNull(interface));
        return DBUS_HANDLER_RESULT_NOT_YET_HANDLED;  // for this customer others look for updates
    }
    if (route(connection, message) != HANDLED) {
        LOG(UNHANDLED, "DBUS request not handled, method: %s, iface: %s, path: %s\n",
            orNull(member), orNull(interface), orNull(path));
    }
    return DBUS_HANDLER_RESULT_HANDLED;  // Deliberate: a request that nobody accepted gets no
                                         // answer.
}

static bool ownName(DBusConnection *connection, const char *caller)
{
    BusError error;
    const int reply =
        dbus_bus_request_name(connection, BUS_NAME, DBUS_NAME_FLAG_REPLACE_EXISTING, error);
    if (error.isSet())
        LOG_AS(caller, ERROR, "Name Error (%s)\n", error.message());
    return reply == DBUS_REQUEST_NAME_REPLY_PRIMARY_OWNER;
}

static bool startListening(DBusConnection *connection, const char *caller)
{
    if (!dbus_connection_add_filter(connection, filter_func, nullptr, nullptr))
        return false;
    BusError error;
    dbus_bus_add_match(connection, EVENT_MATCH, error);
    if (error.isSet() || !ownName(connection, caller))
        return false;
    const char *uniqueName = dbus_bus_get_unique_name(connection);
    if (!uniqueName)
        return false;
    LOG_AS(caller, DEBUG, "unique_name: %s\n", uniqueName);
    return true;
}

void *dbus_listen(void *)
{
    pthread_setname_np(pthread_self(), "listener");
    pthread_detach(pthread_self());
    DBusConnection *connection = openBus(__func__, "dbus_conn_listen is NULL\n");
    if (!connection)
        return nullptr;
    if (!startListening(connection, __func__)) {
        dbus_connection_close(connection);
        dbus_connection_unref(connection);
        return nullptr;
    }
    while (dbus_connection_read_write_dispatch(connection, -1)) {
    }
    endWithoutBus("The bus connection is lost");
}
