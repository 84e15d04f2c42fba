// Whatever a text holds, it is a word of the program that delivers a push, byte for byte, and
// starts nothing: texts made at random of what means something to a shell, in every field at once.

#include "support/daemon_on_its_own_bus.h"
#include "support/push_helpers.h"
#include "support/scale.h"
#include "support/started_programs.h"

#include <random>

using namespace support;
using testing::ElementsAre;

static constexpr const char *UUID = "ABCDEFGHIJKLMNOPQRST";
static constexpr const char *PUSH_MESSAGES = "com.OvrinTech.message.pushMsg";
static constexpr uint16_t REPORT = 5001;

// "%F" stands for a file that nobody may make.
static constexpr const char *PIECES[] = {"$(intruder)",
                                         "`intruder`",
                                         ";intruder;",
                                         "&intruder&",
                                         "|intruder",
                                         "||intruder",
                                         "&&intruder",
                                         "\nintruder\n",
                                         "\r\n",
                                         "\n",
                                         "\"",
                                         "'",
                                         "\\",
                                         "\\\"",
                                         "\\'",
                                         "\\$",
                                         "\\`",
                                         "\\\\",
                                         "\"\"",
                                         "''",
                                         "$",
                                         "$(",
                                         ")",
                                         "`",
                                         "${",
                                         "}",
                                         "$((",
                                         "))",
                                         "$'",
                                         "$\"",
                                         "((",
                                         "{",
                                         ";",
                                         "&",
                                         "|",
                                         "<",
                                         ">",
                                         "<<E\nE\n",
                                         "<(intruder)",
                                         ">%F",
                                         "> %F",
                                         ">>%F",
                                         "2>%F",
                                         "$(>%F)",
                                         "`>%F`",
                                         ";>%F;",
                                         "$(/bin/sh -c '>%F')",
                                         ";/usr/bin/touch %F;",
                                         "$IFS",
                                         "${IFS}",
                                         "$PATH",
                                         "$0",
                                         "$@",
                                         "$#",
                                         "$$",
                                         "$!",
                                         "$-",
                                         "$?",
                                         "~",
                                         "~root",
                                         "*",
                                         "?",
                                         "[a-z]",
                                         "{a,b}",
                                         "!",
                                         "!!",
                                         "^",
                                         "#",
                                         " # ",
                                         "%",
                                         "%s",
                                         "%n",
                                         "%5$s",
                                         "%%",
                                         "=",
                                         "PATH=",
                                         "-",
                                         "--",
                                         "-rf",
                                         "-c",
                                         ":",
                                         ",",
                                         ".",
                                         "/",
                                         "../",
                                         "@",
                                         "+",
                                         "_",
                                         " ",
                                         "  ",
                                         "\t",
                                         "\v",
                                         "\f",
                                         "\b",
                                         "\x01",
                                         "\x07",
                                         "\x1b[2J",
                                         "\x7f",
                                         "{\"",
                                         "\"}",
                                         "\\u0000",
                                         "\\n",
                                         "\\x24",
                                         "é",
                                         "ß",
                                         "玄関",
                                         "の",
                                         "🚪",
                                         "\u00A0",
                                         "\u0085",
                                         "\u2028",
                                         "\u202E",
                                         "\uFEFF",
                                         "\uFFFD",
                                         "\U0010FFFF",
                                         "if",
                                         "then",
                                         "do",
                                         "exec intruder",
                                         "eval intruder",
                                         "exit",
                                         "intruder",
                                         "a",
                                         "Z",
                                         "0",
                                         "home"};

class HostileTexts : public ConfigurableDaemon, public testing::WithParamInterface<unsigned> {
protected:
    static constexpr size_t LONGEST_TITLE = 126;  // bytes

