// What the daemon takes of a small machine. Shown by scripts/footprint.sh for the device's program.

#include "support/daemon_on_its_own_bus.h"
#include "support/push_helpers.h"
#include "support/scale.h"
#include "support/usage.h"
#include "support/wall_clock.h"

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <thread>

using namespace support;

static constexpr const char *SWITCH_APP = "com.OvrinTech.switch.app";
static constexpr const char *PUSH_MESSAGES = "com.OvrinTech.message.pushMsg";
static constexpr uint16_t REPORT = 5001;
static constexpr int64_t FIRST_DEVICE = 20;
static constexpr int64_t DEVICES = 40;
static constexpr int SCENES = 100;
static constexpr int MACROS = 100;
static constexpr int COMPS = 10;
static constexpr int DEEPEST = 64;                // what a request may be nested
static constexpr int64_t STACK = 256 * 1024;      // of every thread but the first
static constexpr int64_t GOAL_KILOBYTES = 1'536;  // above a bare program
static constexpr int64_t DOOR_DEVICE = 5;
static constexpr int64_t SIREN_DEVICE = 6;
static const std::vector<std::string> QUIET = {"OVRIN_LOG_LEVEL=7"};

// Of each thread, by its number.
static std::map<std::string, int64_t> wakeUpsOf(pid_t process)
{
    std::map<std::string, int64_t> wakeUps;
    const std::string tasks = "/proc/" + std::to_string(process) + "/task";
    for (const auto &task : std::filesystem::directory_iterator(tasks)) {
        std::ifstream status(task.path() / "status");
        for (std::string line; std::getline(status, line);) {
            int64_t count;
            if (sscanf(line.c_str(), "voluntary_ctxt_switches: %ld", &count) == 1)
                wakeUps[task.path().filename()] = count;
        }
    }
    return wakeUps;
}

static int64_t bytesWrittenBy(pid_t process)
{
    std::ifstream file("/proc/" + std::to_string(process) + "/io");
    for (std::string word; file >> word;) {
        int64_t bytes;
        if (word == "wchar:" && file >> bytes)
            return bytes;
    }
    return 0;
}

