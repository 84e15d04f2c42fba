// Words, durations and clocks as people write and read them.

#pragma once

#include <chrono>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

using Words = std::vector<std::string>;
using Millis = std::chrono::milliseconds;
using WallClock = std::chrono::system_clock;
using SteadyClock = std::chrono::steady_clock;

// What a person asked for cannot be done; the text tells that person why.
struct UserError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Double quotes hold a name of several words together, single quotes a text with double quotes in
// it; an unquoted # starts a comment.
Words splitWords(std::string_view line);
std::string joinWords(const Words &words, size_t from = 0);  // puts the quotes back where needed

std::string lowered(std::string_view text);
bool sameText(std::string_view left, std::string_view right);  // upper and lower case are the same

std::optional<long long> toInteger(std::string_view text);
std::optional<double> toNumber(std::string_view text);
std::optional<Millis>
toDuration(std::string_view text);  // "3s", "200ms", "1.5s"; a bare number is seconds

std::string clockText(WallClock::time_point when);  // 14:03:07.120, local time
std::string dateText(WallClock::time_point when);   // 2024-05-17 14:03:07, local time
