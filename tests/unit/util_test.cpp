#include "main/util.h"

#include "daemon_in_process.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <pthread.h>
#include <thread>

using namespace std::chrono_literals;
using support::eventually;

TEST(JsonStrCopy, CopiesTextsOfUpTo126Characters)
{
    char field[TEXT_SIZE] = "before";
    const std::string longest(126, 'a');
    EXPECT_EQ(JsonStrCopy(field, longest.c_str()), 1);
    EXPECT_EQ(field, longest);
    EXPECT_EQ(JsonStrCopy(field, ""), 1);
    EXPECT_STREQ(field, "");
}

TEST(JsonStrCopy, RefusesLongerTextsAndLeavesTheField)
{
    for (const size_t length : {127, 128, 1000}) {
        char field[TEXT_SIZE] = "before";
        const std::string tooLong(length, 'a');
        forgetLog();
        EXPECT_EQ(JsonStrCopy(field, tooLong.c_str()), 0);
        EXPECT_STREQ(field, "before");
        EXPECT_EQ(logLines(), (std::vector<LogLine>{
                                  {6, "JsonStrCopy", "src str too long: " + tooLong + "\n"}}));
    }
}

TEST(JsonStrCopy, RefusesNullPointers)
{
    char field[TEXT_SIZE] = "before";
    EXPECT_EQ(JsonStrCopy(field, nullptr), 0);
    EXPECT_EQ(JsonStrCopy(nullptr, "text"), 0);
    EXPECT_STREQ(field, "before");
    EXPECT_THAT(logTexts(), testing::Contains(testing::StartsWith("NULL error, dst: 0x")).Times(2));
}

TEST(copyNameBeforeParen, DropsTheParenthesisAndTheCharacterBeforeIt)
{
    const std::pair<const char *, const char *> cases[] = {{"Lamp (2)", "Lamp"},
                                                           {"Lamp(2)", "Lam"},
                                                           {"(2) Lamp", "(2) Lamp"},
                                                           {"Lamp", "Lamp"},
                                                           {"Lamp (hall)", "Lamp"},
                                                           {"ab(x)", "a"},
                                                           {"a(x)", ""},
                                                           {"", ""},
                                                           {"Lamp (a) (b)", "Lamp"}};
    for (const auto &[source, expected] : cases) {
        char field[TEXT_SIZE] = "before";
        EXPECT_EQ(copyNameBeforeParen(field, source), field);
        EXPECT_STREQ(field, expected) << source;
    }
}

TEST(copyNameBeforeParen, NeverCutsACharacterInTwo)
{
    char field[TEXT_SIZE] = {};
    EXPECT_STREQ(copyNameBeforeParen(field, "居間灯(2)"), "居間");
}

TEST(copyNameBeforeParen, CutsANameToItsField)
{
    char field[TEXT_SIZE] = {};
    copyNameBeforeParen(field, std::string(1000, 'a').c_str());
    EXPECT_EQ(field, std::string(127, 'a'));
}

TEST(copyBounded, StoresWholeWhatFitsAndLogsWhatItCuts)
{
    char field[8];
    copyBounded(field, sizeof field, "1234567");
    EXPECT_STREQ(field, "1234567");
    EXPECT_TRUE(logLines().empty());
    copyBounded(field, sizeof field, "12345678");
    EXPECT_STREQ(field, "1234567");
    ASSERT_EQ(logLines().size(), 1u);
    EXPECT_EQ(logLines()[0].level, 6);
    copyBounded(field, sizeof field, "12345居");  // three bytes, of which two would fit
    EXPECT_STREQ(field, "12345");
}

static void ignoreSignal(int)
{
}

TEST(errorText, SaysWhatTheNumberMeans)
{
    EXPECT_STREQ(errorText(ENOENT), "No such file or directory");
    EXPECT_STREQ(errorText(EACCES), "Permission denied");
    EXPECT_STREQ(errorText(-1), "Unknown error -1");
}

TEST(errorText, BelongsToItsThread)
{
    const char *here = errorText(-1);
    std::thread([] { errorText(-2); }).join();
    EXPECT_STREQ(here, "Unknown error -1");
}

