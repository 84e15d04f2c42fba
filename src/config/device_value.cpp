#include "config/device_value.h"

struct FunctionName {
    int code;
    const char *name;
};

static constexpr FunctionName FUNCTION_NAMES[] = {
    {FUNC_TEMPERATURE, "Temperature"},
    {12, "Illumination"},
    {FUNC_DOOR, "Door / Window"},
    {FUNC_PIR, "PIR"},
    {15, "Humidity"},
    {FUNC_GPIO, "GPIO"},
    {17, "Smoke"},
    {18, "CO"},
    {19, "CO2"},
    {20, "Flood"},
    {21, "Glass Break"},
    {FUNC_METER, "Meter"},
    {FUNC_SWITCH, "Switch"},
    {FUNC_DIMMER, "Dimmer"},
    {FUNC_SIREN, "Siren"},
    {FUNC_CURTAIN, "Curtain"},
};

// Bit n stands for function type 11 + n: 11, 12, 15, 18, 19, 21, 22, 27, 29, 31, 32, 33 and 34 are
// read from the sensor.
static constexpr Integer FIRST_SENSOR_TYPE = 11;
static constexpr unsigned SENSOR_TYPES = 0xF50D93;
static constexpr Integer SENSOR_TYPE_BITS = 24;

static bool readsSensor(const GetDev_channel &channel)
{
    if (channel.functype == FUNC_METER && channel.ctrltype == CTRL_SWITCH)
        return false;
    if (channel.functype < FIRST_SENSOR_TYPE ||
        channel.functype >= FIRST_SENSOR_TYPE + SENSOR_TYPE_BITS)
        return false;
    return ((SENSOR_TYPES >> (channel.functype - FIRST_SENSOR_TYPE)) & 1) != 0;
}

int32_t getDevValByFuncType(const GetDev_channel *channel)
{
    if (!channel) {
        LOG(ERROR, "1. channel is NULL\n");
        return -1;
    }
    return static_cast<int32_t>(readsSensor(*channel) ? channel->sensorvalue : channel->basicvalue);
}

const char *funcTypeToString(Integer code)
{
    const int low = static_cast<int>(code & 0xFF);
    for (const FunctionName &function : FUNCTION_NAMES) {
        if (function.code == low)
            return function.name;
    }
    return nullptr;
}
