// Macros that are triggered again and again: however close together, each burst is one run of the
// scene and one restore; and threads, however many were needed, are all gone soon after.

#include "support/daemon_on_its_own_bus.h"
#include "support/scale.h"
#include "support/usage.h"

#include <algorithm>
#include <mutex>
#include <optional>
#include <random>
#include <thread>

using namespace support;

static constexpr uint16_t REPORT = 5001;
static constexpr uint16_t SENSOR = 5;
static constexpr uint16_t FIRST_MARKER = 10'000;  // no macro asks for it, nor for those above
static constexpr int64_t LAMP = 20;
static constexpr int64_t ON = 255;
static constexpr Milliseconds LONG = 60s;

// Reports of sensors, sent whether or not the daemon keeps up, and the moments at which it
// announced them. On a thread of its own: the answers of the fakes do not delay a report.
class Reports {
public:
    void join(const std::string &address)
    {
        peer.join(thread, address, [this](DBusMessage *message) { hear(message); });
        peer.subscribe("type='signal',interface='com.OvrinTech.signal.eventLog',member='recent'");
    }
    void leave()
    {
        peer.leave();
    }
    void send(uint16_t uid)
    {
        thread.run([&] {
            const uint16_t none = 0;
            const char *payload = "";
            const Message message(dbus_message_new_signal("/com/OvrinTech/process/zwave",
                                                          EVENT_SIGNALS, "triggerAPP"));
            dbus_message_append_args(message.get(), DBUS_TYPE_UINT16, &REPORT, DBUS_TYPE_UINT16,
                                     &uid, DBUS_TYPE_UINT16, &none, DBUS_TYPE_UINT16, &none,
                                     DBUS_TYPE_STRING, &payload, DBUS_TYPE_INVALID);
            peer.send(message.get());
        });
    }
    // Until whatever was sent has been handled, or found no room in the daemon's queue: a marker
    // behind it is announced. Markers may find no room either.
    bool settle()
    {
        ++marker;
        const auto isMarked = [this] {
            const std::lock_guard lock(mutex);
            return lastMarker == marker;
        };
        const Moment deadline = Clock::now() + patience(LONG);
        do {
            send(marker);
        } while (!eventually(isMarked, 100ms) && Clock::now() < deadline);
        return isMarked();
    }
    std::vector<Moment> takeAnnounced()
    {
        const std::lock_guard lock(mutex);
        return std::exchange(announced, {});
    }

private:
    void hear(DBusMessage *message)
    {
        const char *text = nullptr;
        if (!dbus_message_is_signal(message, "com.OvrinTech.signal.eventLog", "recent") ||
            !dbus_message_get_args(message, nullptr, DBUS_TYPE_STRING, &text, DBUS_TYPE_INVALID))
            return;
        const Json record = Json(text)["eventLog"][0];
        if (record["eventCode"].integer() != REPORT)
            return;
        {
            const std::lock_guard lock(mutex);
            if (record["uid"].integer() > FIRST_MARKER)
                lastMarker = record["uid"].integer();
            else
                announced.push_back(Clock::now());
        }
        somethingChanged();
    }

    BusThread thread;
    Peer peer;
    uint16_t marker = FIRST_MARKER;
    std::mutex mutex;  // guards what follows
    std::vector<Moment> announced;
    int64_t lastMarker = 0;
};

static std::string macro(const std::string &title, uint16_t sensor, int64_t lamp,
                         int triggerDuration, int duration)
{
    return R"({"title":")" + title + R"(","enabled":1,"duration":)" + std::to_string(duration) +
           R"(,"scene":{"title":"S","comps":[{"target":{"dev":505},"value":1},{"target":{"dev":)" +
           std::to_string(lamp) + R"(},"value":255}]},"triggers":[{"target":{"dev":)" +
           std::to_string(sensor) + R"(},"op":"=","threshold":255,"duration":)" +
           std::to_string(triggerDuration) + "}]}";
}