class Footprint : public DaemonOnItsOwnBus {
protected:
    // Scenes of ten commands, and macros that run them when one of the devices reports.
    static std::string home()
    {
        std::ostringstream text;
        text << R"({"scenes":[)";
        for (int i = 0; i < SCENES; ++i) {
            text << (i ? "," : "") << R"({"title":"Scene number )" << i << R"(","ID":)" << i + 1
                 << R"(,"comps":[)";
            for (int comp = 0; comp < COMPS; ++comp)
                text << (comp ? "," : "") << R"({"target":{"dev":)"
                     << FIRST_DEVICE + (i + comp) % DEVICES << R"(,"if":0,"ch":0},"value":255})";
            text << "]}";
        }
        text << R"(],"macros":[)";
        for (int i = 0; i < MACROS; ++i)
            text << (i ? "," : "") << R"({"title":"Macro number )" << i
                 << R"(","enabled":1,"duration":1,"scene":"Scene number )" << i
                 << R"(","triggers":[{"target":{"dev":)" << FIRST_DEVICE + i % DEVICES
                 << R"(,"if":0,"ch":0},"op":"=","threshold":255}]})";
        text << "]}";
        return text.str();
    }
    void startHome(const std::vector<std::string> &settings = QUIET)
    {
        for (int64_t i = 0; i < DEVICES; ++i)
            sdk.set(device(FIRST_DEVICE + i, 0, SWITCH, 255));
        startWith(home(), settings);
        gatewayReady();
    }
    void startEmpty()
    {
        startWith("{}", QUIET);
        gatewayReady();
    }
    std::map<std::string, std::filesystem::file_time_type> filesNow() const
    {
        std::map<std::string, std::filesystem::file_time_type> files;
        files["."] = std::filesystem::last_write_time(daemon.data.path());
        for (const auto &entry : std::filesystem::directory_iterator(daemon.data.path()))
            files[entry.path().filename()] = entry.last_write_time();
        return files;
    }

    PushHelpers helpers;
};

TEST_F(Footprint, OfAHomeIsLittleMoreThanThatOfTheLibraries)
{
    if (SANITIZED)
        GTEST_SKIP() << "a sanitizer takes more than the program";
    std::filesystem::path program = BARE_CLIENT;
    if (emulated())
        program = std::filesystem::path(daemonProgram()).parent_path() / "emulated_bare_client";
    ChildProcess bare;
    bare.start({program}, {"DBUS_SYSTEM_BUS_ADDRESS=" + bus.address()});
    ASSERT_TRUE(eventually([&] { return bare.outputHolds("ready"); })) << bare.output();
    const int64_t libraries = privateKilobytesOf(bare.pid());
    startEmpty();
    const int64_t empty = privateKilobytesOf(daemon.pid());
    daemon.stop();
    startHome();
    const int64_t full = privateKilobytesOf(daemon.pid());
    figure("libraries", libraries, "kB");
    figure("after_start", empty, "kB");
    figure("of_a_home", full, "kB");
    EXPECT_GT(libraries, 0);
    EXPECT_LT(full - libraries, GOAL_KILOBYTES);
}

static std::string nested(int levels)
{
    return std::string(static_cast<size_t>(levels), '[') +
           std::string(static_cast<size_t>(levels), ']');
}

// Whatever is read is nested as deep as may be: the stored document, requests, devices, events and
// settings.
TEST_F(Footprint, OfEachThreadIsHalfOfItsStackAtMost)
{
    if (SANITIZED)
        GTEST_SKIP() << "a sanitizer's calls take more";
    const StackProbe probe;
    const std::string room = R"({"rooms":[{"title":"R","deep":)" + nested(DEEPEST - 3) + "}],";
    const std::string alarm =
        R"("alarm":{"enabled":1,"trigger_duration":0,"duration":1,"siren_type":4},)";
    Device lamp = device(FIRST_DEVICE, 0, SWITCH, 255);
    lamp.channels[0].meter = nested(DEEPEST - 5);
    sdk.set(lamp);
    sdk.set(device(DOOR_DEVICE, 0, DOOR, 255));
    sdk.set(device(SIREN_DEVICE, 0, SIREN, 0));
    platform.set("TUTK_UUID", "ABCDEFGHIJKLMNOPQRST");
    platform.set("setDST", "1");
    platform.set("setsavingtime", R"({"deep":)" + nested(DEEPEST - 1) + "}");
    std::vector<std::string> settings = probe.settings();
    for (const std::string &setting : helpers.settings())
        settings.push_back(setting);
    settings.emplace_back("OVRIN_LOG_LEVEL=2");  // a line takes some, too
    startWith(room + alarm + home().substr(1), settings);
    gatewayReady();

    eventWithPayload(REPORT, FIRST_DEVICE, 0, 0, R"({"deep":)" + nested(DEEPEST - 1) + "}");
    const std::string command = switchCommand(FIRST_DEVICE, 0, 255);
    ASSERT_TRUE(tickUntil([&] { return sdk.count(command) >= 2; })) << "no scene was put back";
    event(REPORT, DOOR_DEVICE, 0);
    ASSERT_TRUE(tickUntil([&] { return sdk.heard(switchCommand(SIREN_DEVICE, 0, 0)); }));
    ASSERT_TRUE(tickUntil([&] { return platform.asked("setsavingtime") > 0; }));

    EXPECT_EQ(callForNumber("jsonsetall",
                            room + R"("registeredDevices":[{"token":"T","platform":"ios"}]})"),
              1);
    EXPECT_EQ(callForText("message", "The door is open", PUSH_MESSAGES), "done");
    ASSERT_TRUE(eventually([&] { return helpers.count() > 0; }));
    for (const char *member : {"backupConfig", "backupConfig", "restoreConfig"}) {
        const auto reply = client.call(SWITCH_APP, member, {int32_t{0}});
        ASSERT_TRUE(eventually([&] { return reply->arrived(); })) << member;
    }
    daemon.stop();
    endsOrderly = false;  // it has

    std::map<std::string, int64_t> most;
    for (const StackProbe::Stack &stack : probe.stacks()) {
        EXPECT_EQ(stack.size, STACK) << stack.thread;
        most[stack.thread] = std::max(most[stack.thread], stack.used);
    }
    std::vector<std::string> threads;
    for (const auto &[thread, used] : most) {
        threads.push_back(thread);
        figure("stack_" + thread, used, "bytes");
        EXPECT_LE(used, STACK / 2) << thread;
    }
    EXPECT_THAT(threads, testing::ElementsAre("alarm", "events", "listener", "macro", "main",
                                              "outbound", "push", "tick"));
}

TEST_F(Footprint, AtRestIsTheTickAlone)
{
    if (SANITIZED)
        GTEST_SKIP() << "a sanitizer has a thread of its own";
    static constexpr auto LOOK = 10s;
    startHome();
    const auto before = wakeUpsOf(daemon.pid());
    const Moment begin = Clock::now();
    std::this_thread::sleep_until(begin + LOOK);  // what is measured is a time
    auto wakeUps = wakeUpsOf(daemon.pid());
    const int64_t milliseconds = millisecondsBetween(begin, Clock::now());
    int64_t sum = 0;
    int64_t most = 0;
    for (auto &[thread, count] : wakeUps) {
        count -= before.at(thread);
        sum += count;
        most = std::max(most, count);
    }
    figure("wake_ups", sum * 10'000 / milliseconds, "in 10 s");
    // The watchdog's signal may fall into it.
    EXPECT_LE(sum - most, 10) << "somebody else wakes up, too";
    if (SPEED_COUNTS) {
        EXPECT_LE(most * 1000 / milliseconds, 11);
    }
}

TEST_F(Footprint, OnTheDiskIsTheChangedDocumentOnly)
{
    startHome();
    callForNumber("jsonsetall", R"({"rooms":[{"title":"Kitchen"}]})");
    const int64_t before = bytesWrittenBy(daemon.pid());
    callForNumber("jsonsetall", R"({"rooms":[{"title":"Bedroom"}]})");
    const int64_t written = bytesWrittenBy(daemon.pid()) - before;
    const auto document = static_cast<int64_t>(daemon.storedSetup().size());
    figure("document", document, "bytes");
    figure("by_a_change", written, "bytes");
    EXPECT_LE(written, 3 * document);
}

TEST_F(Footprint, OnTheDiskIsNothingOfEventsPushesAndAlarms)
{
    sdk.set(device(DOOR_DEVICE, 0, DOOR, 255));
    sdk.set(device(SIREN_DEVICE, 0, SIREN, 0));
    platform.set("TUTK_UUID", "ABCDEFGHIJKLMNOPQRST");
    std::vector<std::string> settings = helpers.settings();
    settings.insert(settings.end(), QUIET.begin(), QUIET.end());
    startHome(settings);
    ASSERT_EQ(callForNumber("jsonsetall", R"({"registeredDevices":[{"token":"T","platform":"ios"}],
        "alarm":{"enabled":1,"trigger_duration":0,"duration":1,"siren_type":4}})"),
              1);
    const auto files = filesNow();

    event(REPORT, FIRST_DEVICE, 0);
    ASSERT_TRUE(tickUntil([&] { return sdk.heard(switchCommand(FIRST_DEVICE, 0, 255)); }));
    EXPECT_EQ(filesNow(), files) << "by an event and a scene";
    EXPECT_EQ(callForText("message", "The door is open", PUSH_MESSAGES), "done");
    ASSERT_TRUE(eventually([&] { return helpers.count() > 0; }));
    EXPECT_EQ(filesNow(), files) << "by a push";
    event(REPORT, DOOR_DEVICE, 0);
    ASSERT_TRUE(tickUntil([&] { return sdk.heard(switchCommand(SIREN_DEVICE, 0, 0)); }));
    EXPECT_EQ(filesNow(), files) << "by an alarm";
}

TEST_F(Footprint, OnTheDiskIsWhatAScheduleWillPutBack)
{
    static constexpr const char *RESUME = "scheduleResumeScene.json";
    WallClock clock;
    clock.set(2024, 7, 1, 8, 15, 1);
    sdk.set(device(FIRST_DEVICE, 0, SWITCH, 7));
    std::vector<std::string> settings = clock.settings();
    settings.insert(settings.end(), QUIET.begin(), QUIET.end());
    startWith(R"({"schedules":[{"title":"Morning","weekdays":127,"start_hour":8,
        "start_minute":15,"end_hour":9,"end_minute":45,"enabled":1,"macro":{"title":"M",
        "scene":{"title":"S","comps":[{"target":{"dev":20,"if":0,"ch":0},"value":255}]}}}]})",
              settings);
    const auto lampIs = [&](int64_t value) {
        return eventually([&] { return sdk.heard(switchCommand(FIRST_DEVICE, 0, value)); });
    };
    auto files = filesNow();
    const int64_t before = bytesWrittenBy(daemon.pid());
    daemon.signal(SIGUSR1);
    ASSERT_TRUE(lampIs(255));
    const int64_t written = bytesWrittenBy(daemon.pid()) - before;
    const auto document = static_cast<int64_t>(daemon.data.read(RESUME).value_or("").size());
    figure("resume_document", document, "bytes");
    figure("by_a_schedules_start", written, "bytes");
    EXPECT_GT(document, 0);
    EXPECT_LE(written, 3 * document);

    const auto inForce = filesNow();
    clock.set(2024, 7, 1, 9, 45, 1);
    daemon.signal(SIGUSR1);
    ASSERT_TRUE(lampIs(7));
    EXPECT_EQ(filesNow(), inForce) << "by its end";
    for (const char *changed : {RESUME, "."})
        files[changed] = inForce.at(changed);
    EXPECT_EQ(inForce, files) << "by its start something else, too";
}
