// The one thread of the test program that speaks with the bus, and a connection it serves.
//
// libdbus is called on this thread alone; everything else posts work to it. What a handler stores
// is guarded by the mutex of the object that it belongs to.

#pragma once

#include "support/eventually.h"

#include <dbus/dbus.h>

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace support {

struct Unref {
    void operator()(DBusMessage *message) const noexcept
    {
        dbus_message_unref(message);
    }
};
using Message = std::unique_ptr<DBusMessage, Unref>;

class BusThread {
public:
    BusThread();
    ~BusThread();
    BusThread(const BusThread &) = delete;
    BusThread &operator=(const BusThread &) = delete;

    // Runs the work on the thread and returns when it is done. Not from the thread itself.
    void run(const std::function<void()> &work);

    // From the thread only. `later` is forgotten with its owner.
    void serve(DBusConnection *connection);
    void forget(DBusConnection *connection);
    void later(const void *owner, Moment when, std::function<void()> work);
    void forgetLater(const void *owner);

private:
    struct Timer {
        const void *owner;
        std::function<void()> work;
    };

    void loop();
    void runPosted();
    void runDue();
    void dispatch();
    void waitForTraffic();

    std::vector<DBusConnection *> connections;  // of the thread, as the timers
    std::multimap<Moment, Timer> timers;

    std::mutex mutex;
    std::vector<std::function<void()>> posted;
    bool stopping = false;
    int wakeUp;
    std::thread thread;
};

// One connection of the test program.
class Peer {
public:
    using Handler = std::function<void(DBusMessage *)>;

    Peer() = default;
    ~Peer();
    Peer(const Peer &) = delete;
    Peer &operator=(const Peer &) = delete;

    // The handler runs on the bus thread, for every message that is not a reply to a pending call.
    void join(BusThread &busThread, const std::string &address, Handler handler);
    void leave();
    bool joined() const
    {
        return thread;
    }

    void own(const std::string &name, unsigned flags = 0);
    void disown(const std::string &name);
    void subscribe(const std::string &rule);
    bool nameHasOwner(const std::string &name);

    // On the bus thread only.
    void send(DBusMessage *message);
    DBusConnection *connection() const
    {
        return handle;
    }
    void later(Moment when, std::function<void()> work)
    {
        thread->later(this, when, std::move(work));
    }

    BusThread *busThread() const
    {
        return thread;
    }

private:
    static DBusHandlerResult filter(DBusConnection *, DBusMessage *message, void *peer);

    BusThread *thread = nullptr;
    DBusConnection *handle = nullptr;
    Handler handler;
};

}  // namespace support
