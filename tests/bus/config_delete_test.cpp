// Deleting parts of the configuration over the bus: what goes, what stays, and what is answered.

#include "support/daemon_on_its_own_bus.h"

#include <algorithm>

using namespace support;
using testing::HasSubstr;

// ---- The texts in which the daemon shows its records; what a test does not look at is empty or 0.

static std::string list(const std::vector<std::string> &elements)
{
    std::string text;
    for (const std::string &element : elements)
        text += (text.empty() ? "" : ",") + element;
    return "[" + text + "]";
}

static std::string target(int dev, int if_, int ch)
{
    return R"({"ch":)" + std::to_string(ch) + R"(,"dev":)" + std::to_string(dev) + R"(,"if":)" +
           std::to_string(if_) + "}";
}

static std::string comp(int dev, int if_, int ch)
{
    return R"({"target":)" + target(dev, if_, ch) + R"(,"value":9})";
}

static constexpr const char *WITH_SIREN = R"("buildinSiren":{"siren_type":4},)";

static std::string scene(const std::string &title, const std::vector<std::string> &comps,
                         const std::string &siren = "")
{
    return R"({"ID":0,)" + siren + R"("comps":)" + list(comps) +
           R"(,"icon":"","icon_name":"","invisible":0,"title":")" + title + R"("})";
}

static std::string trigger(int dev, int if_, int ch)
{
    return R"({"dataunit":0,"duration":0,"field":"","op":"=","target":)" + target(dev, if_, ch) +
           R"(,"threshold":1})";
}

// The scene and the triggers as members, with their comma: R"("scene":"Evening",)".
static std::string macro(const std::string &title, const std::string &sceneMember = "",
                         const std::string &triggersMember = "")
{
    return R"({"duration":0,"duration_type":0,"enabled":1,"enabled_notifications":["pns"],)"
           R"("icon_name":"","invisible":0,"priority":0,)" +
           sceneMember + R"("title":")" + title + R"(",)" + triggersMember +
           R"("user_notification_message":""})";
}

static std::string schedule(const std::string &title, const std::string &macroMember = "")
{
    return R"({"enabled":1,"end_day":0,"end_hour":0,"end_minute":0,"end_month":0,)"
           R"("home_security_alarm":0,"icon":"","icon_name":"","invisible":0,)" +
           macroMember +
           R"("repeat_type":0,"start_day":0,"start_hour":0,"start_minute":0,"start_month":0,)"
           R"("title":")" +
           title + R"(","weekdays":0})";
}

static std::string extraCamera(const std::string &name)
{
    return R"({"camera":")" + name + R"(","camera_password":"p"})";
}

static std::string room(const std::string &title, const std::vector<std::string> &targets = {},
                        const std::vector<std::string> &cameras = {})
{
    return R"({"camera":"","camera_password":"","extra_camera":)" + list(cameras) +
           R"(,"icon":"","icon_name":"","targets":)" + list(targets) + R"(,"title":")" + title +
           R"("})";
}

static std::string phone(const std::string &token)
{
    return R"({"app_id":"","disable_notifications":0,"email":"","gateway_name":"","password":"",)"
           R"("platform":"ios","token":")" +
           token + R"(","update_ts":0,"username":"","ver":""})";
}

static std::string document(const std::string &group, const std::string &value)
{
    return "{\"" + group + "\":" + value + "}";
}

class ConfigDelete : public ConfigurableDaemon {
protected:
    int64_t del(const std::string &request)
    {
        return callForNumber("jsondel", request);
    }
    std::string all()
    {
        return callForText("jsongetall", "");
    }
    // The group as it stands in the whole configuration.
    std::string text(const std::string &name)
    {
        return Json(all())[name.c_str()].dump();
    }
};

// ---- What one request leaves of one group

struct DeleteCase {
    const char *name;
    std::string before;   // the group's elements
    std::string request;  // the group of the request
    std::string after;
    int answer;
    const char *logged = "";
};

class DeleteOf : public ConfigDelete, public testing::WithParamInterface<DeleteCase> {
protected:
    void expectLeft(const std::string &name)
    {
        const DeleteCase &param = GetParam();
        startReady(document(name, param.before));
        ASSERT_EQ(text(name), param.before) << "the group before is not written as it is shown";
        const std::string stored = daemon.storedSetup();
        const size_t from = daemon.logSize();
        sdk.forgetHeard();

        EXPECT_EQ(del(document(name, param.request)), param.answer);
        const std::string shown = all();
        EXPECT_EQ(text(name), param.after);
        EXPECT_THAT(shown, HasSubstr("\"" + name + "\":" + param.after)) << "not written so";
        EXPECT_TRUE(daemon.logged(param.logged, from)) << param.logged;
        EXPECT_EQ(daemon.storedSetup(), param.answer ? shown : stored);
        ASSERT_TRUE(eventually([&] { return sdk.events("jsongetall").size() == 1; }));
        EXPECT_EQ(sdk.events("jsongetall").at(0).text, shown);
        if (param.answer) {
            restart();
            EXPECT_EQ(all(), shown);
        }
    }
};

class DeleteScenes : public DeleteOf {};
class DeleteMacros : public DeleteOf {};
class DeleteSchedules : public DeleteOf {};
class DeleteRooms : public DeleteOf {};
class DeleteCameras : public DeleteOf {};
class DeletePhones : public DeleteOf {};
class DeleteTargetNames : public DeleteOf {};
class DeleteEventFilters : public DeleteOf {};

// ---- Scenes

TEST_P(DeleteScenes, LeavesWhatIsNotNamed)
{
    expectLeft("scenes");
}

static const std::string EVENING = scene("Evening", {comp(5, 1, 2), comp(6, 1, 2)}, WITH_SIREN);
static const std::string NIGHT = scene("Night", {comp(5, 1, 2)});
static const std::string BOTH_SCENES = list({EVENING, NIGHT});

