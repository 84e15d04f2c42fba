// kill -9 at random moments of saves, backups, restores and resets: a start afterwards finds
// every file whole, as it was before or after the operation that was under way, and never as it was
// before one that was answered.

#include "support/scale.h"
#include "support/temp_dir.h"
#include "worker_process.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <fcntl.h>
#include <iostream>
#include <random>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

using namespace crash;
using namespace support;
using testing::AnyOfArray;

// Of all parts together. APP_TEST_KILLS asks for a number; APP_TEST_SEED repeats the operations of
// a run, which prints it, though not the moments of its kills.
static constexpr int KILLS = 1'000;
static constexpr int KILLS_IN_FULL = 20'000;
static constexpr int PARTS = 10;

static constexpr size_t OPERATIONS = 12;                // of one life
static constexpr int LATEST_KILLS[] = {1'500, 12'000};  // microseconds after an answer
static const int SLOWNESS = emulated() ? 4 : 1;

static int numberFromEnvironment(const char *name, int otherwise)
{
    const char *text = getenv(name);
    return text ? atoi(text) : otherwise;
}

struct Part {
    const char *name;
    int leastElements, mostElements;  // of about 1,000 bytes
};

static std::string partName(const testing::TestParamInfo<Part> &part)
{
    return part.param.name;
}

class Kill : public testing::TestWithParam<Part> {
protected:
    Kill()
        : seed(static_cast<unsigned>(numberFromEnvironment(
              "APP_TEST_SEED", static_cast<int>(std::random_device()() >> 1)))),
          random(seed)
    {
        adoptOrphans();
    }
    int below(int bound)
    {
        return std::uniform_int_distribution<int>(0, bound - 1)(random);
    }

    Operation randomOperation()
    {
        // By how long each takes, so that about as many kills hit each.
        std::discrete_distribution<int> kinds{30, 6, 3, 2, 1, 3};
        const auto [name, least, most] = GetParam();
        return {static_cast<Operation::Kind>(kinds(random)), ++lastNumber,
                least + below(most - least + 1)};
    }

    std::vector<Operation> randomOperations()
    {
        std::vector<Operation> operations;
        while (operations.size() < OPERATIONS)
            operations.push_back(randomOperation());
        return operations;
    }

    // How many operations it had answered; -1 when not even its start.
    int liveAndDie(Worker &worker, const std::vector<Operation> &operations)
    {
        worker.start(folder.path(), operations);
        const auto answers = static_cast<size_t>(below(OPERATIONS + 1));
        EXPECT_TRUE(eventually([&] { return worker.answers() >= answers; }, 30s));
        std::this_thread::sleep_for(std::chrono::microseconds(
            below(SLOWNESS * LATEST_KILLS[below(std::size(LATEST_KILLS))])));
        worker.kill();
        if (std::filesystem::exists(folder.file("appSetup.json.new")))
            ++killedWhileSaving;
        if (storedIn(folder.path())[SETUP] == BROKEN)
            ++killedWhileWritingOver;
        return static_cast<int>(worker.answers()) - 1;
    }

    // Starts with what is there: what is stored then, and in memory, too.
    Stored startAgain()
    {
        Worker worker;
        worker.start(folder.path(), {});
        worker.expectEnd();
        const Stored found = storedIn(folder.path());
        EXPECT_EQ(worker.memory(), found[SETUP]);
        return found;
    }

    void checkOnce()
    {
        const std::vector<Operation> operations = randomOperations();
        Worker worker;  // (its end waits for its orphans, too)
        const int answered = liveAndDie(worker, operations);
        Stored before = stored;
        for (int i = 0; i < answered; ++i)
            before = statesOf(operations[static_cast<size_t>(i)], before).back();
        const bool underWay = answered >= 0 && answered < static_cast<int>(operations.size());
        const std::vector<Stored> allowed =
            underWay ? statesOf(operations[static_cast<size_t>(answered)], before)
                     : std::vector<Stored>{before};

        stored = startAgain();
        EXPECT_THAT(stored, AnyOfArray(allowed)) << answered << " operations were answered";
        // A copy that the dead one has begun may only end now. It changes nothing any more.
        if (waitForOrphans() > 0) {
            ++orphans;
            EXPECT_EQ(startAgain(), stored);
        }
    }

    const unsigned seed;
    std::mt19937 random;
    TempDir folder;
    Stored stored{};
    int lastNumber = 0;
    int killedWhileSaving = 0;
    int killedWhileWritingOver = 0;
    int orphans = 0;
};

