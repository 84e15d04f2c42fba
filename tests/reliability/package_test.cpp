// What the package brings along beside the daemon: its units, the minute of the schedules, the
// example, the manual pages.

#include "support/daemon_on_its_own_bus.h"
#include "support/scale.h"
#include "support/wall_clock.h"

#include <cmath>
#include <filesystem>
#include <fstream>
#include <pwd.h>
#include <regex>
#include <set>
#include <sstream>
#include <unistd.h>

using namespace support;
using testing::HasSubstr;

static constexpr const char *MINUTE_UNIT = PACKAGING_FOLDER "/app-minute.service";
static constexpr const char *ANALYZE = "/usr/bin/systemd-analyze";
static constexpr const char *DOCS = PACKAGING_FOLDER "/../docs";

static std::string fileText(const std::string &path)
{
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    EXPECT_NE(text.str(), "") << path;
    return text.str();
}

static std::string replaced(std::string text, const std::string &old, const std::string &by)
{
    for (size_t at = text.find(old); at != std::string::npos; at = text.find(old, at + by.size()))
        text.replace(at, old.size(), by);
    return text;
}

// What the unit starts, as systemd splits and unescapes it: /bin/sh -c '…'.
static std::vector<std::string> minuteCommand()
{
    static constexpr std::string_view START = "ExecStart=/bin/sh -c '";
    const std::string unit = fileText(MINUTE_UNIT);
    const size_t start = unit.find(START);
    const size_t end = unit.find("'\n", start);
    if (start == std::string::npos || end == std::string::npos)
        return {"/bin/false"};
    const size_t text = start + START.size();
    return {"/bin/sh", "-c", replaced(unit.substr(text, end - text), "$$", "$")};
}

class PackagedMinute : public DaemonOnItsOwnBus {
protected:
    void SetUp() override
    {
        if (access("/usr/bin/dbus-send", X_OK) != 0)
            GTEST_SKIP() << "no dbus-send";
        DaemonOnItsOwnBus::SetUp();
    }
    void startWithLamp()
    {
        clock.set(2024, 7, 1, 8, 15, 1);
        sdk.set(device(20, 0, SWITCH, 7));
        startWith(R"({"schedules":[{"title":"Morning","weekdays":127,"start_hour":8,
            "start_minute":15,"end_hour":9,"end_minute":45,"enabled":1,"macro":{"title":"M",
            "scene":{"title":"S","comps":[{"target":{"dev":20,"if":0,"ch":0},"value":255}]}}}]})",
                  clock.settings());
    }
    bool lampIsSwitched()
    {
        return eventually([&] { return sdk.heard(switchCommand(20, 0, 255)); });
    }
    int strike()
    {
        return strike(minuteCommand(), bus.address());
    }
    int strike(const std::vector<std::string> &command, const std::string &address)
    {
        minute.start(command, {"DBUS_SYSTEM_BUS_ADDRESS=" + address});
        const std::optional<int> status = minute.waitForEnd(20s);
        EXPECT_TRUE(status);
        return status.value_or(-1);
    }

    WallClock clock;
    ChildProcess minute;
};

TEST_F(PackagedMinute, StartsTheScheduleOfThatMinute)
{
    startWithLamp();
    EXPECT_EQ(strike(), 0) << minute.output();
    EXPECT_TRUE(lampIsSwitched());
    EXPECT_EQ(minute.output(), "");
}

TEST_F(PackagedMinute, ReachesTheDaemonOutOfItsSandbox)
{
    static constexpr int CANNOT = 77 << 8;
    const passwd *user = getpwnam("bin");  // stands in for the unit's own
    if (geteuid() != 0 || access(ANALYZE, X_OK) != 0 || !user)
        GTEST_SKIP() << "only root can, with systemd's tables of system calls";
    const std::filesystem::path busFolder =
        std::filesystem::path(bus.address().substr(bus.address().find('=') + 1)).parent_path();
    std::filesystem::permissions(busFolder, std::filesystem::perms(0755));
    daemon.runAs(user->pw_name);
    startWithLamp();
    std::vector<std::string> command = {
        "/usr/bin/python3",          IN_SANDBOX, MINUTE_UNIT, user->pw_name,
        "bus=" + busFolder.string(), "--"};
    for (const std::string &word : minuteCommand())
        command.push_back(word);
    const int status = strike(command, "unix:path=/mnt/bus/bus");
    if (status == CANNOT)
        GTEST_SKIP() << "no namespaces, or no libseccomp";
    EXPECT_EQ(status, 0) << minute.output();
    EXPECT_TRUE(lampIsSwitched());
}

