// What people and the weather do to the home: each becomes a report of the radio.

#include "commands.h"
#include "kinds.h"

#include <fmt/format.h>

#include <array>
#include <cmath>

namespace {

constexpr int DOORS[] = {FUNC_DOOR, FUNC_CURTAIN};
constexpr int MOTIONS[] = {FUNC_MOTION};
constexpr int SMOKES[] = {FUNC_SMOKE};
constexpr int FLOODS[] = {FUNC_FLOOD};
constexpr int ALARMS[] = {FUNC_SMOKE, FUNC_FLOOD, FUNC_MOTION};
constexpr int SWITCHES[] = {FUNC_SWITCH, FUNC_DIMMER,  FUNC_METER, FUNC_GPIO,
                            FUNC_SIREN,  FUNC_CURTAIN, FUNC_AV,    FUNC_LOCK};
constexpr int LOCKS[] = {FUNC_LOCK};

// A verb that puts a channel into one state.
struct Act {
    const char *verb;
    std::span<const int> functypes;
    long long value;
};

constexpr Act ACTS[] = {
    {"open", DOORS, 255},   {"close", DOORS, 0},    {"motion", MOTIONS, 255}, {"still", MOTIONS, 0},
    {"smoke", SMOKES, 255}, {"flood", FLOODS, 255}, {"clear", ALARMS, 0},
};

// Something that `set` can change.
struct Quantity {
    const char *word;
    int functype;
    int scale;  // one unit on the wire is 1/scale of what people write
};

constexpr Quantity QUANTITIES[] = {
    {"temperature", FUNC_TEMPERATURE, 10},
    {"humidity", FUNC_HUMIDITY, 10},
    {"light", FUNC_ILLUMINATION, 1},
    {"co", FUNC_CO, 1},
    {"co2", FUNC_CO2, 1},
    {"power", FUNC_METER, 1},
    {"level", FUNC_DIMMER, 1},
    {"position", FUNC_CURTAIN, 1},
    {"set-point", FUNC_SETPOINT, 10},
    {"mode", FUNC_MODE, 1},
    {"fan", FUNC_FAN, 1},
};

}  // namespace

static void act(Gateway &gateway, const Words &words, const Done &done)
{
    for (const Act &row : ACTS) {
        if (!sameText(row.verb, words[0]))
            continue;
        const Place place = gateway.home.find(words[1], row.functypes);
        noteYou(gateway, "home", {row.verb, place.channel->name});
        place.channel->become(settledValue(place.channel->functype, row.value, 0));
        gateway.sdk.reportState(place);
        done(true, "");
    }
}

static void reportPower(Gateway &gateway, const Place &place, long long watt)
{
    place.channel->reading = watt;
    if (Meter *const meter = place.channel->meter ? &*place.channel->meter : nullptr) {
        meter->watt = watt;
        meter->current = meter->voltage ? watt * 1000 / meter->voltage : 0;  // mA
    }
    gateway.timeline.add({.from = "home",
                          .to = "",
                          .text = fmt::format("{} draws {} W", place.channel->name, watt),
                          .words = {"state", place.channel->name, std::to_string(watt)},
                          .tone = Tone::STATE});
    gateway.sdk.report(place, EVENT_METER);
}

static void set(Gateway &gateway, const Words &words, const Done &done)
{
    const std::optional<double> wanted = toNumber(words[3]);
    if (!wanted || std::abs(*wanted) > 1e6)
        throw UserError(fmt::format("{} is not a number", words[3]));
    for (const Quantity &row : QUANTITIES) {
        if (!sameText(row.word, words[2]))
            continue;
        const int functypes[] = {row.functype};
        const Place place = gateway.home.find(words[1], functypes);
        const long long value = std::llround(*wanted * row.scale);
        noteYou(gateway, "home", {"set", place.channel->name, row.word, words[3]});
        if (row.functype == FUNC_METER) {
            reportPower(gateway, place, value);
        } else {
            place.channel->become(settledValue(row.functype, value, place.channel->dimOn));
            gateway.sdk.reportState(place);
        }
        done(true, "");
        return;
    }
    std::string known;
    for (const Quantity &row : QUANTITIES)
        known += fmt::format("{}{}", known.empty() ? "" : ", ", row.word);
    throw UserError(fmt::format("cannot set {}; there are {}", words[2], known));
}

