// Power cuts between any two file-system calls of a save, a backup, a restore or a reset, and of
// the start after one: whatever the disk has kept of what was not synced, a start finds every file
// whole, as it was before or after the operation that was under way. What was answered is never
// lost.

#include "disk.h"
#include "faults.h"
#include "support/temp_dir.h"
#include "worker_process.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cerrno>
#include <functional>
#include <iostream>

using namespace crash;
using namespace support;

// The worker's run with the recorder between it and its files.
static std::vector<Call> record(const std::filesystem::path &folder,
                                const std::vector<Operation> &operations, Worker &worker,
                                const std::string &faults = "APP_CRASH_FAULTS")
{
    const TempDir notes;
    worker.start(folder, operations,
                 recorderSettings({"APP_CRASH_JOURNAL=" + notes.file("journal").string(), faults}));
    worker.expectEnd();
    return readJournal(notes.file("journal"));
}

static bool isAnswer(const Call &call)
{
    return call.verb == "answer";
}

static bool isFailure(const Call &call)
{
    return call.verb == "fail";
}

// Each file as it is in any of the states.
static std::vector<Stored> mixturesOf(const std::vector<Stored> &states)
{
    std::vector<Stored> mixtures{states.front()};
    for (size_t file = 0; file < STORED_FILES; ++file) {
        std::set<Stored> more;
        for (const Stored &mixture : mixtures) {
            for (const Stored &state : states) {
                Stored next = mixture;
                next[file] = state[file];
                more.insert(next);
            }
        }
        mixtures.assign(more.begin(), more.end());
    }
    return mixtures;
}

static std::string describe(const Folder &folder)
{
    std::string text;
    for (const auto &[name, bytes] : folder)
        text += name + " of " + std::to_string(bytes.size()) + " bytes; ";
    return text;
}

class PowerCut : public testing::Test {
protected:
    void SetUp() override
    {
        if (emulated())
            GTEST_SKIP() << NOT_RECORDED;
    }
    // What a start makes of a folder.
    struct Start {
        std::vector<Call> calls;
        Stored stored;
        bool isExplored = false;
    };

    Start &startOn(const Folder &folder)
    {
        const auto [entry, isNew] = starts.try_emplace(folder);
        Start &start = entry->second;
        if (isNew) {
            writeFolder(scratch.path(), folder);
            Worker worker;
            start.calls = record(scratch.path(), {}, worker);
            start.stored = storedIn(scratch.path());
            EXPECT_EQ(worker.memory(), start.stored[SETUP]);
        }
        return start;
    }

    // Starts on everything that a power cut may leave, and cuts these starts short, too.
    void cutPower(const Disk &disk, const std::vector<Stored> &allowed, const std::string &moment)
    {
        for (const Folder &folder : disk.afterPowerCut()) {
            if (HasFailure())
                return;
            Start &start = startOn(folder);
            EXPECT_THAT(start.stored, testing::AnyOfArray(allowed))
                << "power cut " << moment << ", which left " << describe(folder);
            if (start.isExplored)
                continue;
            start.isExplored = true;
            Disk next(folder);
            for (const Call &call : start.calls) {
                if (next.apply(call))
                    cutPower(next, {start.stored}, moment + ", and another in the start after it");
            }
        }
    }

    using Interrupt = std::function<void(const Disk &, size_t answers, const std::string &moment)>;

    // Does what the calls did, and lets something happen after each.
    static Disk replay(const std::vector<Call> &calls, Disk disk, const Interrupt &interrupt)
    {
        size_t answers = 0;
        for (size_t i = 0; i < calls.size() && !HasFailure(); ++i) {
            if (calls[i].verb == "answer")
                ++answers;
            else if (!disk.apply(calls[i]))
                continue;
            interrupt(disk, answers, "after call " + std::to_string(i) + ", " + calls[i].verb);
        }
        return disk;
    }

