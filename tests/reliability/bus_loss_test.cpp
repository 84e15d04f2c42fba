// The bus is late, or goes away: the daemon says so in one line and ends, so that whoever
// supervises it starts it again.

#include "support/daemon_on_its_own_bus.h"
#include "support/scale.h"

#include <sstream>

using namespace support;

static constexpr uint16_t REPORT = 5001;

class BusLoss : public DaemonOnItsOwnBus {
protected:
    static constexpr Milliseconds SOON = 1s;

    static std::string setup()
    {
        return R"({"scenes":[{"title":"Light","comps":[{"value":255,"target":{"dev":20}}]}],)"
               R"("macros":[{"title":"M","enabled":1,"scene":"Light","duration":1,)"
               R"("triggers":[{"op":"!=","threshold":7,"target":{"dev":5}}]}]})";
    }
    void startTheBusAgain()
    {
        client.leave();
        sdk.leave();
        platform.leave();
        SetUp();
        endsOrderly = true;
    }
    void expectOneLineAndEnd(const char *line, Moment since)
    {
        daemon.expectEnd(1);
        endsOrderly = false;
        const int64_t took = millisecondsBetween(since, Clock::now());
        longest = std::max(longest, took);
        if (SPEED_COUNTS) {
            EXPECT_LE(took, SOON.count());
        }
        EXPECT_EQ(daemon.timesLogged(line), 1u);
        EXPECT_EQ(linesBeginningWith("6 endWithoutBus:"), 1u) << daemon.logTail();
        EXPECT_EQ(linesBeginningWith("6 endWithoutBus:", line), 1u) << daemon.logTail();
    }
    size_t linesBeginningWith(const std::string &begin, const std::string &text = "") const
    {
        std::istringstream log(daemon.log());
        size_t count = 0;
        for (std::string logged; std::getline(log, logged);) {
            if (logged.starts_with(begin) && logged.find(text) != std::string::npos)
                ++count;
        }
        return count;
    }

    int64_t longest = 0;
};

TEST_F(BusLoss, UnderLoadEndsTheDaemonWithinASecond)
{
    const int rounds = inFull(100, 3);
    sdk.set({.uid = 5, .channels = {{.chid = 0, .functype = SWITCH}}});
    sdk.set({.uid = 20, .channels = {{.chid = 0, .functype = SWITCH}}});
    for (int round = 0; round < rounds && !HasFailure(); ++round) {
        if (round > 0)
            startTheBusAgain();
        startWith(setup());
        gatewayReady();
        // Handled or not: the bus goes in the middle of it.
        for (int i = 0; i < 10 + round % 10; ++i)
            event(REPORT, 5, 0);
        client.call(APP, "jsonsetall", {R"({"scenes":[{"title":"Another"}]})"});
        if (round % 2 == 0)
            sdk.behave("getdevice", 5, Answer::silence());
        const Moment gone = Clock::now();
        bus.stop();
        expectOneLineAndEnd("The bus connection is lost", gone);
    }
    figure("longest_ms", longest, "ms");
}

TEST_F(BusLoss, AtTheStartEndsTheDaemonWithinASecond)
{
    const int rounds = inFull(100, 5);
    for (int round = 0; round < rounds && !HasFailure(); ++round) {
        daemon.writeSetup(setup());
        const Moment begin = Clock::now();
        daemon.start("unix:path=" + daemon.data.file("no-bus-here").string());
        expectOneLineAndEnd("There is no bus to serve", begin);
    }
    figure("longest_ms", longest, "ms");
}

TEST_F(BusLoss, AtTheStartIsMadeGoodByTheNextStartWhenTheBusHasCome)
{
    bus.stop();
    daemon.writeSetup(setup());
    const Moment begin = Clock::now();
    launch();
    expectOneLineAndEnd("There is no bus to serve", begin);
    startTheBusAgain();
    sdk.set(device(20, 0, SWITCH));
    start();
    gatewayReady();
    EXPECT_EQ(callForText("jsongettitles", "scenes"), R"(["Light"])");
    callForText("doscene", "Light");
    EXPECT_TRUE(eventually([&] { return sdk.heard(switchCommand(20, 0, 255)); }));
}
