// Descriptors or memory run out while the daemon runs: it says so, goes on with what needs none,
// and recovers when they are back.

#include "support/daemon_on_its_own_bus.h"
#include "support/push_helpers.h"
#include "support/scale.h"

#include <filesystem>
#include <fstream>
#include <linux/capability.h>
#include <pwd.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

using namespace support;

static constexpr const char *PUSH_MESSAGES = "com.OvrinTech.message.pushMsg";
static constexpr uint16_t REPORT = 5001;
static const std::string LAMP_ON = switchCommand(20, 0, 255);

static constexpr size_t MACROS_OF_A_CROWD = 12;

static std::string macro(const std::string &title, int sensor, const std::string &scene)
{
    return R"({"title":")" + title + R"(","enabled":1,"duration":0,"scene":")" + scene +
           R"(","triggers":[{"target":{"dev":)" + std::to_string(sensor) +
           R"(},"op":"=","threshold":255}]})";
}

// The door 5 has one macro, the door 7 a crowd of them.
static std::string setup()
{
    std::string text = R"({"scenes":[{"title":"Nothing"},
          {"title":"Light","comps":[{"value":255,"target":{"dev":20,"if":0,"ch":0}}]}],
        "registeredDevices":[{"token":"T","platform":"ios","app_id":"A"}],"macros":[)" +
                       macro("Door", 5, "Light");
    for (size_t i = 0; i < MACROS_OF_A_CROWD; ++i)
        text += "," + macro("Crowd " + std::to_string(i), 7, "Nothing");
    return text + "]}";
}

class ResourcesRunOut : public ConfigurableDaemon {
protected:
    const int rounds = inFull(50, 2);

    void SetUp() override
    {
        if (!SPEED_COUNTS)
            GTEST_SKIP() << "a sanitizer, or an emulator, has descriptors and memory of its own";
        ConfigurableDaemon::SetUp();
        platform.set("TUTK_UUID", "ABCDEFGHIJKLMNOPQRST");
        sdk.set(device(5, 0, DOOR, 255));
        sdk.set(device(6, 0, SWITCH, 1));
        sdk.set(device(7, 0, DOOR, 255));
        sdk.set(device(20, 0, SWITCH, 7));
        // The C library would keep the stacks of threads that have ended, for the next ones.
        std::vector<std::string> settings = helpers.settings();
        settings.emplace_back("GLIBC_TUNABLES=glibc.pthread.stack_cache_size=0");
        startWith(setup(), settings);
        gatewayReady();
        descriptors = entries("fd");
        threads = entries("task");
        expectAllToWork("Before");
        expectNothingLeft();
    }
    void TearDown() override
    {
        if (IsSkipped())
            return;
        helpers.release();
        ConfigurableDaemon::TearDown();
    }
    size_t entries(const std::string &folder) const
    {
        using Folder = std::filesystem::directory_iterator;
        const std::string path = "/proc/" + std::to_string(daemon.pid()) + "/" + folder;
        return static_cast<size_t>(std::distance(Folder(path), Folder()));
    }
    rlim_t bytesMapped() const
    {
        std::ifstream status("/proc/" + std::to_string(daemon.pid()) + "/status");
        for (std::string line; std::getline(status, line);) {
            if (line.rfind("VmSize:", 0) == 0)
                return std::stoull(line.substr(7)) * 1024;
        }
        return 0;
    }
    virtual void limit(__rlimit_resource resource, rlim_t number) const
    {
        rlimit limits;
        ASSERT_EQ(prlimit(daemon.pid(), resource, nullptr, &limits), 0);
        limits.rlim_cur = std::min(number, limits.rlim_max);
        ASSERT_EQ(prlimit(daemon.pid(), resource, &limits, nullptr), 0);
    }
    bool isStored(const std::string &scene) const
    {
        return daemon.storedSetup().find("\"" + scene + "\"") != std::string::npos;
    }
    std::string sceneText(const std::string &title) const
    {
        return R"({"scenes":[{"title":")" + title + R"("}]})";
    }
    void push(const std::string &text)
    {
        EXPECT_EQ(callForText("message", text, PUSH_MESSAGES), "done");
    }
    void expectAllToWork(const std::string &scene)
    {
        const size_t lamps = sdk.count(LAMP_ON);
        const size_t macros = macroEvents().size();
        const size_t runs = helpers.count();
        EXPECT_EQ(set(sceneText(scene)), 1);
        EXPECT_TRUE(isStored(scene));
        eventHandled(REPORT, 5, 0);
        EXPECT_TRUE(eventually([&] { return macroEvents().size() == macros + 1; }));
        EXPECT_TRUE(eventually([&] { return sdk.count(LAMP_ON) == lamps + 1; }));
        push(scene);
        EXPECT_TRUE(eventually([&] { return helpers.count() == runs + 1; }));
    }
    bool crowdEnds(size_t macros)
    {
        return eventually(
            [&] { return entries("task") == threads && macroEvents().size() == macros; });
    }
    void expectNothingLeft()
    {
        EXPECT_TRUE(eventually([&] { return entries("task") == threads; })) << entries("task");
        EXPECT_EQ(entries("fd"), descriptors);
    }

