#include "config/snapshot.h"

#include "config/json_fields.h"
#include "main/json_text.h"
#include "main/scope.h"
#include "scene/sdk_command.h"

GetDev *allDevs;

static constexpr JsonField<GetDev_dev> DEVICE_FIELDS[] = {
    {"uid", &GetDev_dev::uid},
    {"battery", &GetDev_dev::battery},
};

static constexpr JsonField<GetDev_channel> CHANNEL_FIELDS[] = {
    {"basicvalue", &GetDev_channel::basicvalue},
    {"Dim_ON_Value", &GetDev_channel::Dim_ON_Value},
    {"mainscene", &GetDev_channel::mainscene},
    {"tampernotify", &GetDev_channel::tampernotify},
    {"lowbattnotify", &GetDev_channel::lowbattnotify},
    {"chid", &GetDev_channel::chid},
    {"ctrltype", &GetDev_channel::ctrltype},
    {"functype", &GetDev_channel::functype},
    {"security", &GetDev_channel::security},
    {"sensorstate", &GetDev_channel::sensorstate},
    {"sensorunit", &GetDev_channel::sensorunit},
    {"sensorvalue", &GetDev_channel::sensorvalue},
};

static constexpr JsonField<GetDev_channel_meter> METER_FIELDS[] = {
    {"watt", &GetDev_channel_meter::watt},       {"current", &GetDev_channel_meter::current},
    {"kwh", &GetDev_channel_meter::kwh},         {"pf", &GetDev_channel_meter::pf},
    {"voltage", &GetDev_channel_meter::voltage},
};

static constexpr JsonField<GetDev_channel_switch_color> COLOR_FIELDS[] = {
    {"comp_mask1", &GetDev_channel_switch_color::comp_mask1},
    {"comp_mask2", &GetDev_channel_switch_color::comp_mask2},
};

GetDev_channel_meter *setGetDevice_device_channel_meter(json_t *object)
{
    GetDev_channel_meter *meter = callocGetDev_channel_meter();
    if (meter)
        readFields(object, *meter, METER_FIELDS);
    return meter;
}

static unsigned char byteMember(const json_t *object, const char *key)
{
    return static_cast<unsigned char>(json_integer_value(json_object_get(object, key)));
}

GetDev_channel_switch_color *setGetDevice_device_channel_switch_color(json_t *object)
{
    GetDev_channel_switch_color *color = callocGetDev_channel_switch_color();
    if (!color)
        return nullptr;
    readFields(object, *color, COLOR_FIELDS);
    const json_t *components = json_object_get(object, "comp_value");
    const MutexLock lock(color_mutex);
    for (size_t i = 0; i < COLOR_COMPONENTS; ++i) {
        const json_t *component = json_array_get(components, i);
        comp_value_uid[i] = byteMember(component, "comp_id");
        comp_value_color_val[i] = byteMember(component, "value");
    }
    return color;
}

// A text that is copied whole; another kind of value is logged. In the name of the level it is on.
static void setWholeText(const json_t *object, const char *key, Text &field, const char *level,
                         const char *notAString)
{
    const char *text = memberText(object, key);
    if (text)
        copyBounded(field, sizeof field, text, level);
    else
        LOG_AS(level, ERROR, "%s", notAString);
}

static bool setChannel(json_t *object, GetDev_channel &channel, const char *level)
{
    setWholeText(object, "lastbeattime", channel.lastbeattime, level,
                 "lastbeattime is not a string\n");
    const char *name = memberText(object, "name");
    if (name)
        copyNameBeforeParen(channel.name, name);
    readFields(object, channel, CHANNEL_FIELDS);
    json_t *meter = json_object_get(object, "meter");
    if (json_is_object(meter))
        channel.meter = setGetDevice_device_channel_meter(meter);
    json_t *color = json_object_get(object, "switch_color");
    if (json_is_object(color))
        channel.switch_color = setGetDevice_device_channel_switch_color(color);
    return (channel.meter || !json_is_object(meter)) &&
           (channel.switch_color || !json_is_object(color));
}

bool setGetDevice_device_channel(json_t *array, ListNode *head)
{
    // Deliberate: the text says "string" though an object is wanted.
    for (json_t *object : OBJECTS(array, "data %d is not a string\n")) {
        GetDev_channel *channel = callocGetDev_channel();
        if (!channel)
            return false;
        listAddTail(&channel->node, head);
        if (!setChannel(object, *channel, __func__))
            return false;
    }
    return true;
}

static bool setDevice(json_t *object, GetDev_dev &device, const char *level)
{
    setWholeText(object, "lasttampertime", device.lasttampertime, level,
                 "lasttampertime is not a string\n");
    setWholeText(object, "code", device.code, level, "code is not a string\n");
    readFields(object, device, DEVICE_FIELDS);
    json_t *channels = json_object_get(object, "channel");
    if (json_is_array(channels))
        return setGetDevice_device_channel(channels, &device.channels);
    LOG_AS(level, ERROR, "channel does not exist\n");
    return true;
}

bool setGetDevice_device(json_t *array, ListNode *head)
{
    for (json_t *object : OBJECTS(array, "data %d is not a string\n")) {
        GetDev_dev *device = callocGetDev_dev();
        if (!device)
            return false;
        listAddTail(&device->node, head);
        if (!setDevice(object, *device, __func__))
            return false;
    }
    return true;
}

GetDev *setGetDevice(const char *text)
{
    if (!text) {
        LOG(ERROR, "jsonStr is NULL\n");
        return nullptr;
    }
    const Owned<json_t> root(loadJsonOrLog(text));
    if (!root)
        return nullptr;
    if (!json_is_object(root.get())) {
        LOG(ERROR, "error: root is not an object\n");
        return nullptr;
    }
    GetDev *getDev = callocGetDev();
    if (!getDev)
        return nullptr;
    json_t *devices = json_object_get(root.get(), "device");
    if (!json_is_array(devices)) {
        LOG(ERROR, "device does not exist\n");
        return getDev;
    }
    if (setGetDevice_device(devices, &getDev->devices))
        return getDev;
    freeGetDevice(getDev);  // half a snapshot would pass for a whole one
    return nullptr;
}

void updateAllDev(apr_pool_t *pool)
{
    const char *reply = sendOvrinSdkCmd(pool, "getdevice", UID_SDK_DAEMON);
    const MutexLock lock(allDevs_mutex);
    if (allDevs)
        freeGetDevice(allDevs);
    allDevs = nullptr;
    allDevs = setGetDevice(reply);
}

bool snapshotHasDevices()
{
    const MutexLock lock(allDevs_mutex);
    return allDevs && !listEmpty(&allDevs->devices);
}

json_t *meterToJson(const GetDev_channel_meter *meter)
{
    if (!meter)
        return nullptr;
    json_t *object = json_object();
    writeFields(object, *meter, METER_FIELDS);
    return object;
}

json_t *switchcolorToJson(const GetDev_channel_switch_color *color)
{
    if (!color)
        return nullptr;
    json_t *object = json_object();
    writeFields(object, *color, COLOR_FIELDS);
    json_t *components = json_array();
    const MutexLock lock(color_mutex);
    for (int i = 0; i < COLOR_COMPONENTS; ++i) {
        json_t *component = json_object();
        json_object_set_new(component, "comp_id", json_integer(comp_value_uid[i]));
        json_object_set_new(component, "value", json_integer(comp_value_color_val[i]));
        json_array_append_new(components, component);
    }
    json_object_set_new(object, "comp_value", components);
    return object;
}
