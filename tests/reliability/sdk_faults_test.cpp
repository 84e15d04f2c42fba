// The SDK daemon hangs, is slow, is away, talks nonsense or dies: no call waits longer than its two
// seconds, what has nothing to do with it goes on meanwhile, and its next good answer is used.

#include "support/daemon_on_its_own_bus.h"
#include "support/scale.h"

#include <algorithm>
#include <filesystem>

using namespace support;

static constexpr uint16_t REPORT = 5001;
static constexpr uint16_t LOGGED_ONLY = 9999;
static constexpr int64_t TIME_OUT = 2000;  // ms
static const std::string LAMP_ON = switchCommand(20, 0, 255);
static const std::string SIREN_SOUND = sysSound(4);

static const char *SETUP = R"({"scenes":[
      {"title":"Light","comps":[{"value":255,"target":{"dev":20,"if":0,"ch":0}}]},
      {"title":"Siren","buildinSiren":{"siren_type":4}}],
    "macros":[{"title":"Door","enabled":1,"duration":0,"scene":"Light",
      "triggers":[{"target":{"dev":5,"if":0,"ch":0},"op":"=","threshold":255}]}]})";

class SdkFaults : public DaemonOnItsOwnBus {
protected:
    // Bounds of the full form, which has the machine to itself, and such as a loaded machine keeps.
    const int64_t earlier = inFull(50, 100);    // ms than the time-out
    const int64_t later = inFull(50, 1000);     // ms than the time-out
    const int64_t meanwhile = inFull(20, 750);  // ms for a signal: far below the time-out at least
    const int events = inFull(30, SPEED_COUNTS ? 2 : 1);

    void SetUp() override
    {
        DaemonOnItsOwnBus::SetUp();
        sdk.set(device(5, 0, DOOR, 255));
        sdk.set(device(6, 0, SWITCH));  // of no macro
        sdk.set(device(20, 0, SWITCH, 7));
    }
    void startHome(const std::vector<std::string> &settings = {})
    {
        startWith(SETUP, settings);
        gatewayReady();
        threads = countThreads();
        expectNothingLeft();
    }
    size_t countThreads() const
    {
        using Folder = std::filesystem::directory_iterator;
        return static_cast<size_t>(
            std::distance(Folder("/proc/" + std::to_string(daemon.pid()) + "/task"), Folder()));
    }

    // Of a command that is a signal, sent by a thread that has nothing to do with the event in
    // hand.
    void expectASignalToLeave()
    {
        const size_t before = sdk.count(SIREN_SOUND);
        const Moment asked = Clock::now();
        client.call(APP, "doscene", {"Siren"});
        ASSERT_TRUE(eventually([&] { return sdk.count(SIREN_SOUND) > before; }));
        const int64_t took = millisecondsBetween(asked, Clock::now());
        slowestSignal = std::max(slowestSignal, took);
        if (SPEED_COUNTS) {
            EXPECT_LE(took, meanwhile);
        }
    }
    // How long the event's question was waited for, which then had no answer.
    int64_t failedEvent()
    {
        const size_t from = daemon.logSize();
        const Moment sent = Clock::now();
        event(REPORT, 5, 0);
        EXPECT_TRUE(daemon.eventuallyLogged("\"cmd\":\"getdevice\",\"uid\":5}", from));
        expectASignalToLeave();
        EXPECT_TRUE(daemon.eventuallyLogged("sendOvrinSdkCmd failed", from));
        return millisecondsBetween(sent, Clock::now());
    }
    void expectEventsToTimeOut()
    {
        const size_t announcements = recent().size();
        for (int i = 0; i < events && !HasFailure(); ++i) {
            const int64_t took = failedEvent();
            shortest = std::min(shortest, took);
            longest = std::max(longest, took);
        }
        EXPECT_GE(shortest, TIME_OUT - earlier);
        if (SPEED_COUNTS) {
            EXPECT_LE(longest, TIME_OUT + later);
        }
        EXPECT_EQ(recent().size(), announcements) << "what nobody knows is neither logged nor told";
        figure("shortest_call_ms", shortest, "ms");
        figure("longest_call_ms", longest, "ms");
        figure("slowest_signal_ms", slowestSignal, "ms");
    }
    // The event's device is known, its macro runs, its command goes out.
    void expectTheGoodAnswerUsed()
    {
        const size_t lamps = sdk.count(LAMP_ON);
        const size_t macros = macroEvents().size();
        eventHandled(REPORT, 5, 0);
        EXPECT_EQ(recent().back()["funcType"].integer(), DOOR);
        EXPECT_TRUE(eventually([&] { return macroEvents().size() == macros + 1; }));
        EXPECT_TRUE(eventually([&] { return sdk.count(LAMP_ON) == lamps + 1; }));
    }
    void expectNothingLeft()
    {
        expectTheGoodAnswerUsed();
        EXPECT_TRUE(eventually([&] { return countThreads() == threads; }))
            << countThreads() << " threads, " << threads << " before";
    }
    void expectQuick(Moment since, int64_t limit = TIME_OUT / 2)
    {
        const int64_t took = millisecondsBetween(since, Clock::now());
        longest = std::max(longest, took);
        if (SPEED_COUNTS) {
            EXPECT_LT(took, limit);
        }
    }