class MacroLoad : public DaemonOnItsOwnBus {
protected:
    void SetUp() override
    {
        DaemonOnItsOwnBus::SetUp();
        reports.join(bus.address());
    }
    void TearDown() override
    {
        reports.leave();
        DaemonOnItsOwnBus::TearDown();
    }
    void startHome(const std::string &macros)
    {
        startWith(R"({"macros":[)" + macros + "]}", {"OVRIN_LOG_LEVEL=6"});
        gatewayReady();
        threadsAtRest = threadsOf(daemon.pid());
    }
    bool eventuallyAtRest()
    {
        return eventually([&] { return threadsOf(daemon.pid()) == threadsAtRest; }, LONG);
    }
    std::vector<std::string> lampCommands() const
    {
        std::vector<std::string> result;
        for (const Heard &heard : sdk.commands()) {
            if (heard.cmd() == "switch")
                result.push_back(heard.text);
        }
        return result;
    }

    Reports reports;
    size_t threadsAtRest = 0;
};

// What a macro does of its triggers, by their moments and its two times. A trigger begins the wait
// for the scene anew; when the scene is active, the time until the devices are put back.
class MacroModel {
public:
    MacroModel(Milliseconds wait, Milliseconds control) : triggerWait(wait), controlWait(control)
    {
    }
    // The device shows that value then, and until the next trigger.
    void trigger(Moment when, int64_t shown)
    {
        passUntil(when);
        last = when;
        lastShown = shown;
    }
    void passUntil(Moment now)
    {
        if (!last)
            return;
        const Moment sceneRuns = *last + triggerWait;
        const Moment ends = sceneRuns + controlWait;
        if ((!active && triggerWait > 0ms && isNear(now, sceneRuns)) || isNear(now, ends))
            isOpen = true;
        if (!active && now > sceneRuns) {
            active = true;
            runs.push_back(sceneRuns);
            kept = lastShown;
            commands.push_back(switchCommand(LAMP, 0, ON));
        }
        if (active && now > ends) {
            active = false;
            last.reset();
            commands.push_back(switchCommand(LAMP, 0, kept));
        }
    }
    // The end of the last wait, when no trigger follows.
    Moment end() const
    {
        return last ? *last + triggerWait + controlWait : Moment();
    }

    std::vector<std::string> commands;  // to the lamp
    std::vector<Moment> runs;           // of the scene
    bool isOpen = false;  // a trigger came so close to an end that either may have been first

private:
    static bool isNear(Moment now, Moment end)
    {
        static constexpr Milliseconds GRAIN = 150ms;
        return std::chrono::abs(now - end) < GRAIN;
    }

    const Milliseconds triggerWait;
    const Milliseconds controlWait;
    std::optional<Moment> last;  // trigger, until the macro is idle
    int64_t lastShown = 0;
    bool active = false;
    int64_t kept = 0;
};

class Retriggers : public MacroLoad {
protected:
    // Bursts of triggers, with pauses in them that reach over the end of a wait. Where the machine
    // did not keep a pause the burst proves nothing, and another one is tried.
    void playBursts(int triggerDuration)
    {
        static constexpr int MOST_LEFT_OPEN = 4;
        const int64_t heardLate = inFull(50, 250);  // ms, of a trigger that was handled in time
        const int bursts = inFull(40, 1);
        sdk.set(device(SENSOR, 0, DOOR, 255));
        sdk.set(device(LAMP, 0, SWITCH));
        startHome(macro("M", SENSOR, LAMP, triggerDuration, CONTROL));

        int judged = 0;
        int tried = 0;
        for (; judged < bursts && tried < bursts + MOST_LEFT_OPEN && !HasFailure(); ++tried) {
            sdk.forgetHeard();
            MacroModel model(triggerDuration * 1000ms, CONTROL * 1000ms);
            pourWithPauses(model, pausesOf(tried, triggerDuration));
            ASSERT_TRUE(eventuallyAtRest());
            const int64_t sinceEnd = millisecondsBetween(model.end(), Clock::now());
            model.passUntil(std::max(model.end() + 1s, Clock::now()));
            const std::vector<Heard> runs = sdk.events("MacroEvent");
            ASSERT_TRUE(tickUntil([&] { return lampCommands().size() >= 2 * runs.size(); }));
            if (model.isOpen)
                continue;
            ++judged;
            allRuns += runs.size();
            EXPECT_GE(sinceEnd, -heardLate) << "it waited for less";
            ASSERT_EQ(runs.size(), model.runs.size());
            for (size_t i = 0; i < runs.size(); ++i)
                EXPECT_GE(millisecondsBetween(model.runs[i], runs[i].at), -heardLate);
            EXPECT_EQ(lampCommands(), model.commands);
        }
        figure("bursts", judged, "");
        figure("left_open", tried - judged, "");
        figure("triggers", sent, "");
        figure("announced", announced, "");
        figure("triggers_a_second", sent * 1000 / std::max<int64_t>(sending, 1), "");
        figure("at_once", atOnce, "");
        figure("runs", static_cast<int64_t>(allRuns), "");
        EXPECT_EQ(judged, bursts) << "too few pauses were kept";
        EXPECT_GT(atOnce, 0);
    }

private:
    static constexpr int CONTROL = 2;  // seconds

