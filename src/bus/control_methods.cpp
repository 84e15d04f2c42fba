// The methods that drive the daemon.

#include "bus/handlers.h"
#include "config/scene.h"
#include "main/locks.h"
#include "main/log.h"
#include "main/settings.h"
#include "scene/runner.h"

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
