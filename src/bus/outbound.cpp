#include "bus/outbound.h"

#include "bus/connection.h"
#include "bus/outbound_io.h"
#include "main/log.h"
#include "main/scope.h"
#include "main/util.h"

#include <apr_strings.h>
#include <cstdint>
#include <cstdio>
#include <unistd.h>

struct Peer {
    const char *destination;
    const char *interface;
    const char *member;
    int timeoutMilliseconds;
};

static constexpr Peer NVRAM = {"com.ovrinbus.platform", "com.OvrinTech.platform.nvram", "get",
                               1000};
static constexpr Peer SDK = {"com.ovrinbus.sdk", "com.OvrinTech.json.command", "command", 2000};

static constexpr const char *CALLER_PATH = "/com/OvrinTech/App";
static constexpr const char *SIGNAL_PATH = "/com/OvrinTech/process/app";
static constexpr const char *COMMAND_INTERFACE = "com.OvrinTech.signal.json.command";
static constexpr const char *EVENT_LOG_INTERFACE = "com.OvrinTech.signal.eventLog";

static bool appendText(DBusMessage *message, const char *text)
{
    return text && busCarries(text) &&
           dbus_message_append_args(message, DBUS_TYPE_STRING, &text, DBUS_TYPE_INVALID);
}

// Each thread calls from its own path. Null without memory, a pool that could not be created
// included.
static Owned<DBusMessage> createCall(apr_pool_t *pool, const Peer &peer)
{
    if (!pool)
        return nullptr;
    const char *path = apr_psprintf(pool, "%s/%ld", CALLER_PATH, static_cast<long>(gettid()));
    if (!path)
        return nullptr;
    return Owned<DBusMessage>(
        dbus_message_new_method_call(peer.destination, path, peer.interface, peer.member));
}

// The first argument, copied into the pool; null when it is no string.
static char *copyFirstText(apr_pool_t *pool, DBusMessageIter &arguments)
{
    if (dbus_message_iter_get_arg_type(&arguments) != DBUS_TYPE_STRING) {
        LOG(ERROR, "The reply's first argument is no string\n");
        return nullptr;
    }
    const char *text = nullptr;
    dbus_message_iter_get_basic(&arguments, &text);
    return copyToPool(pool, text);
}

char *app_dbus_get_nvram(apr_pool_t *pool, const char *key)
{
    DBusConnection *connection = dbus_conn;
    if (!connection) {
        LOG(ERROR, "dbus_conn is NULL.\n");
        return nullptr;
    }
    const Owned<DBusMessage> request = createCall(pool, NVRAM);
    if (!request) {
        LOG(ERROR, "Could not allocate D-BUS message\n");
        return nullptr;
    }
    if (!appendText(request.get(), key))
        return nullptr;
    const Owned<DBusMessage> reply =
        callAndWait(connection, request.get(), NVRAM.timeoutMilliseconds);
    if (!reply) {
        LOG(ERROR, "No reply, key: %s, dest: %s, ifac: %s, cmd: %s\n", key, NVRAM.destination,
            NVRAM.interface, NVRAM.member);
        return nullptr;
    }
    DBusMessageIter arguments;
    if (!dbus_message_iter_init(reply.get(), &arguments)) {
        LOG(ERROR, "Message has no arguments!\n");
        return copyToPool(
            pool, "(null)");  // Deliberate: what a formatter makes of the text that is missing.
    }
    return copyFirstText(pool, arguments);
}

char *app_dbus_send_json_cmd(apr_pool_t *pool, const char *text)
{
    LOG(TRACE, "enter %s, sdk cmd: %s\n", __func__, text ? text : "");
    DBusConnection *connection = dbus_conn;
    if (!connection) {
        LOG(ERROR, "dbus_conn is NULL.\n");
        return nullptr;
    }
    if (!text) {
        LOG(ERROR, "str is NULL.\n");
        return nullptr;
    }
    const Owned<DBusMessage> request = createCall(pool, SDK);
    if (!request) {
        LOG(ERROR, "Could not allocate D-BUS message\n");
        return nullptr;
    }
    if (!appendText(request.get(), text))
        LOG(ERROR,
            "dbus_message_append_args failed\n");  // Deliberate: the call is made all the same.
    const Owned<DBusMessage> reply =
        callAndWait(connection, request.get(), SDK.timeoutMilliseconds);
    if (!reply) {
        LOG(ERROR, "No reply\n");
        return nullptr;
    }
    DBusMessageIter arguments;
    if (!dbus_message_iter_init(reply.get(), &arguments)) {
        LOG(ERROR, "Message has no arguments!\n");
        return nullptr;
    }
    char *answer = copyFirstText(pool, arguments);
    LOG(DEBUG, "retStr: %s\n", answer ? answer : "");
    return answer;
}

// The signal functions share their steps. Deliberate: each step is taken even when an earlier one
// has failed. The lines are logged in the name of the function that sends.
struct SignalSender {
    const char *function;
    int result = 0;

    void fail(const char *message, int line)
    {
        ovrin_log_write(ERROR, function, line, "app", "%s", message);
        result = -1;
    }
};

template <typename Append>
static int sendSignal(const char *function, const char *path, const char *interface,
                      const char *member, Append append)
{
    SignalSender sender = {function};
    DBusConnection *connection = dbus_conn;
    if (!connection) {
        sender.fail("dbus_conn is NULL.\n", __LINE__);
        return sender.result;
    }
    const Owned<DBusMessage> message(dbus_message_new_signal(path, interface, member));
    if (!message)
        sender.fail("Message Null\n", __LINE__);
    if (!message || !append(message.get()))
        sender.fail("dbus_message_append_args fail.\n", __LINE__);
    if (!message || !dbus_connection_send(connection, message.get(), nullptr))
        sender.fail("Out Of Memory!\n", __LINE__);
    return sender.result;
}

int dbus_signal_json_kick_dog(apr_pool_t *, int kickFlag)
{
    const auto flag = static_cast<uint16_t>(kickFlag);
    return sendSignal(
        __func__, SIGNAL_PATH, COMMAND_INTERFACE, "kick_thedog", [flag](DBusMessage *message) {
            return dbus_message_append_args(message, DBUS_TYPE_UINT16, &flag, DBUS_TYPE_INVALID);
        });
}

int dbus_signal_json_command(apr_pool_t *, const char *text)
{
    return sendSignal(__func__, SIGNAL_PATH, COMMAND_INTERFACE, "command",
                      [text](DBusMessage *message) { return appendText(message, text); });
}

int dbus_signal_event(const char *text, const char *signalName)
{
    char path[128];  // the daemon's own signal names fit by far
    snprintf(path, sizeof path, "%s/%s", SIGNAL_PATH, signalName);
    return sendSignal(__func__, path, EVENT_LOG_INTERFACE, signalName,
                      [text](DBusMessage *message) { return appendText(message, text); });
}
