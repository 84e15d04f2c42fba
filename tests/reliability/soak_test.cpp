// A long life in a short time: events without a pause, and meanwhile everything else that a home
// does. Now and then all of it is brought to rest, and the daemon takes as much as at the first
// rest.

#include "event_flow.h"
#include "support/push_helpers.h"
#include "support/scale.h"
#include "support/usage.h"

#include <csignal>

using namespace support;

static constexpr const char *SWITCH_APP = "com.OvrinTech.switch.app";
static constexpr const char *PUSH_MESSAGES = "com.OvrinTech.message.pushMsg";
static constexpr uint16_t REPORT = 5001;
static constexpr uint16_t TAMPER = 4001;
static constexpr uint16_t UNKNOWN = 99;
static constexpr Milliseconds LONG = 60s;

enum HomeDevice : uint16_t {
    DOOR_SENSOR = 5,
    MOTION_SENSOR = 6,
    POWER_METER = 7,
    COLOR_LAMP = 8,
    CONTACT = 9,  // whoever tampers with it is told on
    BUTTON = 10,
    REPEATER = 11,
    LAMP = 20,
    SIREN_DEVICE = 30,
};

static std::string trigger(uint16_t uid)
{
    return R"("enabled":1,"triggers":[{"op":"!=","threshold":7,"target":{"dev":)" +
           std::to_string(uid) + "}}]";
}

static std::string lampScene(const std::string &title, int64_t value)
{
    return R"({"title":")" + title +
           R"(","comps":[{"target":{"dev":505},"value":1},{"target":{"dev":20},"value":)" +
           std::to_string(value) + "}]}";
}

static std::string home()
{
    return R"({"alarm":{"enabled":0,"trigger_duration":1,"duration":1,"siren_type":4},)"
           R"("registeredDevices":[{"token":"T","platform":"ios","app_id":"A"}],)"
           R"("rooms":[{"title":"Hall","targets":[{"dev":9}]}],)"
           R"("schedules":[{"title":"Day","enabled":1,"weekdays":127,"start_hour":0,)"
           R"("start_minute":0,"end_hour":23,"end_minute":59,"macro":"Later"}],)"
           R"("scenes":[)" +
           lampScene("Light", 255) + R"(,{"title":"Nothing","comps":[]}],"macros":[)" +
           R"({"title":"Now","scene":"Nothing","duration":0,)" + trigger(BUTTON) +
           R"(},{"title":"Later","scene":"Light","duration":1,)" + trigger(REPEATER) + "}]}";
}

struct Footprint {
    int64_t heap;      // bytes
    int64_t resident;  // kilobytes
    size_t threads;
    size_t descriptors;
};

class Soak : public ConfigurableDaemon {
protected:
    static constexpr size_t EVENTS_OF_A_ROUND = 500;

