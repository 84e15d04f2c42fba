// What differs from machine to machine: the device has words of 32 bits, and signals of other
// numbers.

#include "config/scene.h"
#include "config/snapshot.h"
#include "daemon_in_process.h"
#include "main/log.h"
#include "main/signals.h"
#include "scene/runner.h"

#include <gmock/gmock.h>

#include <bit>
#include <csignal>
#include <cstring>
#include <ctime>
#include <map>
#include <set>
#include <sys/types.h>

TEST(Device, HasNumbersOfTheSameSizesAsADesk)
{
    static_assert(sizeof(int) == 4 && sizeof(Integer) == 8);
    static_assert(alignof(Integer) == 8, "as the records' layouts suppose");
    static_assert(sizeof(time_t) == 8, "2038 comes while it runs");
    static_assert(sizeof(off_t) == 8, "a file may be of any size");
    static_assert(sizeof(decltype(timespec::tv_sec)) == 8);
    static_assert(std::endian::native == std::endian::little, "as stored documents begin");
    static_assert(alignof(Comp) == 8 && alignof(GetDev_channel) == 8);
    static_assert(offsetof(Comp, value) % 8 == 0 && sizeof(Comp) % 8 == 0);
    SUCCEED();
}

// Seconds of today times a thousand are more than 32 bits hold.
TEST(Device, HasStampsOfTheMillisecondsOfAMillionSeconds)
{
    const time_t before = time(nullptr);
    const uint32_t stamp = millisecondStamp();
    const time_t after = time(nullptr);
    const auto least = static_cast<uint32_t>(before % 1'000'000 * 1000);
    const auto most = static_cast<uint32_t>(after % 1'000'000 * 1000 + 999);
    EXPECT_LT(stamp, 1'000'000'000u);
    if (least <= most) {  // not just at the wrap
        EXPECT_GE(stamp, least);
        EXPECT_LE(stamp, most);
    }
}

using Handler = void (*)(int);

static Handler handlerOf(int number)
{
    struct sigaction action = {};
    sigaction(number, nullptr, &action);
    return action.sa_handler;
}

// SIGUSR1 is 10 on a desk and 16 there, where 10 is a fault.
TEST(Device, TakesSignalsByTheirNames)
{
    const std::set<int> taken = {SIGUSR1, SIGALRM, SIGSEGV};
    std::map<int, Handler> before;
    for (int number = 1; number < SIGRTMIN; ++number)
        before[number] = handlerOf(number);
    installSignalHandlers();
    for (const auto &[number, handler] : before) {
        const bool isTaken = taken.contains(number);
        EXPECT_EQ(handlerOf(number) != handler, isTaken) << strsignal(number);
        if (isTaken)
            signal(number, handler);
    }
}

// Addresses are logged as 32 bits, which is all there is to one there.
TEST(Device, LogsTheLowWordOfAnAddress)
{
    constexpr auto NUMBER = static_cast<uintptr_t>(0x12345678'9abcdef0);
    EXPECT_EQ(logAddress(reinterpret_cast<const void *>(NUMBER)), 0x9abcdef0u);
}

// What is more than a long holds there is no less.
TEST(Device, ReadsNumbersOfSixtyFourBits)
{
    static constexpr Integer LARGE = 1'234'567'890'123;
    const Value text(
        R"({"title":"A","comps":[{"target":{"dev":1234567890123},"value":-1234567890123}]})");
    Scene *scene = callocScene();
    setScene(text, scene);
    const Comp *comp = FIRST_ELEMENT(Comp, node, &scene->comps);
    ASSERT_NE(comp, nullptr);
    EXPECT_EQ(comp->target.dev, LARGE);
    EXPECT_EQ(comp->value, -LARGE);
    freeScene(scene);
}