TEST_F(PackagedMinute, FailsAndSaysSoWithoutTheDaemon)
{
    EXPECT_NE(strike(), 0);
    EXPECT_THAT(minute.output(), HasSubstr("com.ovrinbus.app"));
}

using PackagedExample = ConfigurableDaemon;

// The document has all that the example has, and each member is the same.
static void expectWithin(const Json &document, const Json &example, const std::string &where)
{
    if (example.isArray()) {
        ASSERT_TRUE(document.isArray()) << where;
        ASSERT_EQ(document.size(), example.size()) << where;
        for (size_t i = 0; i < example.size(); ++i)
            expectWithin(document[i], example[i], where + "." + std::to_string(i));
        return;
    }
    const std::vector<std::string> keys = example.keys();
    if (keys.empty()) {
        EXPECT_EQ(document, example) << where;
    }
    for (const std::string &key : keys)
        expectWithin(document[key.c_str()], example[key.c_str()], where + "." + key);
}

TEST_F(PackagedExample, IsTakenAndHandedOutWhole)
{
    const std::string example = fileText(std::string(DOCS) + "/examples/appSetup.json");
    ASSERT_FALSE(Json(example).isNull());
    startReady();
    EXPECT_EQ(set(example), 1);
    expectWithin(Json(callForText("jsongetall", "")), Json(example), "set");
    restart();
    expectWithin(Json(callForText("jsongetall", "")), Json(example), "stored");
}

TEST_F(PackagedExample, HasEveryGroupOfAConfiguration)
{
    const Json example(fileText(std::string(DOCS) + "/examples/appSetup.json"));
    startReady();
    for (const std::string &group : Json(callForText("jsongetall", "")).keys())
        EXPECT_GT(example[group.c_str()].size(), 0u) << group;
}

class PackagedUnits : public testing::Test {
protected:
    void SetUp() override
    {
        if (access(ANALYZE, X_OK) != 0)
            GTEST_SKIP() << "no " << ANALYZE;
    }
    int analyze(const std::vector<std::string> &arguments)
    {
        std::vector<std::string> command = {ANALYZE, "--no-pager"};
        command.insert(command.end(), arguments.begin(), arguments.end());
        program.start(command, {"LC_ALL=C"});
        return program.waitForEnd(20s).value_or(-1);
    }

    ChildProcess program;
};

TEST_F(PackagedUnits, ExposeWhatTheyRunToTwoOfTenAtMost)
{
    for (const std::string unit : {"app.service", "app-minute.service"}) {
        ASSERT_EQ(analyze({"security", "--offline=true", "--threshold=20",
                           std::string(PACKAGING_FOLDER "/") + unit}),
                  0)
            << program.output();
        const std::string before = "Overall exposure level for " + unit + ": ";
        const std::string told = program.output();
        const size_t place = told.find(before);
        ASSERT_NE(place, std::string::npos) << told;
        figure(unit, std::lround(10 * std::stod(told.substr(place + before.size()))), "tenths");
    }
}

TEST_F(PackagedUnits, LeaveTheServiceNoCapabilityAndTheFilesOfTheMachineOnlyToRead)
{
    static constexpr const char *UNIT = PACKAGING_FOLDER "/app.service";
    ASSERT_EQ(analyze({"security", "--offline=true", "--json=short", UNIT}), 0) << program.output();
    const Json settings(program.output());
    size_t capabilities = 0;
    size_t others = 0;
    for (size_t i = 0; i < settings.size(); ++i) {
        const std::string name = settings[i]["json_field"].text();
        const bool isCapability = name.rfind("CapabilityBoundingSet_", 0) == 0;
        const bool isOther = name == "AmbientCapabilities" || name == "NoNewPrivileges" ||
                             name == "ProtectSystem" || name == "ProtectHome" ||
                             name == "PrivateTmp";
        capabilities += isCapability ? 1 : 0;
        others += isOther ? 1 : 0;
        if (isCapability || isOther) {
            EXPECT_EQ(settings[i]["set"].dump(), "true") << settings[i].dump();
        }
    }
    EXPECT_GT(capabilities, 20u);
    EXPECT_EQ(others, 5u);
    const std::string unit = fileText(UNIT);
    EXPECT_THAT(unit, testing::Not(HasSubstr("ReadWritePaths")));
    EXPECT_THAT(unit, HasSubstr("\nStateDirectoryMode=0700\n"));
    EXPECT_THAT(unit, HasSubstr("\nUMask=0077\n"));
}

