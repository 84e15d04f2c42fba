// One allocation finds no memory, the first, the second, and so on to the last that a request, a
// scene or an event needs: what was asked for is done or left, nothing is kept of it, and the next
// of the same kind is done as ever.

#include "support/daemon_on_its_own_bus.h"
#include "support/failing_heap.h"
#include "support/scale.h"

#include <algorithm>
#include <csignal>

using namespace support;

static constexpr uint16_t REPORT = 5001;
static constexpr uint16_t LOGGED_ONLY = 9999;
static constexpr int64_t MOST_ALLOCATIONS = 5000;

static const std::string LAMP_ON = switchCommand(20, 0, 255);
static const std::string MARK = switchCommand(21, 0, 1);

class FailingAllocation : public ConfigurableDaemon {
protected:
    void SetUp() override
    {
        // A sanitizer has a heap of its own.
        if (!SPEED_COUNTS)
            GTEST_SKIP() << "a sanitizer, or an emulator, has a heap of its own";
        ConfigurableDaemon::SetUp();
        sdk.set(device(5, 0, DOOR, 255));
        sdk.set(device(6, 0, SWITCH, 1));
        sdk.set(device(20, 0, SWITCH, 7));
        sdk.set(device(21, 0, SWITCH, 7));
    }
    void TearDown() override
    {
        if (!IsSkipped())
            ConfigurableDaemon::TearDown();
    }
    void startHome(const std::string &setup)
    {
        startWith(setup, heap.settings());
        gatewayReady();
    }
    // Has one allocation after the other fail in `act`, until it needs no more; a share of the
    // whole takes only every few of them. `act` returns when it is over or the allocation has
    // failed: there is memory again when `check` looks at what has become of it.
    void letEachFail(int64_t share, const std::function<void()> &act,
                     const std::function<void()> &check)
    {
        const int64_t step = inFull<int64_t>(1, share);
        bool reached = true;
        int64_t n = 1;
        for (; reached && n < MOST_ALLOCATIONS && !HasFailure(); n += step) {
            const size_t log = daemon.logSize();
            heap.watch();
            heap.failAllocation(n);
            act();
            reached = !heap.stop();
            SCOPED_TRACE("allocation " + std::to_string(n) + ", " + heap.place() + "\n" +
                         daemon.log(log));
            check();
        }
        EXPECT_LT(n, MOST_ALLOCATIONS);
        figure("allocations", n - 1, "");
    }
    std::string configuration()
    {
        return callForText("jsongetall", "");
    }
    void expectNothingKeptBut(const std::vector<std::string> &records)
    {
        heap.endWatch();
        const auto isAmongThem = [&] {
            const std::vector<std::string> kept = heap.kept();
            return std::includes(records.begin(), records.end(), kept.begin(), kept.end());
        };
        EXPECT_TRUE(eventually(isAmongThem)) << testing::PrintToString(heap.kept());
    }

    FailingHeap heap;
};

// Whether all of the part is in the whole, in the same order; numbers and texts are the same.
static bool isPartOf(const Json &part, const Json &whole)
{
    if (part == whole)
        return true;
    if (part.isArray()) {
        size_t at = 0;
        for (size_t i = 0; i < part.size(); ++i, ++at) {
            while (at < whole.size() && !isPartOf(part[i], whole[at]))
                ++at;
        }
        return at <= whole.size();
    }
    const std::vector<std::string> keys = part.keys();
    return !keys.empty() && std::all_of(keys.begin(), keys.end(), [&](const std::string &key) {
        return isPartOf(part[key.c_str()], whole[key.c_str()]);
    });
}

static bool isBetween(const std::string &less, const std::string &text, const std::string &more)
{
    return isPartOf(Json(less), Json(text)) && isPartOf(Json(text), Json(more));
}

struct Request {
    const char *name;
    const char *set;
    const char *undo;  // a method and its document
    const char *undoDocument;
};

class FailingAllocationOfARequest : public FailingAllocation,
                                    public testing::WithParamInterface<Request> {};