INSTANTIATE_TEST_SUITE_P(
    Named, DeleteScenes,
    testing::Values(
        DeleteCase{"ByTitleAlone", BOTH_SCENES, R"([{"title":"Evening"}])", list({NIGHT}), 1,
                   "delete scene Evening\n"},
        DeleteCase{"ByTitleOneAfterTheOther", BOTH_SCENES,
                   R"([{"title":"Night"},{"title":"Evening"}])", "[]", 1, "delete scene Evening\n"},
        DeleteCase{"WithMembersThatAreNoParts", BOTH_SCENES,
                   R"([{"title":"Evening","icon":"","invisible":0,"ID":0}])", list({NIGHT}), 1},
        DeleteCase{"WithNoCompInItsArray", BOTH_SCENES, R"([{"title":"Evening","comps":[]}])",
                   list({NIGHT}), 1, "delete scene Evening\n"},
        DeleteCase{"WithACompOfAnotherDevice", BOTH_SCENES,
                   R"([{"title":"Evening","comps":[{"target":{"dev":7,"if":1,"ch":2}}]}])",
                   list({NIGHT}), 1, "delete scene Evening\n"},
        DeleteCase{"WithACompOfAnotherInterface", BOTH_SCENES,
                   R"([{"title":"Evening","comps":[{"target":{"dev":5,"if":2,"ch":2}}]}])",
                   list({NIGHT}), 1},
        DeleteCase{"WithACompOfAnotherChannel", BOTH_SCENES,
                   R"([{"title":"Evening","comps":[{"target":{"dev":5,"if":1,"ch":1}}]}])",
                   list({NIGHT}), 1},
        DeleteCase{"WithCompsThatAreNoArray", BOTH_SCENES,
                   R"([{"title":"Evening","comps":{"target":{"dev":5,"if":1,"ch":2}}}])",
                   list({NIGHT}), 1},
        DeleteCase{"WithAComp", BOTH_SCENES,
                   R"([{"title":"Evening","comps":[{"target":{"dev":5,"if":1,"ch":2}}]}])",
                   list({scene("Evening", {comp(6, 1, 2)}, WITH_SIREN), NIGHT}), 1,
                   "delete dev 5 if 1 ch 2\n"},
        DeleteCase{
            "WithACompOfAnotherValue", BOTH_SCENES,
            R"([{"title":"Evening","comps":[{"target":{"dev":6,"if":1,"ch":2},"value":1}]}])",
            list({scene("Evening", {comp(5, 1, 2)}, WITH_SIREN), NIGHT}), 1,
            "delete dev 6 if 1 ch 2\n"},
        DeleteCase{"WithAllItsComps", BOTH_SCENES,
                   R"([{"title":"Night","comps":[{"target":{"dev":5,"if":1,"ch":2}}]}])",
                   list({EVENING, scene("Night", {})}), 1},
        DeleteCase{"WithACompThatIsNotAndOneThatIs", BOTH_SCENES,
                   R"([{"title":"Evening","comps":[{"target":{"dev":1,"if":1,"ch":1}},)"
                   R"({"target":{"dev":6,"if":1,"ch":2}}]}])",
                   list({scene("Evening", {comp(5, 1, 2)}, WITH_SIREN), NIGHT}), 1},
        DeleteCase{"WithACompThatIsAndOneThatIsNot", BOTH_SCENES,
                   R"([{"title":"Evening","comps":[{"target":{"dev":6,"if":1,"ch":2}},)"
                   R"({"target":{"dev":1,"if":1,"ch":1}}]}])",
                   list({scene("Evening", {comp(5, 1, 2)}, WITH_SIREN), NIGHT}), 1},
        DeleteCase{"WithACompNamedTwice", BOTH_SCENES,
                   R"([{"title":"Evening","comps":[{"target":{"dev":6,"if":1,"ch":2}},)"
                   R"({"target":{"dev":6,"if":1,"ch":2}}]}])",
                   list({scene("Evening", {comp(5, 1, 2)}, WITH_SIREN), NIGHT}), 1},
        DeleteCase{"WithMissingPartsOfATargetAsZero", list({scene("Evening", {comp(5, 0, 0)})}),
                   R"([{"title":"Evening","comps":[{"target":{"dev":5,"ch":"2"}}]}])",
                   list({scene("Evening", {})}), 1, "delete dev 5 if 0 ch 0\n"},
        DeleteCase{"WithACompWithoutTarget", BOTH_SCENES,
                   R"([{"title":"Evening","comps":[{"value":9},{"target":5},)"
                   R"({"target":{"dev":6,"if":1,"ch":2}}]}])",
                   list({scene("Evening", {comp(5, 1, 2)}, WITH_SIREN), NIGHT}), 1,
                   "target isn't object\n"},
        DeleteCase{"WithACompWithoutTargetOnly", BOTH_SCENES,
                   R"([{"title":"Evening","comps":[{"target":[]}]}])", list({NIGHT}), 1,
                   "target isn't object\n"},
        DeleteCase{"WithACompThatIsNoObject", BOTH_SCENES,
                   R"([{"title":"Evening","comps":[{"target":{"dev":5,"if":1,"ch":2}},5,)"
                   R"({"target":{"dev":6,"if":1,"ch":2}}]}])",
                   list({scene("Evening", {comp(6, 1, 2)}, WITH_SIREN), NIGHT}), 1,
                   "comps 2 data is not an object\n"},
        DeleteCase{"WithItsSiren", BOTH_SCENES, R"([{"title":"Evening","buildinSiren":{}}])",
                   list({scene("Evening", {comp(5, 1, 2), comp(6, 1, 2)}), NIGHT}), 1},
        DeleteCase{"WithItsSirenOfAnotherType", BOTH_SCENES,
                   R"([{"title":"Evening","buildinSiren":{"siren_type":7}}])",
                   list({scene("Evening", {comp(5, 1, 2), comp(6, 1, 2)}), NIGHT}), 1},
        DeleteCase{"WithItsSirenAndAComp", BOTH_SCENES,
                   R"([{"title":"Evening","buildinSiren":{},)"
                   R"("comps":[{"target":{"dev":5,"if":1,"ch":2}}]}])",
                   list({scene("Evening", {comp(6, 1, 2)}), NIGHT}), 1},
        DeleteCase{"WithItsSirenAndACompThatIsNot", BOTH_SCENES,
                   R"([{"title":"Evening","buildinSiren":{},)"
                   R"("comps":[{"target":{"dev":1,"if":1,"ch":2}}]}])",
                   list({scene("Evening", {comp(5, 1, 2), comp(6, 1, 2)}), NIGHT}), 1},
        DeleteCase{"WithASirenThatItHasNot", BOTH_SCENES,
                   R"([{"title":"Night","buildinSiren":{"siren_type":4}}])", list({EVENING}), 1,
                   "delete scene Night\n"},
        DeleteCase{"WithASirenThatItHasNotAndAComp", BOTH_SCENES,
                   R"([{"title":"Night","buildinSiren":{"siren_type":4},)"
                   R"("comps":[{"target":{"dev":5,"if":1,"ch":2}}]}])",
                   list({EVENING, scene("Night", {})}), 1},
        DeleteCase{"WithASirenThatIsNoObject", BOTH_SCENES,
                   R"([{"title":"Evening","buildinSiren":4}])", list({NIGHT}), 1},
        DeleteCase{"ThatIsNot", BOTH_SCENES, R"([{"title":"Morning"}])", BOTH_SCENES, 0},
        DeleteCase{"InAnotherCase", BOTH_SCENES, R"([{"title":"evening"}])", BOTH_SCENES, 0},
        DeleteCase{"ThatIsAndOneThatIsNot", BOTH_SCENES,
                   R"([{"title":"Evening"},{"title":"Morning"}])", list({NIGHT}), 1},
        DeleteCase{"ThatIsNotAndOneThatIs", BOTH_SCENES,
                   R"([{"title":"Morning"},{"title":"Evening"}])", list({NIGHT}), 1},
        DeleteCase{"WithoutTitle", BOTH_SCENES, R"([{"comps":[]},{"title":5},{"title":"Evening"}])",
                   list({NIGHT}), 1},
        DeleteCase{"ByAnEmptyTitle", list({scene("", {comp(1, 1, 1)}), NIGHT}), R"([{"title":""}])",
                   list({NIGHT}), 1, "delete scene \n"},
        DeleteCase{"BeforeAnElementThatIsNoObject", BOTH_SCENES,
                   R"([{"title":"Night"},"Evening",{"title":"Evening"}])", list({EVENING}), 1,
                   "scenes 2 data is not an object\n"},
        DeleteCase{"AfterAnElementThatIsNoObject", BOTH_SCENES, R"([null,{"title":"Evening"}])",
                   BOTH_SCENES, 0, "scenes 1 data is not an object\n"},
        DeleteCase{"NotAtAll", BOTH_SCENES, "[]", BOTH_SCENES, 0},
        DeleteCase{"InUnicode", list({scene("K\\u00FCche \\u5916", {}), NIGHT}),
                   R"([{"title":"Küche 外"}])", list({NIGHT}), 1, "delete scene Küche 外\n"}),
    caseName);

TEST_F(ConfigDelete, RemovesTheFirstOfTwoScenesWithTheSameTitle)
{
    startReady();
    set(R"({"scenes":[{"ID":1},{"title":"Night"},{"ID":2}]})");
    EXPECT_EQ(callForText("jsongettitles", "scenes"), R"(["","Night",""])");
    EXPECT_EQ(del(R"({"scenes":[{"title":""}]})"), 1);
    EXPECT_EQ(callForText("jsongettitles", "scenes"), R"(["Night",""])");
    EXPECT_EQ(group("scenes")[1]["ID"].integer(), 2);
}

// ---- Macros

TEST_P(DeleteMacros, LeavesWhatIsNotNamed)
{
    expectLeft("macros");
}

static std::string sceneOf(const std::string &value)
{
    return R"("scene":)" + value + ",";
}

static std::string triggersOf(const std::vector<std::string> &triggers)
{
    return R"("triggers":)" + list(triggers) + ",";
}

static const std::string DOOR_MACRO =
    macro("Door", sceneOf(R"("Evening")"), triggersOf({trigger(9, 1, 2)}));
static const std::string OWN_SCENE = scene("Own", {comp(5, 1, 2), comp(6, 1, 2)}, WITH_SIREN);
static const std::string MOTION_MACRO =
    macro("Motion", sceneOf(OWN_SCENE), triggersOf({trigger(8, 1, 2)}));
