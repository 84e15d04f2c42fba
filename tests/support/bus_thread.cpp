#include "support/bus_thread.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <condition_variable>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#ifdef __SANITIZE_THREAD__
// As for the daemon, see tsan.supp.
extern "C" const char *__tsan_default_suppressions();
extern "C" const char *__tsan_default_suppressions()
{
    return "deadlock:libdbus-1.so\n";
}
#endif

namespace support {

BusThread::BusThread() : wakeUp(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)), thread([this] { loop(); })
{
}

BusThread::~BusThread()
{
    {
        const std::lock_guard lock(mutex);
        stopping = true;
    }
    eventfd_write(wakeUp, 1);
    thread.join();
    close(wakeUp);
}

void BusThread::run(const std::function<void()> &work)
{
    std::mutex doneMutex;
    std::condition_variable isDone;
    bool done = false;
    {
        const std::lock_guard lock(mutex);
        posted.push_back([&] {
            work();
            const std::lock_guard doneLock(doneMutex);
            done = true;
            isDone.notify_one();
        });
    }
    eventfd_write(wakeUp, 1);
    std::unique_lock lock(doneMutex);
    isDone.wait(lock, [&] { return done; });
}

void BusThread::serve(DBusConnection *connection)
{
    connections.push_back(connection);
}

void BusThread::forget(DBusConnection *connection)
{
    connections.erase(std::remove(connections.begin(), connections.end(), connection),
                      connections.end());
}

void BusThread::later(const void *owner, Moment when, std::function<void()> work)
{
    timers.emplace(when, Timer{owner, std::move(work)});
}

void BusThread::forgetLater(const void *owner)
{
    std::erase_if(timers, [owner](const auto &timer) { return timer.second.owner == owner; });
}

void BusThread::loop()
{
    for (;;) {
        {
            const std::lock_guard lock(mutex);
            if (stopping)
                return;
        }
        runPosted();
        runDue();
        dispatch();
        waitForTraffic();
    }
}

void BusThread::runPosted()
{
    std::vector<std::function<void()>> work;
    {
        const std::lock_guard lock(mutex);
        work.swap(posted);
    }
    for (const auto &item : work)
        item();
}

void BusThread::runDue()
{
    while (!timers.empty() && timers.begin()->first <= Clock::now()) {
        auto timer = timers.extract(timers.begin());
        timer.mapped().work();
    }
}

void BusThread::dispatch()
{
    const std::vector<DBusConnection *> served = connections;
    for (DBusConnection *connection : served) {
        dbus_connection_read_write(connection, 0);
        while (dbus_connection_dispatch(connection) == DBUS_DISPATCH_DATA_REMAINS)
            ;
    }
}

void BusThread::waitForTraffic()
{
    std::vector<pollfd> descriptors{{wakeUp, POLLIN, 0}};
    for (DBusConnection *connection : connections) {
        int descriptor;
        if (!dbus_connection_get_is_connected(connection) ||
            !dbus_connection_get_unix_fd(connection, &descriptor))
            continue;
        const bool more = dbus_connection_has_messages_to_send(connection);
        descriptors.push_back(
            {descriptor, static_cast<short>(more ? POLLIN | POLLOUT : POLLIN), 0});
    }
    int wait = -1;
    if (!timers.empty()) {
        const int64_t left = millisecondsBetween(Clock::now(), timers.begin()->first);
        wait = static_cast<int>(std::max<int64_t>(left + 1, 0));
    }
    poll(descriptors.data(), descriptors.size(), wait);
    eventfd_t ignored;
    eventfd_read(wakeUp, &ignored);
}

Peer::~Peer()
{
    leave();
}

DBusHandlerResult Peer::filter(DBusConnection *, DBusMessage *message, void *peer)
{
    auto *self = static_cast<Peer *>(peer);
    if (self->handler)
        self->handler(message);
    // Our own interfaces are answered by hand; what nobody answers must not be answered by the
    // library.
    const bool call = dbus_message_get_type(message) == DBUS_MESSAGE_TYPE_METHOD_CALL;
    return call ? DBUS_HANDLER_RESULT_HANDLED : DBUS_HANDLER_RESULT_NOT_YET_HANDLED;
}

void Peer::join(BusThread &busThread, const std::string &address, Handler onMessage)
{
    handler = std::move(onMessage);
    busThread.run([&] {
        DBusError error = DBUS_ERROR_INIT;
        handle = dbus_connection_open_private(address.c_str(), &error);
        if (handle) {
            dbus_connection_set_exit_on_disconnect(handle, FALSE);
            if (dbus_bus_register(handle, &error)) {
                dbus_connection_add_filter(handle, filter, this, nullptr);
                busThread.serve(handle);
            }
        }
        EXPECT_FALSE(dbus_error_is_set(&error)) << error.message;
        dbus_error_free(&error);
    });
    thread = &busThread;
}

void Peer::leave()
{
    if (!thread)
        return;
    thread->run([this] {
        thread->forgetLater(this);
        thread->forget(handle);
        if (handle) {
            dbus_connection_remove_filter(handle, filter, this);
            dbus_connection_close(handle);
            dbus_connection_unref(handle);
        }
        handle = nullptr;
    });
    thread = nullptr;
}

void Peer::own(const std::string &name, unsigned flags)
{
    thread->run([&] {
        DBusError error = DBUS_ERROR_INIT;
        const int result = dbus_bus_request_name(handle, name.c_str(), flags, &error);
        EXPECT_EQ(result, DBUS_REQUEST_NAME_REPLY_PRIMARY_OWNER) << name;
        dbus_error_free(&error);
    });
}

void Peer::disown(const std::string &name)
{
    thread->run([&] {
        const int result = dbus_bus_release_name(handle, name.c_str(), nullptr);
        EXPECT_EQ(result, DBUS_RELEASE_NAME_REPLY_RELEASED) << name;
    });
}

void Peer::subscribe(const std::string &rule)
{
    thread->run([&] {
        DBusError error = DBUS_ERROR_INIT;
        dbus_bus_add_match(handle, rule.c_str(), &error);
        EXPECT_FALSE(dbus_error_is_set(&error)) << error.message;
        dbus_error_free(&error);
    });
}

bool Peer::nameHasOwner(const std::string &name)
{
    bool owned = false;
    thread->run([&] { owned = dbus_bus_name_has_owner(handle, name.c_str(), nullptr); });
    return owned;
}

void Peer::send(DBusMessage *message)
{
    if (handle)
        dbus_connection_send(handle, message, nullptr);
}

}  // namespace support
