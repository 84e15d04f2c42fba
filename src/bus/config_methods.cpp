// The methods through which clients read and change the configuration.

#include "bus/handlers.h"
#include "bus/outbound.h"
#include "config/document.h"
#include "config/macro.h"
#include "config/room.h"
#include "config/scene.h"
#include "config/schedule.h"
#include "main/config_file.h"
#include "main/json_memory.h"
#include "main/locks.h"
#include "main/log.h"
#include "main/stored_file.h"
#include "main/util.h"
#include "scene/tick.h"

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <ctime>

struct Group {
    const char *word;
    Mutex *mutex;
    ListNode *head;
    json_t *(*titles)(ListNode *head);
    json_t *(*elements)(ListNode *head);
};

static constexpr Group GROUPS[] = {
    {"macros", &macroList_mutex, &macrosListHead, macrosTitleToJson, macrosToJson},
    {"scenes", &scenesList_mutex, &scenesListHead, scenesTitleToJson, scenesToJson},
    {"rooms", &roomsList_mutex, &roomsListHead, roomsTitleToJson, roomsToJson},
    {"schedules", &schedulesList_mutex, &schedulesListHead, schedulesTitleToJson, schedulesToJson},
};

using Serializer = json_t *(*)(ListNode *head);

static Owned<json_t> buildOf(const char *word, Serializer Group::*serializer)
{
    for (const Group &group : GROUPS) {
        if (strcmp(group.word, word) == 0) {
            const MutexLock lock(*group.mutex);
            return Owned<json_t>((group.*serializer)(group.head));
        }
    }
    return nullptr;
}

static Owned<json_t> buildTitles(const char *word)
{
    return buildOf(word, &Group::titles);
}

static Owned<json_t> buildGroup(const char *word)
{
    return buildOf(word, &Group::elements);
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

HandlerResult app_dbus_jsonSetAll(DBusConnection *connection, DBusMessage *message, void *,
                                  apr_pool_t *)
{
    if (!mayWrite())
        return HANDLED;  // Deliberate: refused without a reply or a line in the log.
    const Owned<DBusMessage> reply(dbus_message_new_method_return(message));
    if (!reply)
        return NO_MEMORY;
    const char *text;
    if (!readText(message, &text))
        return NOT_HANDLED;
    LOG(INFO, "word: %s\n", text);
    const bool stored = parseAll(text) == 1;
    if (stored) {
        LOG(INFO, "2 word: \n");
        saveJsonToFlash();
    }
    sendInteger(connection, reply.get(), stored ? 1 : 0);
    return HANDLED;
}

HandlerResult enableLock(DBusConnection *, DBusMessage *, void *, apr_pool_t *)
{
    setConfigTime(time(nullptr));
    return NOT_HANDLED;  // Deliberate: it counts as not handled and gets no reply.
}