static const std::string BARE = macro("Bare");
static const std::string ALL_MACROS = list({DOOR_MACRO, MOTION_MACRO, BARE});

INSTANTIATE_TEST_SUITE_P(
    Named, DeleteMacros,
    testing::Values(
        DeleteCase{"ByTitleAlone", ALL_MACROS, R"([{"title":"Door"}])", list({MOTION_MACRO, BARE}),
                   1},
        DeleteCase{"ByTitleAloneWithASceneOfItsOwn", ALL_MACROS, R"([{"title":"Motion"}])",
                   list({DOOR_MACRO, BARE}), 1},
        DeleteCase{"ByTitleOneAfterTheOther", ALL_MACROS,
                   R"([{"title":"Bare"},{"title":"Door"},{"title":"Motion"}])", "[]", 1},
        DeleteCase{"WithMembersThatAreNoParts", ALL_MACROS,
                   R"([{"title":"Door","enabled":1,"enabled_notifications":["pns"]}])",
                   list({MOTION_MACRO, BARE}), 1},
        DeleteCase{"WithItsSceneByName", ALL_MACROS, R"([{"title":"Door","scene":"Evening"}])",
                   list({macro("Door", "", triggersOf({trigger(9, 1, 2)})), MOTION_MACRO, BARE}),
                   1},
        DeleteCase{"WithASceneOfAnotherName", ALL_MACROS, R"([{"title":"Door","scene":"Night"}])",
                   ALL_MACROS, 0,
                   "delete sceneName_text: Night, searchedMacro->sceneName: Evening\n"},
        DeleteCase{"WithASceneOfAnotherNameAndATrigger", ALL_MACROS,
                   R"([{"title":"Door","scene":"Night",)"
                   R"("triggers":[{"target":{"dev":9,"if":1,"ch":2}}]}])",
                   ALL_MACROS, 0,
                   "delete sceneName_text: Night, searchedMacro->sceneName: Evening\n"},
        DeleteCase{"WithANameForASceneOfItsOwn", ALL_MACROS,
                   R"([{"title":"Motion","scene":"Own"}])", ALL_MACROS, 0,
                   "delete sceneName_text: Own, searchedMacro->sceneName: \n"},
        DeleteCase{"WithANameForNoScene", ALL_MACROS, R"([{"title":"Bare","scene":"Evening"}])",
                   ALL_MACROS, 0, "delete sceneName_text: Evening, searchedMacro->sceneName: \n"},
        DeleteCase{"WithACompOfItsOwnScene", ALL_MACROS,
                   R"([{"title":"Motion","scene":{"comps":[{"target":{"dev":5,"if":1,"ch":2}}]}}])",
                   list({DOOR_MACRO,
                         macro("Motion", sceneOf(scene("Own", {comp(6, 1, 2)}, WITH_SIREN)),
                               triggersOf({trigger(8, 1, 2)})),
                         BARE}),
                   1, "delete dev 5 if 1 ch 2\n"},
        DeleteCase{"WithTheSirenOfItsOwnScene", ALL_MACROS,
                   R"([{"title":"Motion","scene":{"title":"Other","buildinSiren":{}}}])",
                   list({DOOR_MACRO,
                         macro("Motion", sceneOf(scene("Own", {comp(5, 1, 2), comp(6, 1, 2)})),
                               triggersOf({trigger(8, 1, 2)})),
                         BARE}),
                   1},
        DeleteCase{"WithItsOwnSceneWhole", ALL_MACROS, R"([{"title":"Motion","scene":{}}])",
                   list({DOOR_MACRO, macro("Motion", "", triggersOf({trigger(8, 1, 2)})), BARE}),
                   1},
        DeleteCase{"WithACompThatItsOwnSceneHasNot", ALL_MACROS,
                   R"([{"title":"Motion","scene":{"comps":[{"target":{"dev":1,"if":1,"ch":2}}]}}])",
                   list({DOOR_MACRO, macro("Motion", "", triggersOf({trigger(8, 1, 2)})), BARE}),
                   1},
        DeleteCase{"WithItsOwnSceneAndATriggerThatIsNot", ALL_MACROS,
                   R"([{"title":"Motion","scene":{},)"
                   R"("triggers":[{"target":{"dev":1,"if":1,"ch":2}}]}])",
                   list({DOOR_MACRO, macro("Motion", "", triggersOf({trigger(8, 1, 2)})), BARE}),
                   1},
        DeleteCase{"WithASceneOfItsOwnThatItHasNot", ALL_MACROS, R"([{"title":"Bare","scene":{}}])",
                   ALL_MACROS, 0},
        DeleteCase{"WithASceneOfItsOwnWhereItHasAName", ALL_MACROS,
                   R"([{"title":"Door","scene":{"title":"Evening"}}])", ALL_MACROS, 0},
        DeleteCase{"WithASceneOfItsOwnThatItHasNotAndATrigger", ALL_MACROS,
                   R"([{"title":"Door","scene":{},)"
                   R"("triggers":[{"target":{"dev":9,"if":1,"ch":2}}]}])",
                   list({macro("Door", sceneOf(R"("Evening")")), MOTION_MACRO, BARE}), 1},
        DeleteCase{"WithASceneOfItsOwnThatItHasNotAndATriggerThatIsNot", ALL_MACROS,
                   R"([{"title":"Door","scene":{},)"
                   R"("triggers":[{"target":{"dev":1,"if":1,"ch":2}}]}])",
                   ALL_MACROS, 0},
        DeleteCase{"WithASceneThatIsANumber", ALL_MACROS, R"([{"title":"Door","scene":5}])",
                   list({MOTION_MACRO, BARE}), 1},
        DeleteCase{"WithItsTrigger", ALL_MACROS,
                   R"([{"title":"Door","triggers":[{"target":{"dev":9,"if":1,"ch":2}}]}])",
                   list({macro("Door", sceneOf(R"("Evening")")), MOTION_MACRO, BARE}), 1},
        DeleteCase{"WithATriggerThatIsNot", ALL_MACROS,
                   R"([{"title":"Door","triggers":[{"target":{"dev":9,"if":1,"ch":1}}]}])",
                   list({MOTION_MACRO, BARE}), 1},
        DeleteCase{"WithNoTriggerInItsArray", ALL_MACROS, R"([{"title":"Door","triggers":[]}])",
                   list({MOTION_MACRO, BARE}), 1},
        DeleteCase{"WithTriggersThatAreNoArray", ALL_MACROS,
                   R"([{"title":"Door","triggers":{"target":{"dev":9,"if":1,"ch":2}}}])",
                   list({MOTION_MACRO, BARE}), 1},
        DeleteCase{"WithItsTriggerAndOneThatIsNot", ALL_MACROS,
                   R"([{"title":"Door","triggers":[{"target":{"dev":9,"if":1,"ch":2}},)"
                   R"({"target":{"dev":1,"if":1,"ch":2}}]}])",
                   list({macro("Door", sceneOf(R"("Evening")")), MOTION_MACRO, BARE}), 1},
        DeleteCase{
            "WithATriggerWithoutTarget", ALL_MACROS,
            R"([{"title":"Door","triggers":[{"op":"="},{"target":{"dev":9,"if":1,"ch":2}}]}])",
            list({macro("Door", sceneOf(R"("Evening")")), MOTION_MACRO, BARE}), 1,
            "target isn't object\n"},
        DeleteCase{"WithATriggerThatIsNoObject", ALL_MACROS,
                   R"([{"title":"Door","scene":"Evening",)"
                   R"("triggers":[5,{"target":{"dev":9,"if":1,"ch":2}}]}])",
                   list({macro("Door", "", triggersOf({trigger(9, 1, 2)})), MOTION_MACRO, BARE}), 1,
                   "triggers 1 data is not an object\n"},
        DeleteCase{"WithItsSceneByNameAndItsTrigger", ALL_MACROS,
                   R"([{"title":"Door","scene":"Evening",)"
                   R"("triggers":[{"target":{"dev":9,"if":1,"ch":2}}]}])",
                   list({macro("Door"), MOTION_MACRO, BARE}), 1},
        DeleteCase{"WithItsSceneByNameAndATriggerThatIsNot", ALL_MACROS,
                   R"([{"title":"Door","scene":"Evening",)"
                   R"("triggers":[{"target":{"dev":1,"if":1,"ch":2}}]}])",
                   list({macro("Door", "", triggersOf({trigger(9, 1, 2)})), MOTION_MACRO, BARE}),
                   1},
        DeleteCase{"ThatIsAndOneThatIsNot", ALL_MACROS, R"([{"title":"Door"},{"title":"None"}])",
                   list({MOTION_MACRO, BARE}), 1},
        DeleteCase{"ThatIsNotAndOneThatIs", ALL_MACROS, R"([{"title":"None"},{"title":"Door"}])",
                   list({MOTION_MACRO, BARE}), 1},
        DeleteCase{"WithoutTitle", ALL_MACROS, R"([{"scene":"Evening"},{"title":"Door"}])",
                   list({MOTION_MACRO, BARE}), 1},
        DeleteCase{"BeforeAnElementThatIsNoObject", ALL_MACROS,
                   R"([{"title":"Bare"},[],{"title":"Door"}])", list({DOOR_MACRO, MOTION_MACRO}), 1,
                   "Macros 2 is not an object\n"},
        DeleteCase{"NotAtAll", ALL_MACROS, "[]", ALL_MACROS, 0}),
    caseName);

