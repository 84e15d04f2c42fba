#include "support/daemon_on_its_own_bus.h"

#include <csignal>
#include <iostream>
#include <thread>

namespace support {

static constexpr const char *PLAIN_GROUP = "rooms";  // of a read that always gives an answer

DaemonOnItsOwnBus::DaemonOnItsOwnBus() = default;

void DaemonOnItsOwnBus::SetUp()
{
    ASSERT_NO_FATAL_FAILURE(bus.start());
    platform.join(busThread, bus.address());
    sdk.join(busThread, bus.address());
    client.join(busThread, bus.address());
}

void DaemonOnItsOwnBus::TearDown()
{
    if (daemon.pid() > 0 && endsOrderly)
        daemon.stop();
    if (HasFailure())
        std::cerr << "---- the daemon's log ends with\n" << daemon.logTail() << "----\n";
    client.leave();
    sdk.leave();
    platform.leave();
}

void DaemonOnItsOwnBus::startWith(std::string_view setup, const std::vector<std::string> &settings)
{
    daemon.writeSetup(setup);
    start(settings);
}

void DaemonOnItsOwnBus::start(const std::vector<std::string> &settings)
{
    launch(settings);
    waitUntilStarted();
    daemon.signal(
        SIGALRM);  // the first alarm is due a second after the start; no test need wait for it
}

void DaemonOnItsOwnBus::launch(const std::vector<std::string> &settings)
{
    daemon.start(bus.address(), settings);
}

// The main loop is entered when everything is there: the settings, the listener, the event queue's
// worker.
void DaemonOnItsOwnBus::waitUntilStarted()
{
    ASSERT_TRUE(eventually([this] { return daemon.inMainLoop() || !daemon.running(); }, 30s));
    ASSERT_TRUE(daemon.running()) << daemon.logTail();
    ASSERT_TRUE(eventually([this] { return client.peer.nameHasOwner(APP_NAME); }))
        << daemon.logTail();
}

void DaemonOnItsOwnBus::restart()
{
    daemon.stop();
    start();
}

void DaemonOnItsOwnBus::gatewayReady()
{
    eventHandled(100, 1, 0);
}

void DaemonOnItsOwnBus::event(uint16_t code, uint16_t gid, uint16_t channel)
{
    eventWithPayload(code, gid, channel, 0, "");
}

void DaemonOnItsOwnBus::eventWithPayload(uint16_t code, uint16_t gid, uint16_t channel,
                                         uint16_t flag, const std::string &payload)
{
    client.signal("/com/OvrinTech/process/zwave", EVENT_SIGNALS, "triggerAPP",
                  {code, gid, channel, flag, payload});
}

int64_t DaemonOnItsOwnBus::eventMethod(uint16_t code, uint16_t gid, uint16_t channel)
{
    const auto reply = client.call(ZWAVE_EVENT, "event", {code, gid, channel});
    EXPECT_TRUE(eventually([&] { return reply->arrived(); })) << "no reply to the event";
    EXPECT_EQ(reply->signature(), "u");
    return reply->number();
}

void DaemonOnItsOwnBus::eventHandled(uint16_t code, uint16_t gid, uint16_t channel)
{
    const size_t before = announced(code, gid);
    event(code, gid, channel);
    ASSERT_TRUE(eventually([&] { return announced(code, gid) > before; }))
        << "event " << code << " of device " << gid << " was not announced";
}

std::string DaemonOnItsOwnBus::callForText(const std::string &member, const std::string &text,
                                           const std::string &interface)
{
    const auto reply = client.call(interface, member, {text});
    EXPECT_TRUE(eventually([&] { return reply->arrived(); })) << "no reply to " << member;
    EXPECT_EQ(reply->signature(), "s") << reply->error();
    return reply->text();
}

int64_t DaemonOnItsOwnBus::callForNumber(const std::string &member, const std::string &text,
                                         const std::string &interface)
{
    const auto reply = client.call(interface, member, {text});
    EXPECT_TRUE(eventually([&] { return reply->arrived(); })) << "no reply to " << member;
    EXPECT_EQ(reply->signature(), "i") << reply->error();
    return reply->number();
}

void DaemonOnItsOwnBus::callWithoutReply(const std::string &member,
                                         const std::vector<Argument> &arguments,
                                         const std::string &interface, const std::string &path)
{
    const auto reply = client.call(interface, member, arguments, path);
    listenerIsIdle();
    EXPECT_FALSE(reply->arrived())
        << member << " was answered: " << reply->error() << " " << reply->text() << reply->number();
}

void DaemonOnItsOwnBus::listenerIsIdle()
{
    callForText("jsongettitles", PLAIN_GROUP);
}

bool DaemonOnItsOwnBus::tickUntil(const std::function<bool()> &condition, Milliseconds limit)
{
    static constexpr int BETWEEN_LOOKS = 10;
    const Moment deadline = Clock::now() + patience(limit);
    while (!condition()) {
        if (Clock::now() > deadline)
            return false;
        for (int i = 0; i < BETWEEN_LOOKS; ++i) {
            daemon.signal(SIGALRM);
            std::this_thread::sleep_for(500us);
        }
    }
    return true;
}

// What belongs to the first is done when the second has begun.
void DaemonOnItsOwnBus::passAMinute()
{
    static constexpr int64_t SUN = 509;
    const auto ofAMinute = deviceCommand("sunrise_set_trig_time_judge", SUN, {}, 0);
    const size_t before = sdk.count(ofAMinute);
    EXPECT_TRUE(tickUntil([&] { return sdk.count(ofAMinute) >= before + 2; }, 60s));
}

std::vector<Json> DaemonOnItsOwnBus::recent() const
{
    std::vector<Json> result;
    for (const Heard &heard : sdk.events("recent"))
        result.push_back(Json(heard.text)["eventLog"][0]);
    return result;
}

std::vector<Json> DaemonOnItsOwnBus::macroEvents() const
{
    std::vector<Json> result;
    for (const Heard &heard : sdk.events("MacroEvent"))
        result.push_back(Json(heard.text)["EventMacro"]);
    return result;
}

size_t DaemonOnItsOwnBus::announced(uint16_t code, uint16_t gid) const
{
    size_t count = 0;
    for (const Json &record : recent()) {
        if (record["eventCode"].integer() == code && record["uid"].integer() == gid)
            ++count;
    }
    return count;
}

}  // namespace support
