// Devices and their channels as the SDK daemon reports them: the records of a device snapshot.
//
// Nothing here locks. The caller holds allDevs_mutex for what hangs below allDevs; a private
// snapshot is its owner's.

#pragma once

#include "config/record.h"
#include "main/locks.h"

struct GetDev_channel_meter {
    Integer watt;
    Integer current;
    Integer kwh;
    Integer pf;
    Integer voltage;
};

struct GetDev_channel_switch_color {
    Integer comp_mask1;
    Integer comp_mask2;
    Integer comp_value;  // left empty: the components are kept in the two arrays below
};

// One colour component.
struct GetDev_channel_switch_color_id {
    Integer comp_id;
    Integer value;
};

struct GetDev_channel {
    Integer basicvalue;
    Integer Dim_ON_Value;
    Integer mainscene;
    Integer tampernotify;
    Integer lowbattnotify;
    Integer chid;
    Integer ctrltype;
    Integer functype;
    Integer security;
    Integer sensorstate;
    Integer sensorunit;  // 1 Celsius, 2 Fahrenheit
    Integer sensorvalue;
    GetDev_channel_meter *meter;                // owned; null when absent
    GetDev_channel_switch_color *switch_color;  // owned; null when absent
    Text lastbeattime;
    Text name;
    ListNode node;
};

struct GetDev_dev {
    Integer uid;
    Integer battery;
    Text code;  // product code, hexadecimal
    Text lasttampertime;
    ListNode channels;
    ListNode node;
};

struct GetDev {
    ListNode devices;
};

// The colour components of the last channel that was parsed with "switch_color".
static constexpr int COLOR_COMPONENTS = 5;
extern unsigned char comp_value_uid[COLOR_COMPONENTS] LOCKING(guarded_by(color_mutex));
extern unsigned char comp_value_color_val[COLOR_COMPONENTS] LOCKING(guarded_by(color_mutex));

GetDev *callocGetDev();
GetDev_dev *callocGetDev_dev();
GetDev_channel *callocGetDev_channel();
GetDev_channel_meter *callocGetDev_channel_meter();
GetDev_channel_switch_color *callocGetDev_channel_switch_color();
GetDev_channel_switch_color_id *callocGetDev_channel_switch_color_id();

// Deep copies that are in no list; null for null or without memory.
GetDev_dev *copyGetDev_dev(const GetDev_dev *device);
// Without mainscene, tampernotify, lowbattnotify, security and switch_color, which stay 0.
GetDev_channel *copyGetDev_dev_channel(const GetDev_channel *channel);
GetDev_channel_meter *copyGetDev_dev_channel_meter(const GetDev_channel_meter *meter);
GetDev_channel_switch_color *
copyGetDev_dev_channel_switch_color(const GetDev_channel_switch_color *color);

// The device of that id, the channel of that chid, or null.
GetDev_dev *searchDeviceFromGetDev(const GetDev *getDev, Integer id);
GetDev_channel *searchChannelFromGetDev(const GetDev_dev *device, Integer chid);

// The channel of a target in a snapshot, which may be null; null when it is not there.
GetDev_channel *channelOf(const GetDev *getDev, const TargetId &target);

void freeGetDevice(GetDev *getDev);
void freeGetDevice_dev(GetDev_dev *device);
void freeGetDevice_dev_channel(GetDev_channel *channel);