    size_t threads = 0;
    int64_t shortest = INT64_MAX;
    int64_t longest = 0;
    int64_t slowestSignal = 0;
};

TEST_F(SdkFaults, HangingEndsEveryCallAfterTwoSeconds)
{
    startHome();
    sdk.behave("getdevice", 5, Answer::silence());
    expectEventsToTimeOut();
    sdk.forgetBehaviour("getdevice", 5);
    expectNothingLeft();
}

TEST_F(SdkFaults, ABlackHoleInItsPlaceEndsEveryCallAfterTwoSeconds)
{
    startHome();
    sdk.giveUpName();
    ChildProcess blackHole;
    blackHole.start({DBUS_TEST_TOOL, "black-hole", "--system", "--name=com.ovrinbus.sdk"},
                    {"DBUS_SYSTEM_BUS_ADDRESS=" + bus.address()});
    ASSERT_TRUE(eventually([&] { return client.peer.nameHasOwner("com.ovrinbus.sdk"); }));
    expectEventsToTimeOut();
    blackHole.signal(SIGKILL);
    ASSERT_TRUE(blackHole.waitForEnd(5s));
    ASSERT_TRUE(eventually([&] { return !client.peer.nameHasOwner("com.ovrinbus.sdk"); }));
    sdk.takeNameBack();
    expectNothingLeft();
}

TEST_F(SdkFaults, AnswersAfterOnePointNineSecondsAreUsed)
{
    startHome();
    const size_t announcements = recent().size();
    const size_t macros = macroEvents().size();
    sdk.behave("getdevice", 5, Answer::asUsual().after(1900ms));
    for (int i = 0; i < events && !HasFailure(); ++i) {
        const Moment sent = Clock::now();
        const size_t before = sdk.asked("getdevice", 5);
        event(REPORT, 5, 0);
        ASSERT_TRUE(eventually([&] { return sdk.asked("getdevice", 5) > before; }));
        expectASignalToLeave();
        ASSERT_TRUE(eventually(
            [&] { return recent().size() == announcements + static_cast<size_t>(i) + 1; }));
        longest = std::max(longest, millisecondsBetween(sent, Clock::now()));
    }
    const auto all = static_cast<size_t>(events);
    EXPECT_TRUE(eventually([&] { return macroEvents().size() == macros + all; }));
    EXPECT_FALSE(daemon.logged("sendOvrinSdkCmd failed"));
    figure("longest_call_ms", longest, "ms");
    figure("slowest_signal_ms", slowestSignal, "ms");
    sdk.forgetBehaviour("getdevice", 5);
    expectNothingLeft();
}

TEST_F(SdkFaults, AbsenceEndsEveryCallAtOnce)
{
    startHome();
    sdk.giveUpName();
    const size_t announcements = recent().size();
    for (int i = 0; i < inFull(30, 5) && !HasFailure(); ++i) {
        const Moment sent = Clock::now();
        failedEvent();
        expectQuick(sent);
    }
    EXPECT_EQ(recent().size(), announcements);
    figure("longest_call_ms", longest, "ms");
    sdk.takeNameBack();
    expectNothingLeft();
}

TEST_F(SdkFaults, DeathInTheMiddleOfACallEndsItAtOnce)
{
    startHome();
    for (int i = 0; i < inFull(30, 5) && !HasFailure(); ++i) {
        sdk.behave("getdevice", 5, Answer::silence());
        const size_t before = sdk.asked("getdevice", 5);
        const size_t from = daemon.logSize();
        event(REPORT, 5, 0);
        ASSERT_TRUE(eventually([&] { return sdk.asked("getdevice", 5) > before; }));
        const Moment died = Clock::now();
        sdk.leave();
        ASSERT_TRUE(daemon.eventuallyLogged("sendOvrinSdkCmd failed", from));
        expectQuick(died);
        sdk.forgetBehaviour("getdevice", 5);
        sdk.join(busThread, bus.address());
        expectTheGoodAnswerUsed();
    }
    figure("longest_call_ms", longest, "ms");
    expectNothingLeft();
}

