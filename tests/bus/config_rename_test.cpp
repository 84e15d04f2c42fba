// Renaming macros, scenes, rooms and schedules over the bus.

#include "support/daemon_on_its_own_bus.h"

using namespace support;

class ConfigRename : public ConfigurableDaemon {
protected:
    int64_t rename(const std::string &request)
    {
        return callForNumber("jsonrename", request);
    }
    std::string all()
    {
        return callForText("jsongetall", "");
    }
    std::string titles(const std::string &word)
    {
        return callForText("jsongettitles", word);
    }
};

// The same three titles in each group, and names that refer to them.
static constexpr const char *SETUP = R"({
    "macros":[{"title":"A","scene":"B","enabled":1},{"title":"B","scene":{"title":"A"}},
        {"title":"C"}],
    "rooms":[{"title":"A","icon":"a"},{"title":"B","targets":[{"dev":5,"if":1,"ch":2}]},
        {"title":"C"}],
    "scenes":[{"title":"A","ID":1},{"title":"B","ID":2},{"title":"C","ID":3}],
    "schedules":[{"title":"A","macro":"B"},{"title":"B","macro":{"title":"A"}},{"title":"C"}]})";

// ---- Each of the groups

class RenameInGroup : public ConfigRename, public testing::WithParamInterface<const char *> {
protected:
    std::string request(const std::string &oldTitle, const std::string &newTitle)
    {
        return std::string("[\"") + GetParam() + R"(",")" + oldTitle + R"(",")" + newTitle + "\"]";
    }
    // Refused with that line in the log, whatever the group: nothing changes and nothing is saved.
    void expectRefused(const std::string &oldTitle, const std::string &newTitle,
                       const std::string &message)
    {
        const std::string before = all();
        const std::string stored = daemon.data.read("appSetup.json").value_or("");
        const size_t from = daemon.logSize();
        EXPECT_EQ(rename(request(oldTitle, newTitle)), 0);
        EXPECT_TRUE(daemon.logged(message, from)) << message;
        EXPECT_EQ(all(), before);
        EXPECT_EQ(daemon.data.read("appSetup.json"), stored);
    }
};

INSTANTIATE_TEST_SUITE_P(Of, RenameInGroup,
                         testing::Values("macros", "scenes", "rooms", "schedules"),
                         [](const auto &group) { return group.param; });

TEST_P(RenameInGroup, ChangesTheTitleAndNothingElse)
{
    startReady(SETUP);
    std::string expected = all();
    EXPECT_EQ(rename(request("B", "Night")), 1);
    const std::string element = Json(expected)[GetParam()][1].dump();
    const size_t start =
        expected.find(element, expected.find("\"" + std::string(GetParam()) + "\":"));
    const std::string title = R"("title":"B")";
    expected.replace(start + element.rfind(title), title.size(), R"("title":"Night")");
    EXPECT_EQ(all(), expected);
}

TEST_P(RenameInGroup, IsSavedBeforeTheAnswerAndThereAfterARestart)
{
    startReady(SETUP);
    EXPECT_EQ(rename(request("A", "Night")), 1);
    const std::string shown = all();
    EXPECT_EQ(daemon.storedSetup(), shown);
    restart();
    EXPECT_EQ(all(), shown);
    EXPECT_EQ(titles(GetParam()), R"(["Night","B","C"])");
}

TEST_P(RenameInGroup, IsRefusedForATitleThatIsTaken)
{
    startReady(SETUP);
    expectRefused("A", "B", "there has been a B title\n");
    expectRefused("C", "A", "there has been a A title\n");
}

TEST_P(RenameInGroup, IsRefusedForItsOwnTitle)
{
    startReady(SETUP);
    expectRefused("A", "A", "there has been a A title\n");
}

TEST_P(RenameInGroup, IsRefusedForATitleThatIsNotThere)
{
    startReady(SETUP);
    expectRefused("D", "E", "Not find oldTitle: D\n");
    expectRefused("a", "E", "Not find oldTitle: a\n");
    expectRefused("D", "A", "Not find oldTitle: D\n");
    expectRefused("", "E", "Not find oldTitle: \n");
}

TEST_P(RenameInGroup, TakesATitleOf126CharactersAndRefusesALongerOne)
{
    startReady(SETUP);
    const std::string longest(126, 'x');
    expectRefused("A", longest + "y", "src str too long: " + longest + "y\n");
    EXPECT_EQ(rename(request("A", longest)), 1);
    EXPECT_EQ(titles(GetParam()), "[\"" + longest + R"(","B","C"])");
    EXPECT_EQ(rename(request(longest, "A")), 1);
    EXPECT_EQ(titles(GetParam()), R"(["A","B","C"])");
}

