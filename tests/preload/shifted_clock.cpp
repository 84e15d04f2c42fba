// Preloaded into a program: its wall clock is off by what a test says, while it runs. Everything
// that measures time, the monotonic clock and the waits that use it, stays as it is.
//
// APP_TEST_CLOCK names a file that holds the difference: nanoseconds, eight bytes in the machine's
// order. It is mapped, so that a test that maps it too moves the clock by writing a number.

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

static constexpr int64_t SECOND = 1'000'000'000;

static const int64_t *mapDifference()
{
    static constexpr int64_t NONE = 0;
    const char *path = getenv("APP_TEST_CLOCK");
    const int file = path ? open(path, O_RDONLY | O_CLOEXEC) : -1;
    if (file < 0)
        return &NONE;
    void *mapped = mmap(nullptr, sizeof(int64_t), PROT_READ, MAP_SHARED, file, 0);
    close(file);
    return mapped == MAP_FAILED ? &NONE : static_cast<const int64_t *>(mapped);
}

// Past the C library: what it offers under these names is what is replaced here.
static int readClock(clockid_t clock, timespec *result)
{
    return static_cast<int>(syscall(SYS_clock_gettime, clock, result));
}

static timespec shiftedNow()
{
    // Threads that come here at once map it each for itself, and one mapping stays.
    static const int64_t *mapped;
    const int64_t *difference = __atomic_load_n(&mapped, __ATOMIC_ACQUIRE);
    if (!difference) {
        const int saved = errno;
        difference = mapDifference();
        __atomic_store_n(&mapped, difference, __ATOMIC_RELEASE);
        errno = saved;
    }
    timespec now;
    readClock(CLOCK_REALTIME, &now);
    const int64_t shifted =
        now.tv_sec * SECOND + now.tv_nsec + __atomic_load_n(difference, __ATOMIC_RELAXED);
    return {.tv_sec = shifted / SECOND, .tv_nsec = shifted % SECOND};
}

extern "C" {

int clock_gettime(clockid_t clock, timespec *result) noexcept
{
    // An emulator asks in the name of its program, whose C library reads the coarse one.
    if (clock != CLOCK_REALTIME && clock != CLOCK_REALTIME_COARSE)
        return readClock(clock, result);
    *result = shiftedNow();
    return 0;
}

int gettimeofday(timeval *__restrict result, void *__restrict) noexcept
{
    const timespec now = shiftedNow();
    result->tv_sec = now.tv_sec;
    result->tv_usec = now.tv_nsec / 1000;
    return 0;
}

time_t time(time_t *result) noexcept
{
    const time_t now = shiftedNow().tv_sec;
    if (result)
        *result = now;
    return now;
}

}  // extern "C"
