// The commands for the SDK daemon: {"control": {"cmd", "uid", "chid", "val"}} and its variants. The
// builders hold no state and check nothing; any thread may call them.

#pragma once

#include "config/record.h"

#include <apr_pools.h>

// Reserved device ids.
static constexpr Integer UID_SDK_DAEMON = 256;
static constexpr Integer UID_GAP_STEP = 505;
static constexpr Integer UID_SUNSET = 508;
static constexpr Integer UID_SUNRISE = 509;
static constexpr Integer UID_SCENE_STATUS = 511;
static constexpr Integer UID_WAIT_STEP = 512;
static constexpr Integer UID_LAST_ZWAVE_DEVICE = 768;  // cameras are above
static constexpr Integer NO_CHANNEL = -1;

// {"cmd", "uid"}, as a call: the SDK daemon's reply, in the pool, or null.
char *sendOvrinSdkCmd(apr_pool_t *pool, const char *command, Integer uid);

// {"cmd": "syssound", "val"}, as a signal. The second argument is not used.
void sendOvrinSdkSysSound(apr_pool_t *pool, Integer unused, Integer value);

// {"cmd", "uid", "chid", "val"}, as a signal; a negative channel is left out.
void sendZwaveCmd(apr_pool_t *pool, const char *command, Integer uid, Integer ch, Integer value);

// {"cmd", "uid", "chid", "temp", "unit": 1}, as a call whose reply is not looked at.
void sendZwaveTempCmd(apr_pool_t *pool, const char *command, Integer uid, Integer ch, Integer temp);
