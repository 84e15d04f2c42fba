// The methods through which clients read and change the configuration.

#include "bus/handlers.h"
#include "bus/outbound.h"
#include "config/document.h"
#include "config/groups.h"
#include "events/event_documents.h"
#include "main/config_file.h"
#include "main/json_memory.h"
#include "main/locks.h"
#include "main/log.h"
#include "main/secrets.h"
#include "main/stored_file.h"
#include "main/util.h"
#include "scene/housekeeping.h"

#include <cmath>
#include <cstdlib>
#include <ctime>

using Serializer = json_t *(*)(ListNode *head);

static Owned<json_t> buildOf(const char *word, Serializer Group::*serializer)
{
    const Group *group = titledGroup(word);
    if (!group)
        return nullptr;
    const MutexLock lock(*group->mutex);
    return Owned<json_t>((group->*serializer)(group->head));
}

static Owned<json_t> buildTitles(const char *word)
{
    return buildOf(word, &Group::titlesToJson);
}

static Owned<json_t> buildGroup(const char *word)
{
    return buildOf(word, &Group::toJson);
}

static Owned<json_t> buildAll(const char *)
{
    return Owned<json_t>(getAllAppConfig());
}

// A read method: its word picks the value, an unknown word gets no reply.
static HandlerResult answerJson(const char *caller, DBusConnection *connection,
                                DBusMessage *message, Owned<json_t> (*build)(const char *word))
{
    const Owned<DBusMessage> reply(dbus_message_new_method_return(message));
    if (!reply)
        return NO_MEMORY;
    const char *word;
    if (!readText(message, &word))
        return NOT_HANDLED;
    LOG_AS(caller, DEBUG, "word: %s\n", word);
    const JsonMemory memory;
    Owned<json_t> value = build(word);
    const Owned<char> text(json_dumps_dbg(value.get(), JSON_TEXT_FLAGS));
    value.reset();
    if (!text || memory.ranOut())
        return NOT_HANDLED;
    sendText(connection, reply.get(), text.get());
    return HANDLED;
}

HandlerResult app_dbus_jsonGetTitles(DBusConnection *connection, DBusMessage *message, void *,
                                     apr_pool_t *)
{
    return answerJson(__func__, connection, message, buildTitles);
}

HandlerResult app_dbus_jsonGetGroup(DBusConnection *connection, DBusMessage *message, void *,
                                    apr_pool_t *)
{
    return answerJson(__func__, connection, message, buildGroup);
}

HandlerResult app_dbus_jsonGetAll(DBusConnection *connection, DBusMessage *message, void *,
                                  apr_pool_t *)
{
    return answerJson(__func__, connection, message, buildAll);
}

// A read-back of a journal: everything from a sequence number on, which is 0 for no number.
static HandlerResult answerLog(DBusConnection *connection, DBusMessage *message, apr_pool_t *pool,
                               char *(*build)(const char *sequence, apr_pool_t *pool))
{
    const Owned<DBusMessage> reply(dbus_message_new_method_return(message));
    if (!reply)
        return NO_MEMORY;
    const char *sequence;
    if (!readText(message, &sequence))
        return NOT_HANDLED;
    const char *text = build(sequence, pool);
    if (!text)
        return NOT_HANDLED;
    sendText(connection, reply.get(), text);
    return HANDLED;
}

// atoi says nothing of what an int cannot hold, and stops at 2^31 where a long has 32 bits. The
// numbers of the journals go on.
static uint32_t sequenceNumber(const char *text)
{
    return static_cast<uint32_t>(strtoll(text, nullptr, 10));
}

static char *events(const char *sequence, apr_pool_t *pool)
{
    return eventLogsToStrBySeq(&eventLogListHead, sequenceNumber(sequence), pool);
}

static char *macroEvents(const char *sequence, apr_pool_t *pool)
{
    const uint32_t number = sequenceNumber(sequence);
    LOG_AS("app_dbus_jsonGetMacroEventBySeq", DEBUG, "seq: %s %u\n", sequence, number);
    return macroEventLogsToStrBySeq(&macroEventLogListHead, number, pool);
}

HandlerResult app_dbus_jsonGetEventBySeq(DBusConnection *connection, DBusMessage *message, void *,
                                         apr_pool_t *pool)
{
    return answerLog(connection, message, pool, events);
}

HandlerResult app_dbus_jsonGetMacroEventBySeq(DBusConnection *connection, DBusMessage *message,
                                              void *, apr_pool_t *pool)
{
    return answerLog(connection, message, pool, macroEvents);
}

// Writes wait until the gateway counts as started, and are refused while the user has locked the
// configuration.
static bool mayWrite()
{
    const Owned<apr_pool_t> pool = createPool();
    if (!pool)
        return false;
    const char *lock = app_dbus_get_nvram(pool.get(), "enablelock");
    const bool locked = lock && std::trunc(atof(lock)) == 1.0;
    return gateway_app_star2 != 0 && !locked;
}

// A write method: replies 1 when the text changed the configuration, which is then saved, else 0.
static HandlerResult applyJson(const char *caller, LogLevel level, DBusConnection *connection,
                               DBusMessage *message, bool (*apply)(const char *text))
{
    const Owned<DBusMessage> reply(dbus_message_new_method_return(message));
    if (!reply)
        return NO_MEMORY;
    const char *text;
    if (!readText(message, &text))
        return NOT_HANDLED;
    const Owned<char> shown(withoutSecrets(text));
    LOG_AS(caller, level, "word: %s\n", shown ? shown.get() : "");
    const bool changed = apply(text);
    if (changed)
        saveJsonToFlash();
    sendInteger(connection, reply.get(), changed ? 1 : 0);
    return HANDLED;
}

static bool setAll(const char *text)
{
    if (parseAll(text) != 1)
        return false;
    LOG_AS("app_dbus_jsonSetAll", INFO, "2 word: \n");
    return true;
}

static bool del(const char *text)
{
    return parseToDel(text) == 1;
}

static bool rename(const char *text)
{
    return parseRename(text) == 1;
}

HandlerResult app_dbus_jsonSetAll(DBusConnection *connection, DBusMessage *message, void *,
                                  apr_pool_t *)
{
    if (!mayWrite())
        return HANDLED;  // Deliberate: refused without a reply or a line in the log.
    return applyJson(__func__, INFO, connection, message, setAll);
}

HandlerResult app_dbus_jsonDel(DBusConnection *connection, DBusMessage *message, void *,
                               apr_pool_t *)
{
    if (!mayWrite())
        return HANDLED;  // Deliberate: as above.
    return applyJson(__func__, DEBUG, connection, message, del);
}

// Deliberate: renaming is never refused.
HandlerResult app_dbus_jsonRename(DBusConnection *connection, DBusMessage *message, void *,
                                  apr_pool_t *)
{
    return applyJson(__func__, DEBUG, connection, message, rename);
}

HandlerResult enableLock(DBusConnection *, DBusMessage *, void *, apr_pool_t *)
{
    setConfigTime(time(nullptr));
    return NOT_HANDLED;  // Deliberate: it counts as not handled and gets no reply.
}