TEST_P(RenameInGroup, CountsTheBytesOfATitle)
{
    startReady(SETUP);
    std::string text, shown;
    for (int i = 0; i < 42; ++i) {
        text += "外";  // three bytes
        shown += "\\u5916";
    }
    expectRefused("A", text + "x", "src str too long: " + text + "x\n");
    EXPECT_EQ(rename(request("A", text)), 1);
    EXPECT_EQ(titles(GetParam()), "[\"" + shown + R"(","B","C"])");
}

TEST_P(RenameInGroup, TakesEscapedCharactersForWhatTheyStand)
{
    startReady(SETUP);
    EXPECT_EQ(rename(request("\\u0041", R"(K\u00fcche \"\\\n\/)")), 1);
    EXPECT_EQ(titles(GetParam()), R"(["K\u00FCche \"\\\n/","B","C"])");
}

TEST_P(RenameInGroup, TakesAnEmptyTitleAndGivesItAway)
{
    startReady(SETUP);
    EXPECT_EQ(rename(request("A", "")), 1);
    EXPECT_EQ(titles(GetParam()), R"(["","B","C"])");
    expectRefused("B", "", "there has been a  title\n");
    EXPECT_EQ(rename(request("", "Named")), 1);
    EXPECT_EQ(titles(GetParam()), R"(["Named","B","C"])");
}

TEST_P(RenameInGroup, SwapsTwoTitlesByWayOfAThird)
{
    startReady(SETUP);
    EXPECT_EQ(rename(request("A", "X")), 1);
    EXPECT_EQ(rename(request("B", "A")), 1);
    EXPECT_EQ(rename(request("X", "B")), 1);
    EXPECT_EQ(titles(GetParam()), R"(["B","A","C"])") << "they stay where they were";
}

TEST_P(RenameInGroup, LooksAtItsOwnGroupAlone)
{
    startReady(SETUP);
    for (const char *other : {"macros", "scenes", "rooms", "schedules"}) {
        if (std::string(other) != GetParam()) {
            set(std::string("{\"") + other + R"(":[{"title":"Other"}]})");
        }
    }
    expectRefused("Other", "Night", "Not find oldTitle: Other\n");
    EXPECT_EQ(rename(request("A", "Other")), 1);
}

TEST_P(RenameInGroup, IsFoundByTheNewTitleFromThenOn)
{
    startReady(SETUP);
    EXPECT_EQ(rename(request("A", "Night")), 1);
    set(std::string("{\"") + GetParam() +
        R"(":[{"title":"Night","icon_name":"n"},)"
        R"({"title":"A"}]})");
    EXPECT_EQ(titles(GetParam()), R"(["Night","B","C","A"])");
    EXPECT_EQ(group(GetParam())[0]["icon_name"].text(), "n");
    EXPECT_EQ(
        callForNumber("jsondel", std::string("{\"") + GetParam() + R"(":[{"title":"Night"}]})"), 1);
    EXPECT_EQ(titles(GetParam()), R"(["B","C","A"])");
}

TEST_P(RenameInGroup, IsNotAnnounced)
{
    startReady(SETUP);
    sdk.forgetHeard();
    EXPECT_EQ(rename(request("A", "Night")), 1);
    eventHandled(9, 5, 0);  // announced after anything that was announced before
    EXPECT_EQ(sdk.events("jsongetall").size(), 0u);
}

// ---- What stays as it is

TEST_F(ConfigRename, LeavesTheNamesThatRefer)
{
    startReady(SETUP);
    EXPECT_EQ(rename(R"(["scenes","B","Night"])"), 1);
    EXPECT_EQ(group("macros")[0]["scene"].dump(), R"("B")");
    EXPECT_EQ(rename(R"(["macros","B","Hall"])"), 1);
    EXPECT_EQ(group("schedules")[0]["macro"].dump(), R"("B")");
}

TEST_F(ConfigRename, LeavesScenesAndMacrosThatOthersOwn)
{
    startReady(SETUP);
    EXPECT_EQ(rename(R"(["scenes","A","Night"])"), 1);
    EXPECT_EQ(group("macros")[1]["scene"]["title"].text(), "A");
    EXPECT_EQ(rename(R"(["macros","A","Hall"])"), 1);
    EXPECT_EQ(group("schedules")[1]["macro"]["title"].text(), "A");
    EXPECT_EQ(rename(R"(["macros","A","Cellar"])"), 0) << "the schedule's own is not in the list";
}

