// The one line that a phone shows: what triggered, where, and what the gateway did about it, in
// English or, when nvram's "language" is 2, in Japanese. Every text lives in the caller's pool;
// null also stands for a pool without memory. They lock what they look at, one list at a time.

#pragma once

#include "config/device.h"
#include "config/scene.h"

#include <apr_pools.h>

enum Language : int { ENGLISH, JAPANESE };

// As nvram has it now.
Language pushLanguage(apr_pool_t *pool);

// The whole line; `scene` may be null.
char *getFullPushMsg(apr_pool_t *pool, const TargetId &target, const GetDev_channel *channel,
                     const Scene *scene);

// Its parts, each null when there is nothing to say: what triggered, where it is, what was done.
const char *getTriggerPushMsg(apr_pool_t *pool, Language language, const TargetId &target,
                              const GetDev_channel *channel);
const char *getRoomPushMsg(apr_pool_t *pool, Language language, ListNode *rooms,
                           const TargetId &target);
const char *getTargetPushMsg(apr_pool_t *pool, Language language, const Scene *scene);

// The title of the room of a device's channel, or null. Locks roomsList_mutex.
const char *roomOf(apr_pool_t *pool, ListNode *rooms, Integer dev, Integer ch);

// A fixed line. Nothing in the daemon sends it.
char *getTamperLowbattPushMsg(apr_pool_t *pool, Integer eventCode);
