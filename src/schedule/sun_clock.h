// Sunrise and sunset by a low-precision solar position: one estimate at noon, refined once.

#pragma once

#include <cstdint>

// The Unix time of today's sunrise (`isSunrise` non-zero) or sunset at a position in degrees, east
// and north positive; today is that of `now` in the zone that the longitude gives. On a whole
// minute. 0 where the sun neither rises nor sets, and for a position that is none.
int32_t astronomical_clock(int32_t now, int isSunrise, double longitude, double latitude);
