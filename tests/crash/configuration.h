// Configurations that can be told apart: each carries its number and how long it is in every
// element, so that one that is cut short or mixed from two is recognised.

#pragma once

#include <string>
#include <string_view>

namespace crash {

inline constexpr int NOTHING = 0;  // no configuration, or one without elements
inline constexpr int BROKEN = -1;  // no JSON, or not all of one configuration

// The JSON text of a configuration; an element is about 1,000 bytes.
std::string configuration(int number, int elements);

// Of one of its elements. The same in every configuration of that many elements: setting one over
// the other replaces it.
std::string token(int element, int elements);

// The number of the configuration that a text holds.
int numberOf(std::string_view json);

}  // namespace crash