// Of a key that it does not know systemd says so, and goes on without.
TEST_F(PackagedUnits, HoldOnlyWhatSystemdKnows)
{
    const TempDir folder;
    std::vector<std::string> arguments = {"verify", "--man=no"};
    for (const char *unit : {"app.service", "app-minute.service", "app-minute.timer"}) {
        folder.write(unit, replaced(fileText(std::string(PACKAGING_FOLDER "/") + unit),
                                    "/usr/sbin/app", "/bin/true"));
        arguments.push_back(folder.file(unit).string());
    }
    EXPECT_EQ(analyze(arguments), 0);
    EXPECT_THAT(program.output(), testing::Not(HasSubstr("app")));
}

// The default is a minute, in which one would be missed.
TEST(PackagedTimer, SendsEachMinuteToTheSecond)
{
    const std::string timer = fileText(PACKAGING_FOLDER "/app-minute.timer");
    EXPECT_THAT(timer, HasSubstr("\nOnCalendar=*:*:00\n"));
    EXPECT_THAT(timer, HasSubstr("\nAccuracySec=1s\n"));
}

class Package : public testing::Test {
protected:
    static std::string answerTo(const char *argument)
    {
        ChildProcess program;
        program.start({daemonProgram(), argument}, {});
        EXPECT_EQ(program.waitForEnd(10s), 0);
        return program.output();
    }
    static std::string manual(const std::string &page)
    {
        // As it reads: an escaped sign stands for itself.
        return replaced(fileText(std::string(DOCS) + "/man/" + page + ".scd"), "\\", "");
    }
    // Several of a line stand with commas, and the manual's in * or _.
    static std::set<std::string> subjects(const std::string &text, const std::regex &line)
    {
        std::set<std::string> all;
        for (std::sregex_iterator row(text.begin(), text.end(), line), end; row != end; ++row) {
            std::istringstream words(replaced((*row)[1].str(), ",", ""));
            for (std::string word; words >> word;)
                all.insert(word.front() == word.back() ? word.substr(1, word.size() - 2) : word);
        }
        return all;
    }
};

TEST_F(Package, HasTheVersionOfTheProgram)
{
    static const std::regex ENTRY(R"(^app \(([^)]+)\) )");
    const std::string changes = fileText(PACKAGING_FOLDER "/debian/changelog");
    std::smatch newest;
    ASSERT_TRUE(std::regex_search(changes, newest, ENTRY));
    EXPECT_EQ("app " + newest[1].str() + "\n", answerTo("--version"));
}

// Options, environment, files and signals: in the help an indented line starts with what it
// explains, in the manual a line has nothing else, and the explanation is indented below.
TEST_F(Package, ExplainsTheSameInItsManualAndItsHelp)
{
    static const std::regex IN_HELP(R"(\n  ([^ ,]+(?:, [^ ,]+)*) )");
    static const std::regex IN_MANUAL(R"(\n([*_][^ ,\n]+(?:, [^ ,\n]+)*)\n\t)");
    const std::string help = answerTo("--help");
    std::string page = manual("app.8");
    page.resize(page.find("\n# EXIT STATUS\n"));
    const size_t files = page.find("\nOf the package:\n");
    page.erase(files, page.find("\n# SIGNALS\n") - files);  // the program does not know of them
    const std::set<std::string> helped = subjects(help, IN_HELP);
    EXPECT_EQ(helped, subjects(page, IN_MANUAL));
    EXPECT_GE(helped.size(), 16u) << help;
}

// Whatever stands there as code before the example is a member.
TEST_F(Package, ExplainsInItsManualEveryMemberOfTheConfiguration)
{
    static const std::regex MEMBER("`([A-Za-z_]+)`");
    const std::string text = fileText(std::string(DOCS) + "/configuration.md");
    const std::string document = text.substr(text.find("## The document"),
                                             text.find("### An example") - text.find("## The doc"));
    const std::string page = manual("appSetup.json.5");
    size_t members = 0;
    for (std::sregex_iterator word(document.begin(), document.end(), MEMBER), end; word != end;
         ++word, ++members)
        EXPECT_THAT(page, HasSubstr("*" + (*word)[1].str() + "*"));
    EXPECT_GE(members, 80u);
}