    PushHelpers helpers;
    size_t descriptors = 0;
    size_t threads = 0;
};

TEST_F(ResourcesRunOut, DescriptorsKeepDocumentsFromBeingStoredAndNothingElse)
{
    for (int round = 0; round < rounds && !HasFailure(); ++round) {
        const std::string number = std::to_string(round);
        limit(RLIMIT_NOFILE, 3);
        const size_t from = daemon.logSize();
        EXPECT_EQ(set(sceneText("Unstored " + number)), 1);
        EXPECT_FALSE(isStored("Unstored " + number));
        EXPECT_TRUE(daemon.logged("cannot be stored: Too many open files", from));
        EXPECT_TRUE(isStored(round == 0 ? "Before" : "Again " + std::to_string(round - 1)));
        // Commands and answers need none.
        const size_t lamps = sdk.count(LAMP_ON);
        eventHandled(REPORT, 5, 0);
        EXPECT_TRUE(eventually([&] { return sdk.count(LAMP_ON) == lamps + 1; }));
        push("lost " + number);
        listenerIsIdle();
        EXPECT_TRUE(eventually([&] { return entries("task") == threads; }));
        limit(RLIMIT_NOFILE, RLIM_INFINITY);
        expectAllToWork("Again " + number);
        EXPECT_TRUE(isStored("Unstored " + number)) << "what was set meanwhile is kept";
    }
    expectNothingLeft();
    figure("rounds", rounds, "rounds");
}

// Of a crowd some start, and no more.
TEST_F(ResourcesRunOut, MemoryForThreadsKeepsMacrosFromRunningAndNothingElse)
{
    for (int round = 0; round < rounds && !HasFailure(); ++round) {
        const std::string number = std::to_string(round);
        limit(RLIMIT_AS, bytesMapped());
        const size_t failuresBefore = daemon.timesLogged("pthread_create fail");
        const size_t macros = macroEvents().size();
        eventHandled(REPORT, 7, 0);
        eventHandled(REPORT, 6, 0);
        const size_t failures = daemon.timesLogged("pthread_create fail") - failuresBefore;
        EXPECT_GE(failures, 1u);
        EXPECT_TRUE(crowdEnds(macros + MACROS_OF_A_CROWD - failures));
        // There may be none for the document either: that is said, and the next change writes it.
        const size_t from = daemon.logSize();
        EXPECT_EQ(set(sceneText("Set " + number)), 1);
        EXPECT_NE(isStored("Set " + number), daemon.logged("calloc fail", from));

        limit(RLIMIT_AS, RLIM_INFINITY);
        const size_t macrosThen = macroEvents().size();
        eventHandled(REPORT, 7, 0);
        EXPECT_TRUE(crowdEnds(macrosThen + MACROS_OF_A_CROWD)) << "all of them run again";
        expectAllToWork("Again " + number);
        EXPECT_TRUE(isStored("Set " + number));
    }
    expectNothingLeft();
    figure("rounds", rounds, "rounds");
}

