// What the daemon sends on its own initiative. Any thread may call these; each call has its own
// time-out.

#pragma once

#include <apr_pools.h>

// The value of an nvram key, in the pool; null when no answer came within 1000 ms,
// "(null)" when the answer was empty.
char *app_dbus_get_nvram(apr_pool_t *pool, const char *key);

// Hands a JSON command to the SDK daemon: its reply, in the pool; null when none came within 2000
// ms.
char *app_dbus_send_json_cmd(apr_pool_t *pool, const char *text);

// The signals. Each returns 0, or -1 on failure.
int dbus_signal_json_kick_dog(apr_pool_t *pool, int kickFlag);
int dbus_signal_json_command(apr_pool_t *pool, const char *text);
int dbus_signal_event(const char *text, const char *signalName);
