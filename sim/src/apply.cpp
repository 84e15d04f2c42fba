#include "apply.h"

#include "kinds.h"

namespace {

enum class Effect { SET, ASK, COUNT };

struct Rule {
    const char *word;
    int functype;  // the channel is the device's only one of this type; 0: "chid" names it
    const char *valueKey;
    Effect effect;
};

constexpr Rule RULES[] = {
    {"switch", 0, "val", Effect::SET},
    {"getswitch", 0, nullptr, Effect::ASK},
    {"thermostatfan", FUNC_FAN, "val", Effect::SET},
    {"thermostatmode", FUNC_MODE, "val", Effect::SET},
    {"thermostattemp", FUNC_SETPOINT, "temp", Effect::SET},
    {"simpleAVcontrol", 0, "val", Effect::SET},
    {"snapshot", 0, nullptr, Effect::COUNT},
};

}  // namespace

static const Rule *findRule(const std::string &word)
{
    for (const Rule &rule : RULES) {
        if (rule.word == word)
            return &rule;
    }
    return nullptr;
}

bool isDeviceCommand(const std::string &word)
{
    return findRule(word) != nullptr;
}

std::optional<long long> commandInteger(const Json &control, const char *key)
{
    const auto found = control.find(key);
    if (found == control.end() || !found->is_number_integer())
        return std::nullopt;
    return found->get<long long>();
}

std::optional<long long> commandValue(const Json &control)
{
    const std::optional<long long> value = commandInteger(control, "val");
    return value ? value : commandInteger(control, "temp");
}

static Channel *commandedChannel(Device &device, const Rule &rule, const Json &control)
{
    if (rule.functype) {
        const int functypes[] = {rule.functype};
        return device.firstOf(functypes);
    }
    if (const std::optional<long long> chid = commandInteger(control, "chid"))
        return device.channel(*chid);
    // A camera is addressed without a channel.
    return device.uid >= Home::FIRST_CAMERA ? &device.channels.front() : nullptr;
}

std::optional<Applied> applyCommand(Home &home, const Json &control)
{
    const Rule *const rule = findRule(control.value("cmd", ""));
    Device *const device = home.device(commandInteger(control, "uid").value_or(-1));
    Channel *const channel = rule && device ? commandedChannel(*device, *rule, control) : nullptr;
    if (!channel)
        return std::nullopt;

    Applied result{.place = {device, channel}};
    if (rule->effect == Effect::ASK) {
        result.report = true;
    } else if (rule->effect == Effect::COUNT) {
        ++channel->value;
        result.changed = true;
    } else if (const std::optional<long long> wanted = commandInteger(control, rule->valueKey)) {
        const long long settled = settledValue(channel->functype, *wanted, channel->dimOn);
        result.changed = settled != channel->current();
        result.report = result.changed;
        channel->become(settled);
        if (channel->functype == FUNC_DIMMER && settled > 0)
            channel->dimOn = settled;
    }
    return result;
}
