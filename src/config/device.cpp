#include "config/device.h"

#include <cstdlib>

unsigned char comp_value_uid[COLOR_COMPONENTS];
unsigned char comp_value_color_val[COLOR_COMPONENTS];

GetDev *callocGetDev()
{
    auto *getDev = callocRecord<GetDev>();
    if (getDev)
        listInit(&getDev->devices);
    return getDev;
}

GetDev_dev *callocGetDev_dev()
{
    auto *device = callocRecord<GetDev_dev>();
    if (device) {
        listInit(&device->channels);
        listInit(&device->node);
    }
    return device;
}

GetDev_channel *callocGetDev_channel()
{
    auto *channel = callocRecord<GetDev_channel>();
    if (channel)
        listInit(&channel->node);
    return channel;
}

GetDev_channel_meter *callocGetDev_channel_meter()
{
    return callocRecord<GetDev_channel_meter>();
}

GetDev_channel_switch_color *callocGetDev_channel_switch_color()
{
    return callocRecord<GetDev_channel_switch_color>();
}

GetDev_channel_switch_color_id *callocGetDev_channel_switch_color_id()
{
    return callocRecord<GetDev_channel_switch_color_id>();
}

GetDev_channel_meter *copyGetDev_dev_channel_meter(const GetDev_channel_meter *meter)
{
    if (!meter) {
        LOG(ERROR, "4. channel is NULL\n");
        return nullptr;
    }
    GetDev_channel_meter *copy = callocGetDev_channel_meter();
    if (copy)
        *copy = *meter;
    return copy;
}

GetDev_channel_switch_color *
copyGetDev_dev_channel_switch_color(const GetDev_channel_switch_color *color)
{
    GetDev_channel_switch_color *copy = color ? callocGetDev_channel_switch_color() : nullptr;
    if (copy)
        *copy = *color;
    return copy;
}

GetDev_channel *copyGetDev_dev_channel(const GetDev_channel *channel)
{
    if (!channel) {
        LOG(ERROR, "5. channel is NULL\n");
        return nullptr;
    }
    GetDev_channel *copy = callocGetDev_channel();
    if (!copy)
        return nullptr;
    copy->basicvalue = channel->basicvalue;
    copy->Dim_ON_Value = channel->Dim_ON_Value;
    copy->chid = channel->chid;
    copy->ctrltype = channel->ctrltype;
    copy->functype = channel->functype;
    copy->sensorstate = channel->sensorstate;
    copy->sensorunit = channel->sensorunit;
    copy->sensorvalue = channel->sensorvalue;
    if (channel->meter) {
        copy->meter = copyGetDev_dev_channel_meter(channel->meter);
        if (!copy->meter) {
            freeGetDevice_dev_channel(copy);
            return nullptr;
        }
    }
    strcpy(copy->lastbeattime, channel->lastbeattime);
    strcpy(copy->name, channel->name);
    return copy;
}

GetDev_dev *copyGetDev_dev(const GetDev_dev *device)
{
    GetDev_dev *copy = device ? callocGetDev_dev() : nullptr;
    if (!copy)
        return nullptr;
    copy->uid = device->uid;
    copy->battery = device->battery;
    strcpy(copy->code, device->code);
    strcpy(copy->lasttampertime, device->lasttampertime);
    for (const GetDev_channel &channel : ELEMENTS(GetDev_channel, node, &device->channels)) {
        GetDev_channel *channelCopy = copyGetDev_dev_channel(&channel);
        if (!channelCopy) {
            freeGetDevice_dev(copy);
            return nullptr;
        }
        listAddTail(&channelCopy->node, &copy->channels);
    }
    return copy;
}

GetDev_dev *searchDeviceFromGetDev(const GetDev *getDev, Integer id)
{
    if (!getDev) {
        LOG(ERROR, "searchDeviceFromGetDev(), getDev == NULL\n");
        return nullptr;
    }
    for (GetDev_dev &device : ELEMENTS(GetDev_dev, node, &getDev->devices)) {
        if (device.uid == id) {
            LOG(DEBUG, "found gid %lld\n", id);
            return &device;
        }
    }
    LOG(DEBUG, "not found gid %lld\n", id);
    return nullptr;
}

GetDev_channel *searchChannelFromGetDev(const GetDev_dev *device, Integer chid)
{
    if (!device) {
        LOG(ERROR, "device is NULL\n");
        return nullptr;
    }
    for (GetDev_channel &channel : ELEMENTS(GetDev_channel, node, &device->channels)) {
        if (channel.chid == chid) {
            LOG(DEBUG, "found chID %lld\n", chid);
            return &channel;
        }
    }
    LOG(DEBUG, "not found chID %lld\n", chid);
    return nullptr;
}

void freeGetDevice_dev_channel(GetDev_channel *channel)
{
    if (!channel) {
        LOG(ERROR, "getDev_dev_ch is NULL\n");
        return;
    }
    listDel(&channel->node);
    free(channel->meter);
    free(channel->switch_color);
    freeMem(channel);
}

void freeGetDevice_dev(GetDev_dev *device)
{
    if (!device) {
        LOG(ERROR, "getDev_dev is NULL\n");
        return;
    }
    listDel(&device->node);
    for (GetDev_channel &channel : ELEMENTS(GetDev_channel, node, &device->channels))
        freeGetDevice_dev_channel(&channel);
    freeMem(device);
}

GetDev_channel *channelOf(const GetDev *getDev, const TargetId &target)
{
    const GetDev_dev *device = getDev ? searchDeviceFromGetDev(getDev, target.dev) : nullptr;
    return device ? searchChannelFromGetDev(device, target.ch) : nullptr;
}

void freeGetDevice(GetDev *getDev)
{
    if (!getDev) {
        LOG(ERROR, "getDev is NULL\n");
        return;
    }
    for (GetDev_dev &device : ELEMENTS(GetDev_dev, node, &getDev->devices))
        freeGetDevice_dev(&device);
    freeMem(getDev);
}
