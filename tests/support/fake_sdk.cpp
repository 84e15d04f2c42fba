#include "support/fake_sdk.h"

#include <algorithm>

namespace support {

static constexpr const char *NAME = "com.ovrinbus.sdk";
static constexpr const char *CALL_INTERFACE = "com.OvrinTech.json.command";
static constexpr const char *COMMAND_INTERFACE = "com.OvrinTech.signal.json.command";
static constexpr const char *EVENT_INTERFACE = "com.OvrinTech.signal.eventLog";
static constexpr int64_t THE_SDK_ITSELF = 256;

void FakeSdk::join(BusThread &thread, const std::string &address)
{
    peer.join(thread, address, [this](DBusMessage *message) { handle(message); });
    peer.subscribe(std::string("type='signal',interface='") + COMMAND_INTERFACE + "'");
    peer.subscribe(std::string("type='signal',interface='") + EVENT_INTERFACE + "'");
    peer.own(NAME);
}

void FakeSdk::leave()
{
    peer.leave();
}

void FakeSdk::giveUpName()
{
    peer.disown(NAME);
}

void FakeSdk::takeNameBack()
{
    peer.own(NAME);
}

void FakeSdk::set(const Device &device)
{
    const std::lock_guard lock(mutex);
    devices[device.uid] = device;
}

void FakeSdk::remove(int64_t uid)
{
    const std::lock_guard lock(mutex);
    devices.erase(uid);
}

void FakeSdk::setBasicValue(int64_t uid, int64_t chid, int64_t value)
{
    const std::lock_guard lock(mutex);
    for (Channel &channel : devices[uid].channels) {
        if (channel.chid == chid)
            channel.basicvalue = value;
    }
}

void FakeSdk::setSensorValue(int64_t uid, int64_t chid, int64_t value)
{
    const std::lock_guard lock(mutex);
    for (Channel &channel : devices[uid].channels) {
        if (channel.chid == chid)
            channel.sensorvalue = value;
    }
}

void FakeSdk::behave(const std::string &cmd, int64_t uid, const Answer &answer)
{
    const std::lock_guard lock(mutex);
    behaviour[{cmd, uid}] = answer;
}

void FakeSdk::forgetBehaviour(const std::string &cmd, int64_t uid)
{
    const std::lock_guard lock(mutex);
    behaviour.erase({cmd, uid});
}

std::vector<Heard> FakeSdk::select(const std::function<bool(const Heard &)> &wanted) const
{
    const std::lock_guard lock(mutex);
    std::vector<Heard> result;
    std::copy_if(memory.begin(), memory.end(), std::back_inserter(result), wanted);
    return result;
}

std::vector<Heard> FakeSdk::everything() const
{
    return select([](const Heard &) { return true; });
}

std::vector<Heard> FakeSdk::calls(const std::string &cmd, int64_t uid) const
{
    return select([text = plainCommand(cmd, uid)](const Heard &heard) {
        return heard.kind == Heard::CALL && heard.text == text;
    });
}

std::vector<Heard> FakeSdk::events(const std::string &member) const
{
    return select(
        [&](const Heard &heard) { return heard.kind == Heard::EVENT && heard.member == member; });
}

std::vector<Heard> FakeSdk::kicks() const
{
    return select([](const Heard &heard) { return heard.kind == Heard::KICK; });
}

std::vector<Heard> FakeSdk::commands() const
{
    return select([](const Heard &heard) {
        return heard.kind == Heard::COMMAND ||
               (heard.kind == Heard::CALL && heard.cmd() == "thermostattemp");
    });
}

std::vector<std::string> FakeSdk::commandTexts() const
{
    std::vector<std::string> texts;
    for (const Heard &heard : commands())
        texts.push_back(heard.text);
    return texts;
}

size_t FakeSdk::count(const std::string &text) const
{
    const std::lock_guard lock(mutex);
    return static_cast<size_t>(std::count_if(
        memory.begin(), memory.end(), [&](const Heard &heard) { return heard.text == text; }));
}

void FakeSdk::forgetHeard()
{
    const std::lock_guard lock(mutex);
    forgotten += memory.size();
    memory.clear();
}

size_t FakeSdk::remember(DBusMessage *message, Heard::Kind kind)
{
    Heard heard{};
    heard.kind = kind;
    heard.member = dbus_message_get_member(message);
    heard.path = dbus_message_get_path(message);
    heard.sender = dbus_message_get_sender(message);
    heard.signature = dbus_message_get_signature(message);
    heard.at = Clock::now();
    const char *text = nullptr;
    dbus_uint16_t number = 0;
    if (dbus_message_get_args(message, nullptr, DBUS_TYPE_STRING, &text, DBUS_TYPE_INVALID))
        heard.text = text;
    else if (dbus_message_get_args(message, nullptr, DBUS_TYPE_UINT16, &number, DBUS_TYPE_INVALID))
        heard.number = number;

    const std::lock_guard lock(mutex);
    heard.callsWaiting = waiting;
    if (kind == Heard::CALL)
        ++waiting;
    memory.push_back(std::move(heard));
    return forgotten + memory.size() - 1;
}

Answer FakeSdk::answerTo(const std::string &cmd, int64_t uid) const
{
    const std::lock_guard lock(mutex);
    const auto asked = behaviour.find({cmd, uid});
    if (asked != behaviour.end() &&
        (asked->second.kind != Answer::TEXT || !asked->second.text.empty()))
        return asked->second;

    Answer answer = Answer::saying(R"({"result":"ok"})");
    if (cmd == "getdevice")
        answer.text = uid == THE_SDK_ITSELF ? allDevicesText(devices) : deviceText(devices, uid);
    if (asked != behaviour.end())
        answer.delay = asked->second.delay;
    return answer;
}

void FakeSdk::handleCall(DBusMessage *message)
{
    const size_t number = remember(message, Heard::CALL);
    const char *text = "";
    dbus_message_get_args(message, nullptr, DBUS_TYPE_STRING, &text, DBUS_TYPE_INVALID);
    const Json control = Json(text)["control"];
    const Answer answer = answerTo(control["cmd"].text(), control["uid"].integer());
    reply(peer, message, answer, [this, number] {
        {
            const std::lock_guard lock(mutex);
            --waiting;
            if (number >= forgotten)
                memory[number - forgotten].answered = Clock::now();
        }
        somethingChanged();
    });
}

void FakeSdk::handle(DBusMessage *message)
{
    if (dbus_message_is_method_call(message, CALL_INTERFACE, "command"))
        handleCall(message);
    else if (dbus_message_is_signal(message, COMMAND_INTERFACE, "kick_thedog"))
        remember(message, Heard::KICK);
    else if (dbus_message_has_interface(message, COMMAND_INTERFACE))
        remember(message, Heard::COMMAND);
    else if (dbus_message_has_interface(message, EVENT_INTERFACE))
        remember(message, Heard::EVENT);
    else
        return;
    somethingChanged();
}

}  // namespace support
