#include "support/devices.h"

#include "support/json.h"

namespace support {

static std::string member(const std::string &key, int64_t value)
{
    return quoted(key) + ":" + std::to_string(value) + ",";
}

static std::string channelText(const Channel &channel)
{
    std::string text =
        "{" + member("chid", channel.chid) + member("functype", channel.functype) +
        member("basicvalue", channel.basicvalue) + member("sensorvalue", channel.sensorvalue) +
        member("sensorunit", channel.sensorunit) + member("ctrltype", channel.ctrltype) +
        member("Dim_ON_Value", channel.dimOnValue) + member("tampernotify", channel.tampernotify) +
        member("lowbattnotify", channel.lowbattnotify) + member("mainscene", 0) +
        member("security", 0) + member("sensorstate", 0);
    if (!channel.meter.empty())
        text += "\"meter\":" + channel.meter + ",";
    if (!channel.switchColor.empty())
        text += "\"switch_color\":" + channel.switchColor + ",";
    return text + "\"lastbeattime\":\"2024-01-01 00:00:00\",\"name\":" + quoted(channel.name) + "}";
}

static std::string oneDevice(const Device &device)
{
    std::string channels;
    for (const Channel &channel : device.channels)
        channels += (channels.empty() ? "" : ",") + channelText(channel);
    return "{" + member("uid", device.uid) + member("battery", device.battery) +
           "\"code\":" + quoted(device.code) +
           ",\"lasttampertime\":\"2024-01-01 00:00:00\",\"channel\":[" + channels + "]}";
}

Device device(int64_t uid, int64_t chid, int64_t functype, int64_t basicvalue)
{
    return {.uid = uid,
            .channels = {{.chid = chid, .functype = functype, .basicvalue = basicvalue}}};
}

std::string allDevicesText(const DeviceTable &devices)
{
    std::string list;
    for (const auto &[uid, device] : devices)
        list += (list.empty() ? "" : ",") + oneDevice(device);
    return "{\"device\":[" + list + "]}";
}

std::string deviceText(const DeviceTable &devices, int64_t uid)
{
    const auto found = devices.find(uid);
    return "{\"device\":[" + (found == devices.end() ? "" : oneDevice(found->second)) + "]}";
}

std::string plainCommand(const std::string &cmd, int64_t uid)
{
    return R"({"control":{"cmd":")" + cmd + R"(","uid":)" + std::to_string(uid) + "}}";
}

std::string deviceCommand(const std::string &cmd, int64_t uid, std::optional<int64_t> chid,
                          int64_t val)
{
    return "{\"control\":{" + (chid ? "\"chid\":" + std::to_string(*chid) + "," : "") +
           R"("cmd":")" + cmd + R"(","uid":)" + std::to_string(uid) +
           ",\"val\":" + std::to_string(val) + "}}";
}

std::string sysSound(int64_t val)
{
    return R"({"control":{"cmd":"syssound","val":)" + std::to_string(val) + "}}";
}

}  // namespace support
