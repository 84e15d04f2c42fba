#include "peer.h"

#include <fmt/format.h>

#include <cerrno>
#include <system_error>

static int checked(int result, const char *what)
{
    if (result < 0)
        throw UserError(fmt::format("{}: {}", what, std::generic_category().message(-result)));
    return result;
}

namespace {

class PeerSource : public BusSource {
public:
    explicit PeerSource(std::shared_ptr<sd_bus> bus) : bus_(std::move(bus))
    {
    }

    bool step() override
    {
        return checked(sd_bus_process(bus_.get(), nullptr), "the bus has gone") > 0;
    }

    pollfd interest() const override
    {
        const int events = checked(sd_bus_get_events(bus_.get()), "the bus has gone");
        return {
            .fd = sd_bus_get_fd(bus_.get()), .events = static_cast<short>(events), .revents = 0};
    }

    int64_t wakeAtUsec() const override
    {
        uint64_t usec = UINT64_MAX;
        checked(sd_bus_get_timeout(bus_.get(), &usec), "the bus has gone");
        return usec == UINT64_MAX ? -1 : static_cast<int64_t>(usec);
    }

private:
    std::shared_ptr<sd_bus> bus_;
};

}  // namespace

Request::Request(sd_bus_message *call) : call_(sd_bus_message_ref(call), sd_bus_message_unref)
{
    const char *text = nullptr;
    if (sd_bus_message_read(call, "s", &text) >= 0 && text)
        text_ = text;
}

const std::string &Request::text() const
{
    return text_;
}

void Request::answer(const std::string &text) const
{
    sd_bus_reply_method_return(call_.get(), "s", text.c_str());
}

void Request::refuse(const std::string &why) const
{
    sd_bus_reply_method_errorf(call_.get(), SD_BUS_ERROR_FAILED, "%s", why.c_str());
}

Peer::Peer(Loop &loop, const std::string &wellKnownName)
{
    sd_bus *bus = nullptr;
    checked(sd_bus_open_system(&bus), "cannot reach the bus");
    bus_ = std::shared_ptr<sd_bus>(bus, sd_bus_flush_close_unref);
    checked(sd_bus_add_fallback(bus, nullptr, "/", onCall, this), "sd_bus_add_fallback");
    const int owned = sd_bus_request_name(bus, wellKnownName.c_str(), 0);
    if (owned == -EEXIST)
        throw UserError(fmt::format("somebody else on this bus owns {}", wellKnownName));
    checked(owned, fmt::format("cannot own {}", wellKnownName).c_str());
    loop.addSource(std::make_unique<PeerSource>(bus_));
}

Peer::~Peer() = default;

void Peer::serve(const std::string &interface, const std::string &member, CallHandler handler)
{
    interface_ = interface;
    member_ = member;
    onCall_ = std::move(handler);
}

void Peer::subscribe(const std::string &interface, TextHandler onText, NumberHandler onNumber)
{
    onText_ = std::move(onText);
    onNumber_ = std::move(onNumber);
    const std::string rule = fmt::format("type='signal',interface='{}'", interface);
    checked(sd_bus_add_match(bus_.get(), nullptr, rule.c_str(), onSignal, this),
            "sd_bus_add_match");
}

int Peer::onCall(sd_bus_message *message, void *self, sd_bus_error *) noexcept
{
    Peer *const peer = static_cast<Peer *>(self);
    if (!peer->onCall_ || !sd_bus_message_has_signature(message, "s") ||
        !sd_bus_message_is_method_call(message, peer->interface_.c_str(), peer->member_.c_str()))
        return 0;  // sd-bus answers that there is no such method
    peer->onCall_(Request(message));
    return 1;
}

int Peer::onSignal(sd_bus_message *message, void *self, sd_bus_error *) noexcept
{
    Peer *const peer = static_cast<Peer *>(self);
    const std::string member = sd_bus_message_get_member(message);
    const char *text = nullptr;
    uint16_t number = 0;
    if (sd_bus_message_has_signature(message, "s") && sd_bus_message_read(message, "s", &text) > 0)
        peer->onText_(member, text);
    else if (sd_bus_message_has_signature(message, "q") &&
             sd_bus_message_read(message, "q", &number) > 0)
        peer->onNumber_(member, number);
    return 0;
}

void Peer::sendEvent(const DeviceEvent &event)
{
    const unsigned flag = event.hasPayload ? 1 : 0;
    checked(sd_bus_emit_signal(bus_.get(), "/com/OvrinTech/zwave", "com.OvrinTech.signal.event",
                               "triggerAPP", "qqqqs", event.code, event.gid, event.channel, flag,
                               event.payload.c_str()),
            "cannot send the event");
}