    void SetUp() override
    {
        ConfigurableDaemon::SetUp();
        flow.join(busThread, bus.address());
        platform.set("TUTK_UUID", "ABCDEFGHIJKLMNOPQRST");
        sdk.set(device(DOOR_SENSOR, 0, DOOR, 255));
        sdk.set(device(MOTION_SENSOR, 0, MOTION, 255));
        sdk.set(
            {.uid = POWER_METER,
             .channels = {{.functype = METER,
                           .meter = R"({"watt":5,"current":1,"kwh":9,"pf":1,"voltage":230})"}}});
        sdk.set({.uid = COLOR_LAMP,
                 .channels = {{.functype = DIMMER,
                               .switchColor = R"({"comp_mask1":1,"comp_mask2":2,"comp_value":[)"
                                              R"({"comp_id":0,"value":1}]})"}}});
        sdk.set({.uid = CONTACT, .channels = {{.functype = DOOR, .tampernotify = 0}}});
        sdk.set(device(BUTTON, 0, SWITCH, 255));
        sdk.set(device(REPEATER, 0, SWITCH, 255));
        sdk.set(device(LAMP, 0, SWITCH));
        sdk.set(device(SIREN_DEVICE, 0, SIREN));
    }
    void TearDown() override
    {
        flow.leave();
        ConfigurableDaemon::TearDown();
    }
    void startHome()
    {
        std::vector<std::string> settings = helpers.settings();
        settings.insert(settings.begin(), settings.front() + ":/usr/bin:/bin");  // copies are made
        for (const std::string &setting : heap.settings())
            settings.push_back(setting);
        settings.push_back("OVRIN_LOG_LEVEL=6");
        startWith(home(), settings);
        gatewayReady();
    }
    int64_t callNumber(const std::string &interface, const std::string &member,
                       const std::vector<Argument> &arguments)
    {
        const auto reply = client.call(interface, member, arguments);
        EXPECT_TRUE(eventually([&] { return reply->arrived(); }, LONG)) << "no reply to " << member;
        return reply->number();
    }
    void arm(int32_t enable)
    {
        EXPECT_EQ(callNumber(SWITCH_APP, "setHomeScene", {enable}), 1);
    }
    static DeviceReport reportOf(size_t n)
    {
        switch (n) {
        case 50:
            return {TAMPER, CONTACT};
        case 100:
            return {REPORT, MOTION_SENSOR};
        case 150:
        case 160:
        case 350:
            return {REPORT, REPEATER};
        case 200:
        case 400:
            return {REPORT, BUTTON};
        case 300:
            return {1003, LAMP};
        default:
            break;
        }
        static constexpr uint16_t QUIET[] = {POWER_METER, COLOR_LAMP, UNKNOWN, LAMP, DOOR_SENSOR};
        const uint16_t uid = QUIET[n % std::size(QUIET)];
        return {REPORT, uid, 0, n % 3 ? "" : R"({"value":)" + std::to_string(n) + "}"};
    }
    // Everything that clients do, once.
    void useEverything(size_t round)
    {
        EXPECT_EQ(set(R"({"scenes":[)" + lampScene("Extra", 1) +
                      R"(],"macros":[{"title":"Extra","scene":"Extra",)" + trigger(777) +
                      R"(}],"cameras":[{"uid":"extra"}],"targetNames":{"20.0.0":"Extra"},)"
                      R"("eventFilter":[{"uid":777}],"rooms":[{"title":"Extra",)"
                      R"("targets":[{"dev":5},{"dev":6}]}]})"),
                  1);
        EXPECT_EQ(callForNumber("jsonrename", R"(["scenes","Extra","Other"])"), 1);
        callForText("jsongetall", "");
        callForText("jsongeteventbyseq", "0");
        callForText("jsongetmacroeventbyseq", "0");
        EXPECT_EQ(callNumber(SWITCH_APP, "backupConfig", {int32_t{0}}) > 0, true);
        daemon.signal(SIGUSR1);
        if (round % 4 == 0) {
            callForText("doscene", "Light");
            callForText("message", "Dinner is ready", PUSH_MESSAGES);
        }
        if (round % 8 == 0)
            arm(1);
        if (round % 8 == 4)
            arm(0);
        EXPECT_EQ(callForNumber("jsondel",
                                R"({"scenes":[{"title":"Other"}],"macros":[{"title":"Extra"}],)"
                                R"("cameras":[{"uid":"extra"}],"targetNames":{"20.0.0":"Extra"},)"
                                R"("eventFilter":[{"uid":777}],"rooms":[{"title":"Extra"}]})"),
                  1);
    }
    void fillTheMacroJournal()
    {
        static constexpr size_t CAPACITY = 100;
        for (size_t i = 0; i < CAPACITY; ++i) {
            flow.pour(1, [](size_t) { return DeviceReport{REPORT, BUTTON}; });
            ASSERT_TRUE(eventually([&] {
                return sdk.events("MacroEvent").size() > i &&
                       threadsOf(daemon.pid()) == threadsAtRest;
            }));
        }
    }
    void play(size_t rounds)
    {
        for (size_t i = 0; i < rounds && !HasFailure(); ++i)
            playRound(++played);
    }
    void playRound(size_t round)
    {
        flow.begin(EVENTS_OF_A_ROUND, reportOf);
        useEverything(round);
        ASSERT_TRUE(eventually([&] { return flow.over(); }, LONG));
        if (round % 20 == 19)
            restartThePeers();
        sdk.forgetHeard();
        platform.forgetRequests();
    }
    // An event comes while the SDK daemon is away.
    void restartThePeers()
    {
        sdk.leave();
        platform.leave();
        const size_t log = daemon.logSize();
        event(REPORT, LAMP, 0);
        ASSERT_TRUE(daemon.eventuallyLogged("sendOvrinSdkCmd failed", log));
        platform.join(busThread, bus.address());
        sdk.join(busThread, bus.address());
        client.leave();
        client.join(busThread, bus.address());
    }
    // Nothing runs, nothing is planned, and the journals are full of the like.
    void comeToRest()
    {
        arm(0);
        const auto noOtherThread = [&] { return threadsOf(daemon.pid()) == threadsAtRest; };
        ASSERT_TRUE(eventually(noOtherThread, LONG)) << threadsOf(daemon.pid());
        sdk.forgetHeard();
        callForText("doscene", "Light");  // planned behind all that the threads have planned
        ASSERT_TRUE(tickUntil([&] { return sdk.heard(switchCommand(LAMP, 0, 255)); }, LONG));
        emptyMessageCache(client);
        flow.pour(210, [](size_t n) { return DeviceReport{REPORT, n ? LAMP : DOOR_SENSOR}; });
        callForText("jsongettitles", "scenes");
        ASSERT_TRUE(eventually(noOtherThread, LONG)) << threadsOf(daemon.pid());
        flow.takeDelays();
    }
    Footprint footprint()
    {
        return {heap.bytesInUse(), residentKilobytesOf(daemon.pid()), threadsOf(daemon.pid()),
                descriptorsOf(daemon.pid())};
    }

