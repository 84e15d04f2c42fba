// Texts from outside in a push: whatever they hold, they are text to the shell, to the formatter
// and on the bus; long ones are cut.

#include "bus/push_fixture.h"

#include <algorithm>
#include <filesystem>

using namespace support;
using testing::ElementsAre;

// Texts that mean something to a shell, to a formatter or to JSON. "%F" stands for a file that
// nobody may make.
struct HostileText {
    const char *name;
    const char *text;
};

class HostilePush : public Pushes, public testing::WithParamInterface<HostileText> {
protected:
    std::string hostile() const
    {
        std::string text = GetParam().text;
        const size_t place = text.find("%F");
        if (place != std::string::npos)
            text.replace(place, 2, helpers.folder.file("made").string());
        return text;
    }
    // A device's name is kept up to the character before its parenthesis.
    static std::string asChannelName(const std::string &text)
    {
        const size_t parenthesis = text.find('(');
        if (parenthesis == std::string::npos || parenthesis == 0)
            return text;
        return text.substr(0, parenthesis - 1);
    }
    // The identity has room for 31 bytes.
    static std::string asIdentity(const std::string &text)
    {
        size_t length = std::min<size_t>(text.size(), 31);
        while (length < text.size() && (text[length] & 0xC0) == 0x80)
            --length;
        return text.substr(0, length);
    }
    std::vector<std::string> filesOfTheHelpers() const
    {
        std::vector<std::string> names;
        for (const auto &entry : std::filesystem::directory_iterator(helpers.folder.path()))
            names.push_back(entry.path().filename());
        return names;
    }
    void expectOnlyTheHelpers()
    {
        for (const HelperRun &run : helpers.runs())
            EXPECT_TRUE(run.program == "ios_push" || run.program == "gcm_push") << run.program;
        EXPECT_THAT(filesOfTheHelpers(), testing::UnorderedElementsAre("ios_push", "gcm_push",
                                                                       "mail", "intruder", "runs"));
    }
};

TEST_P(HostilePush, IsTextInEveryWordOfTheHelpers)
{
    const std::string text = hostile();
    const std::string json = quoted(text);
    const std::string id = asIdentity(text);
    platform.set("TUTK_UUID", text);
    platform.set("UUID", text);
    sdk.set(
        {.uid = 5,
         .channels = {
             {.chid = 1, .functype = DOOR, .basicvalue = 255, .tampernotify = 0, .name = text}}});
    const std::string phone = R"("app_id":)" + json + R"(,"gateway_name":)" + json +
                              R"(,"email":)" + json + R"(,"username":)" + json;
    startHome(R"({"registeredDevices":[{"platform":"ios","token":)" + json + "," + phone +
              R"(},{"platform":"android","token":)" + quoted(text + "2") + "," + phone + R"(}],
        "targetNames":{"5.0.1":)" +
              json + R"(},"rooms":[{"title":)" + json +
              R"(,"targets":[{"dev":5,"if":0,"ch":1}]}],
        "macros":[{"title":)" +
              json + R"(,"enabled":1,"enabled_notifications":["pns"],
            "scene":{"title":)" +
              json + R"(},
            "triggers":[{"target":{"dev":5,"if":0,"ch":1},"op":"=","threshold":255}]}]})");
    gatewayReady();
    push(text);
    ASSERT_TRUE(eventuallyRun(2));
    event(TAMPER, 5, 1);
    ASSERT_TRUE(eventuallyRun(4));
    event(REPORT, 5, 1);
    ASSERT_TRUE(eventuallyRun(6));

    const std::string shownTexts[] = {
        text,
        asChannelName(text) + " in " + text + " tamper trigger !!",
        text + " in " + text + " was triggered => " + text + " is executing",
    };
    std::vector<std::vector<std::string>> expected;
    for (const std::string &shownText : shownTexts) {
        const std::string whole = text + " => " + shownText;
        expected.push_back({"ios_push", text, text, id, whole});
        expected.push_back({"gcm_push", text, text + "2", whole});
    }
    EXPECT_EQ(helpers.commands(), expected);
    expectOnlyTheHelpers();
}

TEST_P(HostilePush, IsTextInLogsAndSignals)
{
    const std::string text = hostile();
    const std::string json = quoted(text);
    platform.set("TUTK_UUID", text);
    platform.set("UUID", text);
    sdk.set(
        {.uid = 5, .channels = {{.chid = 1, .functype = DOOR, .basicvalue = 255, .name = text}}});
    startHome(R"({"registeredDevices":[{"platform":"ios","token":"T","email":)" + json + R"(}],
        "macros":[{"title":)" +
              json + R"(,"enabled":1,"scene":{"title":)" + json + R"(},
            "triggers":[{"target":{"dev":5,"if":0,"ch":1},"op":"=","threshold":255}]}]})");
    gatewayReady();
    push(text);
    eventWithPayload(REPORT, 5, 1, 1, R"({"user":)" + json + "}");
    ASSERT_TRUE(eventually([&] { return macroEvents().size() == 1; }));

    EXPECT_EQ(macroEvents()[0]["name"].text(), text);
    EXPECT_EQ(macroEvents()[0]["scene"].text(), text);
    ASSERT_EQ(deliveries().size(), 1u);
    EXPECT_EQ(deliveries()[0]["payload"]["email"].text(), text);
    EXPECT_EQ(deliveries()[0]["payload"]["msg"].text(), text);
    EXPECT_EQ(deliveries()[0]["payload"]["uuid"].text(), asIdentity(text));
    const Json report = recent().back();
    EXPECT_EQ(report["funcName"].text(), asChannelName(text));
    EXPECT_EQ(report["payload"]["user"].text(), text);
    const Json journal = Json(callForText("jsongeteventbyseq", "1"))["eventLog"];
    EXPECT_EQ(journal[journal.size() - 1], report);
    const Json macros = Json(callForText("jsongetmacroeventbyseq", "1"))["macroEventLog"];
    EXPECT_EQ(macros[0]["name"].text(), text);
    std::string line = text;  // a call of the logging library is one line
    std::replace_if(
        line.begin(), line.end(), [](char c) { return c == '\n' || c == '\r'; }, ' ');
    EXPECT_TRUE(daemon.logged("macro '" + line + "' triggered, tid: "));
    ASSERT_TRUE(eventuallyRun(1));
    expectOnlyTheHelpers();
}

