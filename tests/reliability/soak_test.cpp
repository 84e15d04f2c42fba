// A long life in a short time: events without a pause, and meanwhile everything else that a home
// does. Now and then all of it is brought to rest, and the daemon takes as much as at the first
// rest.

#include "event_flow.h"
#include "minutes.h"
#include "support/push_helpers.h"
#include "support/scale.h"
#include "support/usage.h"

#include <csignal>
#include <map>
#include <set>

using namespace support;

static constexpr const char *SWITCH_APP = "com.OvrinTech.switch.app";
static constexpr const char *PUSH_MESSAGES = "com.OvrinTech.message.pushMsg";
static constexpr uint16_t REPORT = 5001;
static constexpr uint16_t TAMPER = 4001;
static constexpr uint16_t UNKNOWN = 99;
static constexpr Milliseconds LONG = 60s;
static constexpr std::string_view PRELOAD = "LD_PRELOAD=";

enum HomeDevice : uint16_t {
    DOOR_SENSOR = 5,
    MOTION_SENSOR = 6,
    POWER_METER = 7,
    COLOR_LAMP = 8,
    CONTACT = 9,  // whoever tampers with it is told on
    BUTTON = 10,
    REPEATER = 11,
    LAMP = 20,
    SCHEDULED_LAMP = 21,
    SIREN_DEVICE = 30,
};

static constexpr int64_t SCHEDULED_ON = 255;
static constexpr int64_t SIREN_SOUND = 4;

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

static std::string evening(int start, int end)
{
    return R"({"title":"Evening",)" + everyDay(start, end) +
           R"(,"macro":{"title":"Evening","scene":{"title":"Evening","comps":[)"
           R"({"target":{"dev":21},"value":255}]}}})";
}

static std::string home()
{
    return R"({"alarm":{"enabled":0,"trigger_duration":1,"duration":1,"siren_type":4},)"
           R"("registeredDevices":[{"token":"T","platform":"ios","app_id":"A"}],)"
           R"("rooms":[{"title":"Hall","targets":[{"dev":9}]}],)"
           R"("schedules":[{"title":"Day","enabled":1,"weekdays":127,"start_hour":0,)"
           R"("start_minute":0,"end_hour":23,"end_minute":59,"macro":"Later"},)" +
           evening(0, 0) + R"(],"scenes":[)" + lampScene("Light", 255) +
           R"(,{"title":"Nothing","comps":[]}],"macros":[)" +
           R"({"title":"Now","scene":"Nothing","duration":0,)" + trigger(BUTTON) +
           R"(},{"title":"Later","scene":"Light","duration":1,)" + trigger(REPEATER) + "}]}";
}

// What the daemon has told the devices so far.
class Commands {
public:
    void join(BusThread &thread, const std::string &address)
    {
        peer.join(thread, address, [this](DBusMessage *message) { hear(message); });
        peer.subscribe("type='signal',interface='com.OvrinTech.signal.json.command'");
    }
    void leave()
    {
        peer.leave();
    }
    size_t count(uint16_t uid, int64_t value) const
    {
        const std::lock_guard lock(mutex);
        const auto device = values.find(uid);
        return device == values.end() ? 0 : device->second.count(value);
    }
    // Of any value but that one.
    size_t countOthers(uint16_t uid, int64_t value) const
    {
        const std::lock_guard lock(mutex);
        const auto device = values.find(uid);
        return device == values.end() ? 0 : device->second.size() - device->second.count(value);
    }

private:
    void hear(DBusMessage *message)
    {
        const char *text = nullptr;
        if (!dbus_message_get_args(message, nullptr, DBUS_TYPE_STRING, &text, DBUS_TYPE_INVALID))
            return;
        const Json control = Json(text)["control"];
        {
            const std::lock_guard lock(mutex);
            values[control["uid"].integer()].insert(control["val"].integer());
        }
        somethingChanged();
    }

    Peer peer;
    mutable std::mutex mutex;
    std::map<int64_t, std::multiset<int64_t>> values;  // of each device
};

