#include "bus/handler.h"

#include "bus/connection.h"
#include "main/log.h"

#include <cstdio>

static bool readArgument(DBusMessage *message, int type, void *argument)
{
    BusError error;
    if (dbus_message_get_args(message, error, type, argument, DBUS_TYPE_INVALID))
        return true;
    fprintf(stderr, "%s\n", error.message());
    return false;
}

bool readText(DBusMessage *message, const char **text)
{
    return readArgument(message, DBUS_TYPE_STRING, text);
}

bool readInteger(DBusMessage *message, int32_t *number)
{
    return readArgument(message, DBUS_TYPE_INT32, number);
}

bool readUnsigned(DBusMessage *message, uint32_t *number)
{
    return readArgument(message, DBUS_TYPE_UINT32, number);
}

static void sendReply(DBusConnection *connection, DBusMessage *reply, int type, const void *answer)
{
    if (!dbus_message_append_args(reply, type, answer, DBUS_TYPE_INVALID) ||
        !dbus_connection_send(connection, reply, nullptr))
        LOG(ERROR, "Out Of Memory!\n");
}

void sendText(DBusConnection *connection, DBusMessage *reply, const char *answer)
{
    if (busCarries(answer))
        sendReply(connection, reply, DBUS_TYPE_STRING, &answer);
}

void sendInteger(DBusConnection *connection, DBusMessage *reply, int32_t answer)
{
    sendReply(connection, reply, DBUS_TYPE_INT32, &answer);
}

void sendUnsigned(DBusConnection *connection, DBusMessage *reply, uint32_t answer)
{
    sendReply(connection, reply, DBUS_TYPE_UINT32, &answer);
}
