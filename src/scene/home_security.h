// Home security: a door or motion sensor sounds every siren after a delay, for a time, and then the
// sirens are put back.
//
// idle → entry delay (a record in the default-scene list, a thread that waits) → sounding →
// restoring → idle. A disarm in the entry delay cancels the alarm; while the sirens sound it
// silences them, and the thread runs on to its end.

#pragma once

#include "config/device.h"
#include "config/scene.h"

#include <apr_pools.h>

// The scene that sounds the sirens, built from the device snapshot when it is first needed, and
// anew after each alarm.
extern Scene *HomeScene LOCKING(guarded_by(defaulSceneList_mutex));

// Looks whether a device event starts an alarm. Locks what it needs, and asks the SDK daemon for
// the sirens' values. The caller holds nothing but tick_mutex.
void homeSceneDetach(apr_pool_t *pool, Integer gid, Integer channelID, const GetDev_dev *device,
                     const GetDev_channel *channel);

// 1 for an open door and for motion.
int isDoorOrPirSensor(const GetDev_dev *device, const GetDev_channel *channel);

// A new scene with a comp for each siren of the snapshot and the built-in siren; null without
// memory. Locks alarm_mutex and allDevs_mutex.
Scene *addAllSirenToHomeScene();

// Sets every comp of the scene to the siren type. The second argument is not used.
void setSirenType(Scene *scene, Integer unused, Integer sirenType);

// Appends a record that restores what the scene's devices show now to the home-scene resume list;
// false when there was no memory for it. Asks the SDK daemon; locks homeSceneResumeList_mutex.
bool prepareHomeSceneResumeData(apr_pool_t *pool, const Scene *scene);

// Puts back what the last alarm changed before the configuration that it belongs to goes. Locks
// what it needs.
void runNewestHomeSceneResume(apr_pool_t *pool);

// Arms (non-zero) or disarms home security and stores the configuration. Locks what it needs.
void setHomeSceneEnable(apr_pool_t *pool, Integer enable);
