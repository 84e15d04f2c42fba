// The methods that drive the daemon.

#include "bus/handlers.h"
#include "config/scene.h"
#include "events/event_documents.h"
#include "main/locks.h"
#include "main/log.h"
#include "main/settings.h"
#include "notify/push.h"
#include "scene/home_security.h"
#include "scene/housekeeping.h"
#include "scene/runner.h"

#include <cstring>

HandlerResult app_dbus_doScene(DBusConnection *connection, DBusMessage *message, void *,
                               apr_pool_t *pool)
{
    const Owned<DBusMessage> reply(dbus_message_new_method_return(message));
    if (!reply)
        return NO_MEMORY;
    const char *name;
    if (!readText(message, &name))
        return NOT_HANDLED;
    LOG(DEBUG, "scene name: %s\n", name);
    {
        // Meant: the scenes stay locked while the scene is planned, so that nobody frees it
        // meanwhile.
        const MutexLock lock(scenesList_mutex);
        Scene *scene = searchScene(&scenesListHead, name);
        if (scene)
            doScene(pool, scene);
    }
    sendText(connection, reply.get(), name);
    return HANDLED;
}

HandlerResult app_dbus_doScenemode(DBusConnection *connection, DBusMessage *message, void *,
                                   apr_pool_t *)
{
    const Owned<DBusMessage> reply(dbus_message_new_method_return(message));
    if (!reply)
        return NO_MEMORY;
    const char *mode;
    if (!readText(message, &mode))
        return NOT_HANDLED;
    applySceneMode(__func__, mode);
    sendText(connection, reply.get(), mode);
    return HANDLED;
}

HandlerResult app_dbus_setDST(DBusConnection *, DBusMessage *, void *, apr_pool_t *)
{
    setDSTflag = 1;
    LOG(DEBUG, "dbus setDST=1 \n");
    return HANDLED;
}

static void readPositionAnew()
{
    const Owned<apr_pool_t> pool = createPool();
    readPosition(pool.get());
}

HandlerResult app_dbus_enableastclock(DBusConnection *connection, DBusMessage *message, void *,
                                      apr_pool_t *)
{
    const Owned<DBusMessage> reply(dbus_message_new_method_return(message));
    if (!reply)
        return NO_MEMORY;
    const char *mode;
    if (!readText(message, &mode))
        return NOT_HANDLED;
    LOG(INFO, "scene name: %s\n", mode);  // Deliberate: the text of another method.
    if (strcmp(mode, "1") == 0) {
        enast = 1;
        LOG(INFO, "enable astclock: %s\n", mode);
    } else if (strcmp(mode, "0") == 0) {
        enast = 0;
        LOG(INFO, "disable astclock: %s\n", mode);
    }
    readPositionAnew();
    sendText(connection, reply.get(), mode);
    return HANDLED;
}

// Serves both coordinates; the tick announces the new times.
HandlerResult reloadPosition(DBusConnection *, DBusMessage *, void *, apr_pool_t *)
{
    readPositionAnew();
    astclockflag = 1;
    return HANDLED;
}

HandlerResult app_dbus_setHomeScene(DBusConnection *connection, DBusMessage *message, void *,
                                    apr_pool_t *pool)
{
    const Owned<DBusMessage> reply(dbus_message_new_method_return(message));
    if (!reply)
        return NO_MEMORY;
    int32_t enable = -1;
    if (!readInteger(message, &enable))
        return NOT_HANDLED;
    LOG(INFO, "enable: %d\n", enable);
    setHomeSceneEnable(pool, enable);
    sendInteger(connection, reply.get(), 1);
    return HANDLED;
}

HandlerResult app_dbus_send_push(DBusConnection *connection, DBusMessage *message, void *,
                                 apr_pool_t *pool)
{
    const Owned<DBusMessage> reply(dbus_message_new_method_return(message));
    if (!reply)
        return NO_MEMORY;
    const char *text;
    if (!readText(message, &text))
        return NOT_HANDLED;
    LOG(DEBUG, "word: %s\n", text);
    sendText(connection, reply.get(), sendPush(pool, text) < 0 ? "fail" : "done");
    return HANDLED;
}

HandlerResult app_dbus_set_eventLog_recentNum(DBusConnection *connection, DBusMessage *message,
                                              void *, apr_pool_t *)
{
    const Owned<DBusMessage> reply(dbus_message_new_method_return(message));
    if (!reply)
        return NO_MEMORY;
    uint32_t number;
    if (!readUnsigned(message, &number))
        return NOT_HANDLED;
    recentLogNum = number;
    LOG(DEBUG, "recentLogNum: %u\n", number);
    sendUnsigned(connection, reply.get(), 1);
    return HANDLED;
}
