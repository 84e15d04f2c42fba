// The methods that read, back up, restore and reset the stored documents. Those with a number for
// an argument read it and do not use it.

#include "bus/handlers.h"
#include "bus/outbound.h"
#include "events/event_documents.h"
#include "main/backups.h"
#include "main/config_file.h"
#include "main/locks.h"
#include "main/log.h"
#include "main/secrets.h"
#include "main/stored_file.h"
#include "main/write_ahead.h"

#include <cstring>

HandlerResult app_dbus_getDat(DBusConnection *connection, DBusMessage *message, void *,
                              apr_pool_t *)
{
    const Owned<DBusMessage> reply(dbus_message_new_method_return(message));
    if (!reply)
        return NO_MEMORY;
    const char *ignored;
    if (!readText(message, &ignored))
        return NOT_HANDLED;
    Owned<char> text;
    {
        const MutexLock lock(app_config_mutex);
        finishInterruptedWrite(appSetupPath());
        text.reset(jsonStrReadFromFile(appSetupPath()));
    }
    if (!text) {
        LOG(ERROR, "jsonStrReadFromFile return NULL\n");
        return NOT_HANDLED;
    }
    sendText(connection, reply.get(), text.get());
    return HANDLED;
}

// Replies the number that the work gives.
static HandlerResult answerNumber(DBusConnection *connection, DBusMessage *message,
                                  apr_pool_t *pool, int (*work)(apr_pool_t *pool))
{
    const Owned<DBusMessage> reply(dbus_message_new_method_return(message));
    if (!reply)
        return NO_MEMORY;
    int32_t ignored;
    if (!readInteger(message, &ignored))
        return NOT_HANDLED;
    sendInteger(connection, reply.get(), work(pool));
    return HANDLED;
}

static int reset(apr_pool_t *)
{
    LOG_AS("app_dbus_reset_config", INFO, "app config reset\n");
    resetDocuments();
    return 1;
}

HandlerResult app_dbus_reset_config(DBusConnection *connection, DBusMessage *message, void *,
                                    apr_pool_t *pool)
{
    return answerNumber(connection, message, pool, reset);
}

static int backUp(apr_pool_t *)
{
    return backUpDocuments();
}

HandlerResult app_dbus_backup_config(DBusConnection *connection, DBusMessage *message, void *,
                                     apr_pool_t *pool)
{
    LOG(INFO, "app_dbus_backup_config\n");
    const HandlerResult result = answerNumber(connection, message, pool, backUp);
    return result == NOT_HANDLED ? HANDLED : result;  // Deliberate: bad arguments count as handled.
}

static int restoreFirst(apr_pool_t *pool)
{
    static constexpr const char *CALLER = "app_dbus_restore_config";
    LOG_AS(CALLER, INFO, "2.app_dbus_restore_config\n");
    return restoreDocuments(pool, FIRST_BACKUP, CALLER);
}

HandlerResult app_dbus_restore_config(DBusConnection *connection, DBusMessage *message, void *,
                                      apr_pool_t *pool)
{
    LOG(INFO, "app_dbus_restore_config\n");
    return answerNumber(connection, message, pool, restoreFirst);
}

static int restoreSecond(apr_pool_t *pool)
{
    return restoreDocuments(pool, SECOND_BACKUP);
}

HandlerResult app_dbus_restore_config2(DBusConnection *connection, DBusMessage *message, void *,
                                       apr_pool_t *pool)
{
    return answerNumber(connection, message, pool, restoreSecond);
}

static int restoreFirstInSilence(apr_pool_t *pool)
{
    return restoreDocuments(pool, FIRST_BACKUP);
}

// Deliberate: despite its name it restores.
HandlerResult app_dbus_backup_OvrinData(DBusConnection *connection, DBusMessage *message, void *,
                                        apr_pool_t *pool)
{
    return answerNumber(connection, message, pool, restoreFirstInSilence);
}

// Deliberate: kept, though no row of the routing table leads here.
HandlerResult app_dbus_sendDat(DBusConnection *connection, DBusMessage *message, void *,
                               apr_pool_t *pool)
{
    const Owned<DBusMessage> reply(dbus_message_new_method_return(message));
    if (!reply)
        return NO_MEMORY;
    const char *text;
    if (!readText(message, &text))
        return NOT_HANDLED;
    const Owned<char> shown(withoutSecrets(text));
    LOG(INFO, "send.dat request: %s\n", shown ? shown.get() : "");
    {
        const MutexLock lock(app_config_mutex);
        storeDocument(appSetupPath(), text, strlen(text) + 1);
    }
    appConfigParser(pool);
    sendText(connection, reply.get(), "done");
    const char *recent = genRecentEvent(pool);
    if (recent)
        dbus_signal_event(recent, "recent");
    return HANDLED;
}
