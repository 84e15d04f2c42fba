// The configuration document, merged into the lists and written back.

#include "config/document.h"

#include "config/alarm.h"
#include "config/camera.h"
#include "config/event_filter.h"
#include "config/lists.h"
#include "config/macro.h"
#include "config/reg_device.h"
#include "config/room.h"
#include "config/scene.h"
#include "config/schedule.h"
#include "config/target_name.h"
#include "daemon_in_process.h"
#include "main/json_memory.h"
#include "main/json_text.h"

#include <cstring>

using testing::ElementsAre;
using testing::HasSubstr;

// The errors of the parser itself; the announcement without a bus has its own.
static std::vector<std::string> errors()
{
    std::vector<std::string> texts;
    for (const LogLine &line : logLines()) {
        if (line.level == 6 && line.function != "dbus_signal_event")
            texts.push_back(line.text);
    }
    return texts;
}

static std::string group(const std::string &key)
{
    json_t *root = getAllAppConfig();
    const std::string text = takeText(json_incref(json_object_get(root, key.c_str())));
    json_decref(root);
    return text;
}

TEST(Document, OfEmptyListsHasEveryGroup)
{
    EXPECT_EQ(
        takeText(getAllAppConfig()),
        R"({"alarm":{"duration":3,"enabled":0,"siren_type":1,"trigger_duration":3},"cameras":[],)"
        R"("eventFilter":[],"macros":[],"registeredDevices":[],"rooms":[],"scenes":[],"schedules":[],)"
        R"("targetNames":{}})");
}

TEST(Document, BuildsItsGroupsInTheirOrder)
{
    json_t *root = getAllAppConfig();
    std::vector<std::string> keys;
    const char *key;
    json_t *value;
    json_object_foreach(root, key, value) keys.push_back(key);
    json_decref(root);
    EXPECT_THAT(keys, ElementsAre("targetNames", "cameras", "macros", "scenes", "rooms",
                                  "schedules", "eventFilter", "alarm", "registeredDevices"));
}

TEST(Document, ShowsWhatItNeverReads)
{
    parseAll(R"({"registeredDevices":[{"token":"t"}],"schedules":[{"title":"S"}],
        "eventFilter":[{"uid":-5,"channel":1}]})");
    strcpy(FIRST_ELEMENT(RegDevices, node, &pushDevsListHead)->device->ver, "2");
    FIRST_ELEMENT(Schedule, node, &schedulesListHead)->invisible = 3;
    EXPECT_THAT(group("registeredDevices"), HasSubstr(R"("ver":"2")"));
    EXPECT_THAT(group("schedules"), HasSubstr(R"("invisible":3)"));
    EXPECT_EQ(group("eventFilter"), R"([{"channel":1}])");
}

TEST(Document, ThatIsNoJsonObjectChangesNothing)
{
    EXPECT_EQ(parseAll("{\n\"scenes\": ["), 0);
    EXPECT_EQ(parseAll("[]"), 0);
    EXPECT_EQ(parseAll(""), 0);
    const auto seen = errors();
    ASSERT_EQ(seen.size(), 3u);
    EXPECT_THAT(seen[0], testing::StartsWith("error: on line 2: "));
    EXPECT_EQ(seen[1], "error: root is not an object\n");
    EXPECT_TRUE(listEmpty(&scenesListHead));
}

TEST(Document, WithOnlyAnAlarmSaysWhatElseIsMissing)
{
    EXPECT_EQ(parseAll(R"({"alarm":{"enabled":1}})"), 1);
    EXPECT_THAT(errors(), ElementsAre("targetNames does not exist\n", "cameras does not exist\n",
                                      "macros does not exist\n", "scenes does not exist\n",
                                      "schedules does not exist\n", "rooms does not exist\n",
                                      "eventFilter does not exist1\n"));
}

