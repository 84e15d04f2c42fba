// The device's logging library: its one call.
//
// The library in this folder is a stand-in for development. On a device the platform's own
// libovrinlog takes its place at load time, so nothing of it may be inlined into its callers.
// Whoever writes that library writes this one function, with C linkage, under the file name that
// the daemon was linked with.

#pragma once

#ifdef __cplusplus
extern "C" {
#endif

// Writes one log line. `level` is 2 (trace), 3 (debug), 4 (information), 5 (a request that nobody
// accepted) or 6 (error); `function` and `line` are where it was called, `tag` names the module.
// `format` is as for printf, and what it is given may be gone when the call has returned; its text
// may or may not end with a newline, and may hold others. Any thread may call it, at any time from
// before main on, several at once, and some with a lock of the daemon held: it should not wait for
// anybody, and must not call the daemon. What it returns is not looked at.
int ovrin_log_write(int level, const char *function, int line, const char *tag, const char *format,
                    ...) __attribute__((format(printf, 5, 6)));

#ifdef __cplusplus
}
#endif
