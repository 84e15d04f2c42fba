// One of the gateway's other daemons on the bus: a connection of its own with a well-known name.
//
// The daemon calls from a path that names its thread, "/com/OvrinTech/App/<tid>", so a peer answers
// on every path. sdbus-c++ registers objects by their exact path; a fallback at "/" needs sd-bus.

#pragma once

#include "loop.h"

#include <systemd/sd-bus.h>

#include <functional>
#include <memory>
#include <string>

struct DeviceEvent {
    uint16_t code = 0;
    uint16_t gid = 0;
    uint16_t channel = 0;
    std::string payload;
    bool hasPayload = false;
};

// A method call with one text in it that waits for its answer. It may be answered later, or never.
class Request {
public:
    explicit Request(sd_bus_message *call);

    const std::string &text() const;
    void answer(const std::string &text) const;
    void refuse(const std::string &why) const;

private:
    std::shared_ptr<sd_bus_message> call_;
    std::string text_;
};

class Peer {
public:
    using CallHandler = std::function<void(Request)>;
    using TextHandler = std::function<void(const std::string &member, const std::string &text)>;
    using NumberHandler = std::function<void(const std::string &member, unsigned number)>;

    Peer(Loop &loop, const std::string &wellKnownName);
    ~Peer();
    Peer(const Peer &) = delete;
    Peer &operator=(const Peer &) = delete;

    // The only method this peer has, s -> s, on any path.
    void serve(const std::string &interface, const std::string &member, CallHandler handler);

    // Signals of an interface that carry one text or one 16-bit number.
    void subscribe(const std::string &interface, TextHandler onText, NumberHandler onNumber);

    void sendEvent(const DeviceEvent &event);

private:
    static int onCall(sd_bus_message *message, void *self, sd_bus_error *error) noexcept;
    static int onSignal(sd_bus_message *message, void *self, sd_bus_error *error) noexcept;

    std::shared_ptr<sd_bus> bus_;
    std::string interface_;
    std::string member_;
    CallHandler onCall_;
    TextHandler onText_;
    NumberHandler onNumber_;
};
