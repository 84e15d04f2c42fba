// What the configuration costs as it grows: N scenes, N macros and N schedules, beside what the
// JSON library takes for the same text. Ten times as much may cost about ten times as much: what
// grows faster is named, and the program fails.

#include "config/document.h"
#include "config/lists.h"
#include "main/config_file.h"
#include "main/json_memory.h"
#include "main/locks.h"
#include "main/scope.h"
#include "main/util.h"

#include <benchmark/benchmark.h>
#include <ovrinlog.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <string>

// Stands in for the logging library, which is the device's.
int ovrin_log_write(int, const char *, int, const char *, const char *, ...)
{
    return 0;
}

static std::string format(const char *pattern, long long number, long long another)
{
    char text[1024];
    snprintf(text, sizeof text, pattern, number, another);
    return text;
}

static std::string listOf(const char *pattern, long long count)
{
    std::string text = "[";
    for (long long i = 0; i < count; ++i)
        text += (i ? "," : "") + format(pattern, i, i % 200);
    return text + "]";
}

static std::string documentOf(long long count)
{
    const std::string scenes = listOf(
        R"({"title":"Scene %lld","ID":7,"icon":"lamp","icon_name":"Lamp","invisible":0,"comps":[)"
        R"({"target":{"dev":%lld,"if":0,"ch":1},"value":255},{"target":{"dev":201,"if":0,"ch":1},"value":0},)"
        R"({"target":{"dev":202,"if":0,"ch":1},"value":50},{"target":{"dev":505,"if":0,"ch":0},"value":3}]})",
        count);
    const std::string macros = listOf(
        R"({"title":"Macro %1$lld","scene":"Scene %1$lld","enabled":1,"priority":1,"duration":60,"duration_type":1,)"
        R"("icon_name":"door","user_notification_message":"Somebody came","enabled_notifications":["push"],)"
        R"("triggers":[{"target":{"dev":%2$lld,"if":0,"ch":1},"op":"=","field":"sensorstate","threshold":1}]})",
        count);
    const std::string schedules = listOf(
        R"({"title":"Schedule %1$lld","macro":"Macro %1$lld","enabled":1,"weekdays":127,"icon":"moon","icon_name":"Moon",)"
        R"("repeat_type":0,"home_security_alarm":0,"start_hour":22,"start_minute":%2$lld,"end_hour":6,"end_minute":30,)"
        R"("start_day":1,"start_month":1,"end_day":31,"end_month":12})",
        count);
    return R"({"scenes":)" + scenes + R"(,"macros":)" + macros + R"(,"schedules":)" + schedules +
           "}";
}

// The document of that size as the daemon writes it, and that configuration in memory.
static std::string load(const benchmark::State &state)
{
    freeAppConfigList();
    parseAll(documentOf(state.range(0)).c_str());
    const Owned<json_t> root(getAllAppConfig());
    return Owned<char>(json_dumps_dbg(root.get(), JSON_TEXT_FLAGS)).get();
}

static void countBytes(benchmark::State &state, size_t size)
{
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(size));
    freeAppConfigList();
}

// Empty lists, a whole document; its announcement is part of it.
static void parse(benchmark::State &state)
{
    const std::string text = load(state);
    for (auto _ : state) {
        state.PauseTiming();
        freeAppConfigList();
        state.ResumeTiming();
        parseAll(text.c_str());
    }
    countBytes(state, text.size());
}

static void libraryLoad(benchmark::State &state)
{
    const std::string text = load(state);
    for (auto _ : state)
        Owned<json_t>(json_loads(text.c_str(), 0, nullptr));
    countBytes(state, text.size());
}

static void serialise(benchmark::State &state)
{
    const std::string text = load(state);
    for (auto _ : state) {
        const Owned<json_t> root(getAllAppConfig());
        Owned<char>(json_dumps_dbg(root.get(), JSON_TEXT_FLAGS));
    }
    countBytes(state, text.size());
}

