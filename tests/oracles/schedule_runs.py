#!/usr/bin/env python3
"""When schedules start and end, from the calendar: a second way to the same answer.

The daemon looks at each minute and asks what its clock shows. Here each day of the calendar is
asked which moments of the world show the schedule's time in that zone: none when the clock was set
forward over it, two when it was set back.

Usage: schedule_runs.py ZONE FIRST LAST SAVING SCHEDULE...

FIRST and LAST are Unix times. SAVING is the gateway's own daylight saving, "-" or
month/day/hour-month/day/hour: within it a schedule sees the clock's hour plus one, and the date as
it is. A SCHEDULE is weekdays/hour:minute-hour:minute, bit 0 of the weekdays being Sunday.

Prints "MINUTE SCHEDULE start" and "MINUTE SCHEDULE end" in their order: Unix minutes, the schedule
by its place among the arguments, 0 first. An end that finds no start still open is none.
"""

import datetime
import re
import sys
import zoneinfo

UTC = datetime.timezone.utc


def numbers(text):
    return [int(number) for number in re.findall(r"\d+", text)]


class Saving:
    def __init__(self, text):
        self.period = None
        if text != "-":
            parts = numbers(text)
            self.period = (tuple(parts[:3]), tuple(parts[3:]))

    def hour(self, date, clock_hour):
        if self.period and self.period[0] <= (date.month, date.day, clock_hour) <= self.period[1]:
            return (clock_hour + 1) % 24
        return clock_hour


def moments(zone, date, hour, minute):
    """The Unix minutes at which the zone's clock shows that time on that day."""
    shown = datetime.datetime.combine(date, datetime.time(hour, minute))
    result = set()
    for fold in (0, 1):
        moment = shown.replace(tzinfo=zone, fold=fold).astimezone(UTC)
        if moment.astimezone(zone).replace(tzinfo=None, fold=0) == shown:
            result.add(int(moment.timestamp()) // 60)
    return result


def occurrences(zone, saving, date, weekdays, hour, minute):
    sunday_first = (date.weekday() + 1) % 7
    if not weekdays >> sunday_first & 1:
        return set()
    result = set()
    for clock_hour in range(24):
        if saving.hour(date, clock_hour) == hour:
            result |= moments(zone, date, clock_hour, minute)
    return result


def main():
    zone = zoneinfo.ZoneInfo(sys.argv[1])
    first, last = int(sys.argv[2]), int(sys.argv[3])
    saving = Saving(sys.argv[4])
    schedules = [numbers(text) for text in sys.argv[5:]]

    START, END = 0, 1
    runs = []
    date = datetime.datetime.fromtimestamp(first, UTC).date() - datetime.timedelta(days=2)
    until = datetime.datetime.fromtimestamp(last, UTC).date() + datetime.timedelta(days=2)
    while date <= until:
        for index, (weekdays, start_hour, start_minute, end_hour, end_minute) in enumerate(schedules):
            for moment in occurrences(zone, saving, date, weekdays, start_hour, start_minute):
                runs.append((moment, START, index))
            if (start_hour, start_minute) == (end_hour, end_minute):
                continue
            for moment in occurrences(zone, saving, date, weekdays, end_hour, end_minute):
                runs.append((moment, END, index))
        date += datetime.timedelta(days=1)

    started = [0] * len(schedules)
    for moment, kind, index in sorted(runs):
        if not first <= moment * 60 <= last:
            continue
        if kind == START:
            started[index] += 1
        elif started[index]:
            started[index] -= 1
        else:
            continue
        print(moment, index, ("start", "end")[kind])


if __name__ == "__main__":
    main()
