// Random sequences of set, delete and rename requests, each compared with a plain model: the reply,
// the configuration as it is read, broadcast and stored, and what a restart makes of it.
//
//     APP_TEST_SEQUENCES=5000    how many sequences of 50 requests in all, instead of 200 (40 under
//     a sanitizer) APP_TEST_SEED=7            other sequences than those of every other run
//     APP_TEST_SEQUENCE=137      that one alone; a failure tells its seed and its number
//
// More than ctest has the time for: build/debug/tests/bus_tests --gtest_filter='*ConfigModel*'

#include "bus/config_model.h"
#include "bus/config_requests.h"
#include "support/daemon_on_its_own_bus.h"

#include <algorithm>
#include <cstdlib>
#include <deque>
#include <filesystem>
#include <mutex>
#include <unistd.h>

using namespace support;
using model::Model;
using model::Random;
using model::Request;
using model::Value;

static constexpr uint64_t SHARES = 8;  // tests that run side by side
static constexpr uint64_t SEQUENCES = CASE_STEP == 1 ? 200 : 40;
static constexpr int REQUESTS = 50;
static constexpr uint64_t RESTART_ONE_IN = 60;

static uint64_t setting(const char *name, uint64_t otherwise)
{
    const char *text = getenv(name);
    return text ? strtoull(text, nullptr, 10) : otherwise;
}

// Whether two documents are the same; if not, where they part, and both.
static testing::AssertionResult same(const std::string &got, const std::string &expected)
{
    static constexpr size_t BEFORE = 60, SHOWN = 160;
    if (got == expected)
        return testing::AssertionSuccess();
    const auto [one, other] =
        std::mismatch(got.begin(), got.end(), expected.begin(), expected.end());
    const auto at = static_cast<size_t>(one - got.begin());
    const size_t from = at - std::min(at, BEFORE);
    return testing::AssertionFailure()
           << "they part at byte " << at << ", got\n  ..." << got.substr(from, SHOWN)
           << "\nexpected\n  ..." << expected.substr(from, SHOWN) << "\nwhole, got\n"
           << got << "\nexpected\n"
           << expected << "\n";
}

// A single sequence is run again to be looked into; many are quicker without the whole log.
static std::vector<std::string> logging()
{
    return getenv("APP_TEST_SEQUENCE") ? std::vector<std::string>{}
                                       : std::vector<std::string>{"OVRIN_LOG_LEVEL=6"};
}

// The broadcasts of the whole configuration, in the order of their arrival.
class Broadcasts {
public:
    void join(BusThread &thread, const std::string &address)
    {
        peer.join(thread, address, [this](DBusMessage *message) { handle(message); });
        peer.subscribe("type='signal',interface='com.OvrinTech.signal.eventLog',"
                       "member='jsongetall'");
    }
    void leave()
    {
        peer.leave();
    }
    size_t waiting() const
    {
        const std::lock_guard lock(mutex);
        return texts.size();
    }
    std::string take()
    {
        if (!eventually([this] { return waiting() > 0; }))
            return "no broadcast";
        const std::lock_guard lock(mutex);
        std::string text = std::move(texts.front());
        texts.pop_front();
        return text;
    }

private:
    void handle(DBusMessage *message)
    {
        const char *text = nullptr;
        if (!dbus_message_is_signal(message, "com.OvrinTech.signal.eventLog", "jsongetall") ||
            !dbus_message_get_args(message, nullptr, DBUS_TYPE_STRING, &text, DBUS_TYPE_INVALID))
            return;
        {
            const std::lock_guard lock(mutex);
            texts.emplace_back(text);
        }
        somethingChanged();
    }

    Peer peer;
    mutable std::mutex mutex;  // guards the texts
    std::deque<std::string> texts;
};

static const char *methodOf(const Request &request)
{
    static constexpr const char *METHODS[] = {"jsonsetall", "jsondel", "jsonrename"};
    return METHODS[request.kind];
}

class ConfigModel : public DaemonOnItsOwnBus, public testing::WithParamInterface<uint64_t> {
protected:
    // The daemon syncs what it stores. A folder in memory spares thousands of waits for the disk;
    // what a power cut leaves is no question here.
    static void SetUpTestSuite()
    {
        static constexpr const char *MEMORY = "/dev/shm";
        movedToMemory = !getenv("TMPDIR") && access(MEMORY, W_OK | X_OK) == 0;
        if (movedToMemory)
            setenv("TMPDIR", MEMORY, 0);
    }
    static void TearDownTestSuite()
    {
        if (movedToMemory)
            unsetenv("TMPDIR");
    }
    void SetUp() override
    {
        DaemonOnItsOwnBus::SetUp();
        broadcasts.join(busThread, bus.address());
    }
    void TearDown() override
    {
        broadcasts.leave();
        DaemonOnItsOwnBus::TearDown();
    }

