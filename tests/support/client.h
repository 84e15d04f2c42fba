// A program on the bus that calls the daemon and sends it signals.

#pragma once

#include "support/bus_thread.h"

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <variant>
#include <vector>

namespace support {

// An argument; its type on the bus is s, i, u or q.
using Argument = std::variant<std::string, int32_t, uint32_t, uint16_t>;

// What came back for a call, if anything did.
class PendingReply {
public:
    bool arrived() const;
    Moment at() const;
    std::string signature() const;
    std::string error() const;  // the error's name, "" for a normal reply
    std::string text() const;
    int64_t number() const;

private:
    friend class Client;
    void take(DBusMessage *reply);

    mutable std::mutex mutex;  // guards what follows
    bool here = false;
    Moment when;
    std::string types, errorName, textArgument;
    int64_t numberArgument = 0;
};

class Client {
public:
    void join(BusThread &thread, const std::string &address);
    void leave();

    std::shared_ptr<PendingReply> call(const std::string &interface, const std::string &member,
                                       const std::vector<Argument> &arguments,
                                       const std::string &path = "/");
    // To everybody who listens, or to the destination alone.
    void signal(const std::string &path, const std::string &interface, const std::string &member,
                const std::vector<Argument> &arguments, const std::string &destination = "");

    Peer peer;
};

}  // namespace support