TEST_F(ConfigRename, RenamesTheFirstOfTwoWithTheSameTitle)
{
    startReady(R"({"scenes":[{"ID":1},{"ID":2}]})");
    EXPECT_EQ(rename(R"(["scenes","","Evening"])"), 1);
    EXPECT_EQ(titles("scenes"), R"(["Evening",""])");
    EXPECT_EQ(group("scenes")[0]["ID"].integer(), 1);
}

TEST_F(ConfigRename, SavesWhatWasNotSavedBefore)
{
    startReady(SETUP);
    set(R"({"scenes":[{"title":"D"}],"eventFilter":[5]})");  // answered 0, and not saved
    EXPECT_EQ(rename(R"(["scenes","A","Night"])"), 1);
    EXPECT_EQ(daemon.storedSetup(), all());
}

// ---- The gate does not count

TEST_F(ConfigRename, WorksBeforeTheGatewayIsReady)
{
    startWith(SETUP);
    EXPECT_EQ(rename(R"(["scenes","A","Night"])"), 1);
    EXPECT_EQ(titles("scenes"), R"(["Night","B","C"])");
    EXPECT_EQ(daemon.storedSetup(), all());
}

TEST_F(ConfigRename, WorksWhileTheConfigurationIsLockedAndDoesNotAsk)
{
    startReady(SETUP);
    platform.set("enablelock", "1");
    EXPECT_EQ(rename(R"(["macros","A","Night"])"), 1);
    EXPECT_EQ(titles("macros"), R"(["Night","B","C"])");
    EXPECT_EQ(platform.asked("enablelock"), 0u);
}

// ---- Requests that are none

struct RefusedRename {
    const char *name;
    const char *text;
    const char *message;
};

class ConfigRenameRefused : public ConfigRename,
                            public testing::WithParamInterface<RefusedRename> {};

TEST_P(ConfigRenameRefused, IsAnsweredZeroAndChangesNothing)
{
    startReady(SETUP);
    const std::string before = all();
    const std::string stored = daemon.data.read("appSetup.json").value_or("");
    const size_t from = daemon.logSize();
    EXPECT_EQ(rename(GetParam().text), 0);
    EXPECT_TRUE(daemon.logged(GetParam().message, from)) << GetParam().message;
    EXPECT_EQ(all(), before);
    EXPECT_EQ(daemon.data.read("appSetup.json"), stored);
}

INSTANTIATE_TEST_SUITE_P(
    Requests, ConfigRenameRefused,
    testing::Values(
        RefusedRename{"NoText", "", "error: on line 1: "},
        RefusedRename{"NoJson", "scenes", "error: on line 1: "},
        RefusedRename{"HalfAnArray", "[\"scenes\",\n\"A\",", "error: on line 2: "},
        RefusedRename{"AnObject", R"({"scenes":["A","Night"]})", "root is not an array\n"},
        RefusedRename{"GroupIsANumber", R"([5,"A","Night"])", "data 1 is not a string\n"},
        RefusedRename{"OldTitleIsANumber", R"(["scenes",5,"Night"])", "data 2 is not a string\n"},
        RefusedRename{"NewTitleIsNull", R"(["scenes","A",null])", "data 3 is not a string\n"},
        RefusedRename{"NewTitleIsAnArray", R"(["scenes","A",["Night"]])",
                      "data 3 is not a string\n"},
        RefusedRename{"NoNewTitle", R"(["scenes","A"])", "title is NULL\n"},
        RefusedRename{"NoTitles", R"(["scenes"])", "title is NULL\n"},
        RefusedRename{"NothingAtAll", "[]", ""},
        RefusedRename{"AnUnknownGroup", R"(["colours","A","Night"])", "at default\n"},
        RefusedRename{"AGroupInAnotherCase", R"(["Scenes","A","Night"])", "at default\n"},
        RefusedRename{"AGroupWithoutTitles", R"(["cameras","A","Night"])", "at default\n"},
        RefusedRename{"AnEmptyGroup", R"(["","A","Night"])", "at default\n"}),
    caseName);

TEST_F(ConfigRename, GivesNoReplyToOtherArguments)
{
    startReady(SETUP);
    const std::string before = all();
    callWithoutReply("jsonrename", {});
    callWithoutReply("jsonrename", {int32_t{5}});
    EXPECT_EQ(daemon.timesLogged("DBUS request not handled, method: jsonrename"), 2u);
    EXPECT_EQ(all(), before);
}
