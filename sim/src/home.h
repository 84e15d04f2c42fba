// The home: its devices with their channels as the radio knows them, and the gateway's settings.
//
// A home is read from one JSON file; see ../README.md for the layout.

#pragma once

#include "text.h"

#include <nlohmann/json.hpp>

#include <array>
#include <deque>
#include <map>
#include <optional>
#include <span>
#include <string>

using Json = nlohmann::json;

struct Meter {
    long long watt = 0;
    long long current = 0;
    long long kwh = 0;
    long long pf = 0;
    long long voltage = 0;
};

struct SwitchColour {
    struct Component {
        int id;
        int value;
    };
    long long mask1 = 31;
    long long mask2 = 0;
    std::array<Component, 5> components{{{0, 0}, {1, 0}, {2, 255}, {3, 255}, {4, 255}}};
};

struct Channel {
    long long chid = 0;
    std::string name;
    int functype = 0;
    int ctrltype = 0;
    long long value = 0;    // "basicvalue"
    long long reading = 0;  // "sensorvalue"
    int unit = 0;
    long long dimOn = 0;
    long long mainScene = 0;
    long long security = 0;
    long long tamperNotify = 0;
    long long lowBatteryNotify = 0;
    std::optional<Meter> meter;
    std::optional<SwitchColour> colour;
    std::string lastBeat;

    long long current() const;      // the number that says how the channel is
    void become(long long number);  // stores that number
    std::string state() const;
};

struct Device {
    long long uid = 0;
    std::string name;
    std::string room;
    std::string kind;
    std::string code;
    long long battery = 255;
    std::string lastTamper;
    std::vector<Channel> channels;

    Channel *channel(long long chid);
    Channel *firstOf(std::span<const int> functypes);
};

struct Place {
    Device *device = nullptr;
    Channel *channel = nullptr;
};

class Home {
public:
    static Home load(const std::string &path);  // throws UserError

    Device *device(long long uid);
    Place place(long long uid, long long chid);

    // By the name of a channel or device, or by a room with only one channel of these types.
    // Throws UserError. No types: any channel will do.
    Place find(const std::string &name, std::span<const int> functypes);
    Device &findDevice(const std::string &name);

    std::string nameOf(long long uid, std::optional<long long> chid = std::nullopt);

    Json snapshot(long long uid) const;  // one device, or all for ALL_DEVICES

    static constexpr long long ALL_DEVICES = 256;
    static constexpr long long FIRST_CAMERA = 769;

    std::string name;
    std::string path;
    std::deque<Device> devices;  // pointers into it stay good
    std::map<std::string, std::optional<std::string>>
        settings;  // nvram; no value: answered with an error
    Millis radioDelay{60};
};