struct Footprint {
    int64_t heap;      // bytes
    int64_t resident;  // kilobytes
    size_t threads;
    size_t descriptors;
};

class Soak : public ConfigurableDaemon {
protected:
    static constexpr size_t EVENTS_OF_A_ROUND = 500;
    // In rounds.
    static inline const size_t PEERS_STAY = SPEED_COUNTS ? 20 : 5;

    void SetUp() override
    {
        ConfigurableDaemon::SetUp();
        flow.join(busThread, bus.address());
        commands.join(busThread, bus.address());
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
        sdk.set(device(SCHEDULED_LAMP, 0, SWITCH));
        sdk.set(device(SIREN_DEVICE, 0, SIREN));
    }
    void TearDown() override
    {
        commands.leave();
        flow.leave();
        ConfigurableDaemon::TearDown();
    }
    void startHome()
    {
        std::vector<std::string> settings = helpers.settings();
        settings.insert(settings.begin(), settings.front() + ":/usr/bin:/bin");  // copies are made
        // Both the clock and the look into the heap are preloaded, by one setting.
        std::vector<std::string> ofBoth = clock.settings();
        for (const std::string &setting : heap.settings()) {
            if (setting.starts_with(PRELOAD))
                ofBoth.front() += ":" + setting.substr(PRELOAD.size());
            else
                ofBoth.push_back(setting);
        }
        settings.insert(settings.end(), ofBoth.begin(), ofBoth.end());
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
    void setArmed(int32_t enable)
    {
        EXPECT_EQ(callNumber(SWITCH_APP, "setHomeScene", {enable}), 1);
    }
    size_t sirens() const
    {
        return commands.count(SIREN_DEVICE, SIREN_SOUND);
    }
    void arm()
    {
        sirensBefore = sirens();
        setArmed(1);
        isArmed = true;
        ++arms;
    }
    // Somebody has moved meanwhile.
    void disarm()
    {
        if (isArmed) {
            EXPECT_TRUE(eventually([&] { return sirens() > sirensBefore; }, LONG)) << "no siren";
        }
        setArmed(0);
        isArmed = false;
    }
    // SIGUSR1 in the minute in which it starts, with another value to be put back each time, so
    // that the stored document changes.
    void startEvening()
    {
        ASSERT_NO_FATAL_FAILURE(awaitEnd());
        sdk.setBasicValue(SCHEDULED_LAMP, 0, static_cast<int64_t>(schedulesStarted % 200));
        const int now = clock.minuteOfDay();
        EXPECT_EQ(set(R"({"schedules":[)" + evening(now, now + 1) + "]}"), 1);
        const size_t asked = sdk.asked("getdevice", SCHEDULED_LAMP);
        daemon.signal(SIGUSR1);
        ASSERT_TRUE(
            eventually([&] { return sdk.asked("getdevice", SCHEDULED_LAMP) > asked; }, LONG))
            << "the schedule does not start";
        ++schedulesStarted;
    }
    void endEvening()
    {
        const int now = clock.minuteOfDay();
        EXPECT_EQ(set(R"({"schedules":[)" + evening(now - 1, now) + "]}"), 1);
        daemon.signal(SIGUSR1);
    }
    // Of the last one that was started and is to end.
    void awaitEnd()
    {
        const auto over = [&] { return schedulesEnded() == schedulesStarted; };
        ASSERT_TRUE(eventually(over, 1s) || tickUntil(over, LONG))
            << schedulesStarted << " started, " << schedulesEnded() << " ended";
    }
    size_t schedulesEnded() const
    {
        return commands.countOthers(SCHEDULED_LAMP, SCHEDULED_ON);
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
        if (round % 4 == 1)
            startEvening();
        if (round % 4 == 3)
            endEvening();
        if (round % 4 == 0) {
            callForText("doscene", "Light");
            callForText("message", "Dinner is ready", PUSH_MESSAGES);
        }
        if (round % 8 == 1)
            arm();
        if (round % 8 == 5)
            disarm();
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
    // A multiple of four: what a round begins, another ends.
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
        if (round % PEERS_STAY == PEERS_STAY - 1)
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
        ++restarts;
    }
    // Nothing runs, nothing is planned, and the journals are full of the like.
    void comeToRest()
    {
        disarm();
        ASSERT_NO_FATAL_FAILURE(awaitEnd());
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
        return {heap.leastInUse([&] { callForText("jsongettitles", "scenes"); }),
                privateKilobytesOf(daemon.pid()), threadsOf(daemon.pid()),
                descriptorsOf(daemon.pid())};
    }

    // Other programs slow it down for a while, a drift does for good. So the median of the first
    // three tenths is what the last one is held against, and when that is slower the median of five
    // more tells. Only upwards: that it gets faster is no fault.
    void expectSteadyDelays(size_t rounds)
    {
        static constexpr int MORE = 5;
        std::vector<int64_t> slowest;
        for (std::vector<int64_t> &tenth : delays) {
            slowest.push_back(percentile(tenth, 0.99));
            figure("delay_p99", slowest.back(), "us");
        }
        int64_t last = slowest.back();
        slowest.resize(std::min<size_t>(slowest.size(), 3));
        const int64_t first = percentile(slowest, 0.5);
        const int64_t limit = first + first / 10;
        if (inFull() && SPEED_COUNTS && last > limit) {
            std::vector<int64_t> more;
            for (int i = 0; i < MORE && !HasFailure(); ++i) {
                play(rounds);
                more.push_back(percentile(flow.takeDelays(), 0.99));
            }
            last = percentile(more, 0.5);
        }
        figure("delay_median", percentile(delays.back(), 0.5), "us");
        figure("delay_p99_first", first, "us");
        figure("delay_p99_last", last, "us");
        if (SPEED_COUNTS && inFull()) {
            EXPECT_LE(last, limit);
        }
    }

    // All of it was there, not only in the intention.
    void expectThatAllHappened()
    {
        const std::pair<const char *, size_t> counts[] = {
            {"pushes_delivered", helpers.count()},
            {"arms", arms},
            {"sirens_sounded", sirens()},
            {"scenes_sent", commands.count(LAMP, 255)},
            {"schedules_started", commands.count(SCHEDULED_LAMP, SCHEDULED_ON)},
            {"schedules_ended", schedulesEnded()},
            {"restarts_of_the_peers", restarts},
        };
        for (const auto &[name, count] : counts) {
            figure(name, static_cast<int64_t>(count), "");
            EXPECT_GT(count, 0u) << name;
        }
        const std::string stored = daemon.data.read("scheduleResumeScene.json").value_or("");
        EXPECT_THAT(stored, testing::HasSubstr("Evening")) << "what a schedule's start stores";
    }

    EventFlow flow;
    Commands commands;
    PushHelpers helpers;
    HeapProbe heap;
    MinuteClock clock;
    size_t threadsAtRest = 0;
    size_t played = 0;
    size_t sirensBefore = 0;
    bool isArmed = false;
    size_t arms = 0;
    size_t schedulesStarted = 0;
    size_t restarts = 0;
    std::vector<std::vector<int64_t>> delays;  // microseconds, of each tenth
};

TEST_F(Soak, LeavesTheDaemonAsItWas)
{
    // In a share of the length they are no tenths. A sanitizer and an emulator take minutes for
    // what is done in seconds.
    const size_t tenths = inFull<size_t>(10, SPEED_COUNTS ? 5 : 2);
    const size_t rounds = inFull<size_t>(200, SPEED_COUNTS ? 40 : 4);
    const size_t warmUp = inFull<size_t>(20, SPEED_COUNTS ? 8 : 4);
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
    if (HasFailure())
        return;
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
        EXPECT_LE(most.resident, before.resident + 64);
    }
    expectSteadyDelays(rounds);
    expectThatAllHappened();
}
