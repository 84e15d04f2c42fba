#include "bus/outbound_io.h"

#include "main/locks.h"
#include "main/log.h"
#include "main/threads.h"

#include <cerrno>
#include <cstdint>
#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

std::atomic<DBusConnection *> dbus_conn;

static constexpr int FOREVER = -1;
static constexpr int RETRY_MILLISECONDS = 10;

static int wakeUpFd = -1;
// The connection's socket under a number of its own: the library closes its own when the bus is
// lost, and that number may be another file's a moment later.
static int socketFd = -1;
static pthread_t ioThread;
static std::atomic<bool> stopRequested;
static void (*busIsLost)();
static Condition replyArrived;

static void ringWakeUp(void *) noexcept
{
    const uint64_t one = 1;
    while (write(wakeUpFd, &one, sizeof one) < 0 && errno == EINTR) {
    }
}

static void silenceWakeUp()
{
    uint64_t count;
    while (read(wakeUpFd, &count, sizeof count) < 0 && errno == EINTR) {
    }
}

// False when memory ran out before everything that has come was dispatched.
static bool exchange(DBusConnection *connection)
{
    dbus_connection_read_write(connection, 0);
    DBusDispatchStatus status;
    do
        status = dbus_connection_dispatch(connection);
    while (status == DBUS_DISPATCH_DATA_REMAINS);
    return status == DBUS_DISPATCH_COMPLETE;
}

static void wakeAllCallers()
{
    const MutexLock lock(reply_mutex);
    replyArrived.wakeAll();
}

// After the bus was lost there is nothing left to do but to be joined.
static void awaitStop()
{
    while (!stopRequested) {
        pollfd wakeUp = {wakeUpFd, POLLIN, 0};
        if (poll(&wakeUp, 1, FOREVER) > 0)
            silenceWakeUp();
    }
}

// The I/O thread: started by startOutbound, waits for the socket and for whoever left something in
// the queue, and ends when stopOutbound asks for it.
static void *driveConnection(void *argument)
{
    pthread_setname_np(pthread_self(), "outbound");
    auto *connection = static_cast<DBusConnection *>(argument);
    int timeout = FOREVER;
    while (!stopRequested && dbus_connection_get_is_connected(connection)) {
        const bool unsent = dbus_connection_has_messages_to_send(connection);
        pollfd watched[] = {
            {socketFd, static_cast<short>(unsent ? POLLIN | POLLOUT : POLLIN), 0},
            {wakeUpFd, POLLIN, 0},
        };
        // A failed poll, interrupted or short of memory, is no reason not to look at the socket.
        if (poll(watched, 2, timeout) > 0 && watched[1].revents != 0)
            silenceWakeUp();
        timeout = exchange(connection) ? FOREVER : RETRY_MILLISECONDS;
    }
    // The library forgets the calls that wait when the bus is lost: their callers see for
    // themselves.
    wakeAllCallers();
    if (!stopRequested && busIsLost)
        busIsLost();
    awaitStop();
    return nullptr;
}

static void closeConnection(DBusConnection *connection)
{
    dbus_connection_close(connection);
    dbus_connection_unref(connection);
    close(wakeUpFd);
    close(socketFd);
    wakeUpFd = -1;
    socketFd = -1;
}

bool startOutbound(DBusConnection *connection, void (*whenLost)())
{
    stopRequested = false;
    busIsLost = whenLost;
    wakeUpFd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    dbus_connection_set_wakeup_main_function(connection, ringWakeUp, nullptr, nullptr);
    int librarySocket = -1;
    if (dbus_connection_get_unix_fd(connection, &librarySocket))
        socketFd = fcntl(librarySocket, F_DUPFD_CLOEXEC, 0);
    if (wakeUpFd < 0 || socketFd < 0 || createThread(&ioThread, driveConnection, connection) != 0) {
        LOG(ERROR, "The outbound connection cannot be driven\n");
        closeConnection(connection);
        return false;
    }
    dbus_conn = connection;
    return true;
}

void stopOutbound()
{
    DBusConnection *connection = dbus_conn.exchange(nullptr);
    if (!connection)
        return;
    stopRequested = true;
    ringWakeUp(nullptr);
    pthread_join(ioThread, nullptr);
    closeConnection(connection);
}

static void noteReply(DBusPendingCall *, void *) noexcept
{
    wakeAllCallers();
}

Owned<DBusMessage> callAndWait(DBusConnection *connection, DBusMessage *request,
                               int timeoutMilliseconds)
{
    const timespec deadline =
        monotonicDeadline({timeoutMilliseconds / 1000, timeoutMilliseconds % 1000 * 1'000'000L});
    DBusPendingCall *sent = nullptr;
    if (!dbus_connection_send_with_reply(connection, request, &sent, DBUS_TIMEOUT_INFINITE) ||
        !sent)
        return nullptr;
    const Owned<DBusPendingCall> call(sent);
    if (!dbus_pending_call_set_notify(sent, noteReply, nullptr, nullptr)) {
        dbus_pending_call_cancel(sent);
        return nullptr;
    }
    {
        const MutexLock lock(reply_mutex);
        while (!dbus_pending_call_get_completed(sent) &&
               dbus_connection_get_is_connected(connection)) {
            if (!replyArrived.waitUntil(reply_mutex, deadline))
                break;
        }
    }
    if (!dbus_pending_call_get_completed(sent)) {
        dbus_pending_call_cancel(sent);
        return nullptr;
    }
    Owned<DBusMessage> reply(dbus_pending_call_steal_reply(sent));
    if (reply && dbus_message_get_type(reply.get()) == DBUS_MESSAGE_TYPE_ERROR)
        return nullptr;
    return reply;
}
