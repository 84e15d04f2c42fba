// Disks that fail or are full while the daemon stores something: no file is ever less than whole,
// the daemon serves on with the configuration that it has in memory, says in its log what could not
// be stored and why, and the next change writes everything.

#include "faults.h"
#include "stored.h"
#include "support/daemon_on_its_own_bus.h"
#include "support/scale.h"
#include "worker_process.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>

using namespace crash;
using namespace support;
using testing::AnyOf;
using testing::Each;

static constexpr const char *SWITCH_APP = "com.OvrinTech.switch.app";
static constexpr int ELEMENTS = 5;

static constexpr unsigned TAKES_SPACE = OPEN_TO_WRITE | WRITE | SYNC | CLOSE | RENAME;
static constexpr unsigned CHANGES = OPEN_TO_WRITE | WRITE | RENAME | UNLINK;

struct Failure {
    const char *name;
    int error;
    int calls;  // so many in a row
    unsigned kinds;
    bool storesAHalf = false;
};

static void PrintTo(const Failure &failure, std::ostream *out)
{
    *out << failure.name;
}

class StoringDaemon : public DaemonOnItsOwnBus {
protected:
    void startReady()
    {
        start(recorderSettings({faults.setting()}));
        gatewayReady();
    }
    void store(StoredFile file, int number)
    {
        daemon.data.write(FILE_NAMES[file], storedLayout(configuration(number, ELEMENTS)));
    }
    int64_t set(int number)
    {
        return callForNumber("jsonsetall", configuration(number, ELEMENTS));
    }
    int inMemory()
    {
        return numberOf(callForText("jsongetall", ""));
    }
    int64_t callSwitch(const std::string &member)
    {
        const auto reply = client.call(SWITCH_APP, member, {int32_t{0}});
        EXPECT_TRUE(eventually([&] { return reply->arrived(); })) << "no reply to " << member;
        return reply->number();
    }
    Stored stored()
    {
        return storedIn(daemon.data.path());
    }
    // What the next start would find, were there one now.
    Stored storedAfterAStart()
    {
        const TempDir copy;
        std::filesystem::copy(daemon.data.path(), copy.path(),
                              std::filesystem::copy_options::recursive);
        Worker worker;
        worker.start(copy.path(), {});
        worker.expectEnd();
        const Stored found = storedIn(copy.path());
        EXPECT_EQ(worker.memory(), found[SETUP]);
        return found;
    }
    std::vector<std::string> namesInFolder()
    {
        std::vector<std::string> names;
        for (const auto &entry : std::filesystem::directory_iterator(daemon.data.path()))
            names.push_back(entry.path().filename());
        return names;
    }
    bool loggedAsError(int error, size_t from)
    {
        std::istringstream lines(daemon.log(from));
        for (std::string line; std::getline(lines, line);) {
            if (line.starts_with("6 ") && line.find("appSetup") != std::string::npos &&
                line.ends_with(std::string(": ") + strerror(error)))
                return true;
        }
        return false;
    }
    // Everything is written, and nothing left behind.
    void expectToWrite(int number)
    {
        EXPECT_EQ(set(number), 1);
        EXPECT_EQ(stored()[SETUP], number);
        EXPECT_THAT(namesInFolder(),
                    Each(AnyOf(testing::EndsWith(".json"), testing::EndsWith("_bak"),
                               testing::EndsWith("_bak2"))));
    }

    Faults faults;
};

class Failing : public StoringDaemon, public testing::WithParamInterface<Failure> {
protected:
    void SetUp() override
    {
        if (emulated())
            GTEST_SKIP() << NOT_RECORDED;
        StoringDaemon::SetUp();
    }
    // Lets each call fail in turn while the daemon does something, and looks at what it left.
    // Without the kinds of calls that are left out. How many could fail.
    int failEachCall(const std::function<void()> &work,
                     const std::function<void(const Stored &before, size_t logSize)> &check,
                     unsigned leftOut = 0)
    {
        const Failure &failure = GetParam();
        int first = 0;
        bool happened = true;
        while (happened && !HasFailure()) {
            ++first;
            const Stored before = stored();
            const size_t logSize = daemon.logSize();
            faults.fail(first, failure.calls, failure.error, failure.kinds & ~leftOut,
                        failure.storesAHalf);
            work();
            happened = faults.callsUntilNow() >= first;
            faults.end();
            check(before, logSize);
            EXPECT_FALSE(HasFailure()) << "when the calls from " << first << " on failed";
        }
        return first - 1;
    }
};