TEST(Document, GivesTheResultOfItsLastGroup)
{
    EXPECT_EQ(parseAll(R"({"scenes":[{"title":"A"}], "rooms":[]})"), 0);
    EXPECT_EQ(parseAll(R"({"rooms":[], "alarm":{"duration":1}})"), 1);
    EXPECT_EQ(parseAll(R"({"rooms":{}, "scenes":[{"title":"A"}]})"),
              1);  // of another type: not present
    EXPECT_EQ(parseAll("{}"), 0);
}

TEST(Document, AnnouncesTheConfiguration)
{
    parseAll("{}");
    EXPECT_THAT(logLines(),
                testing::Contains(LogLine{6, "dbus_signal_event", "dbus_conn is NULL.\n"}));
}

TEST(Scenes, AreCreatedAndUpdatedByTitle)
{
    parseAll(R"({"scenes":[{"title":"A","icon":"1","ID":4},{"title":"B"}]})");
    EXPECT_EQ(parseAll(R"({"scenes":[{"title":"A","invisible":1}]})"), 1);
    EXPECT_EQ(group("scenes"),
              R"([{"ID":4,"comps":[],"icon":"1","icon_name":"","invisible":1,"title":"A"},)"
              R"({"ID":0,"comps":[],"icon":"","icon_name":"","invisible":0,"title":"B"}])");
}

TEST(Titles, ThatAreTooLongMakeAnotherElementWithAnEmptyOneEachTime)
{
    const std::string tooLong(127, 'x');
    const std::pair<const char *, const char *> groups[] = {{"macros", "title"},
                                                            {"scenes", "title"},
                                                            {"schedules", "title"},
                                                            {"rooms", "title"},
                                                            {"cameras", "uid"}};
    for (const auto &[word, key] : groups) {
        const std::string member = "\"" + std::string(key) + "\":\"";
        const std::string request =
            "{\"" + std::string(word) + "\":[{" + member + tooLong + "\"}]}";
        for (int times = 1; times <= 2; ++times)
            EXPECT_EQ(parseAll(request.c_str()), 1) << word;
        const Value elements(group(word));
        ASSERT_EQ(json_array_size(elements), 2u) << word;
        for (size_t i = 0; i < 2; ++i)
            EXPECT_STREQ(json_string_value(json_object_get(json_array_get(elements, i), key)), "");
    }
}

TEST(Scenes, KeepWhatARequestLeavesOutOrGivesAsAnotherType)
{
    parseAll(R"({"scenes":[{"title":"A","icon":"1","ID":4}]})");
    parseAll(R"({"scenes":[{"title":"A","icon":5,"ID":"x","comps":{},"buildinSiren":1}]})");
    EXPECT_EQ(group("scenes"),
              R"([{"ID":4,"comps":[],"icon":"1","icon_name":"","invisible":0,"title":"A"}])");
}

TEST(Scenes, WithoutATitleAreNewOnesWithAnEmptyTitle)
{
    EXPECT_EQ(parseAll(R"({"scenes":[{"icon":"1"},{"icon":"2"}]})"), 1);
    ASSERT_EQ(getListObjNum(&scenesListHead), 2);
    EXPECT_STREQ(FIRST_ELEMENT(Scene, node, &scenesListHead)->title, "");
}

TEST(Scenes, EndAtTheFirstElementThatIsNoObject)
{
    EXPECT_EQ(parseAll(R"({"scenes":[{"title":"A"},{"title":"B"},3,{"title":"C"}]})"), 1);
    EXPECT_EQ(getListObjNum(&scenesListHead), 2);
    bool found = false;
    for (const LogLine &line : logLines())
        found |= line.text == "in " + line.function + ",scenes 3 data is not an object\n" &&
                 line.level == 6;
    EXPECT_TRUE(found);
}

TEST(Scenes, RememberTheLargestArrayEverReceived)
{
    parseAll(R"({"scenes":[{"title":"A"},{"title":"B"}]})");
    parseAll(R"({"scenes":[{"title":"A"}]})");
    EXPECT_EQ(scenesize, 2);
    EXPECT_EQ(logged("json_array_size 1\n"), 1u);
    EXPECT_EQ(logged("maximun json_array_size 2\n"), 2u);
}

