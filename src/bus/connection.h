// The two private connections to the system bus: the outbound one for the daemon's own calls and
// signals, and the listener's, which belongs to its thread (bus/listener.h).

#pragma once

#include <dbus/dbus.h>

// Opens the outbound connection and starts the listener thread: 0, or -1 on failure. Called once,
// by main.
int app_dbus_init();

// Ends the process with status 1, no file half written, and says why in one line at level 6,
// however many threads call it. Without the bus the daemon is of no use to anyone, and going on
// would only spin; its supervisor starts it again.
[[noreturn]] void endWithoutBus(const char *why);

// A new private connection to the system bus, or null; what went wrong is logged in the name of
// `caller`. The caller owns it; losing the bus does not end the process by itself.
DBusConnection *openBus(const char *caller, const char *nullMessage);

// openBus for the outbound connection.
DBusConnection *dbus_conn_init();

// Whether a text can be an argument of a message; what cannot is logged in the name of the caller.
// The library ends a process that hands it invalid UTF-8, and the bus cuts off a connection that
// sends more than it takes.
bool busCarries(const char *text, const char *caller = __builtin_FUNCTION());
