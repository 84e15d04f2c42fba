// The listener: its thread owns the name "com.ovrinbus.app" and a connection of its own, and
// handles one message at a time.

#pragma once

#include "bus/handler.h"

// The thread's body. It ends early when the bus or the name cannot be had; the daemon then runs on
// without receiving.
void *dbus_listen(void *);

// Routes one message to its handler; the connection's only filter.
DBusHandlerResult filter_func(DBusConnection *connection, DBusMessage *message,
                              void *data) noexcept;
