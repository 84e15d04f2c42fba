#include "events/trigger_check.h"

#include "config/device_value.h"
#include "main/log.h"

#include <cstring>

static constexpr int32_t ANY_REPORT = -1;
static constexpr Integer CELSIUS = 1;
static constexpr Integer FAHRENHEIT = 2;

// Products that report their basic value, whatever their function type says, unless it is a
// metering switch.
static constexpr Integer BASIC_VALUE_PRODUCTS[] = {0x01010167, 0x01010173};

// Products whose triggers with a threshold of -1 hold on every report.
static constexpr Integer ANY_REPORT_PRODUCTS[] = {0x01010922, 0x01020201, 0x01010939, 0x01010167,
                                                  0x01010173};

template <size_t N> static bool isOneOf(Integer product, const Integer (&products)[N])
{
    for (const Integer known : products) {
        if (known == product)
            return true;
    }
    return false;
}

// Deliberate: a metering switch is read another way here than getDevValByFuncType reads it.
static int32_t chooseValue(const GetDev_channel &channel, Integer productCode)
{
    if (channel.functype == FUNC_METER && channel.ctrltype == CTRL_SWITCH)
        return static_cast<int32_t>(channel.sensorvalue);
    if (isOneOf(productCode, BASIC_VALUE_PRODUCTS))
        return static_cast<int32_t>(channel.basicvalue);
    return getDevValByFuncType(&channel);
}

// Tenths of a degree in the sensor's unit to tenths in the trigger's.
static int32_t convertUnit(int32_t value, Integer triggerUnit, Integer sensorUnit)
{
    const Integer wide = value;  // 32 bits would overflow for values no thermometer shows
    if (triggerUnit == CELSIUS && sensorUnit == FAHRENHEIT)
        return static_cast<int32_t>((wide * 5 - 1600) / 9);
    if (triggerUnit == FAHRENHEIT && sensorUnit == CELSIUS)
        return static_cast<int32_t>(wide * 9 / 5 + 320);
    return value;
}

struct Operator {
    const char *spelling;
    bool (*holds)(int32_t value, int32_t threshold);
};

static constexpr Operator OPERATORS[] = {
    {">", [](int32_t value, int32_t threshold) { return value > threshold; }},
    {"<", [](int32_t value, int32_t threshold) { return value < threshold; }},
    {"=", [](int32_t value, int32_t threshold) { return value == threshold; }},
    {"<=", [](int32_t value, int32_t threshold) { return value <= threshold; }},
    {">=", [](int32_t value, int32_t threshold) { return value >= threshold; }},
    {"!=", [](int32_t value, int32_t threshold) { return value != threshold; }},
};

static bool compares(const char *spelling, int32_t value, int32_t threshold)
{
    for (const Operator &known : OPERATORS) {
        if (strcmp(known.spelling, spelling) == 0)
            return known.holds(value, threshold);
    }
    return false;
}

int32_t checkTrigger(const Trigger *trigger, const GetDev_channel *channel,
                     const LoggedEvent *event)
{
    if (!trigger || !channel || !event) {
        LOG(ERROR, "parameter error.\n");
        return -1;
    }
    const int32_t value = convertUnit(chooseValue(*channel, event->productCode), trigger->dataunit,
                                      channel->sensorunit);
    if (event->uid != trigger->target.dev || event->channelID != trigger->target.ch)
        return 0;
    const auto threshold = static_cast<int32_t>(trigger->threshold);
    if (threshold == ANY_REPORT && isOneOf(event->productCode, ANY_REPORT_PRODUCTS))
        return 1;
    return compares(trigger->op, value, threshold) ? 1 : 0;
}

int findDevFromTriggers(ListNode *triggers, Integer gid)
{
    if (!triggers || listEmpty(triggers))
        LOG(INFO, "triggersListHead is empty\n");
    for (const Trigger &trigger : ELEMENTS(Trigger, node, triggers)) {
        if (trigger.target.dev == gid)
            return 1;
    }
    return 0;
}

Integer findMaxPriorityFromMacros(ListNode *macros)
{
    if (!macros || listEmpty(macros))
        return -1;
    Integer greatest = 0;
    for (const Macro &macro : ELEMENTS(Macro, node, macros)) {
        if (macro.priority > greatest)
            greatest = macro.priority;
    }
    return greatest;
}

ListNode *keepMaxPriority(ListNode *macros, Integer gid)
{
    if (!macros)
        return nullptr;
    const Integer greatest = findMaxPriorityFromMacros(macros);
    if (greatest < 0) {
        LOG(ERROR, "maxPriority < 0\n");
        return nullptr;
    }
    for (Macro &macro : ELEMENTS(Macro, node, macros)) {
        if (macro.priority < greatest && findDevFromTriggers(&macro.triggers, gid))
            freeMacro(&macro.node);
    }
    return macros;
}
