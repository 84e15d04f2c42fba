// What drives the outbound connection.
//
// Nobody sleeps inside the bus library while holding the connection's I/O path: a thread that waits
// for a slow peer there would keep every other thread's signals in the queue. One I/O thread polls
// the connection's socket and an eventfd, which the library rings when something stayed in the
// outgoing queue, and completes pending calls. A caller waits for its reply on a condition variable
// with a time-out of its own. A message is as a rule written by the thread that sends it; what the
// socket does not take at once leaves in the I/O thread, in order.

#pragma once

#include "main/scope.h"

#include <atomic>

// The outbound connection; null when the bus could not be reached.
extern std::atomic<DBusConnection *> dbus_conn;

// Takes the connection over and starts its I/O thread; false, with the connection closed, when it
// could not be started. The thread calls `whenLost`, unless it is null, when the bus is lost and
// everyone who waited for an answer has been told.
bool startOutbound(DBusConnection *connection, void (*whenLost)());

// Ends the I/O thread and closes the connection. No other thread may be using it.
void stopOutbound();

// Sends a method call and waits up to `timeoutMilliseconds` for its reply. Null when none came,
// when the peer answered with an error, or as soon as the bus is lost.
Owned<DBusMessage> callAndWait(DBusConnection *connection, DBusMessage *request,
                               int timeoutMilliseconds);
