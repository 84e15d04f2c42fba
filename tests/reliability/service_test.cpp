// The service of the package: the daemon does its work in its sandbox.

#include "support/daemon_on_its_own_bus.h"
#include "support/push_helpers.h"

#include <filesystem>
#include <fstream>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace support;
using testing::ElementsAre;

static constexpr const char *UNIT = PACKAGING_FOLDER "/app.service";
static constexpr const char *ANALYZE = "/usr/bin/systemd-analyze";
static constexpr const char *USER = "bin";  // stands in for the service's own
static constexpr const char *SWITCH_APP = "com.OvrinTech.switch.app";

class ServiceSandbox : public ConfigurableDaemon {
protected:
    void SetUp() override
    {
        if (!SPEED_COUNTS)
            GTEST_SKIP() << "a sanitizer, or an emulator, wants more than the service has";
        if (geteuid() != 0 || access(ANALYZE, X_OK) != 0 || !getpwnam(USER))
            GTEST_SKIP() << "only root can, with systemd's tables of system calls";
        ConfigurableDaemon::SetUp();
        const std::filesystem::path busFolder =
            std::filesystem::path(bus.address().substr(bus.address().find('=') + 1)).parent_path();
        std::filesystem::permissions(busFolder, std::filesystem::perms(0755));
        giveAway(daemon.data.path());
        giveAway(helpers.folder.path());
        for (const char *name :
             {"ios_push", "gcm_push"}) {  // links lead to where its user cannot go
            const std::filesystem::path helper = helpers.folder.file(name);
            const std::filesystem::path target = std::filesystem::read_symlink(helper);
            std::filesystem::remove(helper);
            std::filesystem::copy_file(target, helper);
        }
        daemon.starter = {"/usr/bin/python3",
                          IN_SANDBOX,
                          UNIT,
                          USER,
                          "bus=" + busFolder.string(),
                          "data=" + daemon.data.path().string(),
                          "helpers=" + helpers.folder.path().string(),
                          "--"};
        if (!isPossible(daemon.starter))
            GTEST_SKIP() << "no namespaces, or no libseccomp";
    }
    static void giveAway(const std::filesystem::path &folder)
    {
        const passwd &user = *getpwnam(USER);
        ASSERT_EQ(chown(folder.c_str(), user.pw_uid, user.pw_gid), 0);
    }
    static bool isPossible(const std::vector<std::string> &starter)
    {
        static constexpr int CANNOT = 77 << 8;
        std::vector<std::string> command = starter;
        command.emplace_back("/bin/true");
        ChildProcess attempt;
        attempt.start(command, {});
        return attempt.waitForEnd(20s) != CANNOT;
    }
    int64_t copies(const char *member)
    {
        const auto reply = client.call(SWITCH_APP, member, {int32_t{0}});
        EXPECT_TRUE(eventually([&] { return reply->arrived(); }));
        return reply->number();
    }
    int modeOf(const char *file)
    {
        struct stat status {};
        stat(daemon.data.file(file).c_str(), &status);
        return static_cast<int>(status.st_mode & 07777);
    }

    void startInside()
    {
        platform.set("TUTK_UUID", "ABCDEFGHIJKLMNOPQRST");
        start({"DBUS_SYSTEM_BUS_ADDRESS=unix:path=/mnt/bus/bus", "APP_DATA_DIR=/mnt/data",
               "PATH=/mnt/helpers:/usr/bin:/bin", "APP_TEST_HELPERS=/mnt/helpers"});
        gatewayReady();
    }
    // A line of what the kernel says of the daemon, without its name.
    std::string statusOf(const std::string &key) const
    {
        std::ifstream status("/proc/" + std::to_string(daemon.pid()) + "/status");
        for (std::string line; std::getline(status, line);) {
            if (line.rfind(key + ":\t", 0) == 0)
                return line.substr(key.size() + 2);
        }
        return "";
    }

    PushHelpers helpers;
};

TEST_F(ServiceSandbox, LetsTheDaemonDoItsWork)
{
    ASSERT_NO_FATAL_FAILURE(startInside());

    // Saving, and its backups, which a shell copies.
    ASSERT_EQ(set(R"({"registeredDevices":[{"token":"1","platform":"ios","app_id":"A"},
                                           {"token":"2","platform":"android","app_id":"B"}]})"),
              1);
    EXPECT_NE(daemon.storedSetup(), "");
    EXPECT_EQ(modeOf("appSetup.json"), 0600);
    EXPECT_EQ(copies("backupConfig"), 1);
    EXPECT_EQ(copies("restoreConfig"), 1);
    EXPECT_EQ(modeOf("appSetup.json_bak"), 0600);

    // Pushes.
    EXPECT_EQ(callForText("message", "Hello", "com.OvrinTech.message.pushMsg"), "done");
    ASSERT_TRUE(eventually([&] { return helpers.count() == 2; }));
    EXPECT_THAT(helpers.commands(),
                ElementsAre(ElementsAre("ios_push", "A", "1", "ABCDEFGHIJKLMNOPQRST", "Hello"),
                            ElementsAre("gcm_push", "B", "2", "Hello")));

    // The hardware address: that of the one interface in there.
    EXPECT_EQ(Json(sdk.events("recent").back().text)["mac"].text(), "00:00:00:00:00:00");
}

TEST_F(ServiceSandbox, LeavesTheDaemonNoCapability)
{
    ASSERT_NO_FATAL_FAILURE(startInside());
    for (const char *set : {"CapInh", "CapPrm", "CapEff", "CapBnd", "CapAmb"})
        EXPECT_EQ(statusOf(set), "0000000000000000") << set;
    EXPECT_EQ(statusOf("NoNewPrivs"), "1");
    EXPECT_EQ(statusOf("Seccomp"), "2") << "a filter";
}

// What runs in there with the daemon tries: a program that delivers a push.
TEST_F(ServiceSandbox, LetsNothingBeWrittenOutsideOfItsFolders)
{
    std::filesystem::remove(helpers.folder.file("ios_push"));
    helpers.folder.write("ios_push", R"(#!/bin/sh
for folder in /mnt/data /tmp / /etc /usr /var /var/tmp /mnt/program
do (: >$folder/written) 2>&1 && rm $folder/written && echo "$folder was written"
done >/mnt/helpers/attempts
echo >/mnt/helpers/done
)");
    std::filesystem::permissions(helpers.folder.file("ios_push"), std::filesystem::perms(0755));
    ASSERT_NO_FATAL_FAILURE(startInside());
    ASSERT_EQ(set(R"({"registeredDevices":[{"token":"1","platform":"ios","app_id":"A"}]})"), 1);
    callForText("message", "Hello", "com.OvrinTech.message.pushMsg");
    ASSERT_TRUE(eventually([&] { return helpers.folder.read("done").has_value(); }));

    const std::string attempts = helpers.folder.read("attempts").value_or("");
    for (const std::string folder : {"/mnt/data", "/tmp", "/var/tmp"})
        EXPECT_THAT(attempts, testing::HasSubstr(folder + " was written\n"));
    for (const std::string folder : {"/", "/etc", "/usr", "/var", "/mnt/program"})
        EXPECT_THAT(attempts,
                    testing::HasSubstr(" " + folder + "/written: Read-only file system\n"));
}
