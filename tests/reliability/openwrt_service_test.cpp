// The service of the OpenWrt package: what it has procd start is what the daemon needs, and the
// signal of the full minute comes once a minute.

#include "support/daemon_on_its_own_bus.h"
#include "support/wall_clock.h"

#include <csignal>
#include <fstream>
#include <map>
#include <sstream>
#include <sys/stat.h>

using namespace support;
using testing::ElementsAre;
using Words = std::vector<std::string>;

static constexpr const char *SERVICE = PACKAGING_FOLDER "/openwrt/files/app.init";
static constexpr const char *MINUTE = PACKAGING_FOLDER "/openwrt/files/app-minute";

// In place of procd's own, and of what would change the machine: each call is a line, its words
// parted by tabs.
static constexpr const char *RECORDER = R"(
record() { local IFS; IFS='	'; printf '%s\n' "$*"; }
procd_open_instance() { record instance "$@"; }
procd_set_param() { record param "$@"; }
procd_close_instance() { :; }
mkdir() { record mkdir "$@"; }
chmod() { record chmod "$@"; }
chown() { record chown "$@"; }
. "$1"
start_service
)";

static std::vector<Words> tabled(const std::string &text)
{
    std::vector<Words> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        Words &words = lines.emplace_back();
        std::istringstream cells(line);
        for (std::string word; std::getline(cells, word, '\t');)
            words.push_back(word);
    }
    return lines;
}

class OpenWrtService : public ConfigurableDaemon {
protected:
    void SetUp() override
    {
        ConfigurableDaemon::SetUp();
        ChildProcess shell;
        shell.start({"/bin/sh", "-euc", RECORDER, "sh", SERVICE}, {});
        ASSERT_EQ(shell.waitForEnd(20s), 0) << shell.output();
        std::string instance;
        for (const Words &line : tabled(shell.output())) {
            const Words rest(line.begin() + (line[0] == "param" ? 2 : 1), line.end());
            if (line[0] == "instance")
                instance = rest.at(0);
            else if (line[0] == "param")
                params[instance][line.at(1)] = rest;
            else
                before.push_back(line);
        }
    }
    std::string dataFolder()
    {
        const Words environment = params["daemon"]["env"];
        EXPECT_EQ(environment.size(), 1u);
        const std::string name = "APP_DATA_DIR=";
        EXPECT_TRUE(environment.at(0).starts_with(name));
        return environment.at(0).substr(name.size());
    }

    std::vector<Words> before;  // what is done to the machine
    std::map<std::string, std::map<std::string, Words>> params;
};

TEST_F(OpenWrtService, KeepsItsFolderToItsUser)
{
    const std::string folder = dataFolder();
    EXPECT_THAT(before, ElementsAre(ElementsAre("mkdir", "-p", folder),
                                    ElementsAre("chmod", "0700", folder),
                                    ElementsAre("chown", "ovrin:ovrin", folder)));
}

TEST_F(OpenWrtService, RunsBothAsItsUserAgainAndAgain)
{
    for (const char *instance : {"daemon", "minute"}) {
        EXPECT_THAT(params[instance]["user"], ElementsAre("ovrin"));
        EXPECT_THAT(params[instance]["respawn"], ElementsAre("3600", "5", "0"));
        EXPECT_THAT(params[instance]["stderr"], ElementsAre("1"));
        EXPECT_THAT(params[instance]["no_new_privs"], ElementsAre("1"));
    }
}

// The command as it is recorded, with the test's own folder and bus, and nothing else around it. A
// sanitizer has its settings in the environment.
TEST_F(OpenWrtService, StartsTheDaemonWithTheEnvironmentThatItSets)
{
    EXPECT_THAT(params["daemon"]["command"], ElementsAre("/usr/sbin/app"));
    Words environment = params["daemon"]["env"];
    environment.at(0).replace(environment[0].find(dataFolder()), std::string::npos,
                              daemon.data.path().string());
    if (!SANITIZED) {
        daemon.starter = {"/usr/bin/env", "-i", "DBUS_SYSTEM_BUS_ADDRESS=" + bus.address()};
        daemon.starter.insert(daemon.starter.end(), environment.begin(), environment.end());
    }
    startReady();
    EXPECT_TRUE(client.peer.nameHasOwner(APP_NAME));
    EXPECT_EQ(set(R"({"scenes":[{"title":"Evening"}]})"), 1);
    EXPECT_NE(daemon.storedSetup(), "");
}