// What the request adds is there, or a part of it is missing that the next such request brings;
// what was there before stays. What is stored is never half a document.
TEST_P(FailingAllocationOfARequest, CostsNoMoreThanAPartOfIt)
{
    const Request &request = GetParam();
    startHome(R"({"scenes":[{"title":"Other","comps":[{"target":{"dev":1},"value":2}]}],
        "alarm":{"duration":1,"enabled":0,"siren_type":1,"trigger_duration":1}})");
    const std::string before = configuration();
    ASSERT_EQ(set(request.set), 1);
    const std::string whole = configuration();
    ASSERT_NE(whole, before);
    ASSERT_EQ(callForNumber(request.undo, request.undoDocument), 1);
    ASSERT_EQ(configuration(), before);

    letEachFail(
        9,
        [&] {
            const auto reply = client.call(APP, "jsonsetall", {request.set});
            EXPECT_TRUE(eventually([&] { return reply->arrived() || heap.hasFailed(); }));
        },
        [&] {
            const std::string now = configuration();
            EXPECT_TRUE(now == before || now == whole || isBetween(before, now, whole)) << now;
            const std::string stored = daemon.storedSetup();
            EXPECT_TRUE(stored == before || stored == now) << stored;
            EXPECT_EQ(set(request.set), 1);
            EXPECT_EQ(configuration(), whole);
            EXPECT_EQ(daemon.storedSetup(), whole);
            EXPECT_EQ(callForNumber(request.undo, request.undoDocument), 1);
            EXPECT_EQ(configuration(), before);
            expectNothingKeptBut({});
        });
}

INSTANTIATE_TEST_SUITE_P(
    Groups, FailingAllocationOfARequest,
    testing::Values(Request{"TargetNames", R"({"targetNames":{"20.0.0":"Lamp"}})", "jsondel",
                            R"({"targetNames":{"20.0.0":"Lamp"}})"},
                    Request{"Cameras", R"({"cameras":[{"uid":"u","display":"d","password":"p"}]})",
                            "jsondel", R"({"cameras":[{"uid":"u"}]})"},
                    Request{"Macros",
                            R"({"macros":[{"title":"M","enabled":1,"enabled_notifications":["pns"],
                "scene":{"title":"own","comps":[{"target":{"dev":20},"value":2}],
                "buildinSiren":{"siren_type":3}},"triggers":[{"target":{"dev":4},"op":"="}]}]})",
                            "jsondel", R"({"macros":[{"title":"M"}]})"},
                    Request{"Scenes",
                            R"({"scenes":[{"title":"S","comps":[{"target":{"dev":20},"value":6}],
                "buildinSiren":{"siren_type":7}}]})",
                            "jsondel", R"({"scenes":[{"title":"S"}]})"},
                    Request{"Schedules", R"({"schedules":[{"title":"T","weekdays":127,
                "macro":{"title":"embedded","priority":8}}]})",
                            "jsondel", R"({"schedules":[{"title":"T"}]})"},
                    Request{"Rooms", R"({"rooms":[{"title":"R","targets":[{"dev":9}],
                "extra_camera":[{"camera":"c"}]}]})",
                            "jsondel", R"({"rooms":[{"title":"R"}]})"},
                    Request{"EventFilters", R"({"eventFilter":[{"uid":10}]})", "jsondel",
                            R"({"eventFilter":[{"uid":10}]})"},
                    Request{"Phones", R"({"registeredDevices":[{"token":"t","email":"e"}]})",
                            "jsondel", R"({"registeredDevices":[{"token":"t"}]})"},
                    Request{"Alarm", R"({"alarm":{"duration":11,"trigger_duration":4}})",
                            "jsonsetall", R"({"alarm":{"duration":1,"trigger_duration":1}})"}),
    caseName);

// One command each, a tenth of a second after the start; the second switches another lamp, to show
// that what was planned before is over.
static const std::string SCENES = R"("scenes":[
    {"title":"Light","buildinSiren":{"siren_type":4},"comps":[
        {"target":{"dev":505},"value":1},{"target":{"dev":20},"value":255}]},
    {"title":"Mark","comps":[{"target":{"dev":505},"value":1},{"target":{"dev":21},"value":1}]}])";

