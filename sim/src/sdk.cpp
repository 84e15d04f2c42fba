#include "sdk.h"

#include "apply.h"
#include "kinds.h"

#include <fmt/format.h>

#include <ctime>

static constexpr Millis POLL_SPACING{150};  // the radio asks one device after the other

Sdk::Sdk(Loop &loop, Timeline &timeline, Home &home, Plan &plan)
    : loop_(loop), timeline_(timeline), home_(home), plan_(plan), peer_(loop, "com.ovrinbus.sdk")
{
    peer_.serve("com.OvrinTech.json.command", "command",
                [this](const Request &request) { asked(request); });
    peer_.subscribe(
        "com.OvrinTech.signal.json.command",
        [this](const std::string &member, const std::string &text) {
            if (member == "command")
                heard(text);
        },
        [this](const std::string &member, unsigned number) {
            if (member == "kick_thedog")
                timeline_.add({.from = "app",
                               .to = "watchdog",
                               .text = fmt::format("kick ({})", number),
                               .words = {"kick", std::to_string(number)},
                               .tone = Tone::ANNOUNCEMENT});
        });
}

// The object inside {"control": ...}, or null when the text is something else.
static Json parseControl(const std::string &text)
{
    const Json root = Json::parse(text, nullptr, false);
    if (root.is_object() && root.contains("control") && root["control"].is_object() &&
        root["control"].value("cmd", Json()).is_string())
        return root["control"];
    return nullptr;
}

void Sdk::asked(const Request &request)
{
    const Json control = parseControl(request.text());
    if (control.is_null()) {
        timeline_.add({.from = "app",
                       .to = "sdk",
                       .text = fmt::format("not a command: {}", request.text()),
                       .words = {"bad", request.text()},
                       .tone = Tone::TROUBLE});
        request.refuse("not a command");
        return;
    }

    const std::string word = control["cmd"];
    const long long uid = commandInteger(control, "uid").value_or(0);
    if (isDeviceCommand(word) && uid != Home::ALL_DEVICES) {
        showCommand(control);
        loop_.after(home_.radioDelay, [this, control] { carryOut(control); });
    } else {
        timeline_.add(
            {.from = "app",
             .to = "sdk",
             .text = fmt::format("{} {}{}", word, home_.nameOf(uid), muted ? ", not answered" : ""),
             .words = {"asked", word, home_.nameOf(uid)},
             .tone = muted ? Tone::TROUBLE : Tone::QUIET});
    }
    if (muted)
        return;
    if (word == "getswitch" && uid == Home::ALL_DEVICES)
        pollAll();

    const auto own = delays.find(uid);
    const Millis wait = own == delays.end() ? delay : own->second;
    if (wait.count() > 0)
        loop_.after(wait, [this, request, control, wait] { answer(request, control, wait); });
    else
        answer(request, control, wait);
}

Json Sdk::answerTo(const Json &control) const
{
    const std::string word = control["cmd"];
    if (word == "getdevice")
        return home_.snapshot(commandInteger(control, "uid").value_or(0));
    if (word == "getZWID")
        return {{"control", {{"cmd", word}, {"ZWID", "C7A1F00D"}}}};
    return {{"control", {{"cmd", word}, {"result", 0}}}};
}

void Sdk::answer(const Request &request, const Json &control, Millis waited)
{
    const std::string text = answerTo(control).dump(-1, ' ', false, Json::error_handler_t::replace);
    request.answer(text);

    const std::string word = control["cmd"];
    const std::string name = home_.nameOf(commandInteger(control, "uid").value_or(0));
    const std::string late = waited.count() > 0 ? fmt::format(" after {} ms", waited.count()) : "";
    timeline_.add(
        {.from = "sdk",
         .to = "app",
         .text = fmt::format("answer to {} {}, {} bytes{}", word, name, text.size(), late),
         .words = {"answered", word, name},
         .tone = Tone::QUIET});
}

void Sdk::heard(const std::string &text)
{
    const Json control = parseControl(text);
    if (control.is_null()) {
        timeline_.add({.from = "app",
                       .to = "all",
                       .text = fmt::format("not a command: {}", text),
                       .words = {"bad", text},
                       .tone = Tone::TROUBLE});
        return;
    }
    showCommand(control);
    const std::string word = control["cmd"];
    if (isDeviceCommand(word))
        loop_.after(home_.radioDelay, [this, control] { carryOut(control); });
    if (word == "sunrise_time_set" || word == "sunset_time_set")
        showSunTime(word == "sunrise_time_set" ? "sunrise" : "sunset",
                    commandValue(control).value_or(0));
    if (word == "syssound") {
        const long long sound = commandValue(control).value_or(0);
        timeline_.add({.from = "gateway",
                       .to = "",
                       .text = sound ? fmt::format("the gateway sounds siren {}", sound)
                                     : std::string("the gateway is silent"),
                       .words = {"state", "gateway",
                                 sound ? std::to_string(sound) + "|sounding" : "0|silent"},
                       .tone = Tone::STATE});
    }
}

