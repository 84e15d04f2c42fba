// Six hundred damaged documents: the daemon is up within a second, each of its lists is empty or
// right, never half of one, and it serves and saves as ever.

#include "support/daemon_on_its_own_bus.h"
#include "support/scale.h"
#include "support/wall_clock.h"

#include <algorithm>
#include <csignal>
#include <filesystem>

using namespace support;

static constexpr const char *SETUP_FILE = "appSetup.json";
static constexpr const char *RESUME_FILE = "scheduleResumeScene.json";
static constexpr size_t FIRST_BYTES = 64;
static constexpr size_t LENGTH_FIELD = 4;
static const size_t LARGE = SPEED_COUNTS ? 50'000'000 : 1'000'000;

// Something in every list, more than once.
static std::string configuration()
{
    std::string text = R"({"alarm":{"duration":7,"enabled":0,"siren_type":2,"trigger_duration":9})";
    const auto list = [&](const std::string &key, const std::string &before,
                          const std::string &after) {
        text += ",\"" + key + "\":[";
        for (int i = 0; i < 5; ++i)
            text += (i ? "," : "") + before + std::to_string(i) + after;
        text += "]";
    };
    list("scenes", R"({"title":"Scene )", R"(","comps":[{"target":{"dev":20},"value":1}]})");
    list("macros", R"({"title":"Macro )", R"(","enabled":1,"scene":"Scene 1"})");
    list("schedules", R"({"title":"Schedule )",
         R"(","enabled":1,"weekdays":127,"start_hour":8,"end_hour":9})");
    list("rooms", R"({"title":"Room )", R"(","targets":[{"dev":5,"if":0,"ch":1}]})");
    list("cameras", R"({"uid":"Camera )", R"("})");
    list("registeredDevices", R"({"token":"Token )", R"(","platform":"ios"})");
    return text + "}";
}

class StoredFiles : public DaemonOnItsOwnBus {
protected:
    void SetUp() override
    {
        DaemonOnItsOwnBus::SetUp();
        // As the daemon itself writes it.
        startWith(configuration());
        gatewayReady();
        EXPECT_EQ(callForNumber("jsonsetall", R"({"alarm":{"duration":3}})"), 1);
        whole = Json(callForText("jsongetall", ""));
        daemon.stop();
        endsOrderly = false;
        text = daemon.storedSetup();
        ASSERT_GT(text.size(), FIRST_BYTES);
        bytes = storedLayout(text);
        ASSERT_EQ(whole["scenes"].size(), 5u);
    }
    void TearDown() override
    {
        figure("files", files, "files");
        figure("longest_start_ms", longest, "ms");
        DaemonOnItsOwnBus::TearDown();
    }

    enum Expected { NOTHING, EVERYTHING, EITHER };

    void tryFile(const std::string &name, const std::string &content, Expected expected)
    {
        SCOPED_TRACE(name);
        std::filesystem::remove(daemon.data.file(SETUP_FILE));
        daemon.data.write(SETUP_FILE, content);
        startInTime();
        expectListsThatAre(expected);
        expectToServe();
        daemon.stop();
        std::filesystem::remove(daemon.data.file(std::string(SETUP_FILE) + ".new"));
    }
    void startInTime()
    {
        const Moment begin = Clock::now();
        launch(settings);
        waitUntilStarted();
        const int64_t took = millisecondsBetween(begin, Clock::now());
        longest = std::max(longest, took);
        if (SPEED_COUNTS) {
            EXPECT_LT(took, limit);
        }
        ++files;
    }
    void expectListsThatAre(Expected expected)
    {
        const Json now(callForText("jsongetall", ""));
        size_t right = 0;
        size_t empty = 0;
        size_t lists = 0;
        for (const std::string &key : whole.keys()) {
            const Json list = whole[key.c_str()];
            if (!list.isArray() || list.size() == 0)
                continue;
            ++lists;
            if (now[key.c_str()] == list)
                ++right;
            else if (now[key.c_str()].size() == 0)
                ++empty;
            else
                ADD_FAILURE() << key << " is half: " << now[key.c_str()].dump();
        }
        EXPECT_EQ(right + empty, lists);
        if (expected != EITHER) {
            EXPECT_EQ(right, expected == EVERYTHING ? lists : 0);
        }
        seenRight += right == lists ? 1 : 0;
        seenEmpty += empty == lists ? 1 : 0;
    }
    void expectToServe()
    {
        gatewayReady();
        EXPECT_EQ(callForNumber("jsonsetall", R"({"scenes":[{"title":"Served"}]})"), 1);
        const Json stored(daemon.storedSetup());
        EXPECT_FALSE(stored["scenes"].isNull()) << "what is saved is whole again";
    }