TEST(Scenes, TakeASirenWithItsType)
{
    parseAll(R"({"scenes":[{"title":"A","buildinSiren":{"siren_type":3}}]})");
    EXPECT_THAT(group("scenes"), HasSubstr(R"("buildinSiren":{"siren_type":3})"));
    parseAll(R"({"scenes":[{"title":"A","buildinSiren":{"siren_type":"x"}}]})");
    EXPECT_THAT(group("scenes"), HasSubstr(R"("buildinSiren":{"siren_type":3})"));
    EXPECT_EQ(logged("siren_type is not an integer\n"), 1u);
}

TEST(Scenes, RefuseOtherKindsOfValues)
{
    const Value number("5");
    const Value object("{}");
    EXPECT_EQ(setScene(number, nullptr), 0);
    EXPECT_EQ(setScene(object, nullptr), 0);
    EXPECT_EQ(logTexts(), (std::vector<std::string>{"in setScene,scene is not an object\n",
                                                    "sceneBuf is NULL\n"}));
}

TEST(Comps, WithoutAValueAreSetToZero)
{
    parseAll(R"({"scenes":[{"title":"A","comps":[{"target":{"dev":5,"ch":1},"value":99}]}]})");
    EXPECT_EQ(logged("callocComp #1 \n"), 1u);
    parseAll(R"({"scenes":[{"title":"A","comps":[{"target":{"dev":5,"ch":1}}]}]})");
    EXPECT_THAT(group("scenes"),
                HasSubstr(R"("comps":[{"target":{"ch":1,"dev":5,"if":0},"value":0}])"));
    parseAll(R"({"scenes":[{"title":"A","comps":[{"target":{"dev":5,"ch":1},"value":7}]}]})");
    parseAll(R"({"scenes":[{"title":"A","comps":[{"target":{"dev":5,"ch":1},"value":"7"}]}]})");
    EXPECT_THAT(group("scenes"), HasSubstr(R"("value":0)"));
}

TEST(Comps, EndAtTheFirstElementThatIsNoObject)
{
    parseAll(
        R"({"scenes":[{"title":"A","comps":[{"target":{"dev":1},"value":1},7,{"target":{"dev":2}}]}]})");
    EXPECT_THAT(errors(), testing::Contains("in setComps,comps 2 data is not an object\n"));
    EXPECT_EQ(getListObjNum(&searchScene(&scenesListHead, "A")->comps), 1);
}

TEST(Macros, WithOneTriggerKeepItAndGetNoSecond)
{
    parseAll(
        R"({"macros":[{"title":"M","triggers":[{"target":{"dev":1,"ch":1},"threshold":1}]}]})");
    parseAll(
        R"({"macros":[{"title":"M","triggers":[{"target":{"dev":2,"ch":1},"threshold":2}]}]})");
    EXPECT_EQ(getListObjNum(&searchMacro(&macrosListHead, "M")->triggers), 1);
    parseAll(
        R"({"macros":[{"title":"M","triggers":[{"target":{"dev":1,"ch":1},"threshold":3,"op":">"}]}]})");
    EXPECT_THAT(group("macros"),
                HasSubstr(R"("op":">","target":{"ch":1,"dev":1,"if":0},"threshold":3)"));
}

TEST(Macros, TakeNothingFromTheTriggersBehindAnUnknownOne)
{
    parseAll(R"({"macros":[{"title":"M","triggers":[{"target":{"dev":9},"op":"="}]}]})");
    EXPECT_EQ(parseAll(R"({"macros":[{"title":"M","enabled":1,"triggers":[{"target":{"dev":8}},
        {"target":{"dev":9},"op":">"}]}]})"),
              1);
    const Macro *macro = searchMacro(&macrosListHead, "M");
    EXPECT_EQ(getListObjNum(&macro->triggers), 1);
    EXPECT_STREQ(FIRST_ELEMENT(Trigger, node, &macro->triggers)->op, "=");
    EXPECT_EQ(macro->enabled, 1);
}