// ---- Schedules

TEST_P(DeleteSchedules, LeavesWhatIsNotNamed)
{
    expectLeft("schedules");
}

static std::string macroOf(const std::string &value)
{
    return R"("macro":)" + value + ",";
}

static const std::string WEEK = schedule("Week", macroOf(R"("Door")"));
static const std::string OWN_MACRO =
    macro("Own", sceneOf(OWN_SCENE), triggersOf({trigger(8, 1, 2)}));
static const std::string DAY = schedule("Day", macroOf(OWN_MACRO));
static const std::string YEAR = schedule("Year");
static const std::string ALL_SCHEDULES = list({WEEK, DAY, YEAR});

INSTANTIATE_TEST_SUITE_P(
    Named, DeleteSchedules,
    testing::Values(
        DeleteCase{"ByTitleAlone", ALL_SCHEDULES, R"([{"title":"Week"}])", list({DAY, YEAR}), 1},
        DeleteCase{"ByTitleAloneWithAMacroOfItsOwn", ALL_SCHEDULES, R"([{"title":"Day"}])",
                   list({WEEK, YEAR}), 1},
        DeleteCase{"ByTitleOneAfterTheOther", ALL_SCHEDULES,
                   R"([{"title":"Year"},{"title":"Week"},{"title":"Day"}])", "[]", 1},
        DeleteCase{"WithItsMacroByName", ALL_SCHEDULES, R"([{"title":"Week","macro":"Door"}])",
                   list({schedule("Week"), DAY, YEAR}), 1},
        DeleteCase{"WithAMacroOfAnotherName", ALL_SCHEDULES, R"([{"title":"Week","macro":"Hall"}])",
                   ALL_SCHEDULES, 0},
        DeleteCase{"WithAMacroOfAnotherNameAndOneMore", ALL_SCHEDULES,
                   R"([{"title":"Week","macro":"Hall"},{"title":"Year"}])", list({WEEK, DAY}), 1},
        DeleteCase{"WithANameForAMacroOfItsOwn", ALL_SCHEDULES,
                   R"([{"title":"Day","macro":"Own"}])", ALL_SCHEDULES, 0},
        DeleteCase{"WithItsOwnMacro", ALL_SCHEDULES, R"([{"title":"Day","macro":{"title":"Own"}}])",
                   list({WEEK, schedule("Day"), YEAR}), 1},
        DeleteCase{"WithTheTriggerOfItsOwnMacro", ALL_SCHEDULES,
                   R"([{"title":"Day","macro":{"title":"Own",)"
                   R"("triggers":[{"target":{"dev":8,"if":1,"ch":2}}]}}])",
                   list({WEEK, schedule("Day", macroOf(macro("Own", sceneOf(OWN_SCENE)))), YEAR}),
                   1},
        DeleteCase{
            "WithTheSceneOfItsOwnMacro", ALL_SCHEDULES,
            R"([{"title":"Day","macro":{"title":"Own","scene":{}}}])",
            list({WEEK, schedule("Day", macroOf(macro("Own", "", triggersOf({trigger(8, 1, 2)})))),
                  YEAR}),
            1},
        DeleteCase{"WithAnotherMacroOfItsOwn", ALL_SCHEDULES,
                   R"([{"title":"Day","macro":{"title":"Other"}}])", ALL_SCHEDULES, 0},
        DeleteCase{"WithAMacroOfItsOwnWithoutTitle", ALL_SCHEDULES,
                   R"([{"title":"Day","macro":{}}])", ALL_SCHEDULES, 0},
        DeleteCase{"WithAMacroOfItsOwnWhereItHasAName", ALL_SCHEDULES,
                   R"([{"title":"Week","macro":{"title":"Door"}}])", ALL_SCHEDULES, 0},
        DeleteCase{"WithAMacroThatIsANumber", ALL_SCHEDULES, R"([{"title":"Week","macro":5}])",
                   list({DAY, YEAR}), 1},
        DeleteCase{"WithAMacroThatIsNull", ALL_SCHEDULES, R"([{"title":"Day","macro":null}])",
                   list({WEEK, YEAR}), 1},
        DeleteCase{"WithItsMacroByNameAndOneOfAnotherName", ALL_SCHEDULES,
                   R"([{"title":"Week","macro":"Door"},{"title":"Day","macro":"Hall"}])",
                   list({schedule("Week"), DAY, YEAR}), 1},
        DeleteCase{"UpToOneThatIsNot", ALL_SCHEDULES,
                   R"([{"title":"Year"},{"title":"None"},{"title":"Week"}])", list({WEEK, DAY}), 1,
                   "schedule None not found, add new schedule\n"},
        DeleteCase{"AfterOneThatIsNot", ALL_SCHEDULES, R"([{"title":"None"},{"title":"Week"}])",
                   ALL_SCHEDULES, 0, "schedule None not found, add new schedule\n"},
        DeleteCase{"AfterOneNamedTwice", ALL_SCHEDULES,
                   R"([{"title":"Week"},{"title":"Week"},{"title":"Day"}])", list({DAY, YEAR}), 1,
                   "schedule Week not found, add new schedule\n"},
        DeleteCase{"AfterOneWithoutTitle", ALL_SCHEDULES, R"([{"enabled":1},{"title":"Week"}])",
                   ALL_SCHEDULES, 0, "not found, add new schedule\n"},
        DeleteCase{"BeforeAnElementThatIsNoObject", ALL_SCHEDULES,
                   R"([{"title":"Year"},1.5,{"title":"Day"}])", list({WEEK, DAY}), 1,
                   "Macros 2 is not an object\n"},
        DeleteCase{"NotAtAll", ALL_SCHEDULES, "[]", ALL_SCHEDULES, 0}),
    caseName);

TEST_F(ConfigDelete, ShowsTheMacroOfItsOwnWhenTheNameOfAScheduleIsGone)
{
    startReady(document("schedules", list({schedule("Week", macroOf(macro("Own")))})));
    set(R"({"schedules":[{"title":"Week","macro":"Door"}]})");
    EXPECT_EQ(text("schedules"), list({WEEK}));
    EXPECT_EQ(del(R"({"schedules":[{"title":"Week","macro":"Door"}]})"), 1);
    EXPECT_EQ(text("schedules"), list({schedule("Week", macroOf(macro("Own")))}));
}

TEST_F(ConfigDelete, ShowsTheSecondMacroOfItsOwnWhenTheFirstIsGone)
{
    startReady(document("schedules", list({schedule("Week", macroOf(macro("First")))})));
    set(document("schedules", list({schedule("Week", macroOf(macro("Second")))})));
    EXPECT_EQ(text("schedules"), list({schedule("Week", macroOf(macro("First")))}));
    EXPECT_EQ(del(R"({"schedules":[{"title":"Week","macro":{"title":"First"}}]})"), 1);
    EXPECT_EQ(text("schedules"), list({schedule("Week", macroOf(macro("Second")))}));
}

