#include "support/wall_clock.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

namespace support {

static constexpr const char *NAME = "clock";

WallClock::WallClock()
{
    folder.write(NAME, std::string(sizeof *difference, '\0'));
    const int file = open(folder.file(NAME).c_str(), O_RDWR | O_CLOEXEC);
    void *mapped = mmap(nullptr, sizeof *difference, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    close(file);
    if (mapped != MAP_FAILED)
        difference = static_cast<int64_t *>(mapped);
    else
        ADD_FAILURE() << "no clock: " << strerror(errno);
}

WallClock::~WallClock()
{
    if (difference)
        munmap(difference, sizeof *difference);
}

std::vector<std::string> WallClock::settings(const std::string &zone) const
{
    return {
        "LD_PRELOAD=" SHIFTED_CLOCK,
        "APP_TEST_CLOCK=" + folder.file(NAME).string(),
        "TZ=" + zone,
    };
}

void WallClock::set(time_t now)
{
    static constexpr int64_t SECOND = 1'000'000'000;
    timespec real;
    clock_gettime(CLOCK_REALTIME, &real);
    if (difference)
        std::atomic_ref<int64_t>(*difference).store((now - real.tv_sec) * SECOND - real.tv_nsec);
}

void WallClock::set(int year, int month, int day, int hour, int minute, int second)
{
    tm utc = {};
    utc.tm_year = year - 1900;
    utc.tm_mon = month - 1;
    utc.tm_mday = day;
    utc.tm_hour = hour;
    utc.tm_min = minute;
    utc.tm_sec = second;
    set(timegm(&utc));
}

}  // namespace support
