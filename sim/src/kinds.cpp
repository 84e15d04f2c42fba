#include "kinds.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

// ctrltype: the generic device class of the radio protocol, except for the metered switch.
static constexpr ChannelKind DOOR[] = {{"", FUNC_DOOR, 32}};
static constexpr ChannelKind MOTION[] = {{"", FUNC_MOTION, 32}};
static constexpr ChannelKind SMOKE[] = {{"", FUNC_SMOKE, 32}};
static constexpr ChannelKind FLOOD[] = {{"", FUNC_FLOOD, 32}};
static constexpr ChannelKind TEMPERATURE[] = {{.suffix = "",
                                               .functype = FUNC_TEMPERATURE,
                                               .ctrltype = 33,
                                               .reading = 210,
                                               .unit = UNIT_CELSIUS}};
static constexpr ChannelKind CLIMATE[] = {
    {.suffix = " temperature",
     .functype = FUNC_TEMPERATURE,
     .ctrltype = 33,
     .reading = 210,
     .unit = UNIT_CELSIUS},
    {.suffix = " humidity", .functype = FUNC_HUMIDITY, .ctrltype = 33, .reading = 450},
};
static constexpr ChannelKind ILLUMINATION[] = {
    {.suffix = "", .functype = FUNC_ILLUMINATION, .ctrltype = 33, .reading = 300}};
static constexpr ChannelKind SWITCH[] = {{"", FUNC_SWITCH, 16}};
static constexpr ChannelKind DIMMER[] = {
    {.suffix = "", .functype = FUNC_DIMMER, .ctrltype = 17, .dimOn = 99}};
static constexpr ChannelKind CURTAIN[] = {{"", FUNC_CURTAIN, 17}};
static constexpr ChannelKind SIREN[] = {{"", FUNC_SIREN, 16}};
static constexpr ChannelKind METER[] = {{"", FUNC_METER, CTRL_METERED_SWITCH}};
static constexpr ChannelKind LOCK[] = {
    {.suffix = "", .functype = FUNC_LOCK, .ctrltype = 64, .value = 255, .reading = 1}};
static constexpr ChannelKind THERMOSTAT[] = {
    {" fan", FUNC_FAN, 8},
    {.suffix = " mode", .functype = FUNC_MODE, .ctrltype = 8, .reading = 1},
    {.suffix = " set-point",
     .functype = FUNC_SETPOINT,
     .ctrltype = 8,
     .reading = 210,
     .unit = UNIT_CELSIUS},
};
static constexpr ChannelKind AV[] = {{"", FUNC_AV, 3}};
static constexpr ChannelKind CAMERA[] = {{"", FUNC_SNAPSHOT, 0}};

static constexpr Kind KINDS[] = {
    {"door", "01010101", 100, DOOR},
    {"window", "01010102", 100, DOOR},
    {"motion", "01010103", 100, MOTION},
    {"smoke", "01010104", 100, SMOKE},
    {"flood", "01010105", 100, FLOOD},
    {"temperature", "01010106", 100, TEMPERATURE},
    {"climate", "01010107", 100, CLIMATE},
    {"illumination", "01010108", 100, ILLUMINATION},
    {"switch", "01010110", 255, SWITCH},
    {"dimmer", "01010111", 255, DIMMER},
    {.name = "colour lamp",
     .code = "01010112",
     .battery = 255,
     .channels = DIMMER,
     .coloured = true},
    {"curtain", "01010113", 255, CURTAIN},
    {"siren", "01010114", 255, SIREN},
    {.name = "metering plug",
     .code = "01010115",
     .battery = 255,
     .channels = METER,
     .metered = true},
    {"lock", "01010116", 90, LOCK},
    {"thermostat", "01010117", 255, THERMOSTAT},
    {"av control", "01010118", 255, AV},
    {"camera", "01010119", 255, CAMERA},
    {"custom", "01010199", 255, {}},
};

std::span<const Kind> allKinds()
{
    return KINDS;
}

const Kind *findKind(std::string_view name)
{
    const auto found = std::find_if(std::begin(KINDS), std::end(KINDS),
                                    [&](const Kind &kind) { return kind.name == name; });
    return found == std::end(KINDS) ? nullptr : found;
}

bool valueIsReading(int functype, int ctrltype)
{
    static constexpr int MEASURED[] = {11, 12, 15, 18, 19, 21, 22, 27, 29, 31, 32, 33, 34};
    if (functype == FUNC_METER && ctrltype == CTRL_METERED_SWITCH)
        return false;
    return std::find(std::begin(MEASURED), std::end(MEASURED), functype) != std::end(MEASURED);
}

bool isActuator(int functype)
{
    static constexpr int ACTUATORS[] = {FUNC_GPIO,  FUNC_METER,    FUNC_SWITCH, FUNC_DIMMER,
                                        FUNC_SIREN, FUNC_CURTAIN,  FUNC_LOCK,   FUNC_FAN,
                                        FUNC_MODE,  FUNC_SETPOINT, FUNC_AV};
    return std::find(std::begin(ACTUATORS), std::end(ACTUATORS), functype) != std::end(ACTUATORS);
}

long long settledValue(int functype, long long wanted, long long dimOn)
{
    switch (functype) {
    case FUNC_GPIO:
    case FUNC_METER:
    case FUNC_SWITCH:
    case FUNC_LOCK:
        return wanted == 0 ? 0 : 255;
    case FUNC_DIMMER:
        if (wanted == 255)  // "on as it was last"
            return dimOn > 0 ? dimOn : 99;
        return std::clamp(wanted, 0LL, 99LL);
    case FUNC_CURTAIN:
        return std::clamp(wanted, 0LL, 99LL);
    default:
        return wanted;
    }
}

static std::string tenths(long long value, const char *unit)
{
    return fmt::format("{}{}.{} {}", value < 0 ? "-" : "", std::abs(value) / 10,
                       std::abs(value) % 10, unit);
}

std::string stateText(int functype, long long value, long long reading)
{
    switch (functype) {
    case FUNC_TEMPERATURE:
    case FUNC_SETPOINT:
        return tenths(reading, "°C");
    case FUNC_HUMIDITY:
        return tenths(reading, "%");
    case FUNC_ILLUMINATION:
        return fmt::format("{} lux", reading);
    case FUNC_CO:
    case FUNC_CO2:
        return fmt::format("{} ppm", reading);
    case FUNC_DOOR:
        return value ? "OPEN" : "CLOSED";
    case FUNC_MOTION:
        return value ? "MOTION" : "STILL";
    case FUNC_SMOKE:
        return value ? "SMOKE" : "CLEAR";
    case FUNC_FLOOD:
        return value ? "WET" : "DRY";
    case FUNC_SIREN:
        return value ? fmt::format("SOUNDING {}", value) : "SILENT";
    case FUNC_DIMMER:
        return value ? fmt::format("{} %", value) : "OFF";
    case FUNC_CURTAIN:
        return value == 0 ? "CLOSED" : value == 99 ? "OPEN" : fmt::format("{} %", value);
    case FUNC_LOCK:
        return value ? "LOCKED" : "UNLOCKED";
    case FUNC_FAN:
        return fmt::format("FAN {}", reading);
    case FUNC_MODE:
        return fmt::format("MODE {}", reading);
    case FUNC_AV:
        return fmt::format("KEY {}", value);
    case FUNC_SNAPSHOT:
        return fmt::format("SNAPSHOT {}", value);
    default:
        return value ? "ON" : "OFF";
    }
}