static void libraryDump(benchmark::State &state)
{
    const std::string text = load(state);
    const Owned<json_t> root(json_loads(text.c_str(), 0, nullptr));
    for (auto _ : state)
        Owned<char>(json_dumps(root.get(), JSON_TEXT_FLAGS));
    countBytes(state, text.size());
}

static void save(benchmark::State &state)
{
    const std::string text = load(state);
    for (auto _ : state) {
        if (saveJsonToFlash() != 0)
            state.SkipWithError("the configuration cannot be saved");
    }
    countBytes(state, text.size());
}

// Each changes the last element of a group, found by its title, and announces the whole.
static void setOne(benchmark::State &state, const char *request)
{
    load(state);
    const std::string text = format(request, state.range(0) - 1, 0);
    for (auto _ : state)
        parseAll(text.c_str());
    freeAppConfigList();
}

static void sizes(benchmark::internal::Benchmark *benchmark)
{
    benchmark->RangeMultiplier(10)->Range(10, 10000)->Unit(benchmark::kMillisecond);
}

BENCHMARK(parse)->Apply(sizes);
BENCHMARK(libraryLoad)->Apply(sizes);
BENCHMARK(serialise)->Apply(sizes);
BENCHMARK(libraryDump)->Apply(sizes);
BENCHMARK(save)->Apply(sizes)->UseRealTime();  // most of it is waiting for the disk
BENCHMARK_CAPTURE(setOne, scene, R"({"scenes":[{"title":"Scene %lld","icon":"x"}]})")->Apply(sizes);
BENCHMARK_CAPTURE(setOne, macro, R"({"macros":[{"title":"Macro %lld","enabled":0}]})")
    ->Apply(sizes);
BENCHMARK_CAPTURE(setOne, schedule, R"({"schedules":[{"title":"Schedule %lld","enabled":0}]})")
    ->Apply(sizes);

// Prints as usual, and remembers the times for the growth.
class GrowthReporter : public benchmark::ConsoleReporter {
public:
    GrowthReporter() : ConsoleReporter(OO_Tabular)
    {
    }

    void ReportRuns(const std::vector<Run> &runs) override
    {
        ConsoleReporter::ReportRuns(runs);
        for (const Run &run : runs) {
            failed |= run.error_occurred;
            times[run.run_name.function_name][run.run_name.args] = run.run_name.time_type.empty()
                                                                       ? run.GetAdjustedCPUTime()
                                                                       : run.GetAdjustedRealTime();
        }
    }

    // True when nothing failed and all of it grows linearly; the library's own lines are there to
    // compare.
    bool judge()
    {
        for (auto &[name, time] : times) {
            if (time["10000"] <= 0 || time["1000"] <= 0)
                continue;
            const double growth = time["10000"] / time["1000"];
            const bool tooMuch = growth > MOST_GROWTH && !name.starts_with("library");
            printf("10,000 cost %5.1f times 1,000: %s%s\n", growth, name.c_str(),
                   tooMuch ? "  TOO MUCH" : "");
            failed |= tooMuch;
        }
        return !failed;
    }

private:
    static constexpr double MOST_GROWTH = 15;

    std::map<std::string, std::map<std::string, double>> times;
    bool failed = false;
};

// A folder for what is saved, in the place of the gateway's.
class DataFolder {
public:
    DataFolder() : path((std::filesystem::temp_directory_path() / "app-bench-XXXXXX").string())
    {
        if (!mkdtemp(path.data()) || setenv("APP_DATA_DIR", path.c_str(), 1) != 0) {
            perror(path.c_str());
            exit(1);
        }
    }
    ~DataFolder()
    {
        std::filesystem::remove_all(path);
    }

private:
    std::string path;
};

int main(int argc, char **argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    const DataFolder folder;
    watchJsonMemory();
    appPthreadMutexInit();
    GrowthReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    return reporter.judge() ? 0 : 1;
}