    // The program is killed, which loses nothing, and starts again and saves; then comes the power
    // cut.
    void killAndGoOn(const Disk &disk, const std::vector<Stored> &allowed,
                     const std::string &moment)
    {
        const Stored found = startOn(disk.now()).stored;
        EXPECT_THAT(found, testing::AnyOfArray(allowed)) << "killed " << moment;
        const Operation save{Operation::SAVE, 99, 7};
        std::vector<Stored> either;
        for (const Stored &before : allowed) {
            for (const Stored &state : statesOf(save, before))
                either.push_back(state);
        }
        const std::vector<Stored> states[] = {allowed, either, {statesOf(save, found).back()}};

        writeFolder(scratch.path(), disk.now());
        Worker worker;
        replay(record(scratch.path(), {save}, worker), disk,
               [&](const Disk &later, size_t answers, const std::string &laterMoment) {
                   cutPower(later, states[answers],
                            laterMoment + " of a life that began after a kill " + moment);
               });
    }

    // Power cuts and kills at every moment of the operation, after those before it are done.
    void explore(const std::vector<Operation> &before, const Operation &operation)
    {
        std::vector<Operation> operations = before;
        operations.push_back(operation);
        Worker worker;
        const std::vector<Call> calls = record(live.path(), operations, worker);
        ASSERT_EQ(worker.answers(), operations.size() + 1);
        Stored start{};
        for (const Operation &done : before)
            start = statesOf(done, start).back();
        const std::vector<Stored> during = statesOf(operation, start);
        const std::vector<Stored> after{during.back()};

        const Disk end = replay(
            calls, Disk({}), [&](const Disk &disk, size_t answers, const std::string &moment) {
                if (answers < operations.size())
                    return;
                const std::vector<Stored> &allowed = answers == operations.size() ? during : after;
                cutPower(disk, allowed, moment);
                killAndGoOn(disk, allowed, moment);
            });
        if (HasFailure())
            return;
        EXPECT_EQ(end.now(), readFolder(live.path())) << "the recorder has missed a call";
        EXPECT_EQ(storedIn(live.path()), after.front());
        std::cout << starts.size() << " different folders\n";
    }

    // The same while calls fail: what an operation leaves then may be the old of one file and the
    // new of another. One that had no failure does what it should, whatever failed before.
    void exploreFailures(const std::vector<Operation> &before,
                         const std::vector<Operation> &operations, int failures)
    {
        Worker worker;
        record(live.path(), before, worker);
        const Folder base = readFolder(live.path());
        int first = 1;
        while (!HasFailure() && failAndExplore(base, operations, first, failures))
            ++first;
        std::cout << first - 1 << " failures, " << starts.size() << " different folders\n";
    }

    // False when there was nothing left to fail.
    bool failAndExplore(const Folder &base, const std::vector<Operation> &operations, int first,
                        int failures)
    {
        writeFolder(live.path(), base);
        const Stored atFirst = storedIn(live.path());
        Faults faults;
        faults.fail(first, failures, EIO);
        Worker worker;
        const std::vector<Call> calls = record(live.path(), operations, worker, faults.setting());
        if (faults.callsUntilNow() < first)
            return false;
        std::vector<std::vector<Stored>> allowed{{atFirst}, {atFirst}};
        auto call = calls.begin();
        for (const Operation &operation : operations) {
            std::vector<Stored> &during = allowed.back();
            std::vector<Stored> after;
            // (the first answer is that of the start)
            call = std::find_if(call, calls.end(), isAnswer) + 1;
            const auto end = std::find_if(call, calls.end(), isAnswer);
            const bool failed = std::any_of(call, end, isFailure);
            for (const Stored &state : std::vector<Stored>(during)) {
                const std::vector<Stored> states = statesOf(operation, state);
                during.insert(during.end(), states.begin(), states.end());
                after.push_back(states.back());
            }
            during = mixturesOf(during);
            allowed.push_back(failed ? during : after);
        }
        replay(calls, Disk(base), [&](const Disk &disk, size_t answers, const std::string &moment) {
            cutPower(disk, allowed[answers],
                     moment + ", when the calls from " + std::to_string(first) + " on failed");
        });
        return true;
    }

    TempDir live;     // of the operations
    TempDir scratch;  // of the starts
    std::map<Folder, Start> starts;
};