    void SetUp() override
    {
        ConfigurableDaemon::SetUp();
        platform.set("TUTK_UUID", UUID);
        forbidden = helpers.folder.file("made").string();
    }
    std::string text()
    {
        std::string result;
        const unsigned pieces = 1 + random() % 8;
        for (unsigned i = 0; i < pieces; ++i) {
            std::string piece = PIECES[random() % std::size(PIECES)];
            const size_t place = piece.find("%F");
            if (place != std::string::npos)
                piece.replace(place, 2, forbidden);
            if (result.size() + piece.size() <= LONGEST_TITLE)
                result += piece;
        }
        return result.empty() ? "$" : result;
    }
    // A device's name is kept up to the character before its parenthesis, by bytes, and whole.
    static std::string asChannelName(const std::string &text)
    {
        const size_t parenthesis = text.find('(');
        if (parenthesis == std::string::npos || parenthesis == 0)
            return text;
        size_t length = parenthesis - 1;
        while ((text[length] & 0xC0) == 0x80)
            --length;
        return text.substr(0, length);
    }
    void pushAndDelete()
    {
        const std::string device = text(), room = text(), gateway = text(), macro = text(),
                          scene = text(), token = text(), app = text(), message = text();
        const bool isIos = random() % 2 == 0;
        sdk.set({.uid = 5,
                 .channels = {{.chid = 1, .functype = DOOR, .basicvalue = 255, .name = device}}});
        ASSERT_EQ(set(R"({"registeredDevices":[{"token":)" + quoted(token) + R"(,"app_id":)" +
                      quoted(app) + R"(,"gateway_name":)" + quoted(gateway) + R"(,"platform":)" +
                      (isIos ? R"("ios")" : R"("android")") + R"(}],"macros":[{"title":)" +
                      quoted(macro) + R"(,"enabled":1,"enabled_notifications":["pns"],
                          "scene":{"title":)" +
                      quoted(scene) + R"(},"triggers":[{"target":{"dev":5,"if":0,"ch":1},
                          "op":"=","threshold":255}]}],"rooms":[{"title":)" +
                      quoted(room) + R"(,"targets":[{"dev":5,"if":0,"ch":1}]}]})"),
                  1);
        event(REPORT, 5, 1);
        expectRun(isIos, app, token,
                  gateway + " => " + asChannelName(device) + " in " + room + " was triggered => " +
                      scene + " is executing");
        ASSERT_EQ(callForText("message", message, PUSH_MESSAGES), "done");
        expectRun(isIos, app, token, gateway + " => " + message);
        ASSERT_EQ(callForNumber("jsondel", R"({"registeredDevices":[{"token":)" + quoted(token) +
                                               R"(}],"macros":[{"title":)" + quoted(macro) +
                                               R"(}],"rooms":[{"title":)" + quoted(room) + "}]}"),
                  1);
    }
    void expectRun(bool isIos, const std::string &app, const std::string &token,
                   const std::string &shown)
    {
        std::vector<HelperRun> runs;
        ASSERT_TRUE(eventually([&] {
            runs = helpers.runs();
            return !runs.empty();
        })) << "no push of "
            << shown;
        ASSERT_EQ(runs.size(), 1u);
        EXPECT_EQ(runs[0].program, isIos ? "ios_push" : "gcm_push");
        if (isIos)
            EXPECT_THAT(runs[0].arguments, ElementsAre(app, token, UUID, shown));
        else
            EXPECT_THAT(runs[0].arguments, ElementsAre(app, token, shown));
        std::filesystem::remove(helpers.folder.file("runs"));
        if (!emulated()) {
            EXPECT_THAT(started.take(),
                        ElementsAre("/bin/sh", helpers.folder.file(runs[0].program)));
        }
    }
    std::vector<std::string> filesOfTheHelpers() const
    {
        std::vector<std::string> names;
        for (const auto &entry : std::filesystem::directory_iterator(helpers.folder.path()))
            names.push_back(entry.path().filename());
        return names;
    }

    PushHelpers helpers;
    StartedPrograms started;
    std::string forbidden;
    std::mt19937 random{GetParam()};
};

TEST_P(HostileTexts, AreWordsOfTheHelpersAndStartNothing)
{
    const int texts = inFull(1250, SPEED_COUNTS ? 75 : 25);
    std::vector<std::string> settings = helpers.settings();
    for (const std::string &setting : started.settings())
        settings.push_back(setting);
    startWith("{}", settings);
    gatewayReady();
    started.take();  // the daemon itself
    for (int i = 0; i < texts && !HasFailure(); ++i) {
        SCOPED_TRACE("round " + std::to_string(i));
        pushAndDelete();
        EXPECT_THAT(filesOfTheHelpers(),
                    testing::UnorderedElementsAre("ios_push", "gcm_push", "mail", "intruder"));
    }
    daemon.stop();
    endsOrderly = false;
    EXPECT_THAT(started.take(), testing::IsEmpty());
    figure("texts", texts, "in each of 8 fields");
    figure("intruders", std::filesystem::exists(forbidden), "programs or files");
}

INSTANTIATE_TEST_SUITE_P(Seeds, HostileTexts, testing::Values(1u, 2u, 3u, 4u));