TEST(Macros, GetAtMostOneTriggerFromOneRequest)
{
    parseAll(
        R"({"macros":[{"title":"M","triggers":[{"target":{"dev":1}},{"target":{"dev":2}}]}]})");
    EXPECT_EQ(getListObjNum(&searchMacro(&macrosListHead, "M")->triggers), 1);
}

TEST(Macros, SayWhatIsWrongWithTheirTriggers)
{
    parseAll(
        R"({"macros":[{"title":"A","triggers":5},{"title":"B"},{"title":"C","triggers":[{"op":"="}]},
        {"title":"D","triggers":[1]}]})");
    EXPECT_THAT(errors(),
                testing::IsSupersetOf(
                    {"target isn't object\n", "in setTrigger,triggers 1 data is not an object\n"}));
    EXPECT_EQ(logged("triggers is not an array\n"), 2u);
}

TEST(Macros, WithoutATitleAreNewOnesWithAnEmptyTitle)
{
    EXPECT_EQ(parseAll(R"({"macros":[{"enabled":1}]})"), 1);
    EXPECT_STREQ(FIRST_ELEMENT(Macro, node, &macrosListHead)->title, "");
}

TEST(Macros, ShowTheirSceneByNameOrWholeOrNotAtAll)
{
    parseAll(
        R"({"macros":[{"title":"N","scene":"Evening"},{"title":"P","scene":{"title":"own"}},{"title":"O"}]})");
    const std::string text = group("macros");
    EXPECT_THAT(text, HasSubstr(R"("scene":"Evening","title":"N")"));
    EXPECT_THAT(
        text,
        HasSubstr(
            R"("scene":{"ID":0,"comps":[],"icon":"","icon_name":"","invisible":0,"title":"own"})"));
    EXPECT_THAT(text, HasSubstr(R"("priority":0,"title":"O")"));
    EXPECT_THAT(text, testing::Not(HasSubstr("\"triggers\"")));
}

TEST(Macros, ForgetTheirOwnSceneWhenTheyGetANameAndTheNameWhenTheyGetAScene)
{
    parseAll(R"({"macros":[{"title":"M","scene":{"title":"own"}}]})");
    parseAll(R"({"macros":[{"title":"M","scene":"Evening"}]})");
    const Macro *macro = searchMacro(&macrosListHead, "M");
    EXPECT_EQ(macro->scene, nullptr);
    EXPECT_STREQ(macro->sceneName, "Evening");
    parseAll(R"({"macros":[{"title":"M","scene":{"title":"again"}}]})");
    EXPECT_NE(macro->scene, nullptr);
    EXPECT_STREQ(macro->sceneName, "");
}

TEST(Notifications, KeepTheSlotsThatARequestDoesNotCover)
{
    parseAll(R"({"macros":[{"title":"M","enabled_notifications":["a","b","c"]}]})");
    EXPECT_THAT(group("macros"), HasSubstr(R"("enabled_notifications":["a","b","c"])"));
    parseAll(R"({"macros":[{"title":"M","enabled_notifications":["x",5]}]})");
    EXPECT_THAT(group("macros"), HasSubstr(R"("enabled_notifications":["x","b","c"])"));
}

TEST(Notifications, BeyondTheThirdAreIgnoredAndTooLongOnesAreEmpty)
{
    const std::string tooLong(127, 'n');
    parseAll((R"({"macros":[{"title":"M","enabled_notifications":[")" + tooLong +
              R"(","b","c","d"]},{"title":"N"}]})")
                 .c_str());
    EXPECT_THAT(group("macros"), HasSubstr(R"("enabled_notifications":["","b","c"])"));
    EXPECT_THAT(group("macros"), HasSubstr(R"("enabled_notifications":[])"));
}