static constexpr Operation BACKUP{Operation::BACKUP};
static constexpr Operation RESTORE{Operation::RESTORE};
static constexpr Operation RESTORE2{Operation::RESTORE2};
static constexpr Operation RESET{Operation::RESET};

static Operation save(int number, int elements = 8)
{
    return {Operation::SAVE, number, elements};
}

static Operation saveResume(int number, int elements = 1)
{
    return {Operation::SAVE_RESUME, number, elements};
}

TEST_F(PowerCut, DuringTheFirstSaveLeavesNothingOrAll)
{
    explore({}, save(1));
}

TEST_F(PowerCut, DuringASaveLeavesTheOldOrTheNew)
{
    explore({save(1)}, save(2));
}

TEST_F(PowerCut, DuringASaveOfLessLeavesTheOldOrTheNew)
{
    explore({save(1)}, save(2, 3));
}

TEST_F(PowerCut, DuringASaveOfMoreLeavesTheOldOrTheNew)
{
    explore({save(1)}, save(2, 12));
}

TEST_F(PowerCut, DuringASaveOfTheResumeDocumentLeavesTheOldOrTheNew)
{
    explore({saveResume(1, 5)}, saveResume(2, 5));
}

TEST_F(PowerCut, DuringTheFirstBackupLeavesNothingOrAllOfEachFile)
{
    explore({save(1, 1), saveResume(2)}, BACKUP);
}

TEST_F(PowerCut, DuringTheSecondBackupLeavesTheOldOrTheNewOfEachFile)
{
    explore({save(1, 1), saveResume(2), BACKUP, save(3, 1), saveResume(4)}, BACKUP);
}

TEST_F(PowerCut, DuringTheThirdBackupLeavesTheOldOrTheNewOfEachFile)
{
    explore({save(1, 1), saveResume(2), BACKUP, save(3, 1), saveResume(4), BACKUP, save(5, 1),
             saveResume(6)},
            BACKUP);
}

TEST_F(PowerCut, DuringARestoreLeavesTheOldOrTheNewOfEachFile)
{
    explore({save(1), saveResume(2), BACKUP, save(3), saveResume(4)}, RESTORE);
}

TEST_F(PowerCut, DuringARestoreOfTheSecondGenerationLeavesTheOldOrTheNewOfEachFile)
{
    explore({save(1), saveResume(2), BACKUP, save(3), BACKUP, save(4)}, RESTORE2);
}

TEST_F(PowerCut, DuringAResetLeavesTheOldOrNothing)
{
    explore({save(1), saveResume(2)}, RESET);
}

TEST_F(PowerCut, DuringASaveAfterAResetLeavesTheNewOrNothing)
{
    explore({save(1), RESET}, save(2));
}

// So many calls in a row fail.
class FailingDisk : public PowerCut, public testing::WithParamInterface<int> {};

TEST_P(FailingDisk, WithAPowerCutDuringASaveLeavesTheOldOrTheNew)
{
    exploreFailures({save(1)}, {save(2, 5), save(3, 6)}, GetParam());
}

TEST_P(FailingDisk, WithAPowerCutDuringABackupLeavesTheOldOrTheNewOfEachFile)
{
    exploreFailures({save(1, 1), BACKUP, save(2, 1), BACKUP, save(3, 1)}, {BACKUP, BACKUP},
                    GetParam());
}

TEST_P(FailingDisk, WithAPowerCutDuringARestoreLeavesTheOldOrTheNewOfEachFile)
{
    exploreFailures({save(1, 1), saveResume(2), BACKUP, save(3, 1), saveResume(4)},
                    {RESTORE, save(5, 1)}, GetParam());
}

TEST_P(FailingDisk, WithAPowerCutDuringAResetLeavesTheOldOrNothing)
{
    exploreFailures({save(1, 1), saveResume(2)}, {RESET, save(3, 1)}, GetParam());
}

INSTANTIATE_TEST_SUITE_P(Calls, FailingDisk, testing::Values(1, 2, 4, 1000),
                         testing::PrintToStringParamName());