    std::vector<std::string> settings = {"OVRIN_LOG_LEVEL=4"};  // which does not show the document
    std::string text, bytes;
    Json whole;
    int64_t limit = inFull(1'000, 5'000);  // ms
    int64_t files = 0;
    int64_t longest = 0;
    size_t seenRight = 0;
    size_t seenEmpty = 0;
};

TEST_F(StoredFiles, WithABitFlippedInTheFirstBytesAreReadWholeOrNotAtAll)
{
    const size_t step = inFull(size_t{1}, size_t{23} * CASE_STEP);
    for (size_t bit = 0; bit < FIRST_BYTES * 8 && !HasFailure(); bit += step) {
        std::string flipped = bytes;
        flipped[bit / 8] = static_cast<char>(flipped[bit / 8] ^ (1 << bit % 8));
        // The length field does not rule, and a text that still is JSON says what it says.
        const Json says(flipped.substr(LENGTH_FIELD, flipped.size() - LENGTH_FIELD - 1));
        const bool prefixed = flipped[2] == '{';
        tryFile("bit " + std::to_string(bit), flipped,
                prefixed        ? NOTHING
                : says.isNull() ? NOTHING
                                : EVERYTHING);
    }
    figure("read_right", static_cast<int64_t>(seenRight), "files");
    figure("read_empty", static_cast<int64_t>(seenEmpty), "files");
    if (!inFull())
        return;
    EXPECT_GT(seenRight, 50u);
    EXPECT_GT(seenEmpty, 50u);
}

TEST_F(StoredFiles, OfZeroToFiveBytesAreNothing)
{
    tryFile("no byte", "", NOTHING);
    EXPECT_TRUE(daemon.logged("appSetup.json is empty."));
    for (const char fill : {'\0', '{', '[', '"', 'x', '\xff'}) {
        for (const size_t size : {1, 2, 3, 4, 5})
            tryFile(std::to_string(size) + " of " + std::to_string(fill), std::string(size, fill),
                    NOTHING);
        if (!inFull())
            return;
    }
}

TEST_F(StoredFiles, CutShortAreNothing)
{
    const size_t step = inFull(bytes.size() / 20, bytes.size() / 3);
    for (size_t size = 6; size < bytes.size() - 1 && !HasFailure(); size += step)
        tryFile("cut to " + std::to_string(size), bytes.substr(0, size), NOTHING);
}

TEST_F(StoredFiles, WithAWrongLengthFieldAreReadAllTheSame)
{
    const size_t size = text.size() + 1;
    int number = 0;
    for (const size_t field :
         {size_t{0}, size_t{1}, size - 1, size + 1, 2 * size, size_t{4}, size_t{0xff},
          size_t{0xffff}, size_t{0x7fffffff}, size_t{0xffffffff}, size_t{0x80000000}}) {
        if (!inFull() && number++ % 4 != 0)
            continue;
        std::string wrong = bytes;
        for (size_t i = 0; i < LENGTH_FIELD; ++i)
            wrong[i] = static_cast<char>(field >> (8 * i));
        tryFile("length " + std::to_string(field), wrong, EVERYTHING);
    }
}

TEST_F(StoredFiles, BehindAPrefixOfTwoBytesAreRead)
{
    int number = 0;
    for (const std::string prefix : {"ab", "{{", "\x01\x02", "\xff\xff", "  ", "[]", "\"\""}) {
        if (!inFull() && number++ % 4 != 0)
            continue;
        tryFile("prefix " + prefix, prefix + text, EVERYTHING);
        tryFile("prefix and NUL " + prefix, prefix + text + '\0', EVERYTHING);
    }
    tryFile("NUL prefix", std::string(2, '\0') + text, EVERYTHING);
}

