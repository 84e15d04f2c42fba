// The SDK daemon's answer to "getdevice".

#include "config/snapshot.h"
#include "daemon.h"
#include "json_mutator.h"

#include <cstring>

MUTATED_AS_JSON

static bool ends(const Text &text)
{
    return memchr(text, '\0', sizeof text) != nullptr;
}

// Looks at a channel as events do: found by its number, copied, its objects shown.
static void useChannel(const GetDev_dev &device, const GetDev_channel &channel)
{
    require(ends(channel.name) && ends(channel.lastbeattime), "a channel's texts end");
    require(searchChannelFromGetDev(&device, channel.chid) != nullptr, "a channel is found");
    json_decref(meterToJson(channel.meter));
    json_decref(switchcolorToJson(channel.switch_color));
    freeGetDevice_dev_channel(copyGetDev_dev_channel(&channel));
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    GetDev *snapshot = setGetDevice(InputText(data, size));
    if (!snapshot)
        return 0;
    for (const GetDev_dev &device : ELEMENTS(GetDev_dev, node, &snapshot->devices)) {
        require(ends(device.code) && ends(device.lasttampertime), "a device's texts end");
        require(searchDeviceFromGetDev(snapshot, device.uid) != nullptr, "a device is found");
        for (const GetDev_channel &channel : ELEMENTS(GetDev_channel, node, &device.channels))
            useChannel(device, channel);
        GetDev_dev *copy = copyGetDev_dev(&device);
        freeGetDevice_dev(copy);
    }
    freeGetDevice(snapshot);
    return 0;
}
