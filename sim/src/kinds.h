// The kinds of device a home can hold, and what the numbers of their channels mean.

#pragma once

#include <span>
#include <string>
#include <string_view>

// Function types as they stand on the wire.
enum FuncType {
    FUNC_TEMPERATURE = 11,
    FUNC_ILLUMINATION = 12,
    FUNC_DOOR = 13,
    FUNC_MOTION = 14,
    FUNC_HUMIDITY = 15,
    FUNC_GPIO = 16,
    FUNC_SMOKE = 17,
    FUNC_CO = 18,
    FUNC_CO2 = 19,
    FUNC_FLOOD = 20,
    FUNC_GLASS_BREAK = 21,
    FUNC_METER = 22,
    FUNC_SWITCH = 23,
    FUNC_DIMMER = 24,
    FUNC_SIREN = 25,
    FUNC_CURTAIN = 26,
    FUNC_LOCK = 31,
    FUNC_FAN = 32,
    FUNC_MODE = 33,
    FUNC_SETPOINT = 34,
    FUNC_AV = 35,
    FUNC_SNAPSHOT = 47,
};

inline constexpr int CTRL_METERED_SWITCH =
    23;  // a meter that can also switch: basicvalue is its relay
inline constexpr int UNIT_CELSIUS = 1;

struct ChannelKind {
    const char *suffix;  // added to the device's name; "" for the only channel of a device
    int functype;
    int ctrltype;
    long long value = 0;    // basicvalue
    long long reading = 0;  // sensorvalue, tenths where there are tenths
    int unit = 0;
    long long dimOn = 0;
};

struct Kind {
    const char *name;
    const char *code;  // product code, eight hexadecimal digits
    int battery;       // per cent; 255 for mains power
    std::span<const ChannelKind> channels;
    bool metered = false;
    bool coloured = false;
};

std::span<const Kind> allKinds();
const Kind *findKind(std::string_view name);

// The value that says how such a channel is: a reading for sensors that measure, basicvalue for the
// rest.
bool valueIsReading(int functype, int ctrltype);
bool isActuator(int functype);

// What a command's value becomes on such a channel: a relay knows only 0 and 255, a dimmer 0 to 99.
long long settledValue(int functype, long long wanted, long long dimOn);

// "ON", "60 %", "21.5 °C".
std::string stateText(int functype, long long value, long long reading);
