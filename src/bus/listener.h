// The listener: its thread owns the name "com.ovrinbus.app" and a connection of its own, and
// handles one message at a time.

#pragma once

#include "bus/handler.h"

#include <span>

// The thread's body. It ends early when the bus or the name cannot be had; the daemon then runs on
// without receiving.
void *dbus_listen(void *);

// What the daemon answers and listens to: one row for each member.
struct Route {
    int type;  // of the message
    const char *interface;
    const char *member;
    BusHandler *handler;
};

// The routing table, in the order in which its rows are tried. The object path is not looked at.
std::span<const Route> routes();

// Routes one message to its handler; the connection's only filter.
DBusHandlerResult filter_func(DBusConnection *connection, DBusMessage *message,
                              void *data) noexcept;
