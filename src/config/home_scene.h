// A running alarm: what triggered it, and with which settings. Nothing here locks; the caller holds
// defaulSceneList_mutex.

#pragma once

#include "config/alarm.h"
#include "config/device.h"

enum AlarmPhase : int { ENTRY_DELAY, SOUNDING, CANCELLED };

struct HomeSceneData {
    Alarm alarmSetting;
    AlarmPhase phase;
    Integer dev;  // the reporting device and channel: the target of the push text (dev, if 0, ch)
    Integer ch;
    bool withoutRecord;       // of what the sirens showed before, for want of memory
    GetDev_channel *channel;  // owned copies of the device and channel that triggered
    GetDev_dev *device;
    ListNode node;
};

extern ListNode defaulSceneListHead LOCKING(guarded_by(defaulSceneList_mutex));

HomeSceneData *callocHomeSceneData();
// Unlinks the record and frees it with its copies.
void freehomeSceneData(HomeSceneData *data);
