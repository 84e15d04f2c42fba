// How much of a long test is run, and what it has measured.

#pragma once

#include <cstdint>
#include <string>

namespace support {

// Whether all of it was asked for: APP_TEST_FULL is set, as ./test --full does. Otherwise tests run
// the share of it that every change is held against.
bool inFull();

template <typename Number> Number inFull(Number whole, Number share)
{
    return inFull() ? whole : share;
}

// Notes a figure of the test that runs, as one line "TEST NAME VALUE UNIT" of its output and, when
// APP_TEST_FIGURES names a file, of that.
void figure(const std::string &name, int64_t value, const std::string &unit);

}  // namespace support