INSTANTIATE_TEST_SUITE_P(
    Texts, HostilePush,
    testing::Values(
        HostileText{"Substitution", "$(intruder)"}, HostileText{"SubstitutionOfAFile", "x$(>%F)"},
        HostileText{"Backquotes", "`intruder`"}, HostileText{"Semicolons", "; intruder ;"},
        HostileText{"ClosingQuote", "\"; intruder; \""},
        HostileText{"ClosingSingleQuote", "'; intruder; '"},
        HostileText{"EscapedQuote", "\\\"; intruder; #"},
        HostileText{"BackslashAtTheEnd", "text\\"}, HostileText{"Background", "& intruder &"},
        HostileText{"Pipe", "| intruder"}, HostileText{"Or", "|| intruder || x"},
        HostileText{"And", "&& intruder && x"}, HostileText{"Newlines", "\nintruder\n"},
        HostileText{"CarriageReturns", "\r\nintruder\r\n"}, HostileText{"OutputToAFile", "> %F"},
        HostileText{"MoreOutputToAFile", "x >>%F 2>&1"},
        HostileText{"InputFromAFile", "< /etc/passwd"},
        HostileText{"HereDocument", "<<EOF\nintruder\nEOF\n"},
        HostileText{"Variables", "$PATH ${HOME} $1 $* $@ $$ $? $"},
        HostileText{"Arithmetic", "$((1+1))"},
        HostileText{"Patterns", "* ? [a-z] ~ ~root {a,b} !!"}, HostileText{"Comment", "# intruder"},
        HostileText{"Subshell", "(intruder) {intruder;}"},
        HostileText{"Spaces", "  two  \t tabs \t"}, HostileText{"ShortOption", "-rf"},
        HostileText{"LongOption", "--help"}, HostileText{"EndOfOptions", "--"},
        HostileText{"Assignment", "PATH=/nowhere"}, HostileText{"Formats", "%s%n%d%5$s%%%"},
        HostileText{"Json", "\",\"uid\":{}]}"}, HostileText{"Controls", "\x01\x07\x1b[31m\x7f"},
        HostileText{"FourBytes", "🚪🔑𠮷野家"},
        HostileText{"ThirtyOneBytesCutACharacter", "123456789012345678901234567890玄関"},
        HostileText{"UncommonCharacters", "\u00A0\u2028\uFEFF\uFFFE\U0010FFFF"}),
    caseName);

TEST_F(Pushes, HoldLongTextsWhereTheyFitAndCutOrRefuseThemElsewhere)
{
    const std::string thousand(1000, 'n');
    std::string doors;
    for (int i = 0; i < 1000; ++i)
        doors += "🚪";
    sdk.set(
        {.uid = 5, .channels = {{.chid = 1, .functype = DOOR, .tampernotify = 0, .name = doors}}});
    startHome(R"({"registeredDevices":[
        {"platform":"ios","token":")" +
              std::string(1000, 't') + R"(","app_id":")" + thousand + R"(","gateway_name":")" +
              thousand + R"("},
        {"platform":"ios","token":")" +
              std::string(2000, 'u') + R"(","email":")" + std::string(126, 'e') + R"("}]})");
    push(doors);
    ASSERT_TRUE(eventuallyRun(2));
    eventDone(TAMPER, 5, 1);
    ASSERT_TRUE(eventuallyRun(4));
    const std::string cut = doors.substr(0, 31 * 4) + "  tamper trigger !!";
    EXPECT_THAT(helpers.commands(),
                ElementsAre(ElementsAre("ios_push", "", std::string(1000, 't'), UUID, doors),
                            ElementsAre("ios_push", "", std::string(1023, 'u'), UUID, doors),
                            ElementsAre("ios_push", "", std::string(1000, 't'), UUID, cut),
                            ElementsAre("ios_push", "", std::string(1023, 'u'), UUID, cut)));
    ASSERT_EQ(deliveries().size(), 2u);
    EXPECT_EQ(deliveries()[0]["payload"]["msg"].text(), doors);
    EXPECT_EQ(deliveries()[0]["payload"]["email"].text(), std::string(126, 'e'));
}

TEST_F(Pushes, CutAMessageThatNoCommandLineHolds)
{
    startHome("{" + ONE_PHONE + "}");
    EXPECT_EQ(push(std::string(1'000'000, '"')), "done");
    EXPECT_THAT(shown(), ElementsAre(std::string(4'095, '"')));
}