    // From the last trigger to the next; never close to the end of a wait.
    std::vector<Milliseconds> pausesOf(int burst, int triggerDuration)
    {
        const Milliseconds wait = triggerDuration * 1000ms;
        const Milliseconds control = CONTROL * 1000ms;
        const std::vector<Milliseconds> choices = {
            wait / 2 + 1ms,            // in the wait for the scene
            wait + control / 4,        // the scene is active
            wait + control - 500ms,    // still
            wait + control + 500ms,    // the devices are put back
            wait + control + 1'500ms,  // for some time
        };
        std::vector<Milliseconds> pauses;
        if (!inFull())
            return {choices[1], choices[3]};
        std::uniform_int_distribution<size_t> choice(0, choices.size() - 1);
        for (int i = 0; i < burst % 3; ++i)
            pauses.push_back(choices[choice(random)]);
        return pauses;
    }
    void pourWithPauses(MacroModel &model, const std::vector<Milliseconds> &pauses)
    {
        const int triggers = inFull(252, 150) / (static_cast<int>(pauses.size()) + 1);
        pour(model, triggers);
        for (const Milliseconds pause : pauses) {
            std::this_thread::sleep_until(lastTrigger + pause);
            pour(model, triggers);
        }
    }
    // Another value shows each time; what came of the triggers is told to the model.
    void pour(MacroModel &model, int triggers)
    {
        static constexpr int MOST_BETWEEN = 5;  // milliseconds
        std::uniform_int_distribution<int> spacing(0, MOST_BETWEEN);
        shown = 1 + shown % 90;
        sdk.setBasicValue(LAMP, 0, shown);
        const Moment begin = Clock::now();
        Moment due = begin;
        for (int i = 0; i < triggers; ++i) {
            std::this_thread::sleep_until(due);
            reports.send(SENSOR);
            const int pause = spacing(random);
            atOnce += pause == 0;
            due += Milliseconds(pause);
        }
        sending += millisecondsBetween(begin, Clock::now());
        sent += triggers;
        ASSERT_TRUE(reports.settle());
        const std::vector<Moment> heard = reports.takeAnnounced();
        ASSERT_FALSE(heard.empty());
        for (const Moment &moment : heard)
            model.trigger(moment, shown);
        announced += static_cast<int64_t>(heard.size());
        lastTrigger = heard.back();
    }

    std::mt19937 random{1};
    Moment lastTrigger;
    int64_t shown = 0;
    int64_t sent = 0;
    int64_t announced = 0;
    int64_t sending = 0;  // milliseconds
    int64_t atOnce = 0;   // triggers with nothing between them and the one before
    size_t allRuns = 0;
};

TEST_F(Retriggers, WhileTheSceneIsActiveRunAndRestoreAsTheModelDoes)
{
    playBursts(0);
}

TEST_F(Retriggers, InTheTriggerWaitRunAndRestoreAsTheModelDoes)
{
    playBursts(1);
}

class TriggerStorm : public MacroLoad {
protected:
    static constexpr uint16_t MACROS = 50;
    static constexpr size_t RATE = 200;  // triggers a second
    static constexpr uint16_t FIRST_SENSOR = 100;
    static constexpr int64_t FIRST_LAMP = 200;

    static uint16_t sensorOf(size_t n)
    {
        return static_cast<uint16_t>(FIRST_SENSOR + n % MACROS);
    }
    void startStormHome()
    {
        std::string macros;
        for (uint16_t i = 0; i < MACROS; ++i) {
            sdk.set(device(sensorOf(i), 0, DOOR, 255));
            sdk.set(device(FIRST_LAMP + i, 0, SWITCH, 7));
            macros +=
                (i ? "," : "") + macro("M" + std::to_string(i), sensorOf(i), FIRST_LAMP + i, 0, 1);
        }
        startHome(macros);
    }
    struct Storm {
        int64_t sentASecond = 0;
        int64_t handledASecond = 0;
        size_t mostThreads = 0;

