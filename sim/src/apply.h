// What a device command does to the devices of the home.

#pragma once

#include "home.h"

struct Applied {
    Place place;
    bool changed = false;
    bool report = false;  // the device tells how it is now
};

// The command words that concern devices; anything else is for the SDK daemon itself.
bool isDeviceCommand(const std::string &word);

// `control` is the object inside {"control": ...}. Nothing for a device or channel that is not
// there.
std::optional<Applied> applyCommand(Home &home, const Json &control);

// The number a command carries, whatever its key.
std::optional<long long> commandValue(const Json &control);
std::optional<long long> commandInteger(const Json &control, const char *key);
