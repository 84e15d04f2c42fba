// How late a scene's commands are. No test of a suite: it takes five minutes, wants a machine that
// has little else to do, and prints the tables of docs/timing.md.

#include "support/daemon_on_its_own_bus.h"

#include <algorithm>
#include <cstdio>
#include <thread>

using namespace support;

static constexpr int COMMANDS = 1000;
static constexpr int OF_A_SCENE = 20;
static constexpr int BUCKETS = 11;
static constexpr int64_t BUCKET = 20'000;  // microseconds
static constexpr int64_t WRAP = 1'000'000'000'000;
static constexpr int64_t TICK = 95'000;

static int64_t microseconds(auto sinceSomewhere)
{
    return std::chrono::duration_cast<std::chrono::microseconds>(sinceSomewhere).count();
}

// The wall clock at that moment, as far round as the daemon's stamps go.
static int64_t stampOf(Moment moment)
{
    const int64_t age = microseconds(Clock::now() - moment);
    return (microseconds(std::chrono::system_clock::now().time_since_epoch()) - age) % WRAP;
}

static void print(int64_t gap, std::vector<int64_t> late)
{
    std::sort(late.begin(), late.end());
    const auto part = [&](double share) {
        const auto index = static_cast<size_t>(share * static_cast<double>(late.size() - 1));
        return static_cast<double>(late[index]) / 1000;
    };
    const int64_t check = gap / 100 * TICK;
    printf("\nGap %lld ms: earliest %.1f ms, median %.1f, 95 %% within %.1f, latest %.1f\n\n",
           static_cast<long long>(gap), part(0), part(0.5), part(0.95), part(1));
    printf("| late by (ms) | commands | implied |\n|---|---|---|\n");
    for (int64_t i = 0; i < BUCKETS; ++i) {
        const int64_t from = i * BUCKET;
        const bool last = i + 1 == BUCKETS;
        const auto counted = std::count_if(late.begin(), late.end(), [&](int64_t one) {
            return one >= from && (last || one < from + BUCKET);
        });
        const int64_t reached = std::clamp<int64_t>(check - from, 0, BUCKET);
        const std::string end = last ? "and more" : "to " + std::to_string((from + BUCKET) / 1000);
        printf("| %lld %s | %lld | %.0f |\n", static_cast<long long>(from / 1000), end.c_str(),
               static_cast<long long>(counted),
               static_cast<double>(COMMANDS * reached) / static_cast<double>(check));
    }
}

class Measurement : public DaemonOnItsOwnBus {
protected:
    void startWithGap(int64_t gap)
    {
        std::string comps =
            R"({"target":{"dev":505,"if":0,"ch":0},"value":)" + std::to_string(gap / 100) + "}";
        Device lamps = {.uid = 20, .channels = {}};
        for (int64_t i = 0; i < OF_A_SCENE; ++i) {
            lamps.channels.push_back({.chid = i, .functype = SWITCH});
            comps += R"(,{"target":{"dev":20,"if":0,"ch":)" + std::to_string(i) + R"(},"value":1})";
        }
        sdk.set(lamps);
        startWith(R"({"scenes":[{"title":"S","comps":[)" + comps + "]}]}");
    }
    // The planned time of a run's last command, as the daemon has logged it since `from`.
    int64_t plannedLast(size_t from) const
    {
        const std::string log = daemon.log(from);
        const size_t line = log.rfind("4.0.do_scene_schedule last_time=");
        long planned = 0;
        EXPECT_NE(line, std::string::npos);
        EXPECT_EQ(sscanf(log.c_str() + line, "4.0.do_scene_schedule last_time=%ld", &planned), 1);
        return planned * 1000;
    }
    // Microseconds of each command of one run behind its planned time.
    std::vector<int64_t> runScene(int64_t gap)
    {
        sdk.forgetHeard();
        const size_t log = daemon.logSize();
        callForText("doscene", "S");
        const auto switched = [&] {
            std::vector<Heard> heard = sdk.commands();
            std::erase_if(heard, [](const Heard &command) { return command.uid() != 20; });
            return heard;
        };
        EXPECT_TRUE(eventually([&] { return switched().size() == OF_A_SCENE; }, 30s));
        const int64_t last = plannedLast(log);
        std::vector<int64_t> late;
        for (const Heard &heard : switched()) {
            const int64_t position = Json(heard.text)["control"]["chid"].integer();
            late.push_back(stampOf(heard.at) - (last - (OF_A_SCENE - 1 - position) * gap * 1000));
        }
        return late;
    }
    void measure(int64_t gap)
    {
        startWithGap(gap);
        std::vector<int64_t> late;
        while (late.size() < COMMANDS && !HasFailure()) {
            // Each run begins at another moment between two ticks.
            std::this_thread::sleep_for(Milliseconds(late.size() * 7 % 190));
            const std::vector<int64_t> run = runScene(gap);
            late.insert(late.end(), run.begin(), run.end());
        }
        ASSERT_EQ(late.size(), static_cast<size_t>(COMMANDS));
        EXPECT_GE(*std::min_element(late.begin(), late.end()), 0) << "a command came early";
        print(gap, late);
    }
};

TEST_F(Measurement, OfAThousandCommandsAtTheUsualGap)
{
    measure(200);
}

TEST_F(Measurement, OfAThousandCommandsAtTheSmallestGap)
{
    measure(100);
}