    // Other programs slow it down for a while, a drift does for good: then a few more tenths tell.
    void expectSteadyDelays(size_t rounds)
    {
        static constexpr int MORE = 5;
        int64_t last = percentile(delays.back(), 0.99);
        const int64_t first = percentile(delays.front(), 0.99);
        const int64_t limit = first + first / 10;
        for (int i = 0; inFull() && SPEED_COUNTS && last > limit && i < MORE; ++i) {
            play(rounds);
            last = std::min(last, percentile(flow.takeDelays(), 0.99));
        }
        figure("delay_median", percentile(delays.back(), 0.5), "us");
        figure("delay_p99_first", first, "us");
        figure("delay_p99_last", last, "us");
        if (SPEED_COUNTS && inFull()) {
            EXPECT_LE(last, limit);
        }
    }

    EventFlow flow;
    PushHelpers helpers;
    HeapProbe heap;
    size_t threadsAtRest = 0;
    size_t played = 0;
    std::vector<std::vector<int64_t>> delays;  // microseconds, of each tenth
};

TEST_F(Soak, LeavesTheDaemonAsItWas)
{
    const size_t tenths = inFull<size_t>(10, 2);  // in a share of the length they are no tenths
    const size_t rounds = inFull<size_t>(200, 3);
    const size_t warmUp = inFull<size_t>(20, 2);
    startHome();
    threadsAtRest = threadsOf(daemon.pid());
    fillTheMacroJournal();
    flow.pour(100, [](size_t) { return DeviceReport{REPORT, REPEATER}; });  // threads, all at once
    Footprint before = {};
    for (int i = 0; i < 3; ++i) {
        play(warmUp);
        comeToRest();
        const int64_t resident = before.resident;
        before = footprint();
        before.resident = std::max(before.resident, resident);  // not the same at each rest
    }
    Footprint most = before;
    for (size_t tenth = 0; tenth < tenths && !HasFailure(); ++tenth) {
        play(rounds);
        delays.push_back(flow.takeDelays());
        comeToRest();
        const Footprint now = footprint();
        EXPECT_EQ(now.threads, before.threads);
        EXPECT_EQ(now.descriptors, before.descriptors);
        if (std::abs(now.heap - before.heap) > std::abs(most.heap - before.heap))
            most.heap = now.heap;
        most.resident = std::max(most.resident, now.resident);
    }
    figure("events", static_cast<int64_t>(tenths * rounds * EVENTS_OF_A_ROUND), "");
    figure("heap", before.heap, "bytes");
    figure("heap_farthest_from_it", most.heap - before.heap, "bytes");
    figure("resident", before.resident, "kB");
    figure("resident_most_more", most.resident - before.resident, "kB");
    figure("threads", static_cast<int64_t>(before.threads), "");
    figure("descriptors", static_cast<int64_t>(before.descriptors), "");
    if (SPEED_COUNTS) {  // a sanitizer has a heap of its own
        EXPECT_LE(std::abs(most.heap - before.heap), 4096);
        EXPECT_LE(most.resident, before.resident + inFull(64, 512));  // a share warms little
    }
    expectSteadyDelays(rounds);
}
