// Reading a home from its file. A mistake in the file is told with the place it stands in.

#include "home.h"
#include "kinds.h"

#include <fmt/format.h>

#include <fstream>
#include <initializer_list>
#include <set>

namespace {

// One object of the file, read member by member; what nobody asked for is a mistake.
class Reader {
public:
    Reader(const Json &object, std::string where) : object_(object), where_(std::move(where))
    {
        if (!object.is_object())
            fail("is not an object");
    }

    template <typename Value> void read(const char *key, Value &value)
    {
        asked_.insert(key);
        const auto found = object_.find(key);
        if (found == object_.end())
            return;
        try {
            found->get_to(value);
        } catch (const Json::exception &) {
            fail(fmt::format("\"{}\" has the wrong type", key));
        }
    }

    const Json *member(const char *key)
    {
        asked_.insert(key);
        const auto found = object_.find(key);
        return found == object_.end() ? nullptr : &*found;
    }

    void refuseTheRest() const
    {
        for (const auto &item : object_.items()) {
            if (!asked_.contains(item.key()))
                fail(fmt::format("\"{}\" means nothing here", item.key()));
        }
    }

    [[noreturn]] void fail(const std::string &what) const
    {
        throw UserError(fmt::format("{}: {}", where_, what));
    }

    void rename(std::string where)
    {
        where_ = std::move(where);
    }

private:
    const Json &object_;
    std::string where_;
    std::set<std::string> asked_;
};

}  // namespace

static void readChannelMembers(Reader &reader, Channel &channel)
{
    reader.read("value", channel.value);
    reader.read("reading", channel.reading);
    reader.read("unit", channel.unit);
    reader.read("functype", channel.functype);
    reader.read("ctrltype", channel.ctrltype);
    reader.read("dim_on", channel.dimOn);
    reader.read("main_scene", channel.mainScene);
    reader.read("security", channel.security);
    reader.read("tamper_notify", channel.tamperNotify);
    reader.read("low_battery_notify", channel.lowBatteryNotify);
    if (const Json *const meter = reader.member("meter")) {
        Reader numbers(*meter, channel.name + ", meter");
        Meter &into = channel.meter.emplace();
        numbers.read("watt", into.watt);
        numbers.read("current", into.current);
        numbers.read("kwh", into.kwh);
        numbers.read("pf", into.pf);
        numbers.read("voltage", into.voltage);
        numbers.refuseTheRest();
    }
}

static std::vector<Channel> channelsOfKind(const Kind &kind, const std::string &deviceName)
{
    std::vector<Channel> channels;
    for (const ChannelKind &row : kind.channels) {
        Channel channel;
        channel.chid = static_cast<long long>(channels.size()) + 1;
        channel.name = deviceName + row.suffix;
        channel.functype = row.functype;
        channel.ctrltype = row.ctrltype;
        channel.value = row.value;
        channel.reading = row.reading;
        channel.unit = row.unit;
        channel.dimOn = row.dimOn;
        if (kind.metered)
            channel.meter = Meter{.watt = 0, .current = 0, .kwh = 1250, .pf = 100, .voltage = 230};
        if (kind.coloured)
            channel.colour.emplace();
        channels.push_back(channel);
    }
    return channels;
}