TEST_F(ConfigDelete, RemovesTheMacroOfItsOwnBehindTheNameOfASchedule)
{
    startReady(document("schedules", list({schedule("Week", macroOf(macro("Own")))})));
    set(R"({"schedules":[{"title":"Week","macro":"Door"}]})");
    EXPECT_EQ(del(R"({"schedules":[{"title":"Week","macro":{"title":"Own"}}]})"), 1);
    EXPECT_EQ(text("schedules"), list({WEEK}));
    EXPECT_EQ(del(R"({"schedules":[{"title":"Week","macro":"Door"}]})"), 1);
    EXPECT_EQ(text("schedules"), list({schedule("Week")}));
}

// ---- Rooms

TEST_P(DeleteRooms, LeavesWhatIsNotNamed)
{
    expectLeft("rooms");
}

static const std::string HALL =
    room("Hall", {target(5, 1, 2), target(6, 1, 2)}, {extraCamera("c1"), extraCamera("c2")});
static const std::string KITCHEN = room("Kitchen", {target(5, 1, 2)});
static const std::string ATTIC = room("Attic");
static const std::string ALL_ROOMS = list({HALL, KITCHEN, ATTIC});

INSTANTIATE_TEST_SUITE_P(
    Named, DeleteRooms,
    testing::Values(
        DeleteCase{"ByTitleAlone", ALL_ROOMS, R"([{"title":"Hall"}])", list({KITCHEN, ATTIC}), 1},
        // Deliberate: once something is deleted, a room named by its title alone is kept.
        DeleteCase{"ByTitleAloneAfterAnother", ALL_ROOMS, R"([{"title":"Hall"},{"title":"Attic"}])",
                   list({KITCHEN, ATTIC}), 1},
        DeleteCase{"ByTitleAloneAfterATarget", ALL_ROOMS,
                   R"([{"title":"Kitchen","targets":[{"dev":5,"if":1,"ch":2}]},{"title":"Attic"}])",
                   list({HALL, room("Kitchen"), ATTIC}), 1},
        DeleteCase{"ByTitleAloneAfterAnExtraCamera", ALL_ROOMS,
                   R"([{"title":"Hall","extra_camera":[{"camera":"c1"}]},{"title":"Attic"}])",
                   list({room("Hall", {target(5, 1, 2), target(6, 1, 2)}, {extraCamera("c2")}),
                         KITCHEN, ATTIC}),
                   1},
        DeleteCase{"ByTitleAloneAfterItsOwnTarget", ALL_ROOMS,
                   R"([{"title":"Kitchen","targets":[{"dev":5,"if":1,"ch":2}]},)"
                   R"({"title":"Kitchen"}])",
                   list({HALL, room("Kitchen"), ATTIC}), 1},
        DeleteCase{"ByTitleAloneAfterOneThatIsNot", ALL_ROOMS,
                   R"([{"title":"Cellar"},{"title":"Attic"}])", list({HALL, KITCHEN}), 1},
        DeleteCase{"WithATargetThatIsNotAfterAnother", ALL_ROOMS,
                   R"([{"title":"Attic"},{"title":"Hall","targets":[{"dev":1,"if":1,"ch":1}]}])",
                   list({HALL, KITCHEN}), 1},
        DeleteCase{"WithATargetAfterAnother", ALL_ROOMS,
                   R"([{"title":"Attic"},)"
                   R"({"title":"Kitchen","targets":[{"dev":5,"if":1,"ch":2}]}])",
                   list({HALL, room("Kitchen")}), 1},
        DeleteCase{"WithATarget", ALL_ROOMS,
                   R"([{"title":"Hall","targets":[{"dev":5,"if":1,"ch":2}]}])",
                   list({room("Hall", {target(6, 1, 2)}, {extraCamera("c1"), extraCamera("c2")}),
                         KITCHEN, ATTIC}),
                   1, "delet target dev:5 if:1 ch:2\n"},
        DeleteCase{"WithAllItsTargets", ALL_ROOMS,
                   R"([{"title":"Kitchen","targets":[{"dev":5,"if":1,"ch":2}]}])",
                   list({HALL, room("Kitchen"), ATTIC}), 1},
        DeleteCase{"WithATargetOfAnotherDevice", ALL_ROOMS,
                   R"([{"title":"Kitchen","targets":[{"dev":6,"if":1,"ch":2}]}])",
                   list({HALL, ATTIC}), 1},
        DeleteCase{"WithATargetOfAnotherInterface", ALL_ROOMS,
                   R"([{"title":"Kitchen","targets":[{"dev":5,"if":2,"ch":2}]}])",
                   list({HALL, ATTIC}), 1},
        DeleteCase{"WithATargetOfAnotherChannel", ALL_ROOMS,
                   R"([{"title":"Kitchen","targets":[{"dev":5,"if":1,"ch":1}]}])",
                   list({HALL, ATTIC}), 1},
        DeleteCase{"WithNoTargetInItsArray", ALL_ROOMS, R"([{"title":"Hall","targets":[]}])",
                   list({KITCHEN, ATTIC}), 1},
        DeleteCase{"WithTargetsThatAreNoArray", ALL_ROOMS,
                   R"([{"title":"Hall","targets":{"dev":5,"if":1,"ch":2}}])",
                   list({KITCHEN, ATTIC}), 1},
        DeleteCase{"WithATargetThatIsNoObject", ALL_ROOMS,
                   R"([{"title":"Hall","targets":[{"dev":6,"if":1,"ch":2},5,)"
                   R"({"dev":5,"if":1,"ch":2}]}])",
                   list({room("Hall", {target(5, 1, 2)}, {extraCamera("c1"), extraCamera("c2")}),
                         KITCHEN, ATTIC}),
                   1, "data 2 is not an object\n"},
        DeleteCase{"WithAnExtraCamera", ALL_ROOMS,
                   R"([{"title":"Hall","extra_camera":[{"camera":"c2"}]}])",
                   list({room("Hall", {target(5, 1, 2), target(6, 1, 2)}, {extraCamera("c1")}),
                         KITCHEN, ATTIC}),
                   1},
        DeleteCase{"WithATargetThatIsAndOneThatIsNot", ALL_ROOMS,
                   R"([{"title":"Kitchen","targets":[{"dev":5,"if":1,"ch":2},)"
                   R"({"dev":1,"if":1,"ch":2}]}])",
                   list({HALL, room("Kitchen"), ATTIC}), 1},
        DeleteCase{"WithAnExtraCameraThatIsAndOneThatIsNot", ALL_ROOMS,
                   R"([{"title":"Hall","extra_camera":[{"camera":"c1"},{"camera":"c3"}]}])",
                   list({room("Hall", {target(5, 1, 2), target(6, 1, 2)}, {extraCamera("c2")}),
                         KITCHEN, ATTIC}),
                   1},
        DeleteCase{"ThatIsAndOneThatIsNot", ALL_ROOMS, R"([{"title":"Attic"},{"title":"Cellar"}])",
                   list({HALL, KITCHEN}), 1},
        DeleteCase{"WithAnExtraCameraThatIsNot", ALL_ROOMS,
                   R"([{"title":"Hall","extra_camera":[{"camera":"c3"}]}])", list({KITCHEN, ATTIC}),
                   1},
        DeleteCase{"WithAnExtraCameraWithoutName", ALL_ROOMS,
                   R"([{"title":"Hall","extra_camera":[{"camera_password":"p"},{"camera":"c1"}]}])",
                   list({room("Hall", {target(5, 1, 2), target(6, 1, 2)}, {extraCamera("c2")}),
                         KITCHEN, ATTIC}),
                   1},
        DeleteCase{"WithAnExtraCameraThatIsNoObject", ALL_ROOMS,
                   R"([{"title":"Hall","targets":[{"dev":5,"if":1,"ch":2}],)"
                   R"("extra_camera":["c1",{"camera":"c2"}]}])",
                   list({room("Hall", {target(6, 1, 2)}, {extraCamera("c1"), extraCamera("c2")}),
                         KITCHEN, ATTIC}),
                   1, "data 1 is not an object\n"},
        DeleteCase{
            "WithTargetsAndExtraCameras", ALL_ROOMS,
            R"([{"title":"Hall","targets":[{"dev":5,"if":1,"ch":2},{"dev":6,"if":1,"ch":2}],)"
            R"("extra_camera":[{"camera":"c1"},{"camera":"c2"}]}])",
            list({room("Hall"), KITCHEN, ATTIC}), 1},
        DeleteCase{"WithItsOtherMembers", ALL_ROOMS,
                   R"([{"title":"Hall","camera":"","icon":"","camera_password":""}])",
                   list({KITCHEN, ATTIC}), 1},
        DeleteCase{"ThatIsNot", ALL_ROOMS, R"([{"title":"Cellar"}])", ALL_ROOMS, 0},
        DeleteCase{"WithoutTitle", ALL_ROOMS,
                   R"([{"targets":[{"dev":5,"if":1,"ch":2}]},{"title":"Attic"}])",
                   list({HALL, KITCHEN}), 1},
        DeleteCase{"BeforeAnElementThatIsNoObject", ALL_ROOMS,
                   R"([{"title":"Attic"},"Hall",{"title":"Kitchen","targets":[]}])",
                   list({HALL, KITCHEN}), 1, "rooms 2 is not an object\n"},
        DeleteCase{"AfterAnElementThatIsNoObject", ALL_ROOMS, R"([7,{"title":"Attic"}])", ALL_ROOMS,
                   0, "rooms 1 is not an object\n"},
        DeleteCase{"NotAtAll", ALL_ROOMS, "[]", ALL_ROOMS, 0}),
    caseName);

