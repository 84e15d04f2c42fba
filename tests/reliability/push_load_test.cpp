// Somebody shakes a sensor while the programs that deliver the pushes hang or crash: what waits for
// them is bounded, one runs at a time, and the rules do not notice.

#include "event_flow.h"
#include "support/push_helpers.h"
#include "support/scale.h"
#include "support/usage.h"

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <thread>

using namespace support;
using testing::Each;

static constexpr uint16_t TAMPER = 4001;
static constexpr uint16_t REPORT = 5001;
static constexpr uint16_t CONTACT = 9;
static constexpr uint16_t BUTTON = 10;
static constexpr const char *UUID = "ABCDEFGHIJKLMNOPQRST";
static constexpr const char *DROPPED = "bytes of pushes wait, new ones are dropped";
static constexpr int64_t MOST_WAITING = 8 * 1024;  // kilobytes
static constexpr int64_t SLOWEST_RULE = 1000;      // ms
static constexpr int64_t MINUTE = 60'000;          // ms
static constexpr Milliseconds LONG = 120s;

class PushLoad : public DaemonOnItsOwnBus {
protected:
    void SetUp() override
    {
        DaemonOnItsOwnBus::SetUp();
        flow.join(busThread, bus.address());
        platform.set("TUTK_UUID", UUID);
        sdk.set({.uid = CONTACT, .channels = {{.functype = DOOR, .tampernotify = 0}}});
        sdk.set(device(BUTTON, 0, SWITCH, 255));
    }
    void TearDown() override
    {
        helpers.release();  // or the daemon's output stays open
        flow.leave();
        DaemonOnItsOwnBus::TearDown();
    }
    void startHome(const std::string &phones)
    {
        std::vector<std::string> settings = helpers.settings();
        settings.push_back("OVRIN_LOG_LEVEL=6");
        startWith(R"({"registeredDevices":[)" + phones +
                      R"(],"scenes":[{"title":"Nothing","comps":[]}],"macros":[{"title":"Rule",)"
                      R"("enabled":1,"duration":0,"scene":"Nothing","triggers":[{"op":"!=",)"
                      R"("threshold":7,"target":{"dev":10}}]}]})",
                  settings);
        gatewayReady();
    }
    static DeviceReport tamper(size_t)
    {
        return {TAMPER, CONTACT};
    }
    // In the full form 10,000 a minute, no more and no less.
    void shake(size_t events)
    {
        static constexpr size_t AT_A_TIME = 100;
        const Moment begin = Clock::now();
        for (size_t sent = 0; sent < events && !HasFailure(); sent += AT_A_TIME) {
            if (inFull())
                std::this_thread::sleep_until(begin + sent * Milliseconds(6));
            flow.pour(std::min(AT_A_TIME, events - sent), tamper);
            expectRuleObeyed();
            sdk.forgetHeard();
        }
        const int64_t took = millisecondsBetween(begin, Clock::now());
        figure("shaken", took, "ms");
        if (inFull() && SPEED_COUNTS) {
            EXPECT_LE(took, MINUTE + 2'000);
        }
    }
    void expectRuleObeyed()
    {
        const Moment begin = Clock::now();
        sdk.forgetHeard();
        flow.pour(1, [](size_t) { return DeviceReport{REPORT, BUTTON}; });
        ASSERT_TRUE(eventually([&] { return !macroEvents().empty(); }));
        slowestRule = std::max(slowestRule, millisecondsBetween(begin, Clock::now()));
    }

    EventFlow flow;
    PushHelpers helpers;
    int64_t slowestRule = 0;
};

TEST_F(PushLoad, OfAHelperThatHangsIsBounded)
{
    const size_t events = inFull<size_t>(10'000, 1'000);
    std::string phones;
    for (size_t i = 0; i < 12; ++i)  // with long tokens: more than may wait
        phones += (i ? "," : "") +
                  (R"({"platform":"ios","app_id":"A","token":")" +
                   std::string(1000, static_cast<char>('a' + i))) +
                  "\"}";
    startHome(phones);
    const int64_t before = privateKilobytesOf(daemon.pid());
    const size_t threads = threadsOf(daemon.pid());
    helpers.hold();
    shake(events);
    const int64_t waiting = privateKilobytesOf(daemon.pid()) - before;
    figure("waiting", waiting, "kB");
    figure("slowest_rule", slowestRule, "ms");
    EXPECT_EQ(helpers.count(), 1u);
    EXPECT_EQ(daemon.timesLogged(DROPPED), 1u);
    if (SPEED_COUNTS) {
        EXPECT_LE(waiting, MOST_WAITING + 1024);
        EXPECT_LE(slowestRule, SLOWEST_RULE);
    }
    helpers.release();
    ASSERT_TRUE(eventually([&] { return helpers.count() >= 100; }, LONG));
    if (inFull()) {
        ASSERT_TRUE(eventually([&] { return threadsOf(daemon.pid()) <= threads; }, 10 * LONG));
        EXPECT_EQ(zombiesOf(daemon.pid()), 0u);
    } else {
        // Without waiting for the thousands that are left: the one in hand may be one for a moment,
        // what was forgotten would stay.
        EXPECT_TRUE(eventually([&] { return zombiesOf(daemon.pid()) == 0; }));
    }
    figure("delivered", static_cast<int64_t>(helpers.count()), "");
    EXPECT_THAT(helpers.runs(), Each(testing::Field(&HelperRun::alone, true)));
}

TEST_F(PushLoad, OfAHelperThatCrashesGoesOn)
{
    const size_t events = inFull<size_t>(10'000, 200);
    startHome(R"({"platform":"android","app_id":"A","token":"crashing"},)"
              R"({"platform":"ios","app_id":"A","token":"T"})");
    helpers.remove("gcm_push");
    helpers.folder.write("gcm_push", "#!/bin/sh\nkill -SEGV $$\n");
    std::filesystem::permissions(helpers.folder.file("gcm_push"), std::filesystem::perms(0700));
    const size_t threads = threadsOf(daemon.pid());
    shake(events);
    ASSERT_TRUE(eventually([&] { return threadsOf(daemon.pid()) <= threads; }, 10 * LONG));
    figure("delivered", static_cast<int64_t>(helpers.count()), "");
    figure("slowest_rule", slowestRule, "ms");
    if (SPEED_COUNTS) {
        EXPECT_LE(slowestRule, SLOWEST_RULE);
    }
    EXPECT_EQ(helpers.count(), events);
    EXPECT_THAT(helpers.runs(), Each(testing::Field(&HelperRun::alone, true)));
    EXPECT_EQ(zombiesOf(daemon.pid()), 0u);
    EXPECT_EQ(daemon.timesLogged(DROPPED), 0u);
}

// A helper may take five minutes, and nothing shortens them.
TEST_F(PushLoad, OfAHelperThatNeverEndsIsKilledAndLogged)
{
    if (!inFull())
        GTEST_SKIP() << "it takes five minutes";
    startHome(R"({"platform":"ios","app_id":"A","token":"T"})");
    helpers.hold();
    flow.pour(2, tamper);
    ASSERT_TRUE(eventually([&] { return helpers.count() == 1; }));
    const Moment begin = Clock::now();
    ASSERT_TRUE(daemon.eventuallyLogged("6 runShell", 0, 400s)) << daemon.log();
    EXPECT_TRUE(daemon.logged("ios_push has not ended and is killed"));
    figure("killed_after", millisecondsBetween(begin, Clock::now()), "ms");
    ASSERT_TRUE(eventually([&] { return helpers.count() == 2; })) << "the next one has its turn";
    EXPECT_LE(zombiesOf(daemon.pid()), 0u);
}
