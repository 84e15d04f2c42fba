#include "control.h"

static constexpr char CONTROL_NAME[] = "com.ovrinbus.sim";
static constexpr char CONTROL_PATH[] = "/com/ovrinbus/sim";
static constexpr char CONTROL_INTERFACE[] = "com.ovrinbus.sim.control";

namespace {

class ConnectionSource : public BusSource {
public:
    explicit ConnectionSource(sdbus::IConnection &connection) : connection_(connection)
    {
    }

    bool step() override
    {
        return connection_.processPendingRequest();
    }

    pollfd interest() const override
    {
        const auto data = connection_.getEventLoopPollData();
        return {.fd = data.fd, .events = data.events, .revents = 0};
    }

    int64_t wakeAtUsec() const override
    {
        const uint64_t usec = connection_.getEventLoopPollData().timeout_usec;
        return usec == UINT64_MAX ? -1 : static_cast<int64_t>(usec);
    }

private:
    sdbus::IConnection &connection_;
};

}  // namespace

std::unique_ptr<sdbus::IConnection> openControlBus(Loop &loop)
{
    auto connection = sdbus::createSystemBusConnection();
    loop.addSource(std::make_unique<ConnectionSource>(*connection));
    return connection;
}

Control::Control(sdbus::IConnection &connection)
    : connection_(connection), object_(sdbus::createObject(connection, CONTROL_PATH))
{
}

void Control::serve(Gateway &gateway)
{
    object_->registerMethod("Run")
        .onInterface(CONTROL_INTERFACE)
        .withInputParamNames("line")
        .withOutputParamNames("ok", "output")
        .implementedAs(
            [&gateway](sdbus::Result<bool, std::string> &&result, const std::string &line) {
                // A result can only be moved, a callback only be copied.
                const auto answer =
                    std::make_shared<sdbus::Result<bool, std::string>>(std::move(result));
                runCommand(gateway, line, [answer](bool ok, const std::string &output) {
                    answer->returnResults(ok, output);
                });
            });
    object_->registerMethod("Helper")
        .onInterface(CONTROL_INTERFACE)
        .withInputParamNames("argv")
        .implementedAs([&gateway](const std::vector<std::string> &argv) {
            Words words{"helper"};
            words.insert(words.end(), argv.begin(), argv.end());
            gateway.timeline.add({.from = "app",
                                  .to = "phone",
                                  .text = joinWords(argv),
                                  .words = words,
                                  .tone = Tone::ANNOUNCEMENT});
        });
    object_->registerSignal("Seen")
        .onInterface(CONTROL_INTERFACE)
        .withParameters<std::string>("entry");
    object_->finishRegistration();

    gateway.timeline.listen([this](const Entry &entry) {
        const std::string text =
            Timeline::toJson(entry).dump(-1, ' ', false, Json::error_handler_t::replace);
        object_->emitSignal("Seen").onInterface(CONTROL_INTERFACE).withArguments(text);
    });
    connection_.requestName(CONTROL_NAME);
}