TEST_F(ConfigDelete, RemovesTwoRoomsInTwoRequests)
{
    startReady(document("rooms", ALL_ROOMS));
    EXPECT_EQ(del(R"({"rooms":[{"title":"Hall"}]})"), 1);
    EXPECT_EQ(del(R"({"rooms":[{"title":"Kitchen"}]})"), 1);
    EXPECT_EQ(text("rooms"), list({ATTIC}));
}

TEST_F(ConfigDelete, RemovesARoomAfterAnythingOfAnotherGroup)
{
    startReady(R"({"scenes":[{"title":"Evening"}],"rooms":[{"title":"Hall"}]})");
    EXPECT_EQ(del(R"({"scenes":[{"title":"Evening"}],"rooms":[{"title":"Hall"}]})"), 1);
    EXPECT_EQ(text("rooms"), "[]");
    EXPECT_EQ(text("scenes"), "[]");
}

// ---- Cameras, phones, names, filters

TEST_P(DeleteCameras, LeavesWhatIsNotNamed)
{
    expectLeft("cameras");
}

static const std::string CAMERA_1 = R"({"display":"d","password":"p","uid":"c1"})";
static const std::string CAMERA_2 = R"({"display":"d","password":"p","uid":"c2"})";
static const std::string CAMERAS = list({CAMERA_1, CAMERA_2});

INSTANTIATE_TEST_SUITE_P(
    Named, DeleteCameras,
    testing::Values(DeleteCase{"ByUid", CAMERAS, R"([{"uid":"c1"}])", list({CAMERA_2}), 1,
                               "del camera uid: c1\n"},
                    DeleteCase{"ByUidWhateverElseIsThere", CAMERAS,
                               R"([{"uid":"c1","display":"other"}])", list({CAMERA_2}), 1},
                    DeleteCase{"ByUidOneAfterTheOther", CAMERAS, R"([{"uid":"c2"},{"uid":"c1"}])",
                               "[]", 1, "del camera uid: c2\n"},
                    DeleteCase{"ThatIsNotAndOneThatIs", CAMERAS, R"([{"uid":"c0"},{"uid":"c2"}])",
                               list({CAMERA_1}), 1},
                    DeleteCase{"ThatIsNot", CAMERAS, R"([{"uid":"c0"}])", CAMERAS, 0},
                    DeleteCase{"ThatIsAndOneThatIsNot", CAMERAS, R"([{"uid":"c2"},{"uid":"c0"}])",
                               list({CAMERA_1}), 1},
                    DeleteCase{"WithoutUid", CAMERAS, R"([{"display":"d"},{"uid":1},{"uid":"c2"}])",
                               list({CAMERA_1}), 1},
                    DeleteCase{"BeforeAnElementThatIsNoObject", CAMERAS,
                               R"([{"uid":"c2"},"c1",{"uid":"c1"}])", list({CAMERA_1}), 1,
                               "cameras 2 is not an object\n"},
                    DeleteCase{"NotAtAll", CAMERAS, "[]", CAMERAS, 0}),
    caseName);

TEST_P(DeletePhones, LeavesWhatIsNotNamed)
{
    expectLeft("registeredDevices");
}

static const std::string PHONES = list({phone("t1"), phone("t2")});

INSTANTIATE_TEST_SUITE_P(
    Named, DeletePhones,
    testing::Values(
        DeleteCase{"ByToken", PHONES, R"([{"token":"t1"}])", list({phone("t2")}), 1},
        DeleteCase{"ByTokenOneAfterTheOther", PHONES, R"([{"token":"t1"},{"token":"t2"}])", "[]",
                   1},
        DeleteCase{"ThatIsNotAndOneThatIs", PHONES, R"([{"token":"t0"},{"token":"t2"}])",
                   list({phone("t1")}), 1},
        DeleteCase{"ThatIsNot", PHONES, R"([{"token":"t0"}])", PHONES, 0},
        DeleteCase{"ThatIsAndOneThatIsNot", PHONES, R"([{"token":"t2"},{"token":"t0"}])",
                   list({phone("t1")}), 1},
        DeleteCase{"WithoutToken", PHONES, R"([{"platform":"ios"},{"token":2},{"token":"t2"}])",
                   list({phone("t1")}), 1},
        DeleteCase{"ByALongToken", list({phone(std::string(1023, 't')), phone("t")}),
                   R"([{"token":")" + std::string(1023, 't') + R"("}])", list({phone("t")}), 1},
        DeleteCase{"BeforeAnElementThatIsNoObject", PHONES, R"([{"token":"t1"},2,{"token":"t2"}])",
                   list({phone("t2")}), 1, "devs 2 is not an object\n"},
        DeleteCase{"NotAtAll", PHONES, "[]", PHONES, 0}),
    caseName);

TEST_F(ConfigDelete, FindsAPhoneByTheTokenThatWasCut)
{
    startReady();
    const std::string token(3000, 't');
    set(document("registeredDevices", list({phone(token)})));
    EXPECT_EQ(text("registeredDevices"), list({phone(token.substr(0, 1023))}));
    EXPECT_EQ(del(R"({"registeredDevices":[{"token":")" + token + R"("}]})"), 1);
    EXPECT_EQ(text("registeredDevices"), "[]");
}

TEST_P(DeleteTargetNames, LeavesWhatIsNotNamed)
{
    expectLeft("targetNames");
}

static const std::string NAMES = R"({"5_0_1":"Lamp","6_0_1":"Fan","7_0_1":"Heater"})";

INSTANTIATE_TEST_SUITE_P(
    Named, DeleteTargetNames,
    testing::Values(
        DeleteCase{"ByKey", NAMES, R"({"5_0_1":"Lamp"})", R"({"6_0_1":"Fan","7_0_1":"Heater"})", 1},
        DeleteCase{"WhateverTheValue", NAMES, R"({"5_0_1":"Fan","6_0_1":5,"7_0_1":[{}]})", "{}", 1},
        DeleteCase{"ThatIsAndOneThatIsNot", NAMES, R"({"7_0_1":null,"9_0_1":null})",
                   R"({"5_0_1":"Lamp","6_0_1":"Fan"})", 1},
        DeleteCase{"ThatIsNotAndOneThatIs", NAMES, R"({"0_0_0":null,"7_0_1":null})",
                   R"({"5_0_1":"Lamp","6_0_1":"Fan"})", 1},
        DeleteCase{"ThatIsNot", NAMES, R"({"Lamp":"5_0_1"})", NAMES, 0},
        DeleteCase{"AsAnArray", NAMES, R"(["5_0_1"])", NAMES, 0, "targetNames does not exist\n"},
        DeleteCase{"NotAtAll", NAMES, "{}", NAMES, 0}),
    caseName);

TEST_P(DeleteEventFilters, LeavesWhatIsNotNamed)
{
    expectLeft("eventFilter");
}