TEST_P(Failing, CallDuringASaveLeavesTheOldOrTheNewAndNoBackupChanges)
{
    store(SETUP, 1);
    store(SETUP_BAK, 101);
    store(SETUP_BAK2, 102);
    startReady();
    int number = 1;
    const int failures =
        failEachCall([&] { EXPECT_EQ(set(++number), 1); },
                     [&](const Stored &before, size_t logSize) {
                         EXPECT_EQ(inMemory(), number);
                         const Operation save{Operation::SAVE, number};
                         const Stored found = storedAfterAStart();
                         EXPECT_THAT(found, testing::AnyOfArray(statesOf(save, before)));
                         if (found == before) {
                             EXPECT_TRUE(loggedAsError(GetParam().error, logSize))
                                 << daemon.log(logSize);
                         }
                         expectToWrite(++number);
                     });
    EXPECT_GT(failures, 2);
}

TEST_P(Failing, CallDuringABackupLeavesTheOldOrTheNewOfEachFile)
{
    store(SETUP, 1);
    store(SETUP_BAK, 101);
    store(SETUP_BAK2, 102);
    startReady();
    int number = 1;
    failEachCall([&] { EXPECT_EQ(callSwitch("backupConfig"), 2); },
                 [&](const Stored &before, size_t) {
                     EXPECT_EQ(inMemory(), number);
                     const Stored found = storedAfterAStart();
                     EXPECT_THAT(found, testing::AnyOfArray(statesOf({Operation::BACKUP}, before)));
                     EXPECT_EQ(callSwitch("backupConfig"), 2);
                     EXPECT_EQ(stored(), statesOf({Operation::BACKUP}, found).back());
                     // Three that differ, for the next one.
                     expectToWrite(++number);
                     EXPECT_EQ(callSwitch("backupConfig"), 2);
                     expectToWrite(++number);
                 });
}

// What the configuration is loaded from can be read: one that cannot is a configuration lost.
TEST_P(Failing, CallDuringARestoreLeavesTheOldOrTheNew)
{
    store(SETUP, 1);
    store(SETUP_BAK, 101);
    startReady();
    int number = 1;
    failEachCall([&] { EXPECT_EQ(callSwitch("restoreConfig"), 1); },
                 [&](const Stored &before, size_t) {
                     const Stored found = storedAfterAStart();
                     EXPECT_THAT(found,
                                 testing::AnyOfArray(statesOf({Operation::RESTORE}, before)));
                     EXPECT_EQ(inMemory(), found[SETUP]);
                     expectToWrite(++number);
                 },
                 OPEN_TO_READ);
}

TEST_P(Failing, CallDuringAResetLeavesTheOldOrNothing)
{
    store(SETUP, 1);
    store(SETUP_BAK, 101);
    startReady();
    int number = 1;
    failEachCall([&] { EXPECT_EQ(callSwitch("resetConfig"), 1); },
                 [&](const Stored &before, size_t logSize) {
                     const Stored found = storedAfterAStart();
                     EXPECT_THAT(found, testing::AnyOfArray(statesOf({Operation::RESET}, before)));
                     if (found == before) {
                         EXPECT_TRUE(loggedAsError(GetParam().error, logSize))
                             << daemon.log(logSize);
                     }
                     expectToWrite(++number);
                 });
}

INSTANTIATE_TEST_SUITE_P(
    Each, Failing,
    testing::Values(Failure{"WithAnErrorOnce", EIO, 1, EVERY_CALL},
                    Failure{"WithAnErrorThrice", EIO, 3, EVERY_CALL},
                    Failure{"WithErrorsFromThenOn", EIO, FOR_EVER, EVERY_CALL},
                    Failure{"WithoutSpaceOnce", ENOSPC, 1, TAKES_SPACE},
                    Failure{"WithoutSpaceFromThenOn", ENOSPC, FOR_EVER, TAKES_SPACE},
                    Failure{"HalfWrittenAndThenWithoutSpace", ENOSPC, FOR_EVER, WRITE, true},
                    Failure{"ReadOnlyFromThenOn", EROFS, FOR_EVER, CHANGES}),
    caseName);

