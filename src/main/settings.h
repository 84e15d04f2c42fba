// The settings globals: set at start from nvram, some of them later by bus methods. Words are
// atomic, for the tick, the event worker and the listener read them while another thread writes.

#pragma once

#include "main/locks.h"

#include <apr_pools.h>
#include <atomic>

extern std::atomic<int> appstart_time_flag;  // the clock has been set since boot
extern std::atomic<int> checkbox;
extern std::atomic<int> timeZone;     // kept for completeness; nothing reads it
extern std::atomic<int> enast;        // sunrise and sunset clock enabled
extern std::atomic<int> enswitchall;  // kept for completeness; nothing reads it
extern std::atomic<int> Check_reply;  // scene runs are announced to device 511
extern std::atomic<int> Enablupdatepush;
extern std::atomic<int> app_quit;  // ends the main loop and the event queue's worker
extern std::atomic<int> mainPid;   // kernel thread id of the main thread

// Position in degrees.
extern double lon LOCKING(guarded_by(settings_mutex));
extern double lat LOCKING(guarded_by(settings_mutex));

// The gateway's identity for pushes.
static constexpr int UUID_SIZE = 32;
extern char tutkUUID[UUID_SIZE] LOCKING(guarded_by(settings_mutex));

// Hardware address of the LAN interface as "XX:XX:XX:XX:XX:XX", or null. Set once, never freed.
extern std::atomic<const char *> lan_mac;

// "doscenemode" as nvram and the bus give it: "1" and "0" switch Check_reply, any other text leaves
// it. Null counts as another text. Logs in the name of `caller`.
void applySceneMode(const char *caller, const char *value);

// Reads every setting from nvram, in the fixed order. A missing answer counts as 0, or as unset.
void readSettings(apr_pool_t *pool);

// Reads lon and lat from nvram. Locks settings_mutex.
void readPosition(apr_pool_t *pool);

// Copies the value into tutkUUID, cut to fit; null only logs.
void getTUTKUUID(const char *value);

// The hardware address of an interface in a new string that the caller owns, or null.
char *hardwareAddress(const char *interfaceName);