TEST(doNanoSleep, SleepsItsWholeTimeThroughSignals)
{
    struct sigaction action = {};
    action.sa_handler = ignoreSignal;
    sigaction(SIGUSR2, &action, nullptr);
    std::atomic<pthread_t> sleeper{};
    std::atomic<pid_t> tid{};
    const auto begin = std::chrono::steady_clock::now();
    std::jthread thread([&] {
        tid = gettid();
        sleeper = pthread_self();
        doNanoSleep(1, 0);
    });
    ASSERT_TRUE(eventually([&] { return sleeper != pthread_t{}; }));
    for (size_t interruption = 1; interruption <= 2; ++interruption) {
        // A signal that comes before the sleep begins does not interrupt it: send until one did.
        const auto moment = begin + interruption * 300ms;
        ASSERT_TRUE(eventually([&] {
            if (std::chrono::steady_clock::now() >= moment && logLines().size() < interruption)
                pthread_kill(sleeper, SIGUSR2);
            return logLines().size() >= interruption;
        }));
    }
    thread.join();
    const auto took = std::chrono::steady_clock::now() - begin;
    EXPECT_GE(took, 1s);
    if (support::SPEED_COUNTS) {
        EXPECT_LT(took, 1300ms);
    }
    double before = 1.0;
    for (const LogLine &line : logLines()) {
        EXPECT_EQ(line.level, 4);
        EXPECT_EQ(line.function, "doNanoSleep");
        long seconds = 0;
        long nanoseconds = 0;
        int logged = 0;
        char newline = 0;
        ASSERT_EQ(sscanf(line.text.c_str(), "remaining time: %ld.%ld sec, tid: %d%c", &seconds,
                         &nanoseconds, &logged, &newline),
                  4);
        EXPECT_EQ(newline, '\n');
        EXPECT_EQ(logged, tid);
        const double left = static_cast<double>(seconds) + static_cast<double>(nanoseconds) / 1e9;
        EXPECT_LT(left, before - 0.2);
        before = left;
    }
}

TEST(doNanoSleep, ReturnsAtOnceFromATimeThatIsNone)
{
    const auto begin = std::chrono::steady_clock::now();
    doNanoSleep(0, -1);
    doNanoSleep(0, 2'000'000'000);
    doNanoSleep(-1, 0);
    EXPECT_TRUE(logLines().empty());
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 1s);
}

TEST(getCurTime, IsTheLocalTimeOfTheZoneThatHoldsNow)
{
    for (const auto &[zone, offset] : {std::pair{"<+09>-9", 32400}, std::pair{"<-03>3", -10800}}) {
        setenv("TZ", zone, 1);
        tm local = *getCurTime();
        EXPECT_EQ(local.tm_gmtoff, offset);
        EXPECT_NEAR(static_cast<double>(mktime(&local)), static_cast<double>(time(nullptr)), 2.0);
    }
}

TEST(copyText, SaysThatMemoryHasRunOut)
{
    char *copy = copyText("text");
    EXPECT_STREQ(copy, "text");
    free(copy);
    EXPECT_EQ(copyText(nullptr), nullptr);
    EXPECT_TRUE(logLines().empty());
    failAllocation(1);
    EXPECT_EQ(copyText("text"), nullptr);
    EXPECT_EQ(logLines(), (std::vector<LogLine>{{6, "copyText", "calloc fail\n"}}));
    EXPECT_EQ(copyToPool(nullptr, "text"), nullptr);
}

TEST(getCurTime, GivesEachThreadATimeOfItsOwn)
{
    const tm *mine = getCurTime();
    const tm *others = nullptr;
    std::thread([&] { others = getCurTime(); }).join();
    EXPECT_NE(mine, others);
}

TEST(json_dumps_dbg, WritesCompactSortedAscii)
{
    const Value value(R"({"b": "ü", "a": 1})");
    char *text = json_dumps_dbg(value, JSON_TEXT_FLAGS);
    EXPECT_STREQ(text, R"({"a":1,"b":"\u00FC"})");
    free(text);
    EXPECT_EQ(json_dumps_dbg(nullptr, JSON_TEXT_FLAGS), nullptr);
    static_assert(JSON_TEXT_FLAGS == 224);
}