    // As gatewayReady(), which waits for an announcement that a stored filter may suppress. Events
    // are handled one at a time: when the second is asked for, the first is done with.
    void openGate()
    {
        static constexpr uint16_t DEVICE = 1000, OTHER_DEVICE = 1001;  // of no macro
        const size_t before = sdk.asked("getdevice", OTHER_DEVICE);
        event(100, DEVICE, 0);
        event(1, OTHER_DEVICE, 0);
        ASSERT_TRUE(eventually([&] { return sdk.asked("getdevice", OTHER_DEVICE) > before; }));
    }

    // A daemon without any configuration: that of an empty document, or no document at all.
    void begin(bool stored)
    {
        if (daemon.running())
            daemon.stop();
        for (const auto &entry : std::filesystem::directory_iterator(daemon.data.path()))
            std::filesystem::remove(entry.path());
        if (stored)
            daemon.writeSetup("{}");
        start(logging());
        openGate();
    }

    void restartAndCompare(Model &model)
    {
        daemon.stop();
        model.restart();
        start(logging());
        lastDocument = dump(model.document());
        ASSERT_TRUE(same(callForText("jsongetall", ""), lastDocument)) << "after a restart";
        sdk.forgetHeard();
    }

    void sendAndCompare(Model &model, const Request &request)
    {
        const auto reply = client.call(APP, methodOf(request), {request.text});
        const auto document = client.call(APP, "jsongetall", {""});  // handled after it
        const model::Outcome expected = model.apply(request);
        const std::string expectedDocument = dump(model.document());

        ASSERT_TRUE(eventually([&] { return document->arrived(); })) << "no configuration";
        ASSERT_TRUE(reply->arrived()) << "no reply";
        ASSERT_EQ(reply->signature(), "i") << reply->error();
        ASSERT_TRUE(same(document->text(), expectedDocument));
        ASSERT_EQ(reply->number(), expected.reply) << "with the configuration\n"
                                                   << expectedDocument;
        if (expected.announces) {
            ASSERT_TRUE(same(broadcasts.take(), expectedDocument)) << "as it was broadcast";
        }
        ASSERT_TRUE(same(daemon.storedSetup(), model.storedText())) << "as it is stored";
        lastDocument = expectedDocument;
    }

    void compareGroups(Model &model)
    {
        const Value document = model.document();
        for (const char *word : {"macros", "scenes", "rooms", "schedules"}) {
            const Value &group = *document.find(word, Value::ARRAY);
            Value titles = Value::array();
            for (const Value &element : group.elements)
                titles.elements.push_back(*element.find("title", Value::TEXT));
            ASSERT_TRUE(same(callForText("jsongetgroup", word), dump(group)));
            ASSERT_TRUE(same(callForText("jsongettitles", word), dump(titles)));
        }
    }

    // A change that no random request makes is the next broadcast, so none has come unexpected.
    void expectNoOtherBroadcast(Model &model)
    {
        static constexpr int64_t DURATION = 424242;
        Request request;
        request.value.kind = Value::OBJECT;
        Value alarm = Value::object();
        alarm.add("duration", Value::ofInteger(DURATION));
        request.value.add("alarm", alarm);
        request.text = dump(request.value);
        sendAndCompare(model, request);
        EXPECT_EQ(broadcasts.waiting(), 0u);
    }

    // The steps return at the first difference; the trace tells it once.
    void send(Model &model, const Request &request, int number)
    {
        SCOPED_TRACE("request " + std::to_string(number) + ", " + methodOf(request) + ":\n" +
                     request.text + "\nconfiguration before it:\n" + lastDocument);
        sendAndCompare(model, request);
    }

    void run(uint64_t seed, uint64_t sequence)
    {
        SCOPED_TRACE("APP_TEST_SEED=" + std::to_string(seed) +
                     " APP_TEST_SEQUENCE=" + std::to_string(sequence));
        Random random(seed, sequence);
        const bool stored = random.oneIn(2);
        Model model(stored ? std::optional(Value::object()) : std::nullopt);
        begin(stored);
        Value current = Value::object();
        lastDocument.clear();
        for (int i = 1; i <= REQUESTS && !HasFailure(); ++i) {
            send(model, randomRequest(random, current), i);
            if (random.oneIn(RESTART_ONE_IN) && !HasFailure()) {
                restartAndCompare(model);
                openGate();
            }
            current = model.document();
        }
        if (!HasFailure())
            expectNoOtherBroadcast(model);
        if (!HasFailure())
            compareGroups(model);
        if (!HasFailure())
            restartAndCompare(model);
    }

    inline static bool movedToMemory = false;

    Broadcasts broadcasts;
    std::string lastDocument;
};

TEST_P(ConfigModel, AgreesAfterEveryRequest)
{
    const uint64_t seed = setting("APP_TEST_SEED", 1);
    if (getenv("APP_TEST_SEQUENCE")) {
        const uint64_t only = setting("APP_TEST_SEQUENCE", 0);
        if (only % SHARES == GetParam())
            run(seed, only);
        return;
    }
    const uint64_t sequences = setting("APP_TEST_SEQUENCES", SEQUENCES);
    for (uint64_t i = GetParam(); i < sequences && !HasFailure(); i += SHARES)
        run(seed, i);
}

INSTANTIATE_TEST_SUITE_P(Share, ConfigModel, testing::Range(uint64_t{0}, SHARES));