TEST(Schedules, AreCreatedAndUpdatedByTitle)
{
    parseAll(
        R"({"schedules":[{"title":"S","weekdays":127,"start_hour":22,"invisible":1,"macro":"M"}]})");
    EXPECT_EQ(logged("schedule S not found, add new schedule\n"), 1u);
    EXPECT_EQ(parseAll(R"({"schedules":[{"title":"S","enabled":1}]})"), 1);
    EXPECT_EQ(
        group("schedules"),
        R"([{"enabled":1,"end_day":0,"end_hour":0,"end_minute":0,"end_month":0,"home_security_alarm":0,)"
        R"("icon":"","icon_name":"","invisible":0,"macro":"M","repeat_type":0,"start_day":0,"start_hour":22,)"
        R"("start_minute":0,"start_month":0,"title":"S","weekdays":127}])");
}

TEST(Schedules, MayCarryAMacroOfTheirOwn)
{
    parseAll(R"({"schedules":[{"title":"S","macro":{"title":"M"}},{"title":"T"},4]})");
    const std::string text = group("schedules");
    EXPECT_THAT(text, HasSubstr(R"("macro":{"duration":0)"));
    EXPECT_THAT(errors(), testing::Contains("Macros 3 is not an object\n"));
    parseAll(R"({"schedules":[{"title":"S","macro":"named"}]})");
    EXPECT_THAT(group("schedules"), HasSubstr(R"("macro":"named")"));
    EXPECT_EQ(getListObjNum(&searchSchedule(&schedulesListHead, "S")->macros), 1);
}

TEST(Rooms, NeedATitle)
{
    EXPECT_EQ(parseAll(R"({"rooms":[{"icon":"x"}]})"), 0);
    EXPECT_TRUE(listEmpty(&roomsListHead));
    EXPECT_EQ(logged("title_text is NULL\n"), 1u);
}

TEST(Rooms, GatherTargetsAndExtraCameras)
{
    parseAll(
        R"({"rooms":[{"title":"Hall","targets":[{"dev":1,"ch":2}],"extra_camera":[{"camera":"c"}]}]})");
    EXPECT_EQ(logged("extra_camera name not exist, it will be created.\n"), 1u);
    parseAll(R"({"rooms":[{"title":"Hall","targets":[{"dev":1,"ch":2},{"dev":3},7],
        "extra_camera":[{"camera_password":"p"},{"camera":"c","camera_password":"q"},8]}]})");
    EXPECT_EQ(logged("target exists.\n"), 1u);
    EXPECT_EQ(logged("camera exists.\n"), 1u);
    EXPECT_EQ(
        group("rooms"),
        R"([{"camera":"","camera_password":"","extra_camera":[{"camera":"c","camera_password":"q"}],)"
        R"("icon":"","icon_name":"","targets":[{"ch":2,"dev":1,"if":0},{"ch":0,"dev":3,"if":0}],"title":"Hall"}])");
    EXPECT_THAT(errors(), testing::IsSupersetOf({"targets 3 is not an object\n",
                                                 "extraCamera 3 is not an object\n"}));
}

TEST(TargetNames, AreReplacedOrAdded)
{
    parseAll(R"({"targetNames":{"1.0.1":"Lamp","2.0.1":"Door"}})");
    EXPECT_EQ(parseAll(R"({"targetNames":{"1.0.1":"Light"}})"), 1);
    EXPECT_EQ(group("targetNames"), R"({"1.0.1":"Light","2.0.1":"Door"})");
    parseAll(R"({"targetNames":{"1.0.1":5}})");
    EXPECT_EQ(logged("value is not a string."), 1u);
}

TEST(Cameras, AreFoundByTheirUid)
{
    parseAll(R"({"cameras":[{"uid":"u","display":"d"},1]})");
    EXPECT_EQ(parseAll(R"({"cameras":[{"uid":"u","password":"p"}]})"), 1);
    EXPECT_EQ(group("cameras"), R"([{"display":"d","password":"p","uid":"u"}])");
    EXPECT_THAT(errors(), testing::Contains("cameras 2 is not an object\n"));
    EXPECT_EQ(cameraToJson(nullptr), nullptr);
    EXPECT_EQ(logged("camera is NULL\n"), 1u);
}