static Device readDevice(const Json &object, const std::string &where)
{
    Reader reader(object, where);
    Device device;
    reader.read("name", device.name);
    if (device.name.empty())
        reader.fail("a device needs a \"name\"");
    reader.rename(fmt::format("{} \"{}\"", where, device.name));

    reader.read("kind", device.kind);
    const Kind *const kind = findKind(device.kind);
    if (!kind) {
        std::string known;
        for (const Kind &one : allKinds())
            known += fmt::format("{}{}", known.empty() ? "" : ", ", one.name);
        reader.fail(fmt::format("\"{}\" is no kind of device; there are {}", device.kind, known));
    }
    device.code = kind->code;
    device.battery = kind->battery;
    device.channels = channelsOfKind(*kind, device.name);

    reader.read("uid", device.uid);
    reader.read("room", device.room);
    reader.read("code", device.code);
    reader.read("battery", device.battery);
    if (device.uid < 1 || device.uid > 0xFFFF || (device.uid >= 256 && device.uid <= 768))
        reader.fail("\"uid\" must be from 1 to 255, or from 769 on for a camera");

    if (!device.channels.empty())
        readChannelMembers(reader, device.channels.front());
    if (const Json *const rows = reader.member("channels")) {
        if (!rows->is_array())
            reader.fail("\"channels\" is not an array");
        for (size_t i = 0; i < rows->size(); ++i) {
            if (i == device.channels.size()) {
                Channel &added = device.channels.emplace_back();
                added.chid = static_cast<long long>(i) + 1;
                added.name = fmt::format("{} {}", device.name, i + 1);
            }
            Channel &channel = device.channels[i];
            Reader row((*rows)[i], fmt::format("{} \"{}\", channel {}", where, device.name, i + 1));
            row.read("chid", channel.chid);
            row.read("name", channel.name);
            readChannelMembers(row, channel);
            row.refuseTheRest();
        }
    }
    if (device.channels.empty())
        reader.fail("a device of this kind needs \"channels\"");
    reader.refuseTheRest();
    return device;
}

static void checkNames(const Home &home)
{
    std::set<std::string> names;
    std::set<long long> uids;
    for (const Device &device : home.devices) {
        if (!uids.insert(device.uid).second)
            throw UserError(fmt::format("{}: uid {} is used twice", device.name, device.uid));
        std::set<std::string> own{lowered(device.name)};
        for (const Channel &channel : device.channels)
            own.insert(lowered(channel.name));
        for (const std::string &name : own) {
            // The rest of the gateway cuts a channel's name at its first parenthesis.
            if (name.find('(') != std::string::npos)
                throw UserError(fmt::format("{}: a name cannot hold a parenthesis", name));
            if (!names.insert(name).second)
                throw UserError(fmt::format("{}: the name is used twice", name));
        }
    }
}

static void readSettings(const Json &object, Home &home)
{
    if (!object.is_object())
        throw UserError("nvram: is not an object");
    for (const auto &[key, value] : object.items()) {
        if (value.is_string())
            home.settings[key] = value.get<std::string>();
        else if (value.is_number_integer())
            home.settings[key] = std::to_string(value.get<long long>());
        else if (value.is_null())
            home.settings[key] = std::nullopt;
        else
            throw UserError(
                fmt::format("nvram, \"{}\": must be a text, a whole number or null", key));
    }
}

Home Home::load(const std::string &path)
{
    std::ifstream file(path);
    if (!file)
        throw UserError(fmt::format("cannot read {}", path));
    try {
        const Json root = Json::parse(file);
        Home home;
        home.path = path;
        Reader reader(root, "the home");
        reader.read("name", home.name);
        long long delay = home.radioDelay.count();
        reader.read("radio_delay_ms", delay);
        home.radioDelay = Millis(delay);
        if (const Json *const nvram = reader.member("nvram"))
            readSettings(*nvram, home);
        const Json *const list = reader.member("devices");
        if (!list || !list->is_array())
            reader.fail("\"devices\" must be an array");
        for (size_t i = 0; i < list->size(); ++i)
            home.devices.push_back(readDevice((*list)[i], fmt::format("device {}", i + 1)));
        reader.refuseTheRest();
        checkNames(home);
        const std::string now = dateText(WallClock::now());
        for (Device &device : home.devices) {
            for (Channel &channel : device.channels)
                channel.lastBeat = now;
        }
        return home;
    } catch (const Json::exception &error) {
        throw UserError(fmt::format("{}: {}", path, error.what()));
    } catch (const UserError &error) {
        throw UserError(fmt::format("{}: {}", path, error.what()));
    }
}
