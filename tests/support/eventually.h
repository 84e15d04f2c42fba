// Waiting for an outcome instead of for a time.
//
// Everything in the test program that learns something (a fake that hears a message, the reader of
// the daemon's log) calls somethingChanged(); eventually() looks at its condition again each time.

#pragma once

#include <chrono>
#include <cstddef>
#include <functional>

namespace support {

using Clock = std::chrono::steady_clock;
using Moment = Clock::time_point;
using Milliseconds = std::chrono::milliseconds;
using namespace std::chrono_literals;

#ifdef UNDER_SANITIZER
inline constexpr bool SANITIZED = true;
#else
inline constexpr bool SANITIZED = false;
#endif

// Whether the device's own program is tested, run by an emulator: this one, or the daemon, as
// APP_TEST_EMULATED says then.
bool emulated();

// A sanitizer and an emulator make the daemon several times slower: an upper bound on its speed, or
// on the memory around it, says nothing then, and whoever waits for it waits longer.
inline const bool SPEED_COUNTS = !SANITIZED && !emulated();

// Long rows of like cases are gone through one by one, and in steps where each takes several times
// as long.
inline constexpr size_t CASE_STEP = SANITIZED ? 13 : 1;

// A time-out that the build and the environment variable APP_TEST_PATIENCE (a factor) stretch.
Milliseconds patience(Milliseconds limit);

void somethingChanged();

// True as soon as the condition holds, false when it did not within the (stretched) limit. The
// condition may take locks of its own; none is held around it.
bool eventually(const std::function<bool()> &condition, Milliseconds limit = 8s);

inline int64_t millisecondsBetween(Moment earlier, Moment later)
{
    return std::chrono::duration_cast<Milliseconds>(later - earlier).count();
}

}  // namespace support
