// The shape of a handler of the routing table, and the steps that the method handlers share:
//
// 1. create the reply first (no memory: NO_MEMORY, nobody answers);
// 2. read the arguments (bad ones: the bus's own text on standard error, NOT_HANDLED, no reply);
// 3. do the work, append the answer, send the reply.

#pragma once

#include "main/scope.h"

#include <cstdint>

enum HandlerResult : int {
    HANDLED = DBUS_HANDLER_RESULT_HANDLED,
    NOT_HANDLED = DBUS_HANDLER_RESULT_NOT_YET_HANDLED,
    NO_MEMORY = DBUS_HANDLER_RESULT_NEED_MEMORY,
};

// `data` is always null. The pool lives as long as the message is handled.
using BusHandler = HandlerResult(DBusConnection *connection, DBusMessage *message, void *data,
                                 apr_pool_t *pool);

// Reads the one text argument, which lives as long as the message. False, with the error on
// standard error, when the arguments are others.
bool readText(DBusMessage *message, const char **text);

// The same for one 32-bit argument.
bool readInteger(DBusMessage *message, int32_t *number);
bool readUnsigned(DBusMessage *message, uint32_t *number);

// Appends the answer and sends the reply, without waiting for it to leave.
// A text that the bus does not carry is logged instead.
void sendText(DBusConnection *connection, DBusMessage *reply, const char *answer);
void sendInteger(DBusConnection *connection, DBusMessage *reply, int32_t answer);
void sendUnsigned(DBusConnection *connection, DBusMessage *reply, uint32_t answer);