static const std::string FILTERS =
    R"([{"uid":5},{"channel":1,"uid":5},{"channel":1,"eventCode":9,"uid":5},{"eventCode":9}])";

INSTANTIATE_TEST_SUITE_P(
    Named, DeleteEventFilters,
    testing::Values(
        DeleteCase{"ByUidAlone", FILTERS, R"([{"uid":5}])",
                   R"([{"channel":1,"uid":5},{"channel":1,"eventCode":9,"uid":5},{"eventCode":9}])",
                   1},
        DeleteCase{"ByAllThree", FILTERS, R"([{"uid":5,"channel":1,"eventCode":9}])",
                   R"([{"uid":5},{"channel":1,"uid":5},{"eventCode":9}])", 1},
        DeleteCase{"WithANegativeMemberAsAbsent", FILTERS, R"([{"uid":-7,"eventCode":9}])",
                   R"([{"uid":5},{"channel":1,"uid":5},{"channel":1,"eventCode":9,"uid":5}])", 1},
        DeleteCase{"WithAMemberOfAnotherTypeAsAbsent", FILTERS, R"([{"uid":5,"channel":"1"}])",
                   R"([{"channel":1,"uid":5},{"channel":1,"eventCode":9,"uid":5},{"eventCode":9}])",
                   1},
        DeleteCase{"ThatIsAndOneThatIsNot", FILTERS, R"([{"eventCode":9},{"channel":1}])",
                   R"([{"uid":5},{"channel":1,"uid":5},{"channel":1,"eventCode":9,"uid":5}])", 1},
        DeleteCase{"ThatIsNotAndOneThatIs", FILTERS, R"([{"channel":1},{"eventCode":9}])",
                   R"([{"uid":5},{"channel":1,"uid":5},{"channel":1,"eventCode":9,"uid":5}])", 1},
        DeleteCase{"ThatIsNot", FILTERS, R"([{"uid":5,"eventCode":9}])", FILTERS, 0},
        DeleteCase{"WithNothing", FILTERS, R"([{}])", FILTERS, 0,
                   "uid, channel, eventCode all small than zero\n"},
        DeleteCase{"BeforeAnElementThatIsNoObject", FILTERS, R"([{"eventCode":9},[],{"uid":5}])",
                   R"([{"uid":5},{"channel":1,"uid":5},{"channel":1,"eventCode":9,"uid":5}])", 1,
                   "filter 2 is not an object\n"},
        DeleteCase{"NotAtAll", FILTERS, "[]", FILTERS, 0}),
    caseName);

// Deliberate: a filter of nothing filters everything, and no search finds it.
TEST_F(ConfigDelete, CannotRemoveAFilterThatFiltersEverything)
{
    startReady();
    set(R"({"eventFilter":[{},{"uid":5}]})");
    EXPECT_EQ(text("eventFilter"), R"([{},{"uid":5}])");
    EXPECT_EQ(del(R"({"eventFilter":[{}]})"), 0);
    EXPECT_TRUE(daemon.logged("uid, channel, eventCode all small than zero\n"));
    EXPECT_EQ(text("eventFilter"), R"([{},{"uid":5}])");
}

// ---- The request as a whole

static constexpr const char *ONE_OF_EACH = R"({
    "alarm":{"duration":9,"enabled":0,"siren_type":2,"trigger_duration":1},
    "cameras":[{"uid":"c1"}],"eventFilter":[{"uid":5}],
    "macros":[{"title":"Door","scene":"Evening"}],"registeredDevices":[{"token":"t1"}],
    "rooms":[{"title":"Hall"}],"scenes":[{"title":"Evening"}],
    "schedules":[{"title":"Week","macro":"Door"}],"targetNames":{"5_0_1":"Lamp"}})";

TEST_F(ConfigDelete, RemovesOfEveryGroupInOneRequestAndLeavesTheAlarm)
{
    startReady(ONE_OF_EACH);
    EXPECT_EQ(del(R"({"alarm":{"duration":9},"cameras":[{"uid":"c1"}],"eventFilter":[{"uid":5}],
        "macros":[{"title":"Door"}],"registeredDevices":[{"token":"t1"}],
        "rooms":[{"title":"Hall"}],"scenes":[{"title":"Evening"}],"schedules":[{"title":"Week"}],
        "targetNames":{"5_0_1":"Lamp"}})"),
              1);
    EXPECT_EQ(all(), R"({"alarm":{"duration":9,"enabled":0,"siren_type":2,"trigger_duration":1},)"
                     R"("cameras":[],"eventFilter":[],"macros":[],"registeredDevices":[],)"
                     R"("rooms":[],"scenes":[],"schedules":[],"targetNames":{}})");
    EXPECT_EQ(daemon.storedSetup(), all());
}

TEST_F(ConfigDelete, NeverCascades)
{
    startReady(ONE_OF_EACH);
    EXPECT_EQ(del(R"({"macros":[{"title":"Door"}]})"), 1);
    EXPECT_EQ(Json(text("schedules"))[0]["macro"].dump(), R"("Door")");
    set(R"({"macros":[{"title":"Door","scene":"Evening"}]})");
    EXPECT_EQ(del(R"({"scenes":[{"title":"Evening"}]})"), 1);
    EXPECT_EQ(Json(text("macros"))[0]["scene"].dump(), R"("Evening")");
    EXPECT_EQ(del(R"({"cameras":[{"uid":"c1"}]})"), 1);
    EXPECT_EQ(text("rooms"), list({room("Hall")}));
}

TEST_F(ConfigDelete, NeverRemovesTheAlarm)
{
    startReady(ONE_OF_EACH);
    const std::string before = all();
    EXPECT_EQ(del(R"({"alarm":{"duration":9}})"), 0);
    EXPECT_EQ(all(), before);
}

static const std::vector<std::string> ABSENT = {
    "eventFilter does not exist2\n", "registeredDevices does not exist\n",
    "targetNames does not exist\n",  "macros does not exist\n",
    "macros does not exist\n",  // Deliberate: of the cameras.
    "scenes does not exist\n",       "schedules does not exist\n",
    "rooms does not exist\n",
};

// The lines of parseToDel at error level, without where they come from.
static std::vector<std::string> errors(const std::string &log)
{
    static constexpr std::string_view BEGIN = "6 parseToDel:";
    std::vector<std::string> texts;
    for (size_t start = 0, end; (end = log.find('\n', start)) != std::string::npos;
         start = end + 1) {
        const std::string line = log.substr(start, end + 1 - start);
        if (line.rfind(BEGIN, 0) == 0)
            texts.push_back(line.substr(line.find(' ', BEGIN.size()) + 1));
    }
    return texts;
}

TEST_F(ConfigDelete, LogsEveryMissingGroupInTheOrderOfTheGroups)
{
    startReady();
    const size_t from = daemon.logSize();
    EXPECT_EQ(del("{}"), 0);
    EXPECT_EQ(errors(daemon.log(from)), ABSENT);
}

TEST_F(ConfigDelete, CountsAGroupOfAnotherTypeAsMissing)
{
    startReady(ONE_OF_EACH);
    const std::string before = all();
    const size_t from = daemon.logSize();
    EXPECT_EQ(del(R"({"cameras":{"uid":"c1"},"eventFilter":{"uid":5},"macros":"Door",
        "registeredDevices":null,"rooms":true,"scenes":{"title":"Evening"},"schedules":1,
        "targetNames":["5_0_1"]})"),
              0);
    EXPECT_EQ(errors(daemon.log(from)), ABSENT);
    EXPECT_EQ(all(), before);
}

TEST_F(ConfigDelete, SaysMacrosWhetherTheCamerasOrTheMacrosAreMissing)
{
    startReady();
    for (const char *request : {R"({"cameras":[]})", R"({"macros":[]})"}) {
        const size_t from = daemon.logSize();
        EXPECT_EQ(del(request), 0);
        const std::vector<std::string> lines = errors(daemon.log(from));
        EXPECT_EQ(std::count(lines.begin(), lines.end(), "macros does not exist\n"), 1) << request;
        EXPECT_EQ(std::count(lines.begin(), lines.end(), "cameras does not exist\n"), 0);
    }
}

