// kill -9 of the daemon itself while requests for its configuration come in over the bus.

#include "stored.h"
#include "support/daemon_on_its_own_bus.h"

#include <csignal>
#include <random>
#include <thread>

using namespace crash;
using namespace support;

static constexpr const char *SWITCH_APP = "com.OvrinTech.switch.app";
static constexpr int KILLS = 25;            // a test
static constexpr int LATEST_KILL = 30'000;  // microseconds after the requests
static constexpr int ELEMENTS = 50;         // of about 1,000 bytes

class KilledDaemon : public DaemonOnItsOwnBus, public testing::WithParamInterface<int> {
protected:
    KilledDaemon()
    {
        endsOrderly = false;
    }
    std::shared_ptr<PendingReply> request(const Operation &operation)
    {
        switch (operation.kind) {
        case Operation::SAVE:
            return client.call(APP, "jsonsetall", {configuration(operation.number, ELEMENTS)});
        case Operation::BACKUP:
            return client.call(SWITCH_APP, "backupConfig", {int32_t{0}});
        case Operation::RESTORE:
            return client.call(SWITCH_APP, "restoreConfig", {int32_t{0}});
        case Operation::RESTORE2:
            return client.call(SWITCH_APP, "restoreConfig2", {int32_t{0}});
        default:
            return client.call(SWITCH_APP, "resetConfig", {int32_t{0}});
        }
    }
    std::vector<Operation> randomOperations()
    {
        static constexpr Operation::Kind KINDS[] = {
            Operation::SAVE,    Operation::SAVE,     Operation::SAVE, Operation::BACKUP,
            Operation::RESTORE, Operation::RESTORE2, Operation::RESET};
        std::vector<Operation> operations;
        while (operations.size() < 4)
            operations.push_back({KINDS[random() % std::size(KINDS)], ++lastNumber, ELEMENTS});
        return operations;
    }

    // What may be stored when the daemon was killed while it had these requests.
    std::vector<Stored> killDuring(const std::vector<Operation> &operations)
    {
        std::vector<std::shared_ptr<PendingReply>> replies;
        for (const Operation &operation : operations)
            replies.push_back(request(operation));
        std::this_thread::sleep_for(std::chrono::microseconds(random() % LATEST_KILL));
        daemon.signal(SIGKILL);
        EXPECT_TRUE(eventually([&] { return !daemon.running(); }));
        listenToWhatIsLeft();

        Stored before = stored;
        std::vector<Stored> allowed{before};
        for (size_t i = 0; i < operations.size(); ++i) {
            const std::vector<Stored> states = statesOf(operations[i], before);
            before = states.back();
            if (replies[i]->error().empty() && replies[i]->arrived())
                allowed = {before};
            else
                allowed.insert(allowed.end(), states.begin(), states.end());
        }
        return allowed;
    }
    // A reply that was sent has come when this returns: the bus keeps the order.
    void listenToWhatIsLeft()
    {
        EXPECT_TRUE(eventually([&] { return !client.peer.nameHasOwner(APP_NAME); }));
    }

    std::mt19937 random{static_cast<unsigned>(GetParam())};
    int lastNumber = 0;
    Stored stored{};
};

TEST_P(KilledDaemon, FindsTheWholeOldOrTheWholeNewConfiguration)
{
    start();
    for (int i = 0; i < KILLS && !HasFailure(); ++i) {
        gatewayReady();
        const std::vector<Operation> operations = randomOperations();
        const std::vector<Stored> allowed = killDuring(operations);
        start();
        stored = storedIn(daemon.data.path());
        EXPECT_THAT(stored, testing::AnyOfArray(allowed));
        EXPECT_EQ(numberOf(callForText("jsongetall", "")), stored[SETUP]);
    }
}

INSTANTIATE_TEST_SUITE_P(Seeds, KilledDaemon, testing::Values(1, 2, 3, 4));
