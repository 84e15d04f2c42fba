// The device's logging library: its one call.
//
// The library in this folder is a stand-in for development. On a device the platform's own
// libovrinlog takes its place at load time, so nothing of it may be inlined into its callers.

#pragma once

#ifdef __cplusplus
extern "C" {
#endif

// Writes one log line. `level` runs from 2 (trace) to 6 (error), `tag` names the module. `format`
// is as for printf; its text may or may not end with a newline. Any thread may call it.
int ovrin_log_write(int level, const char *function, int line, const char *tag, const char *format,
                    ...) __attribute__((format(printf, 5, 6)));

#ifdef __cplusplus
}
#endif