// Each group after the one that is named first has nothing to delete.
TEST_F(ConfigDelete, AnswersWithTheResultOfTheLastGroup)
{
    struct Case {
        const char *request;
        int answer;
    };
    static constexpr Case CASES[] = {
        {R"({"eventFilter":[{"uid":5}],"registeredDevices":[{"token":"t0"}]})", 0},
        {R"({"registeredDevices":[{"token":"t1"}],"targetNames":{"0":0}})", 0},
        {R"({"targetNames":{"5_0_1":0},"cameras":[{"uid":"c0"}]})", 0},
        {R"({"cameras":[{"uid":"c1"}],"macros":[{"title":"None"}]})", 0},
        {R"({"macros":[{"title":"Door"}],"scenes":[]})", 0},
        {R"({"scenes":[{"title":"Evening"}],"schedules":[{"title":"None"}]})", 0},
        {R"({"schedules":[{"title":"Week"}],"rooms":[{"title":"None"}]})", 0},
        {R"({"rooms":[{"title":"Hall"}],"scenes":[{"title":"None"}],"eventFilter":[{}]})", 1},
    };
    startReady(ONE_OF_EACH);
    const std::string stored = daemon.data.read("appSetup.json").value_or("");
    for (const Case &one : CASES) {
        const std::string before = all();
        EXPECT_EQ(daemon.data.read("appSetup.json"), stored) << "saved before " << one.request;
        EXPECT_EQ(del(one.request), one.answer) << one.request;
        EXPECT_NE(all(), before) << "what it names is gone all the same: " << one.request;
    }
    EXPECT_EQ(all(), R"({"alarm":{"duration":9,"enabled":0,"siren_type":2,"trigger_duration":1},)"
                     R"("cameras":[],"eventFilter":[],"macros":[],"registeredDevices":[],)"
                     R"("rooms":[],"scenes":[],"schedules":[],"targetNames":{}})");
    EXPECT_EQ(daemon.storedSetup(), all()) << "the last one saved it all";
}

TEST_F(ConfigDelete, TakesTheLastOfAMemberGivenTwice)
{
    startReady(document("scenes", BOTH_SCENES));
    EXPECT_EQ(del(R"({"scenes":[{"title":"Evening"}],"scenes":[{"title":"Morning",
        "title":"Night"}]})"),
              1);
    EXPECT_EQ(text("scenes"), list({EVENING}));
}

TEST_F(ConfigDelete, RemovesAMacroWithAllItOwnsAndSetsItAfresh)
{
    startReady(document("macros", ALL_MACROS));
    EXPECT_EQ(del(R"({"macros":[{"title":"Motion"}]})"), 1);
    EXPECT_EQ(set(R"({"macros":[{"title":"Motion","enabled":1,
        "enabled_notifications":["pns"]}]})"),
              1);
    EXPECT_EQ(text("macros"), list({DOOR_MACRO, BARE, macro("Motion")}));
}

TEST_F(ConfigDelete, LetsATriggerOfAnotherTargetBeSetInItsPlace)
{
    startReady(document("macros", list({DOOR_MACRO})));
    EXPECT_EQ(del(R"({"macros":[{"title":"Door",
        "triggers":[{"target":{"dev":9,"if":1,"ch":2}}]}]})"),
              1);
    set(R"({"macros":[{"title":"Door","triggers":[{"op":"=","threshold":1,
        "target":{"dev":7,"if":1,"ch":2}}]}]})");
    EXPECT_EQ(text("macros"),
              list({macro("Door", sceneOf(R"("Evening")"), triggersOf({trigger(7, 1, 2)}))}));
}

TEST_F(ConfigDelete, AnnouncesTheConfigurationAlsoWhenNothingWasDeleted)
{
    startReady(ONE_OF_EACH);
    sdk.forgetHeard();
    EXPECT_EQ(del("{}"), 0);
    EXPECT_EQ(del(R"({"scenes":[{"title":"None"}]})"), 0);
    ASSERT_TRUE(eventually([&] { return sdk.events("jsongetall").size() == 2; }));
    for (const Heard &announcement : sdk.events("jsongetall")) {
        EXPECT_EQ(announcement.path, "/com/OvrinTech/process/app/jsongetall");
        EXPECT_EQ(announcement.signature, "s");
        EXPECT_EQ(announcement.text, all());
    }
}

TEST_F(ConfigDelete, LogsItsRequestAsADetail)
{
    startReady();
    del(R"({"rooms":[]})");
    EXPECT_TRUE(daemon.logged(R"( word: {"rooms":[]})"));
    EXPECT_FALSE(daemon.logged("2 word: ")) << "that is the set's";
    const std::string log = daemon.log();
    const size_t word = log.find(R"( word: {"rooms":[]})");
    EXPECT_EQ(log.substr(log.rfind('\n', word) + 1, 2), "3 ");
}

struct RefusedDelete {
    const char *name;
    const char *text;
    const char *message;
};

class ConfigDeleteRefused : public ConfigDelete,
                            public testing::WithParamInterface<RefusedDelete> {};

TEST_P(ConfigDeleteRefused, IsAnsweredZeroAndNotAnnounced)
{
    startReady(ONE_OF_EACH);
    const std::string before = all();
    const std::string stored = daemon.data.read("appSetup.json").value_or("");
    sdk.forgetHeard();
    const size_t from = daemon.logSize();
    EXPECT_EQ(del(GetParam().text), 0);
    EXPECT_TRUE(daemon.logged(GetParam().message, from)) << GetParam().message;
    EXPECT_EQ(all(), before);
    EXPECT_EQ(daemon.data.read("appSetup.json"), stored);
    gatewayReady();  // announced after anything that was announced before
    EXPECT_EQ(sdk.events("jsongetall").size(), 0u);
}

INSTANTIATE_TEST_SUITE_P(
    Requests, ConfigDeleteRefused,
    testing::Values(
        RefusedDelete{"NoText", "", "error: on line 1: "},
        RefusedDelete{"NoJson", "scenes", "error: on line 1: "},
        RefusedDelete{"HalfAnObject", "{\n\"scenes\":\n[{\"title\":\"Evening\"}],",
                      "error: on line 3: "},
        RefusedDelete{"TwoObjects", R"({"scenes":[{"title":"Evening"}]}{})", "error: on line 1: "},
        RefusedDelete{"AnArray", R"([{"title":"Evening"}])", "error: root is not an object\n"}),
    caseName);

// ---- The gate

TEST_F(ConfigDelete, IsRefusedSilentlyUntilTheGatewayIsReady)
{
    startWith(ONE_OF_EACH);
    const std::string before = all();
    const std::string stored = daemon.data.read("appSetup.json").value_or("");
    const std::string request = R"({"scenes":[{"title":"Evening"}]})";
    callWithoutReply("jsondel", {request});
    EXPECT_EQ(all(), before);
    EXPECT_EQ(daemon.data.read("appSetup.json"), stored);
    EXPECT_EQ(sdk.events("jsongetall").size(), 0u);
    EXPECT_FALSE(daemon.logged(request));
    EXPECT_FALSE(daemon.logged("DBUS request not handled, method: jsondel"));

    gatewayReady();
    EXPECT_EQ(del(request), 1);
}

TEST_F(ConfigDelete, IsRefusedSilentlyWhileTheConfigurationIsLocked)
{
    startReady(ONE_OF_EACH);
    platform.set("enablelock", "1");
    const std::string before = all();
    const std::string request = R"({"scenes":[{"title":"Evening"}]})";
    callWithoutReply("jsondel", {request});
    EXPECT_EQ(all(), before);
    EXPECT_FALSE(daemon.logged(request));
    platform.set("enablelock", "0");
    EXPECT_EQ(del(request), 1);
    EXPECT_EQ(platform.asked("enablelock"), 2u);
}

TEST_F(ConfigDelete, GivesNoReplyToOtherArguments)
{
    startReady(ONE_OF_EACH);
    const std::string before = all();
    callWithoutReply("jsondel", {});
    callWithoutReply("jsondel", {uint32_t{5}});
    EXPECT_EQ(daemon.timesLogged("DBUS request not handled, method: jsondel"), 2u);
    EXPECT_EQ(all(), before);
}
