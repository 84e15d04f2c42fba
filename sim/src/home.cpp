#include "home.h"

#include "kinds.h"

#include <fmt/format.h>

#include <algorithm>

long long Channel::current() const
{
    return valueIsReading(functype, ctrltype) ? reading : value;
}

void Channel::become(long long number)
{
    if (functype == FUNC_LOCK) {
        // A lock's reading is the user who opened it, times ten. 1 and 0 name nobody, and they put
        // the bolt back where it was when they are sent as a value.
        value = number;
        reading = number ? 1 : 0;
    } else if (valueIsReading(functype, ctrltype)) {
        reading = number;
    } else {
        value = number;
    }
}

std::string Channel::state() const
{
    return stateText(functype, value, reading);
}

Channel *Device::channel(long long chid)
{
    const auto found = std::find_if(channels.begin(), channels.end(),
                                    [&](const Channel &one) { return one.chid == chid; });
    return found == channels.end() ? nullptr : &*found;
}

Channel *Device::firstOf(std::span<const int> functypes)
{
    for (Channel &one : channels) {
        if (functypes.empty() ||
            std::find(functypes.begin(), functypes.end(), one.functype) != functypes.end())
            return &one;
    }
    return nullptr;
}

Device *Home::device(long long uid)
{
    const auto found = std::find_if(devices.begin(), devices.end(),
                                    [&](const Device &one) { return one.uid == uid; });
    return found == devices.end() ? nullptr : &*found;
}

Place Home::place(long long uid, long long chid)
{
    Device *const owner = device(uid);
    return {owner, owner ? owner->channel(chid) : nullptr};
}

Place Home::find(const std::string &wanted, std::span<const int> functypes)
{
    const auto fits = [&](const Channel &one) {
        return functypes.empty() ||
               std::find(functypes.begin(), functypes.end(), one.functype) != functypes.end();
    };
    bool known = false;
    std::vector<Place> inRoom;
    for (Device &one : devices) {
        const bool named = sameText(one.name, wanted);
        for (Channel &channel : one.channels) {
            const bool meant = named || sameText(channel.name, wanted);
            known |= meant;
            if (meant && fits(channel))
                return {&one, &channel};
            if (sameText(one.room, wanted) && fits(channel))
                inRoom.push_back({&one, &channel});
        }
    }
    if (known)
        throw UserError(fmt::format("{} cannot do that; `list` shows what it is", wanted));
    if (inRoom.size() == 1)
        return inRoom.front();
    if (inRoom.size() > 1) {
        std::string names;
        for (const Place &place : inRoom)
            names += fmt::format("{}\"{}\"", names.empty() ? "" : ", ", place.channel->name);
        throw UserError(fmt::format("{} has several: {}", wanted, names));
    }
    const bool isRoom = std::any_of(devices.begin(), devices.end(),
                                    [&](const Device &one) { return sameText(one.room, wanted); });
    if (isRoom)
        throw UserError(
            fmt::format("nothing in {} can do that; `list` shows what is there", wanted));
    throw UserError(fmt::format("no device called {}; `list` shows them", wanted));
}

Device &Home::findDevice(const std::string &wanted)
{
    return *find(wanted, {}).device;
}

std::string Home::nameOf(long long uid, std::optional<long long> chid)
{
    // What is no device has a name too, so that a timeline reads well.
    struct Reserved {
        long long uid;
        const char *name;
    };
    static constexpr Reserved RESERVED[] = {
        {0, "radio"},     {ALL_DEVICES, "all"},  {505, "gap step"},  {508, "sunset"},
        {509, "sunrise"}, {511, "scene status"}, {512, "wait step"},
    };
    Device *const owner = device(uid);
    if (owner) {
        const Channel *const channel = chid ? owner->channel(*chid) : nullptr;
        return channel ? channel->name : owner->name;
    }
    for (const Reserved &reserved : RESERVED) {
        if (reserved.uid == uid)
            return reserved.name;
    }
    return fmt::format("{}", uid);
}

static Json channelToJson(const Channel &channel)
{
    Json object = {
        {"chid", channel.chid},
        {"name", channel.name},
        {"functype", channel.functype},
        {"ctrltype", channel.ctrltype},
        {"basicvalue", channel.value},
        {"sensorvalue", channel.reading},
        {"sensorunit", channel.unit},
        {"sensorstate", channel.value ? 1 : 0},
        {"Dim_ON_Value", channel.dimOn},
        {"mainscene", channel.mainScene},
        {"security", channel.security},
        {"tampernotify", channel.tamperNotify},
        {"lowbattnotify", channel.lowBatteryNotify},
        {"lastbeattime", channel.lastBeat},
    };
    if (channel.meter) {
        object["meter"] = {{"watt", channel.meter->watt},
                           {"current", channel.meter->current},
                           {"kwh", channel.meter->kwh},
                           {"pf", channel.meter->pf},
                           {"voltage", channel.meter->voltage}};
    }
    if (channel.colour) {
        Json components = Json::array();
        for (const auto &component : channel.colour->components)
            components.push_back({{"comp_id", component.id}, {"value", component.value}});
        object["switch_color"] = {{"comp_mask1", channel.colour->mask1},
                                  {"comp_mask2", channel.colour->mask2},
                                  {"comp_value", components}};
    }
    return object;
}

Json Home::snapshot(long long uid) const
{
    Json list = Json::array();
    for (const Device &one : devices) {
        if (uid != ALL_DEVICES && uid != one.uid)
            continue;
        Json channels = Json::array();
        for (const Channel &channel : one.channels)
            channels.push_back(channelToJson(channel));
        list.push_back({{"uid", one.uid},
                        {"battery", one.battery},
                        {"code", one.code},
                        {"lasttampertime", one.lastTamper},
                        {"channel", channels}});
    }
    return {{"device", list}};
}