class FailingAllocationOfAScene : public FailingAllocation {
protected:
    void SetUp() override
    {
        FailingAllocation::SetUp();
        if (IsSkipped())
            return;
        startHome(setup());
        threads = daemon.threads();
        useOnce();
    }
    virtual std::string setup() const
    {
        return "{" + SCENES + "}";
    }
    // What the first time keeps for all others is there.
    virtual void useOnce()
    {
        expectTheLampToGoOn([&] { EXPECT_EQ(callForText("doscene", "Light"), "Light"); });
    }
    bool gaveUp() const
    {
        return daemon.logged("1.5.callocTARGET_Comp fail");
    }
    // Memory ran out while a scene was planned: the runner keeps its lock, on purpose, and no scene
    // runs in this daemon any more. True when that was so; the next case has another daemon then.
    bool hadToGiveUp()
    {
        EXPECT_TRUE(eventually([&] { return gaveUp() || daemon.threads() == threads; }));
        if (!gaveUp())
            return false;
        daemon.signal(SIGKILL);
        EXPECT_TRUE(eventually([&] { return !daemon.running(); }));
        start(heap.settings());
        gatewayReady();
        useOnce();
        return true;
    }
    void expectTheLampToGoOn(const std::function<void()> &act)
    {
        const size_t before = sdk.count(LAMP_ON);
        act();
        EXPECT_TRUE(eventually([&] { return sdk.count(LAMP_ON) > before; }));
        waitForAllCommands();
        EXPECT_EQ(sdk.count(LAMP_ON), before + 1);
    }
    void waitForAllCommands()
    {
        EXPECT_TRUE(eventually([&] { return daemon.threads() == threads; }));
        const size_t before = sdk.count(MARK);
        EXPECT_EQ(callForText("doscene", "Mark"), "Mark");
        EXPECT_TRUE(eventually([&] { return sdk.count(MARK) > before; }));
    }

    size_t threads = 0;
};

TEST_F(FailingAllocationOfAScene, CostsNoMoreThanThatRun)
{
    letEachFail(
        11,
        [&] {
            const size_t before = sdk.count(LAMP_ON);
            client.call(APP, "doscene", {"Light"});
            EXPECT_TRUE(
                eventually([&] { return sdk.count(LAMP_ON) > before || heap.hasFailed(); }));
        },
        [&] {
            listenerIsIdle();
            if (hadToGiveUp())
                return;
            waitForAllCommands();
            useOnce();
            expectNothingKeptBut({});
        });
}

class FailingAllocationOfAnEvent : public FailingAllocationOfAScene {
protected:
    std::string setup() const override
    {
        return R"({"macros":[{"title":"Door","enabled":1,"duration":0,"scene":"Light",
            "triggers":[{"target":{"dev":5},"op":"=","threshold":255}]}],)" +
               SCENES + "}";
    }
    void useOnce() override
    {
        expectTheLampToGoOn([&] { eventHandled(REPORT, 5, 0); });
    }
};

TEST_F(FailingAllocationOfAnEvent, CostsNoMoreThanThatEvent)
{
    // What an event leaves behind: its record in either journal.
    heap.watch();
    useOnce();
    eventHandled(LOGGED_ONLY, 6, 0);
    heap.endWatch();
    const std::vector<std::string> records = heap.kept();
    letEachFail(
        43,
        [&] {
            const size_t before = sdk.count(LAMP_ON);
            event(REPORT, 5, 0);
            EXPECT_TRUE(
                eventually([&] { return sdk.count(LAMP_ON) > before || heap.hasFailed(); }));
        },
        [&] {
            const size_t announcedBefore = announced(LOGGED_ONLY, 6);
            event(LOGGED_ONLY, 6, 0);
            EXPECT_TRUE(eventually(
                [&] { return announced(LOGGED_ONLY, 6) > announcedBefore || gaveUp(); }));
            if (hadToGiveUp())
                return;
            waitForAllCommands();
            expectNothingKeptBut(records);
            const size_t macros = macroEvents().size();
            useOnce();
            EXPECT_EQ(macroEvents().size(), macros + 1);
        });
}