// app-minute among programs of the test's own: `date` tells one moment after the other, and when
// there are no more, time stands still. `sleep` tells how long it should be; where there is a gate
// it lasts until somebody comes through.
class Minute : public OpenWrtService {
protected:
    void SetUp() override
    {
        OpenWrtService::SetUp();
        writeProgram("date", R"(
read -r now <"$0.times"
sed -i 1d "$0.times"
echo "$now")");
        writeProgram("sleep", R"(
echo "sleep $1"
while [ ! -s "${0%/*}/date.times" ]; do
    kill -0 "$PPID" 2>/dev/null || exit
    /bin/sleep 0.05
done
[ ! -p "${0%/*}/gate" ] || read -r _ <"${0%/*}/gate")");
    }
    void writeProgram(const char *name, const std::string &text) const
    {
        programs.write(name, "#!/bin/sh" + text + "\n");
        std::filesystem::permissions(programs.file(name), std::filesystem::perms(0755));
    }
    void run(const std::string &times)
    {
        EXPECT_THAT(params["minute"]["command"], ElementsAre("/usr/sbin/app-minute"));
        programs.write("date.times", times);
        minute.start({"/bin/sh", MINUTE}, {"PATH=" + programs.path().string() + ":/usr/bin:/bin",
                                           "DBUS_SYSTEM_BUS_ADDRESS=" + bus.address()});
    }

    TempDir programs;
    ChildProcess minute;
};

TEST_F(Minute, StartsTheSchedulesOfThatMinute)
{
    WallClock clock;
    clock.set(2026, 1, 5, 12, 0, 1);
    sdk.set(device(20, 0, SWITCH, 7));
    startWith(R"({"schedules":[{"title":"Noon","enabled":1,"weekdays":127,"start_hour":12,
        "start_minute":0,"end_hour":13,"end_minute":0,"macro":{"title":"M","scene":{"title":"S",
        "comps":[{"target":{"dev":20},"value":255}]}}}]})",
              clock.settings());
    gatewayReady();
    run("1175\n1175\n1200\n1200\n");
    EXPECT_TRUE(eventually([&] { return sdk.heard(switchCommand(20, 0, 255)); }))
        << minute.output();
}

// Told to mark, it has done with all signals of a minute before.
static constexpr const char *LISTENER = R"(
trap 'echo minute' USR1
trap 'echo marker' USR2
echo ready
while :; do /bin/sleep 0.01; done)";

TEST_F(Minute, ComesOnceAMinuteAlsoWhenTheWaitEndsEarly)
{
    ChildProcess listener;
    listener.start({"/bin/sh", "-c", LISTENER}, {});
    ASSERT_TRUE(eventually([&] { return listener.outputHolds("ready\n"); }));
    const auto heard = [&] {
        const size_t from = listener.outputSize();
        listener.signal(SIGUSR2);
        EXPECT_TRUE(eventually([&] { return listener.outputHolds("marker\n", from); }));
        return listener.output();
    };
    const std::filesystem::path gate = programs.file("gate");
    ASSERT_EQ(mkfifo(gate.c_str(), 0600), 0);
    writeProgram("dbus-send", "\necho '   uint32 " + std::to_string(listener.pid()) + "'");
    run("1175\n1175\n1199\n1199\n1200\n1200\n");
    const auto endTheWaitOf = [&](const std::string &seconds) {
        EXPECT_TRUE(eventually([&] { return minute.outputHolds("sleep " + seconds + "\n"); }));
        std::ofstream(gate) << "\n";
    };

    endTheWaitOf("25");
    ASSERT_TRUE(eventually([&] { return minute.outputHolds("sleep 1\n"); })) << minute.output();
    EXPECT_EQ(heard(), "ready\nmarker\n") << "it is not the next minute yet";
    endTheWaitOf("1");
    ASSERT_TRUE(eventually([&] { return minute.outputHolds("sleep 60\n"); })) << minute.output();
    EXPECT_EQ(heard(), "ready\nmarker\nminute\nmarker\n");
}