// A folder that was never a good place.
class BadPlace : public StoringDaemon {
protected:
    void startSoon()
    {
        const Moment begin = Clock::now();
        startReady();
        const int64_t milliseconds = millisecondsBetween(begin, Clock::now());
        figure("start", milliseconds, "ms");
        EXPECT_LE(milliseconds, inFull(1000, 10'000));
    }
    // Sets a configuration, which cannot be written, and is served all the same.
    void expectNotToWrite(int number, int error)
    {
        const size_t logSize = daemon.logSize();
        EXPECT_EQ(set(number), 1);
        EXPECT_EQ(inMemory(), number);
        EXPECT_TRUE(loggedAsError(error, logSize)) << daemon.log(logSize);
    }
};

TEST_F(BadPlace, ThatIsNotThereIsUsedWhenItComes)
{
    std::filesystem::remove(daemon.data.path());
    startSoon();
    expectNotToWrite(1, ENOENT);
    EXPECT_EQ(callSwitch("backupConfig"), 0);
    EXPECT_EQ(callSwitch("restoreConfig"), 0);
    EXPECT_EQ(callSwitch("resetConfig"), 1);
    expectNotToWrite(2, ENOENT);
    std::filesystem::create_directory(daemon.data.path());
    expectToWrite(3);
}

TEST_F(BadPlace, ThatIsAFileIsNoPlace)
{
    std::filesystem::remove(daemon.data.path());
    std::ofstream(daemon.data.path()) << "a file";
    startSoon();
    expectNotToWrite(1, ENOTDIR);
    EXPECT_EQ(callSwitch("backupConfig"), 0);
    EXPECT_EQ(callSwitch("resetConfig"), 1);
    expectNotToWrite(2, ENOTDIR);
    std::filesystem::remove(daemon.data.path());
    std::filesystem::create_directory(daemon.data.path());
    expectToWrite(3);
}

TEST_F(BadPlace, ThatIsReadOnlyIsReadAndUsedWhenItIsWritableAgain)
{
    if (emulated())
        GTEST_SKIP() << NOT_RECORDED;
    store(SETUP, 1);
    store(SETUP_BAK, 101);
    faults.fail(1, FOR_EVER, EROFS, CHANGES);
    startSoon();
    EXPECT_EQ(inMemory(), 1);
    const Stored before = stored();
    expectNotToWrite(2, EROFS);
    EXPECT_EQ(callSwitch("backupConfig"), 2);
    EXPECT_EQ(callSwitch("restoreConfig"), 1);
    EXPECT_EQ(inMemory(), 1) << "what is stored is loaded though it could not be replaced";
    EXPECT_EQ(callSwitch("resetConfig"), 1);
    EXPECT_EQ(stored(), before);
    faults.end();
    expectToWrite(3);
}

TEST_F(BadPlace, WithAFolderForADocumentIsUsedWhenThatIsGone)
{
    std::filesystem::create_directory(daemon.data.file("appSetup.json"));
    startSoon();
    expectNotToWrite(1, EISDIR);
    EXPECT_EQ(callSwitch("backupConfig"), 0);
    EXPECT_EQ(callSwitch("resetConfig"), 1);
    std::filesystem::remove(daemon.data.file("appSetup.json"));
    expectToWrite(2);
}

TEST_F(BadPlace, ThatIsFullIsReadAndUsedWhenThereIsSpaceAgain)
{
    if (emulated())
        GTEST_SKIP() << NOT_RECORDED;
    store(SETUP, 1);
    faults.fail(1, FOR_EVER, ENOSPC, TAKES_SPACE);
    startSoon();
    EXPECT_EQ(inMemory(), 1);
    expectNotToWrite(2, ENOSPC);
    EXPECT_EQ(stored()[SETUP], 1) << "as it was";
    faults.end();
    expectToWrite(3);
}
