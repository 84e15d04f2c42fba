// What the daemon takes of a small machine. Shown by scripts/footprint.sh for the device's program.

#include "support/daemon_on_its_own_bus.h"
#include "support/push_helpers.h"
#include "support/scale.h"

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
static constexpr int64_t STACK_KILOBYTES = 256;   // of every thread but the first
static constexpr size_t PERMANENT_THREADS = 4;    // tick, bus, listener, events
static constexpr int64_t GOAL_KILOBYTES = 1'536;  // above a bare program
static const std::vector<std::string> QUIET = {"OVRIN_LOG_LEVEL=7"};

// Of a mapping; sizes in kilobytes.
struct Mapping {
    uint64_t begin = 0;
    uint64_t end = 0;
    bool closed = false;  // nobody may read it
    int64_t resident = 0;
    int64_t dirty = 0;

    int64_t size() const
    {
        return static_cast<int64_t>((end - begin) / 1024);
    }
};

// Those of the program. An emulator has the program's addresses, of 32 bits, below its own.
static std::vector<Mapping> mappingsOf(pid_t process)
{
    static constexpr uint64_t END_OF_32_BITS = uint64_t{1} << 32;
    std::vector<Mapping> mappings;
    std::ifstream file("/proc/" + std::to_string(process) + "/smaps");
    for (std::string line; std::getline(file, line);) {
        Mapping mapping;
        int64_t kilobytes;
        char rights[5] = "";
        if (sscanf(line.c_str(), "%lx-%lx %4s", &mapping.begin, &mapping.end, rights) == 3) {
            mapping.closed = rights[0] == '-';
            mappings.push_back(mapping);
        } else if (sscanf(line.c_str(), "Rss: %ld kB", &kilobytes) == 1)
            mappings.back().resident = kilobytes;
        else if (sscanf(line.c_str(), "Private_Dirty: %ld kB", &kilobytes) == 1)
            mappings.back().dirty = kilobytes;
    }
    if (emulated())
        std::erase_if(mappings, [](const Mapping &one) { return one.end > END_OF_32_BITS; });
    return mappings;
}

static int64_t privateKilobytesOf(pid_t process)
{
    int64_t sum = 0;
    for (const Mapping &mapping : mappingsOf(process))
        sum += mapping.dirty;
    return sum;
}

// What the threads but the first have used of their stacks since their start, the most first. A
// stack begins above a page that nobody may read. What the system has joined to the highest counts
// as well; an emulator joins megabytes to it, and it is left out.
static std::vector<int64_t> stacksOf(pid_t process)
{
    static constexpr int64_t PAGE = 4;
    std::vector<int64_t> used;
    Mapping below;
    for (const Mapping &mapping : mappingsOf(process)) {
        const bool guarded = below.closed && below.end == mapping.begin && below.size() == PAGE;
        const bool alone = mapping.size() == STACK_KILOBYTES;
        if (guarded && !mapping.closed &&
            (alone || (!emulated() && mapping.size() > STACK_KILOBYTES)))
            used.push_back(mapping.resident);
        below = mapping;
    }
    std::sort(used.rbegin(), used.rend());
    return used;
}

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

// One use after the other, so that each that takes more is seen.
TEST_F(Footprint, OfAThreadIsHalfOfItsStackAtMost)
{
    if (SANITIZED)
        GTEST_SKIP() << "a sanitizer's calls take more";
    const auto note = [&](const std::string &use) {
        const std::vector<int64_t> stacks = stacksOf(daemon.pid());
        ASSERT_FALSE(stacks.empty());
        figure(use, stacks[0], "kB");
        EXPECT_LE(stacks[0], STACK_KILOBYTES / 2) << use;
    };
    figure("stack", STACK_KILOBYTES, "kB");
    platform.set("TUTK_UUID", "ABCDEFGHIJKLMNOPQRST");
    std::vector<std::string> settings = helpers.settings();
    settings.emplace_back("OVRIN_LOG_LEVEL=2");  // a line takes some, too
    startHome(settings);
    if (!emulated()) {
        EXPECT_GE(stacksOf(daemon.pid()).size(), PERMANENT_THREADS);
    }
    note("at_rest");

    sdk.forgetHeard();
    event(REPORT, FIRST_DEVICE, 0);
    ASSERT_TRUE(tickUntil([&] { return sdk.heard(switchCommand(FIRST_DEVICE, 0, 255)); }));
    note("events_and_scenes");

    EXPECT_EQ(callForNumber("jsonsetall", R"({"registeredDevices":[{"token":"T","platform":"ios"}],
        "alarm":{"enabled":1,"delay":0,"duration":1}})"),
              1);
    event(REPORT, FIRST_DEVICE, 0);
    EXPECT_EQ(callForText("message", "The door is open", PUSH_MESSAGES), "done");
    ASSERT_TRUE(eventually([&] { return helpers.count() > 0; }));
    note("pushes_and_alarms");

    for (const char *member : {"backupConfig", "backupConfig", "restoreConfig"}) {
        const auto reply = client.call(SWITCH_APP, member, {int32_t{0}});
        ASSERT_TRUE(eventually([&] { return reply->arrived(); })) << member;
    }
    note("backup_and_restore");

    std::string deep = R"({"rooms":[{"title":"R","deep":)";
    for (int i = 3; i < DEEPEST; ++i)
        deep += "[";
    for (int i = 3; i < DEEPEST; ++i)
        deep += "]";
    EXPECT_EQ(callForNumber("jsonsetall", deep + "}]}"), 1) << "it was refused";
    note("deepest_document");
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

    const auto files = filesNow();
    sdk.forgetHeard();
    event(REPORT, FIRST_DEVICE, 0);
    ASSERT_TRUE(tickUntil([&] { return sdk.heard(switchCommand(FIRST_DEVICE, 0, 255)); }));
    EXPECT_EQ(filesNow(), files) << "an event wrote something";
}
