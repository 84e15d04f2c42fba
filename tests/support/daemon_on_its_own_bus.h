// The daemon on a private bus, the fakes around it, and short words to speak with it.

#pragma once

#include "support/client.h"
#include "support/daemon_process.h"
#include "support/fake_platform.h"
#include "support/fake_sdk.h"
#include "support/private_bus.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace support {

inline constexpr const char *APP_NAME = "com.ovrinbus.app";
inline constexpr const char *APP = "com.OvrinTech.app";
inline constexpr const char *ZWAVE_EVENT = "com.OvrinTech.zwave.event";
inline constexpr const char *EVENT_SIGNALS = "com.OvrinTech.signal.event";

// What a case of a table of cases is called after: its member `name` or `code`.
inline constexpr auto caseName = [](const auto &info) { return std::string(info.param.name); };
inline constexpr auto caseCode = [](const auto &info) { return std::to_string(info.param.code); };

class DaemonOnItsOwnBus : public testing::Test {
protected:
    DaemonOnItsOwnBus();
    void SetUp() override;  // the bus and the fakes are there, the daemon is not
    void TearDown() override;

    // Starts the daemon with that stored configuration and returns when its start-up is over and it
    // ticks.
    void startWith(std::string_view setup, const std::vector<std::string> &settings = {});
    void start(const std::vector<std::string> &settings = {});   // with what lies in its folder
    void launch(const std::vector<std::string> &settings = {});  // does not wait
    void waitUntilStarted();
    void restart();

    // Reports the event that lets macros run and configuration be written, and waits until it is
    // done with.
    void gatewayReady();

    void event(uint16_t code, uint16_t gid, uint16_t channel);
    void eventWithPayload(uint16_t code, uint16_t gid, uint16_t channel, uint16_t flag,
                          const std::string &payload);
    int64_t eventMethod(uint16_t code, uint16_t gid, uint16_t channel);
    // As event(), and returns when it was announced.
    void eventHandled(uint16_t code, uint16_t gid, uint16_t channel);

    std::string callForText(const std::string &member, const std::string &text,
                            const std::string &interface = APP);
    int64_t callForNumber(const std::string &member, const std::string &text,
                          const std::string &interface = APP);
    // Fails when a reply comes. The listener answers in order: a later call is answered, so this
    // one was done with.
    void callWithoutReply(const std::string &member, const std::vector<Argument> &arguments,
                          const std::string &interface = APP, const std::string &path = "/");
    // Everything that was sent before has been handled by the listener when this returns.
    void listenerIsIdle();

    // Quick motion: every SIGALRM is a tick, whoever sends it. False when the condition did not
    // come true.
    bool tickUntil(const std::function<bool()> &condition, Milliseconds limit = 20s);
    void passAMinute();  // in quick motion

    std::vector<Json> recent() const;  // the newest record of each "recent" announcement, in order
    std::vector<Json>
    macroEvents() const;  // the "EventMacro" object of each "MacroEvent", in order
    size_t announced(uint16_t code, uint16_t gid) const;  // how many "recent" name that event

    BusThread busThread;
    PrivateBus bus;
    FakePlatform platform;
    FakeSdk sdk;
    Client client;
    DaemonProcess daemon;
    bool endsOrderly = true;  // whether TearDown asks a running daemon to end, and looks how it did
};

// The configuration is written through the gate, which a reported gateway opens.
class ConfigurableDaemon : public DaemonOnItsOwnBus {
protected:
    void startReady(std::string_view setup = "{}")
    {
        startWith(setup);
        gatewayReady();
    }
    int64_t set(const std::string &document)
    {
        return callForNumber("jsonsetall", document);
    }
    Json group(const std::string &word)
    {
        return Json(callForText("jsongetgroup", word));
    }
};

}  // namespace support