static void press(Gateway &gateway, const Words &words, const Done &done)
{
    const Place place = gateway.home.find(words[1], SWITCHES);
    std::optional<long long> value = toInteger(words[2]);
    if (sameText(words[2], "on"))
        value = place.channel->functype == FUNC_SIREN ? 1 : 255;
    else if (sameText(words[2], "off"))
        value = 0;
    if (!value)
        throw UserError(fmt::format("{} is neither on, off nor a number", words[2]));
    noteYou(gateway, "home", {"switch", place.channel->name, words[2]});
    place.channel->become(settledValue(place.channel->functype, *value, place.channel->dimOn));
    gateway.sdk.reportState(place);
    done(true, "");
}

static void turnLock(Gateway &gateway, const Words &words, const Done &done)
{
    const bool locks = sameText(words[0], "lock");
    const Place place = gateway.home.find(words[1], LOCKS);
    long long user = 0;
    if (words.size() > 2) {
        const std::optional<long long> number = toInteger(words.back());
        if (locks || words.size() != 4 || !sameText(words[2], "user") || !number || *number < 1)
            throw UserError("usage: unlock NAME [user N]");
        user = *number;
    }
    noteYou(gateway, "home", words);
    place.channel->become(locks ? 255 : 0);
    if (user)
        place.channel->reading = user * 10;
    gateway.sdk.reportState(place);
    done(true, "");
}

static void tamper(Gateway &gateway, const Words &words, const Done &done)
{
    const Place place = gateway.home.find(words[1], {});
    noteYou(gateway, "home", {"tamper", place.device->name});
    place.device->lastTamper = dateText(WallClock::now());
    gateway.sdk.report(place, EVENT_TAMPER);
    done(true, "");
}

static void battery(Gateway &gateway, const Words &words, const Done &done)
{
    static constexpr long long LOW = 20;
    const Place place = gateway.home.find(words[1], {});
    const std::optional<long long> level = toInteger(words[2]);
    if (!level || *level < 0 || *level > 100)
        throw UserError(fmt::format("{} is no battery level from 0 to 100", words[2]));
    noteYou(gateway, "home", {"battery", place.device->name, words[2]});
    place.device->battery = *level;
    gateway.sdk.report(place, *level <= LOW ? EVENT_LOW_BATTERY : EVENT_SENSOR);
    done(true, "");
}

static uint16_t smallNumber(const std::string &text, const char *what)
{
    const std::optional<long long> number = toInteger(text);
    if (!number || *number < 0 || *number > 0xFFFF)
        throw UserError(fmt::format("{} is no {} from 0 to 65535", text, what));
    return static_cast<uint16_t>(*number);
}

static void rawEvent(Gateway &gateway, const Words &words, const Done &done)
{
    DeviceEvent event;
    event.code = smallNumber(words[1], "event code");
    event.gid = toInteger(words[2]) ? smallNumber(words[2], "device id")
                                    : static_cast<uint16_t>(gateway.home.findDevice(words[2]).uid);
    event.channel = smallNumber(words[3], "channel");
    event.hasPayload = words.size() > 4;
    if (event.hasPayload)
        event.payload = words[4];
    noteYou(gateway, "radio", words);
    gateway.sdk.report(event);
    done(true, "");
}

std::span<const Verb> homeVerbs()
{
    static constexpr Verb VERBS[] = {
        {"open", "NAME", "open a door, window or curtain", Drives::YES, 2, act},
        {"close", "NAME", "close it", Drives::YES, 2, act},
        {"motion", "NAME", "somebody moves", Drives::YES, 2, act},
        {"still", "NAME", "nobody moves any more", Drives::YES, 2, act},
        {"smoke", "NAME", "smoke is detected", Drives::YES, 2, act},
        {"flood", "NAME", "water is detected", Drives::YES, 2, act},
        {"clear", "NAME", "smoke, water or motion is over", Drives::YES, 2, act},
        {"set", "NAME QUANTITY VALUE",
         "temperature, humidity, light, power, level, position, set-point ...", Drives::YES, 4,
         set},
        {"switch", "NAME on|off|VALUE", "press a device's own button", Drives::YES, 3, press},
        {"lock", "NAME", "turn the key", Drives::YES, 2, turnLock},
        {"unlock", "NAME [user N]", "open the lock, with user N's code", Drives::YES, 2, turnLock},
        {"tamper", "NAME", "somebody takes the device off the wall", Drives::YES, 2, tamper},
        {"battery", "NAME PERCENT", "20 and below reports a low battery", Drives::YES, 3, battery},
        {"event", "CODE DEVICE CHANNEL [PAYLOAD]", "send any device event as it is", Drives::YES, 4,
         rawEvent},
    };
    return VERBS;
}