// How many threads a user has is limited for everybody but root.
class ThreadsOfAUserRunOut : public ResourcesRunOut {
protected:
    void SetUp() override
    {
        if (geteuid() == 0) {
            if (!getpwnam(USER) || prctl(PR_CAPBSET_READ, CAP_SYS_PTRACE, 0, 0, 0) != 1)
                GTEST_SKIP() << "this root may not look at another user's program";
            daemon.runAs(USER);
            std::vector<std::string> command = daemon.starter;
            command.emplace_back("/bin/true");
            ChildProcess attempt;
            attempt.start(command, {});
            if (attempt.waitForEnd(20s) != 0)
                GTEST_SKIP() << "this root may not become another user";
        }
        ResourcesRunOut::SetUp();
    }
    // Its user may, not every root of a container. The thread alone takes that user on: the calls
    // of the C library would change every thread.
    void limit(__rlimit_resource resource, rlim_t number) const override
    {
        std::thread([&] {
            if (geteuid() == 0) {
                const passwd &user = *getpwnam(USER);
                ASSERT_EQ(syscall(SYS_setresgid, user.pw_gid, user.pw_gid, user.pw_gid), 0);
                ASSERT_EQ(syscall(SYS_setresuid, user.pw_uid, user.pw_uid, user.pw_uid), 0);
            }
            ResourcesRunOut::limit(resource, number);
        }).join();
    }

    static constexpr const char *USER = "bin";  // in place of root
};

TEST_F(ThreadsOfAUserRunOut, KeepsMacrosFromRunningAndNothingElse)
{
    for (int round = 0; round < rounds && !HasFailure(); ++round) {
        const std::string number = std::to_string(round);
        limit(RLIMIT_NPROC, 1);
        const size_t failuresBefore = daemon.timesLogged("pthread_create fail");
        const size_t macros = macroEvents().size();
        eventHandled(REPORT, 7, 0);
        eventHandled(REPORT, 6, 0);
        EXPECT_EQ(daemon.timesLogged("pthread_create fail"), failuresBefore + MACROS_OF_A_CROWD);
        EXPECT_EQ(set(sceneText("Set " + number)), 1);
        EXPECT_TRUE(isStored("Set " + number));
        EXPECT_TRUE(crowdEnds(macros)) << "none of them runs";

        limit(RLIMIT_NPROC, RLIM_INFINITY);
        eventHandled(REPORT, 7, 0);
        EXPECT_TRUE(crowdEnds(macros + MACROS_OF_A_CROWD)) << "all of them run again";
        expectAllToWork("Again " + number);
    }
    expectNothingLeft();
    figure("rounds", rounds, "rounds");
}

// The request waits on its way in, and what comes behind it; whatever else is to be done is done.
// It may find that there is memory for itself and none for what it says: it is refused then.
TEST_F(ResourcesRunOut, MemoryForALargeRequestDelaysOrRefusesIt)
{
    const std::string large =
        R"({"scenes":[{"title":"Large","icon":")" + std::string(30'000'000, 'x') + R"("}]})";
    const int number = inFull(10, 1);
    for (int round = 0; round < number && !HasFailure(); ++round) {
        limit(RLIMIT_AS, bytesMapped());
        const size_t minutes = sdk.asked("getZWID", 0);
        const auto reply = client.call(APP, "jsonsetall", {large});
        ASSERT_TRUE(tickUntil([&] { return sdk.asked("getZWID", 0) > minutes; }));
        EXPECT_FALSE(reply->arrived());
        limit(RLIMIT_AS, RLIM_INFINITY);
        EXPECT_TRUE(eventually([&] { return reply->arrived(); }));
        const std::string titles = callForText("jsongettitles", "scenes");
        EXPECT_EQ(reply->number(), titles.find("\"Large\"") != std::string::npos ? 1 : 0);
        EXPECT_EQ(callForNumber("jsondel", R"({"scenes":[{"title":"Large"}]})"), reply->number());
        expectAllToWork("Again " + std::to_string(round));
    }
    expectNothingLeft();
    figure("rounds", number, "rounds");
}
