// What a channel's value is, by its function type.

#pragma once

#include "config/device.h"

#include <cstdint>

enum FunctionType : int {
    FUNC_TEMPERATURE = 11,
    FUNC_DOOR = 13,
    FUNC_PIR = 14,
    FUNC_GPIO = 16,
    FUNC_METER = 22,
    FUNC_SWITCH = 23,
    FUNC_DIMMER = 24,
    FUNC_SIREN = 25,
    FUNC_CURTAIN = 26,
    FUNC_LOCK = 31,
    FUNC_THERMOSTAT_FAN = 32,
    FUNC_THERMOSTAT_MODE = 33,
    FUNC_THERMOSTAT_TEMP = 34,
    FUNC_AV_CONTROL = 35,
    FUNC_SILENT = 46,
    FUNC_SNAPSHOT = 47,
};

// The control type of a switch that meters.
static constexpr Integer CTRL_SWITCH = 23;

// The channel's present value, cut to 32 bits; -1 for null.
int32_t getDevValByFuncType(const GetDev_channel *channel);

// The function type's name, a constant, or null; only the low 8 bits count.
const char *funcTypeToString(Integer code);