TEST_F(StoredFiles, ThatAreNoDocumentAreNothing)
{
    int number = 0;
    for (const std::string content :
         {"nonsense", "[]", "[1,2,3]", "5", "null", "\"text\"", "{", "}", "{]", "{\"scenes\":",
          "{\"scenes\":[{\"title\":\"A\"}", "{\"scenes\":[{\"title\":\"A\"}]}}", "\xff\xfe{}", "{}",
          "{\"scenes\":{}}", "{\"scenes\":5,\"rooms\":\"x\"}", "{'scenes':[]}"}) {
        if (!inFull() && number++ % 6 != 0)
            continue;
        tryFile("in the layout: " + content, storedLayout(content), NOTHING);
        tryFile("bare: " + content, content, NOTHING);
    }
}

TEST_F(StoredFiles, OfFiftyMegabytesAreReadWholeOrNotAtAll)
{
    limit = inFull(1'000, 8'000);  // beside others it takes its time
    tryFile("letters", std::string(LARGE, 'x'), NOTHING);
    tryFile("blanks behind it", storedLayout(text + std::string(LARGE, ' ')), EVERYTHING);
    if (!inFull())
        return;
    tryFile("zeros", std::string(LARGE, '\0'), NOTHING);
    tryFile("brackets", storedLayout(std::string(LARGE, '[')), NOTHING);
    tryFile("a text without an end", storedLayout("{\"scenes\":\"" + std::string(LARGE, 'x')),
            NOTHING);
    tryFile("zeros behind it", bytes + std::string(LARGE, '\0'), EVERYTHING);
}

// Two schedules that have started are pending, two lamps each.
static const std::string RESUME =
    R"([{"scene":{"comps":[{"target":{"ch":0,"dev":20,"if":0},"value":7},)"
    R"({"target":{"ch":0,"dev":21,"if":0},"value":33}]},"title":"Schedule 1"},)"
    R"({"scene":{"comps":[{"target":{"ch":0,"dev":22,"if":0},"value":9},)"
    R"({"target":{"ch":0,"dev":23,"if":0},"value":50}]},"title":"Schedule 3"}])";
static constexpr size_t MEGABYTE = 1'000'000;
static const std::vector<std::string> SECOND_BACK = {switchCommand(22, 0, 9),
                                                     switchCommand(23, 0, 50)};
static const std::vector<std::string> BOTH_BACK = {
    switchCommand(20, 0, 7), switchCommand(21, 0, 33), SECOND_BACK[0], SECOND_BACK[1]};