TEST_P(Kill, LeavesTheWholeOldOrTheWholeNewConfiguration)
{
    std::cout << "APP_TEST_SEED=" << seed << std::endl;
    const int kills = numberFromEnvironment("APP_TEST_KILLS", inFull(KILLS_IN_FULL, KILLS)) / PARTS;
    int done = 0;
    while (done < kills && !HasFailure()) {
        checkOnce();
        ++done;
    }
    figure("kills", done, "");
    figure("during_a_save", killedWhileSaving, "kills");
    figure("when_the_file_was_not_whole", killedWhileWritingOver, "kills");
    figure("left_a_program_behind", orphans, "kills");
}

INSTANTIATE_TEST_SUITE_P(Sizes, Kill,
                         testing::Values(Part{"Of20kB1", 18, 22}, Part{"Of20kB2", 18, 22},
                                         Part{"Of20kB3", 18, 22}, Part{"Of20kB4", 18, 22},
                                         Part{"Of200kB1", 190, 210}, Part{"Of200kB2", 190, 210},
                                         Part{"Of200kB3", 190, 210}, Part{"Of200kB4", 190, 210},
                                         Part{"Between1And100kB1", 1, 100},
                                         Part{"Between1And100kB2", 1, 100}),
                         partName);

// The shell finds this "cp" first. It says that it is there, waits until the gate is opened, and
// copies then.
class LateCopy {
public:
    LateCopy()
    {
        folder.write("cp", "#!/bin/sh\n"
                           "touch '" +
                               file("started") +
                               "'\n"
                               "read line < '" +
                               file("gate") +
                               "'\n"
                               "exec /bin/cp \"$@\"\n");
        std::filesystem::permissions(folder.file("cp"), std::filesystem::perms::owner_all);
        EXPECT_EQ(mkfifo(file("gate").c_str(), 0600), 0);
        gate = open(file("gate").c_str(), O_RDWR | O_CLOEXEC);
    }
    ~LateCopy()
    {
        openGate();
        close(gate);
    }
    LateCopy(const LateCopy &) = delete;
    LateCopy &operator=(const LateCopy &) = delete;
    std::string setting() const
    {
        return "PATH=" + folder.path().string() + ":" + getenv("PATH");
    }
    bool started() const
    {
        return std::filesystem::exists(folder.file("started"));
    }
    void openGate() const
    {
        EXPECT_EQ(write(gate, "\n", 1), 1);
    }

private:
    std::string file(const char *name) const
    {
        return folder.file(name).string();
    }

    TempDir folder;
    int gate;
};

class Orphan : public testing::Test {
protected:
    Orphan()
    {
        adoptOrphans();
    }
    Stored run(const std::vector<Operation> &operations)
    {
        Worker worker;
        worker.start(folder.path(), operations);
        worker.expectEnd();
        return storedIn(folder.path());
    }
    void killDuring(const Operation &operation)
    {
        killed.start(folder.path(), {operation}, {copy.setting()});
        ASSERT_TRUE(eventually([&] { return copy.started(); }));
        killed.kill();
    }
    void orphanCopies()
    {
        copy.openGate();
        waitForOrphans();
    }

    TempDir folder;
    Worker killed;
    LateCopy copy;
};

TEST_F(Orphan, ThatCopiesAfterTheNextLifeHasSavedRestoresNothing)
{
    run({{Operation::SAVE, 1, 3}, {Operation::BACKUP}, {Operation::SAVE, 2, 3}});
    killDuring({Operation::RESTORE});
    EXPECT_EQ(run({})[SETUP], 2);
    EXPECT_EQ(run({{Operation::SAVE, 3, 3}})[SETUP], 3);
    orphanCopies();
    EXPECT_EQ(run({})[SETUP], 3);
}

TEST_F(Orphan, ThatCopiesAfterTheNextLifeHasBackedUpChangesNoBackup)
{
    run({{Operation::SAVE, 1, 3}, {Operation::BACKUP}, {Operation::SAVE, 2, 3}});
    killDuring({Operation::BACKUP});
    const Stored backedUp = run({{Operation::BACKUP}, {Operation::SAVE, 3, 3}});
    EXPECT_EQ(backedUp[SETUP_BAK], 2);
    EXPECT_EQ(backedUp[SETUP_BAK2], 1);
    orphanCopies();
    EXPECT_EQ(run({}), backedUp);
}