        // Those that wait, one for each macro, and those that are about to end: of two seconds at
        // most.
        size_t allowedThreads() const
        {
            return 2 * static_cast<size_t>(handledASecond) + MACROS + 10;
        }
    };
    // Triggers on the beat, whether or not the daemon keeps up.
    Storm storm(size_t seconds)
    {
        Storm result;
        reports.takeAnnounced();
        const Moment begin = Clock::now();
        size_t sent = 0;
        for (; sent < seconds * RATE; ++sent) {
            std::this_thread::sleep_until(begin + sent * 1000ms / RATE);
            reports.send(sensorOf(sent));
            result.mostThreads = std::max(result.mostThreads, threadsOf(daemon.pid()));
            if (sent % RATE == 0)
                sdk.forgetHeard();
        }
        const int64_t took = millisecondsBetween(begin, Clock::now());
        EXPECT_TRUE(reports.settle());
        const std::vector<Moment> handled = reports.takeAnnounced();
        EXPECT_FALSE(handled.empty());
        const Moment last = handled.empty() ? begin + 1s : handled.back();
        result.sentASecond = static_cast<int64_t>(sent) * 1000 / took;
        result.handledASecond =
            static_cast<int64_t>(handled.size()) * 1000 / millisecondsBetween(begin, last);
        behind = std::max(behind, millisecondsBetween(begin, last) - took);
        dropped += sent - std::min(handled.size(), sent);
        EXPECT_TRUE(eventuallyAtRest());
        untilRest = std::max(untilRest, millisecondsBetween(last, Clock::now()));
        return result;
    }
    // Until every lamp that went on is back and a minute has passed, in quick motion.
    void drain()
    {
        sdk.forgetHeard();
        event(REPORT, sensorOf(0), 0);
        const auto last = switchCommand(FIRST_LAMP, 0, 7);
        ASSERT_TRUE(tickUntil([&] { return sdk.heard(last); }, LONG));
        passAMinute();
        ASSERT_TRUE(eventuallyAtRest());
    }

    int64_t untilRest = 0;  // milliseconds, as what follows
    int64_t behind = 0;     // the daemon, when the last trigger was sent
    size_t dropped = 0;     // for want of room in the daemon's queue
};

// The C library keeps the stack of a thread that has ended for the next one.
static int64_t keptStacks(size_t threadsBefore, size_t threadsNow)
{
    static constexpr int64_t KILOBYTES = 24;
    return KILOBYTES *
           static_cast<int64_t>(threadsNow > threadsBefore ? threadsNow - threadsBefore : 0);
}

TEST_F(TriggerStorm, TakesFewThreadsAndGivesThemAndTheMemoryBack)
{
    const size_t seconds = inFull<size_t>(60, 1);
    startStormHome();
    storm(seconds);  // fills the journals, and starts as many threads at once as there will be
    drain();
    const Storm first = storm(seconds);
    drain();
    const int64_t before = privateKilobytesOf(daemon.pid());
    const Storm second = storm(seconds);
    drain();
    const int64_t kept = privateKilobytesOf(daemon.pid()) - before;
    figure("sent_a_second", std::min(first.sentASecond, second.sentASecond), "");
    figure("handled_a_second", std::min(first.handledASecond, second.handledASecond), "");
    figure("behind", behind, "ms");
    figure("dropped", static_cast<int64_t>(dropped), "");
    figure("most_threads", static_cast<int64_t>(first.mostThreads), "");
    figure("most_threads_then", static_cast<int64_t>(second.mostThreads), "");
    figure("until_rest", untilRest, "ms");
    figure("resident_kept", kept, "kB");
    for (const Storm &one : {first, second}) {
        EXPECT_LT(one.mostThreads, one.allowedThreads());
        if (SPEED_COUNTS && inFull()) {
            EXPECT_GE(one.sentASecond, 195);
            EXPECT_GE(one.handledASecond, 195);
        }
    }
    if (SPEED_COUNTS && inFull()) {
        EXPECT_EQ(dropped, 0u);
    }
    if (SPEED_COUNTS) {
        EXPECT_LE(untilRest, inFull(2000, 5000));
        EXPECT_LE(kept - keptStacks(first.mostThreads, second.mostThreads), inFull(64, 128));
    }
}