TEST(EventFilters, AreAddedOnceAndShowOnlyWhatIsSet)
{
    EXPECT_EQ(parseAll(R"({"eventFilter":[{"uid":5},{"uid":5},{"channel":1,"eventCode":"x"}]})"),
              1);
    EXPECT_EQ(group("eventFilter"), R"([{"uid":5},{"channel":1}])");
    parseAll(R"({"eventFilter":["x"]})");
    EXPECT_THAT(errors(), testing::Contains("filter 1 is not an object\n"));
}

TEST(Phones, NeedAToken)
{
    EXPECT_EQ(parseAll(R"({"registeredDevices":[{"email":"e"}]})"), 0);
    EXPECT_EQ(logged("searchedPushDev is NULL !!!\n"), 1u);
    parseAll(R"({"registeredDevices":[{"token":"t","email":"e","ver":"1"},5]})");
    parseAll(R"({"registeredDevices":[{"token":"t","update_ts":5}]})");
    EXPECT_EQ(
        group("registeredDevices"),
        R"([{"app_id":"","disable_notifications":0,"email":"e","gateway_name":"","password":"","platform":"",)"
        R"("token":"t","update_ts":5,"username":"","ver":""}])");
    EXPECT_THAT(errors(), testing::Contains("pushData 2 is not an object\n"));
}

TEST(Phones, HaveTokensOfUpTo1023Bytes)
{
    const std::string longest(1023, 't');
    const std::string tooLong(2000, 't');
    for (int i = 0; i < 2; ++i) {
        parseAll((R"({"registeredDevices":[{"token":")" + longest + R"("}]})").c_str());
        parseAll((R"({"registeredDevices":[{"token":")" + tooLong + R"("}]})").c_str());
    }
    EXPECT_EQ(getListObjNum(&pushDevsListHead), 1);  // the longer one is cut, and then the same
    EXPECT_EQ(FIRST_ELEMENT(RegDevices, node, &pushDevsListHead)->device->token, longest);
}

TEST(AlarmSettings, ThatADocumentLeavesOutAreZeroAtFirst)
{
    parseAll(R"({"alarm":{"enabled":1}})");
    EXPECT_EQ(group("alarm"), R"({"duration":0,"enabled":1,"siren_type":0,"trigger_duration":0})");
    parseAll(R"({"alarm":{"duration":"x","siren_type":2}})");
    EXPECT_EQ(group("alarm"), R"({"duration":0,"enabled":1,"siren_type":2,"trigger_duration":0})");
}

TEST(Configuration, IsEmptiedWhole)
{
    parseAll(R"({"macros":[{"title":"M"}],"scenes":[{"title":"S"}],"schedules":[{"title":"T"}],
        "rooms":[{"title":"R"}],"cameras":[{"uid":"u"}],"targetNames":{"a":"b"},"eventFilter":[{"uid":1}],
        "registeredDevices":[{"token":"t"}],"alarm":{"enabled":1}})");
    freeAppConfigList();
    for (const ListNode *head :
         {&macrosListHead, &scenesListHead, &schedulesListHead, &roomsListHead, &camerasListHead,
          &targetNamesListHead, &eventFilterListHead, &pushDevsListHead})
        EXPECT_TRUE(listEmpty(head));
    EXPECT_EQ(ovrinAlarm, nullptr);
}

TEST(Document, IsWholeOrNoneWhenMemoryRunsOut)
{
    watchJsonMemory();
    parseAll(R"({"macros":[{"title":"M","scene":{"title":"own"},"enabled_notifications":["a"],
        "triggers":[{"target":{"dev":1},"op":"="}]}],"scenes":[{"title":"S","comps":[{"target":{"dev":1}}]}],
        "rooms":[{"title":"R","targets":[{"dev":1}]}],"targetNames":{"a":"b"},"eventFilter":[{"uid":1}]})");
    const std::string whole = takeText(getAllAppConfig());
    int refused = 0;
    for (int n = 1;; ++n) {
        failJsonAllocation(n);
        json_t *root = getAllAppConfig();
        char *text = json_dumps_dbg(root, JSON_TEXT_FLAGS);
        failJsonAllocation(0);
        json_decref(root);
        if (!text) {
            ++refused;
            continue;
        }
        EXPECT_EQ(text, whole);
        free(text);
        break;  // no allocation is left to fail
    }
    EXPECT_GT(refused, 100);
}