TEST_F(SdkFaults, RestartsBetweenEventsAreNotNoticed)
{
    startHome();
    for (int i = 0; i < inFull(30, 5) && !HasFailure(); ++i) {
        sdk.leave();
        sdk.join(busThread, bus.address());
        expectTheGoodAnswerUsed();
    }
    EXPECT_FALSE(daemon.logged("sendOvrinSdkCmd failed"));
    expectNothingLeft();
}

// Five megabytes of devices; a tenth of it where a sanitizer reads along.
static std::string largeTown()
{
    static const int64_t DEVICES = SPEED_COUNTS ? 15'500 : 1'550;
    DeviceTable town{{5, device(5, 0, DOOR, 255)}};
    for (int64_t uid = 1000; uid < 1000 + DEVICES; ++uid)
        town[uid] = device(uid, 0, SWITCH);
    return allDevicesText(town);
}

TEST_F(SdkFaults, AnAnswerOfFiveMegabytesIsUsed)
{
    startHome({"OVRIN_LOG_LEVEL=4"});  // which does not show the answers
    const std::string answer = largeTown();
    if (SPEED_COUNTS) {
        ASSERT_GE(answer.size(), 5'000'000u);
    }
    sdk.behave("getdevice", 5, Answer::saying(answer));
    for (int i = 0; i < inFull(30, 2) && !HasFailure(); ++i) {
        const Moment sent = Clock::now();
        expectTheGoodAnswerUsed();
        longest = std::max(longest, millisecondsBetween(sent, Clock::now()));
    }
    figure("answer_bytes", static_cast<int64_t>(answer.size()), "bytes");
    figure("longest_event_ms", longest, "ms");
    sdk.forgetBehaviour("getdevice", 5);
    expectNothingLeft();
}

struct Rubbish {
    const char *name;
    Answer answer;
    bool isAnAnswer;       // a text, that is; the event is then one of an unknown device
    bool isLarge = false;  // to read it takes its time
};

static void PrintTo(const Rubbish &rubbish, std::ostream *out)
{
    *out << rubbish.name;
}

class SdkRubbish : public SdkFaults, public testing::WithParamInterface<Rubbish> {};

TEST_P(SdkRubbish, InItsAnswersIsAnUnknownDeviceAtWorst)
{
    startHome({"OVRIN_LOG_LEVEL=4"});
    sdk.behave("getdevice", 5, GetParam().answer);
    sdk.behave("getdevice", 256, GetParam().answer);
    const size_t macros = macroEvents().size();
    const int all = inFull(30, 10);
    for (int i = 0; i < all && !HasFailure(); ++i) {
        const Moment sent = Clock::now();
        const size_t from = daemon.logSize();
        event(i % 2 == 0 ? REPORT : LOGGED_ONLY, 5, 0);
        if (!GetParam().isAnAnswer) {
            ASSERT_TRUE(daemon.eventuallyLogged("sendOvrinSdkCmd failed", from));
        } else {
            ASSERT_TRUE(eventually([&] {
                return announced(REPORT, 5) + announced(LOGGED_ONLY, 5) ==
                       static_cast<size_t>(i) + 2;  // and the good one of the start
            }));
            EXPECT_EQ(recent().back()["productCode"].integer(), -1);
        }
        expectQuick(sent, GetParam().isLarge ? 2 * TIME_OUT : TIME_OUT / 2);
    }
    EXPECT_EQ(macroEvents().size(), macros);
    eventHandled(1001, 6, 0);  // all devices anew: that is rubbish, too
    figure("longest_event_ms", longest, "ms");
    sdk.forgetBehaviour("getdevice", 5);
    sdk.forgetBehaviour("getdevice", 256);
    eventHandled(1001, 6, 0);
    expectNothingLeft();
}

static std::string halfOfADevice()
{
    const std::string whole = deviceText({{5, device(5, 0, DOOR, 255)}}, 5);
    return whole.substr(0, whole.size() / 2);
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, SdkRubbish,
    testing::Values(Rubbish{"Garbage", Answer::saying("\x01\x7f garbage ]}{["), true},
                    Rubbish{"HalfJson", Answer::saying(halfOfADevice()), true},
                    Rubbish{"FiveMegabytesOfIt", Answer::saying(std::string(5'000'000, 'x')), true,
                            true},
                    Rubbish{"ANumber", Answer::withANumber(), false},
                    Rubbish{"NoArguments", Answer::withoutArguments(), false},
                    Rubbish{"Refusal", Answer::refusing(), false}),
    caseName);
