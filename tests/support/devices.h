// The devices of a fake home, and the texts that tell the daemon of them.

#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace support {

// What a channel is; the number is the "functype" on the wire.
enum FunctionType : int64_t {
    TEMPERATURE = 11,
    ILLUMINATION = 12,
    DOOR = 13,
    MOTION = 14,
    METER = 22,
    SWITCH = 23,
    DIMMER = 24,
    SIREN = 25,
    CURTAIN = 26,
    LOCK = 28,
    THERMOSTAT_FAN = 32,
    THERMOSTAT_MODE = 33,
    THERMOSTAT_SETPOINT = 34,
    AV_CONTROL = 35,
    MUTE_TYPE = 46,  // takes no command
    SNAPSHOT = 47,
};

inline constexpr int64_t CELSIUS = 1;
inline constexpr int64_t FAHRENHEIT = 2;

struct Channel {
    int64_t chid = 0;
    int64_t functype = 0;
    int64_t basicvalue = 0;
    int64_t sensorvalue = 0;
    int64_t sensorunit = 0;
    int64_t ctrltype = 0;
    int64_t dimOnValue = 0;
    int64_t tampernotify = 1;  // 1: no push
    int64_t lowbattnotify = 1;
    std::string name = "Channel";
    std::string meter = {};  // JSON texts, left out when empty
    std::string switchColor = {};
};

struct Device {
    int64_t uid = 0;
    std::vector<Channel> channels = {};
    std::string code = "01010101";
    int64_t battery = 100;
};

// A device with one channel, which is enough for most tests.
Device device(int64_t uid, int64_t chid, int64_t functype, int64_t basicvalue = 0);

using DeviceTable = std::map<int64_t, Device>;

// The "getdevice" reply: all devices, or that one alone (an empty list when there is none).
std::string allDevicesText(const DeviceTable &devices);
std::string deviceText(const DeviceTable &devices, int64_t uid);

// Commands as they stand on the wire.
std::string plainCommand(const std::string &cmd, int64_t uid);
std::string deviceCommand(const std::string &cmd, int64_t uid, std::optional<int64_t> chid,
                          int64_t val);
std::string sysSound(int64_t val);

inline std::string switchCommand(int64_t uid, int64_t chid, int64_t val)
{
    return deviceCommand("switch", uid, chid, val);
}

}  // namespace support