void Sdk::showSunTime(const std::string &what, long long seconds)
{
    const auto moment = static_cast<time_t>(seconds);
    tm local{};
    localtime_r(&moment, &local);
    const std::string clock = fmt::format("{:02}:{:02}", local.tm_hour, local.tm_min);
    timeline_.add({.from = "radio",
                   .to = "",
                   .text = seconds ? fmt::format("{} is at {}", what, clock)
                                   : fmt::format("{} is not known", what),
                   .words = {"sun", what, seconds ? clock : "unknown"},
                   .tone = Tone::STATE});
}

void Sdk::showCommand(const Json &control)
{
    const std::string word = control["cmd"];
    const std::optional<long long> uid = commandInteger(control, "uid");
    const std::optional<long long> chid = commandInteger(control, "chid");
    const std::optional<long long> value = commandValue(control);

    Words words{"command", word};
    std::string text = word;
    if (uid) {
        words.push_back(home_.nameOf(*uid, chid));
        text += " " + words.back();
        if (chid && !home_.place(*uid, *chid).channel)
            text += fmt::format(" ({})", *chid);
    }
    if (value) {
        words.push_back(std::to_string(*value));
        text += " to " + words.back();
    }
    if (uid && isDeviceCommand(word)) {
        if (const auto due = plan_.claim({.uid = *uid, .chid = chid, .value = value}))
            text += fmt::format("   {}planned +{} ms, came +{} ms", due->resume ? "resume, " : "",
                                due->planned.count(), due->passed.count());
    }
    timeline_.add(
        {.from = "app", .to = "sdk", .text = text, .words = words, .tone = Tone::COMMAND});
}

void Sdk::carryOut(const Json &control)
{
    const std::optional<Applied> applied = applyCommand(home_, control);
    if (!applied) {
        timeline_.add({.from = "radio",
                       .to = "sdk",
                       .text = fmt::format("no such device: {}", control.dump()),
                       .words = {"lost", control["cmd"].get<std::string>()},
                       .tone = Tone::TROUBLE});
    } else if (applied->report) {
        reportState(applied->place);
    } else {
        const Channel &channel = *applied->place.channel;
        timeline_.add({.from = "home",
                       .to = "",
                       .text = fmt::format("{} {} {}", channel.name,
                                           applied->changed ? "is" : "stays", channel.state()),
                       .words = {"state", channel.name,
                                 fmt::format("{}|{}", lowered(channel.state()), channel.current())},
                       .tone = applied->changed ? Tone::STATE : Tone::QUIET});
    }
}

void Sdk::pollAll()
{
    Millis when = POLL_SPACING;
    for (Device &device : home_.devices) {
        for (Channel &channel : device.channels) {
            if (!isActuator(channel.functype))
                continue;
            loop_.after(when,
                        [this, place = Place{&device, &channel}] { report(place, EVENT_VALUE); });
            when += POLL_SPACING;
        }
    }
}

void Sdk::reportState(const Place &place)
{
    const Channel &channel = *place.channel;
    timeline_.add({.from = "home",
                   .to = "",
                   .text = fmt::format("{} is {}", channel.name, channel.state()),
                   .words = {"state", channel.name,
                             fmt::format("{}|{}", lowered(channel.state()), channel.current())},
                   .tone = Tone::STATE});
    const bool meters = channel.functype == FUNC_METER && channel.ctrltype != CTRL_METERED_SWITCH;
    report(place, meters ? EVENT_METER : isActuator(channel.functype) ? EVENT_VALUE : EVENT_SENSOR);
}

void Sdk::report(const Place &place, uint16_t code)
{
    place.channel->lastBeat = dateText(WallClock::now());
    report({.code = code,
            .gid = static_cast<uint16_t>(place.device->uid),
            .channel = static_cast<uint16_t>(place.channel->chid),
            .payload = "",
            .hasPayload = false});
}

void Sdk::report(const DeviceEvent &event)
{
    peer_.sendEvent(event);
    const Place place = home_.place(event.gid, event.channel);
    const std::string name = home_.nameOf(event.gid, event.channel);
    const std::string state = place.channel ? ", " + place.channel->state() : "";
    timeline_.add(
        {.from = "radio",
         .to = "app",
         .text = fmt::format("event {} {} ({}/{}){}{}", event.code, name, event.gid, event.channel,
                             state, event.hasPayload ? " with " + event.payload : ""),
         .words = {"event", std::to_string(event.code), name},
         .tone = Tone::EVENT});
}