// The library's buffer for a token grows with the sixteenth character and the thirty-second, which
// is here the closing quote of a string, or stands behind a number.
struct HardToRead {
    const char *name;
    const char *text;
};

class JsonTextWithoutMemory : public testing::TestWithParam<HardToRead> {};

TEST_P(JsonTextWithoutMemory, IsReadWholeOrNotAtAll)
{
    watchJsonMemory();
    json_error_t error;
    const std::string whole = takeText(loadJson(GetParam().text, &error));
    int refused = 0;
    for (bool failed = true; failed;) {
        failJsonAllocation(++refused);
        json_t *value = loadJson(GetParam().text, &error);
        failed = jsonAllocationHasFailed();
        failJsonAllocation(0);
        if (value)
            EXPECT_EQ(takeText(value), whole) << "allocation " << refused;
        else
            EXPECT_EQ(json_error_code(&error), json_error_out_of_memory);
    }
    EXPECT_GT(refused, 5);
}

INSTANTIATE_TEST_SUITE_P(
    Tokens, JsonTextWithoutMemory,
    testing::Values(HardToRead{"AString", R"(["fourteen chars"])"},
                    HardToRead{"ALongerString", R"(["thirty characters, quotes not."])"},
                    HardToRead{"ANumber", "[123456789012345,1]"},
                    HardToRead{"ALongerNumber", "[1.23456789012345678901234567e10,1]"},
                    HardToRead{"AKey", R"({"fourteen chars":[{}]})"},
                    HardToRead{"Both", R"(["fourteen chars",123456789012345])"}),
    [](const auto &token) { return std::string(token.param.name); });

TEST(Titles, AreListedInOrder)
{
    parseAll(
        R"({"scenes":[{"title":"B"},{"title":"A"}],"macros":[{"title":"M"}],"rooms":[{"title":"R"}],
        "schedules":[{"title":"S"}]})");
    EXPECT_EQ(takeText(scenesTitleToJson(&scenesListHead)), R"(["B","A"])");
    EXPECT_EQ(takeText(macrosTitleToJson(&macrosListHead)), R"(["M"])");
    EXPECT_EQ(takeText(roomsTitleToJson(&roomsListHead)), R"(["R"])");
    EXPECT_EQ(takeText(schedulesTitleToJson(&schedulesListHead)), R"(["S"])");
}

TEST(Serializers, RefuseNullRecords)
{
    EXPECT_EQ(sceneToJson(nullptr), nullptr);
    EXPECT_EQ(macroToJson(nullptr), nullptr);
    EXPECT_EQ(roomToJson(nullptr), nullptr);
    EXPECT_EQ(scheduleToJson(nullptr), nullptr);
    EXPECT_THAT(logTexts(), ElementsAre("scene is NULL\n", "macro is NULL\n", "room is NULL\n",
                                        "schedule is NULL\n"));
}

TEST(Document, IsTheSameAfterItWasReadBack)
{
    parseAll(
        R"({"macros":[{"title":"M","scene":{"title":"own","comps":[{"target":{"dev":505},"value":5}]},
        "triggers":[{"target":{"dev":1,"if":-2,"ch":9223372036854775807},"op":"=","threshold":-1}]}],
        "scenes":[{"title":"\u5c45","ID":-9223372036854775808}],"targetNames":{"a":"\"b\\"},
        "eventFilter":[{"uid":0,"eventCode":4001}],"registeredDevices":[{"token":"t","platform":"ios"}]})");
    const std::string text = takeText(getAllAppConfig());
    freeAppConfigList();
    parseAll(text.c_str());
    EXPECT_EQ(takeText(getAllAppConfig()), text);
}
