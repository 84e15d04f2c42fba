// The event queue seen from outside: order, throttle, and the tick that stands still while an event
// is handled.

#include "support/daemon_on_its_own_bus.h"

using namespace support;

static constexpr uint16_t REPORT = 5001;

class EventOrder : public DaemonOnItsOwnBus {
protected:
    void SetUp() override
    {
        DaemonOnItsOwnBus::SetUp();
        for (int uid = 1; uid <= 20; ++uid)
            sdk.set(device(uid, 0, SWITCH, uid));
    }
    std::vector<int64_t> announcedDevices() const
    {
        std::vector<int64_t> uids;
        for (const Json &record : recent())
            uids.push_back(record["uid"].integer());
        return uids;
    }
};

TEST_F(EventOrder, EventsAreHandledInTheOrderOfTheirArrival)
{
    start();
    std::vector<int64_t> sent;
    for (int i = 0; i < 60; ++i) {
        const auto uid = static_cast<uint16_t>(1 + i * 7 % 20);
        sent.push_back(uid);
        event(REPORT, uid, 0);
        if (i % 15 == 14) {  // never more than the queue holds
            ASSERT_TRUE(eventually([&] { return recent().size() == sent.size(); }));
        }
    }
    EXPECT_EQ(announcedDevices(), sent);
    for (size_t i = 0; i < sent.size(); ++i)
        EXPECT_EQ(recent().at(i)["sequence"].integer(), static_cast<int64_t>(i + 1));
}

TEST_F(EventOrder, SignalsAndMethodCallsShareOneQueue)
{
    start();
    for (int i = 0; i < 10; i += 2) {
        event(REPORT, static_cast<uint16_t>(1 + i), 0);
        eventMethod(REPORT, static_cast<uint16_t>(2 + i), 0);
    }
    ASSERT_TRUE(eventually([&] { return recent().size() == 10; }));
    EXPECT_EQ(announcedDevices(), (std::vector<int64_t>{1, 2, 3, 4, 5, 6, 7, 8, 9, 10}));
}

TEST_F(EventOrder, EventsWaitForTheOneBeforeThem)
{
    start();
    sdk.behave("getdevice", 1, Answer::asUsual().after(700ms));
    for (uint16_t uid = 1; uid <= 15; ++uid)
        event(REPORT, uid, 0);
    ASSERT_TRUE(eventually([&] { return recent().size() == 15; }));
    const Moment answered = sdk.calls("getdevice", 1).at(0).answered;
    for (int uid = 2; uid <= 15; ++uid)
        EXPECT_GE(sdk.calls("getdevice", uid).at(0).at, answered) << uid;
    EXPECT_EQ(announcedDevices(),
              (std::vector<int64_t>{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15}));
}

TEST_F(EventOrder, TheListenerIsThrottledByTheEventsButNeverStuck)
{
    start();
    sdk.behave("getdevice", 1, Answer::asUsual().after(1000ms));
    event(REPORT, 1, 0);
    ASSERT_TRUE(eventually([&] { return sdk.asked("getdevice", 1) == 1; }));
    listenerIsIdle();
    EXPECT_EQ(sdk.calls("getdevice", 1).at(0).answered, Moment())
        << "as long as no event comes, it listens";

    event(REPORT, 2, 0);
    const auto reply = client.call(APP, "jsongettitles", {"scenes"});
    ASSERT_TRUE(eventually([&] { return reply->arrived(); }));
    EXPECT_GE(reply->at(), sdk.calls("getdevice", 1).at(0).answered)
        << "the second event waits for the first, and what comes after it waits too";
    ASSERT_TRUE(eventually([&] { return announced(REPORT, 2) == 1; }));
}

TEST_F(EventOrder, AFloodIsHandledInOrderAndTheListenerStaysAlive)
{
    start();
    for (int i = 0; i < 300; ++i)
        event(REPORT, static_cast<uint16_t>(1 + i % 20), 0);
    listenerIsIdle();
    ASSERT_TRUE(eventually([&] {
        event(REPORT, 99, 0);  // again and again: a full queue drops it
        return announced(REPORT, 99) > 0;
    }));
    const std::vector<Json> records = recent();
    for (size_t i = 1; i < records.size(); ++i)
        EXPECT_EQ(records[i]["sequence"].integer(), records[i - 1]["sequence"].integer() + 1);
    EXPECT_GE(records.size(), 20u);
}

TEST_F(EventOrder, NoSceneCommandLeavesWhileAnEventIsHandled)
{
    startWith(R"({"scenes":[{"title":"S","comps":[{"target":{"dev":19,"if":0,"ch":0},"value":1},
        {"target":{"dev":20,"if":0,"ch":0},"value":1}]}]})");
    gatewayReady();
    sdk.behave("getdevice", 1, Answer::asUsual().after(1500ms));
    event(REPORT, 1, 0);
    ASSERT_TRUE(
        eventually([&] { return sdk.asked("getdevice", 1) == 2; }));  // and once when it was ready
    EXPECT_EQ(callForText("doscene", "S"), "S");
    ASSERT_TRUE(eventually([&] { return sdk.commands().size() == 2; }));
    const Moment answered = sdk.calls("getdevice", 1).at(1).answered;
    ASSERT_NE(answered, Moment());
    for (const Heard &command : sdk.commands())
        EXPECT_GE(command.at, answered) << command.text;
}

TEST_F(EventOrder, TheTickGoesOnAfterEveryEvent)
{
    startWith(
        R"({"scenes":[{"title":"S","comps":[{"target":{"dev":20,"if":0,"ch":0},"value":1}]}]})");
    for (int i = 0; i < 5; ++i) {
        eventHandled(REPORT, 1, 0);
        sdk.forgetHeard();
        callForText("doscene", "S");
        ASSERT_TRUE(eventually([&] { return sdk.heard(switchCommand(20, 0, 1)); })) << i;
    }
}
