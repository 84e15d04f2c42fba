#!/usr/bin/env python3
"""Sunrise and sunset, computed a second time by another program in another language.

Prints 200 positions, each as a line "position LONGITUDE LATITUDE" that is followed by 366 lines
"NOW SUNRISE SUNSET": Unix times, 0 where the sun neither rises nor sets. Every run prints the same.
"""

import math
import random

DAY = 86400
EPOCH = 946684800  # 2000-01-01 00:00 UTC
WORD = 2**32

PI = 3.1415926
DEGREE = 0.017453292222222222
RADIAN = 57.295780490442965


def sin(degrees):
    return math.sin(degrees * PI / 180)


def cos(degrees):
    return math.cos(degrees * PI / 180)


def unsigned(value):
    return value % WORD


def signed(value):
    value %= WORD
    return value - WORD if value >= WORD // 2 else value


def zone_of(longitude):
    return int((longitude + 7.5) / 15)


def hour_angle_term(days, u):
    """The Greenwich hour angle term, and the declination."""
    t = (days + u / 360) / 36525
    mean_longitude = 280.46 + 36000.77 * t
    g = 357.528 + 35999.05 * t
    ecliptic = mean_longitude + 1.915 * sin(g) + 0.020 * sin(2 * g)
    term = (u - 180 - 1.915 * sin(g) - 0.020 * sin(2 * g)
            + 2.466 * sin(2 * ecliptic) - 0.053 * sin(4 * ecliptic))
    obliquity = 23.4393 - 0.0130 * t
    declination = RADIAN * math.asin(math.sin(DEGREE * obliquity) * math.sin(DEGREE * ecliptic))
    return term, declination


def rises_and_sets(days, u, latitude):
    """The hour angle at which the sun is at the horizon; None where it never is."""
    _, declination = hour_angle_term(days, u)
    argument = ((sin(-0.833) - sin(latitude) * sin(declination))
                / (cos(latitude) * cos(declination)))
    if argument < -1 or argument > 1:
        return None
    return math.acos(argument) * 180 / PI


def step(days, u, longitude, latitude, sign):
    """One estimate after the other; the sign is 1 for sunrise, -1 for sunset."""
    angle = rises_and_sets(days, u, latitude)
    if angle is None:
        return None
    term, _ = hour_angle_term(days, u)
    return u - (term + longitude + sign * angle)


def sun_clock(now, longitude, latitude, sign):
    local = now + zone_of(longitude) * 3600
    days = unsigned(local - EPOCH) // DAY
    angle = step(days, 180, longitude, latitude, sign)
    if angle is not None and not abs(angle - 180) < 0.1:
        angle = step(days, angle, longitude, latitude, sign)
    if angle is None:
        return 0
    hours = angle / 15 + zone_of(longitude)
    minutes = int((hours - int(hours)) * 60)
    seconds = minutes * 60 + (int(hours) - int((longitude + 7.5) / 15)) * 3600
    return signed(days * DAY + EPOCH + seconds)


CHOSEN = [
    # The borders of the zones, and both ends of the world's.
    (0.0, 51.5), (121.5, 31.2), (-7.6, 38.0), (-7.5, 38.0), (-7.4, 38.0), (7.5, 47.0), (7.4999, 47.0),
    (-22.5, 28.0), (-22.6, 28.0), (22.5, 60.2), (180.0, -17.0), (-180.0, -17.0), (172.5, -41.3),
    (-172.5, 64.0), (179.999, 0.0), (-179.999, 0.0), (82.6, 22.5), (-52.7, 47.6),
    # The equator, the tropics, the polar circles and the poles.
    (30.0, 0.0), (30.0, 23.44), (30.0, -23.44), (25.0, 66.56), (25.0, -66.56), (25.0, 65.72),
    (25.0, 67.4), (-25.0, 67.4), (15.6, 78.2), (-68.0, -75.0), (-62.3, 82.5), (10.0, 89.9), (10.0, -89.9),
    (0.0, 90.0), (0.0, -90.0), (139.7, 89.5), (19.0, 69.65), (-156.8, 71.3),
]


def positions():
    chance = random.Random(20000101)
    result = list(CHOSEN)
    while len(result) < 200:
        polar = len(result) % 4 == 0
        latitude = chance.uniform(60, 90) * chance.choice((-1, 1)) if polar else chance.uniform(-60, 60)
        result.append((chance.uniform(-180, 180), latitude))
    return result


def first_moments():
    """Where each position's 366 moments begin: years since the epoch, before it, and up to 2038."""
    years = [EPOCH + round(n * 365.25) * DAY for n in range(0, 37)]
    return [0, EPOCH - 200 * DAY] + years


def main():
    starts = first_moments()
    for index, (longitude, latitude) in enumerate(positions()):
        print(f"position {longitude!r} {latitude!r}")
        for day in range(366):
            # Every time of day comes up, and with it both sides of the zone's midnight.
            now = starts[index % len(starts)] + day * DAY + (index * 366 + day) * 7919 % DAY
            print(now, sun_clock(now, longitude, latitude, 1), sun_clock(now, longitude, latitude, -1))


if __name__ == "__main__":
    main()