class StoredSchedules : public StoredFiles {
protected:
    void SetUp() override
    {
        StoredFiles::SetUp();
        for (const int64_t uid : {20, 21, 22, 23, 30})
            sdk.set(device(uid, 0, SWITCH));
        settings = clock.settings();
        settings.emplace_back("OVRIN_LOG_LEVEL=3");
    }
    // What the schedules' end sends when that was their document at the start.
    std::vector<std::string> commandsAfter(const std::string &name, const std::string &content)
    {
        SCOPED_TRACE(name);
        daemon.data.write(SETUP_FILE, bytes);
        daemon.data.write(RESUME_FILE, content);
        clock.set(2024, 7, 1, 8, 30);
        startInTime();
        expectListsThatAre(EVERYTHING);
        const std::vector<std::string> commands = commandsOfTheEnd();
        expectToServe();
        daemon.stop();
        return commands;
    }
    // What is not damaged is put back, all of it. What is no JSON any more is nothing at all, and
    // what still is JSON says of the first schedule what it says; the second is as it was.
    void tryDamaged(const std::string &name, const std::string &content)
    {
        SCOPED_TRACE(name);
        const std::vector<std::string> commands = commandsAfter(name, content);
        const std::string now =
            content.substr(std::min(content.size(), LENGTH_FIELD),
                           content.size() > LENGTH_FIELD ? content.size() - LENGTH_FIELD - 1 : 0);
        const Json says(now);
        if (now == RESUME) {
            EXPECT_EQ(commands, BOTH_BACK);
            ++putBack;
        } else if (!says.isArray()) {
            EXPECT_THAT(commands, testing::IsEmpty());
            ++notPutBack;
        } else {
            EXPECT_THAT(commands, testing::IsSupersetOf(SECOND_BACK));
            EXPECT_LE(commands.size(), BOTH_BACK.size());
            ++otherwise;
        }
    }
    std::vector<std::string> commandsOfTheEnd()
    {
        static const std::string MARKER = switchCommand(30, 0, 1);
        gatewayReady();
        EXPECT_EQ(callForNumber("jsonsetall",
                                R"({"scenes":[{"title":"Marker","comps":[)"
                                R"({"target":{"dev":512},"value":3},)"  // waits for those before it
                                R"({"target":{"dev":30},"value":1}]}]})"),
                  1);
        sdk.forgetHeard();
        clock.set(2024, 7, 1, 9, 0);
        const size_t before = daemon.timesLogged("schedule signal");
        daemon.signal(SIGUSR1);
        EXPECT_TRUE(eventually([&] { return daemon.timesLogged("schedule signal") > before; }));
        EXPECT_TRUE(eventually([&] { return daemon.inMainLoop(); }));
        callForText("doscene", "Marker");
        EXPECT_TRUE(eventually([&] { return sdk.heard(MARKER); }));
        std::vector<std::string> texts = sdk.commandTexts();
        std::erase(texts, MARKER);
        return texts;
    }

    WallClock clock;
    int64_t putBack = 0;
    int64_t notPutBack = 0;
    int64_t otherwise = 0;
};

TEST_F(StoredSchedules, ThatAreDamagedArePutBackWholeOrNotAtAll)
{
    const std::string good = storedLayout(RESUME);
    tryDamaged("not damaged", good);
    const size_t step = inFull(size_t{7}, size_t{127} * CASE_STEP);
    for (size_t bit = 0; bit < FIRST_BYTES * 8 && !HasFailure(); bit += step) {
        std::string flipped = good;
        flipped[bit / 8] = static_cast<char>(flipped[bit / 8] ^ (1 << bit % 8));
        tryDamaged("bit " + std::to_string(bit), flipped);
    }
    for (size_t i = 1; i < inFull(size_t{10}, size_t{3}) && !HasFailure(); ++i)
        tryDamaged("cut", good.substr(0, good.size() * i / inFull(size_t{10}, size_t{3})));
    figure("put_back", putBack, "files");
    figure("not_put_back", notPutBack, "files");
    figure("says_otherwise", otherwise, "files");
    EXPECT_GT(putBack, 1);
    EXPECT_GT(notPutBack, 1);
}

TEST_F(StoredSchedules, WithoutADocumentAreNothing)
{
    std::vector<std::string> contents = {"", "[", "\xff\xff", std::string(4, '\0'), "[[[[["};
    for (const char *document : {"nonsense", "{}", "null", "5", "[", "[]", "[5]", "[{}]"})
        contents.push_back(storedLayout(document));
    contents.push_back("ab" + RESUME);  // a configuration would be read there
    contents.push_back(RESUME);
    contents.push_back(std::string(MEGABYTE, '['));
    for (size_t i = 0; i < contents.size() && !HasFailure(); i += inFull(size_t{1}, size_t{4})) {
        SCOPED_TRACE(i);
        EXPECT_THAT(commandsAfter("", contents[i]), testing::IsEmpty());
    }
}

TEST_F(StoredSchedules, WithAWrongLengthFieldArePutBackAllTheSame)
{
    const std::string good = storedLayout(RESUME);
    for (const std::string &field : {std::string(4, '\0'), std::string(4, '\xff')})
        EXPECT_EQ(commandsAfter("length", field + good.substr(LENGTH_FIELD)), BOTH_BACK);
    const std::string padded = storedLayout(RESUME + std::string(MEGABYTE, ' '));
    EXPECT_EQ(commandsAfter("blanks behind it", padded), BOTH_BACK);
}
