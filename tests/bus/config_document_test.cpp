// The rules by which a set document is read, where they are not the plain "store what is there".

#include "support/daemon_on_its_own_bus.h"

using namespace support;

class ConfigDocument : public ConfigurableDaemon {};

TEST_F(ConfigDocument, LogsEveryMissingGroup)
{
    startReady();
    const size_t from = daemon.logSize();
    EXPECT_EQ(set(R"({"alarm":{"duration":5}})"), 1);
    for (const char *text :
         {"targetNames does not exist", "cameras does not exist", "macros does not exist",
          "scenes does not exist", "schedules does not exist", "rooms does not exist",
          "eventFilter does not exist1"})
        EXPECT_TRUE(daemon.eventuallyLogged(text, from)) << text;
    EXPECT_FALSE(daemon.logged("registeredDevices does not exist", from));
    EXPECT_FALSE(daemon.logged("alarm does not exist", from));
}

TEST_F(ConfigDocument, ResetsACompWithoutAValueToZero)
{
    startReady(R"({"scenes":[{"title":"Evening","comps":[
        {"target":{"dev":5,"if":0,"ch":0},"value":7},{"target":{"dev":6,"if":0,"ch":0},"value":8}]}]})");
    set(R"({"scenes":[{"title":"Evening","comps":[{"target":{"dev":5,"if":0,"ch":0}},
        {"target":{"dev":6,"if":0,"ch":0},"value":"on"}]}]})");
    const Json comps = group("scenes")[0]["comps"];
    ASSERT_EQ(comps.size(), 2u);
    EXPECT_EQ(comps[0]["value"].integer(), 0);
    EXPECT_EQ(comps[1]["value"].integer(), 0);
}

TEST_F(ConfigDocument, ReadsAMissingPartOfATargetAsZero)
{
    startReady();
    set(R"({"scenes":[{"title":"Evening","comps":[{"target":{"dev":5},"value":1},{"value":2}]}]})");
    EXPECT_EQ(group("scenes")[0]["comps"].dump(),
              R"([{"target":{"ch":0,"dev":5,"if":0},"value":1},)"
              R"({"target":{"ch":0,"dev":0,"if":0},"value":2}])");
}

TEST_F(ConfigDocument, CreatesATriggerInAnEmptyListAlone)
{
    startReady(R"({"macros":[{"title":"Door","triggers":[
        {"target":{"dev":9,"if":0,"ch":0},"op":"=","threshold":255}]}]})");
    set(R"({"macros":[{"title":"Door","triggers":[
        {"target":{"dev":8,"if":0,"ch":0},"op":"<","threshold":1}]}]})");
    set(R"({"macros":[{"title":"Door","triggers":[
        {"target":{"dev":9,"if":0,"ch":0},"op":">"},
        {"target":{"dev":8,"if":0,"ch":0},"op":"<"}]}]})");
    const Json triggers = group("macros")[0]["triggers"];
    ASSERT_EQ(triggers.size(), 1u);
    EXPECT_EQ(triggers[0]["target"]["dev"].integer(), 9);
    EXPECT_EQ(triggers[0]["op"].text(), ">");
    EXPECT_EQ(triggers[0]["threshold"].integer(), 255);
}

TEST_F(ConfigDocument, KeepsTheFirstOfTwoNewTriggers)
{
    startReady(R"({"macros":[{"title":"Door","triggers":[
        {"target":{"dev":9,"if":0,"ch":0}},{"target":{"dev":8,"if":0,"ch":0}}]}]})");
    EXPECT_EQ(group("macros")[0]["triggers"].size(), 1u);
}

TEST_F(ConfigDocument, LogsTriggersThatAreNoArrayAndATargetThatIsNoObject)
{
    startReady();
    EXPECT_EQ(set(R"({"macros":[{"title":"Door","triggers":5}]})"), 1);
    EXPECT_TRUE(daemon.eventuallyLogged("triggers is not an array"));
    set(R"({"macros":[{"title":"Door","triggers":[{"target":5},{"target":{"dev":9}}]}]})");
    EXPECT_TRUE(daemon.eventuallyLogged("target isn't object"));
    EXPECT_TRUE(group("macros")[0]["triggers"].isNull());
}

TEST_F(ConfigDocument, CreatesAnElementWithoutATitle)
{
    startReady();
    set(R"({"scenes":[{"icon":"a"}],"macros":[{"enabled":1}]})");
    EXPECT_EQ(callForText("jsongettitles", "scenes"), R"([""])");
    EXPECT_EQ(callForText("jsongettitles", "macros"), R"([""])");
}

TEST_F(ConfigDocument, StopsAtAnElementThatIsNoObject)
{
    startReady();
    EXPECT_EQ(set(R"({"scenes":[{"title":"A"},{"title":"B"},3,{"title":"C"}]})"), 1);
    EXPECT_EQ(callForText("jsongettitles", "scenes"), R"(["A","B"])");
    EXPECT_TRUE(daemon.eventuallyLogged("in setScenes,scenes 3 data is not an object"));
}

TEST_F(ConfigDocument, StopsAtACompThatIsNoObject)
{
    startReady();
    set(R"({"scenes":[{"title":"A","comps":[{"target":{"dev":5},"value":1},"x",
        {"target":{"dev":6},"value":1}]}]})");
    EXPECT_EQ(group("scenes")[0]["comps"].size(), 1u);
    EXPECT_TRUE(daemon.eventuallyLogged("comps 2 data is not an object"));
}

TEST_F(ConfigDocument, StoresATextOf126CharactersAndRefusesALongerOne)
{
    startReady();
    const std::string longest(126, 'x');
    set(R"({"scenes":[{"title":"A","icon":")" + longest + R"("}]})");
    EXPECT_EQ(group("scenes")[0]["icon"].text(), longest);
    set(R"({"scenes":[{"title":"A","icon":")" + longest + R"(y"}]})");
    EXPECT_EQ(group("scenes")[0]["icon"].text(), longest) << "the field keeps what it held";
    EXPECT_TRUE(daemon.eventuallyLogged("src str too long: " + longest + "y"));
}

TEST_F(ConfigDocument, StoresATextInTheBytesOfItsEncoding)
{
    startReady();
    std::string text;
    for (int i = 0; i < 42; ++i)
        text += "外";  // three bytes
    set(R"({"scenes":[{"title":")" + text + R"("}]})");
    EXPECT_EQ(group("scenes")[0]["title"].text(), text);
    set(R"({"scenes":[{"title":"B","icon":")" + text + R"(x"}]})");
    EXPECT_EQ(group("scenes")[1]["icon"].text(), "");
}

TEST_F(ConfigDocument, KeepsThreeNotificationsAndIgnoresMore)
{
    startReady();
    set(R"({"macros":[{"title":"Door","enabled_notifications":["a","b","c","d","e"]}]})");
    EXPECT_EQ(group("macros")[0]["enabled_notifications"].dump(), R"(["a","b","c"])");
    set(R"({"macros":[{"title":"Door","enabled_notifications":["z"]}]})");
    EXPECT_EQ(group("macros")[0]["enabled_notifications"].dump(), R"(["z","b","c"])")
        << "slots that a shorter array does not cover stay";
}

TEST_F(ConfigDocument, LeavesASlotEmptyForANotificationThatIsTooLong)
{
    startReady();
    set(R"({"macros":[{"title":"Door","enabled_notifications":[")" + std::string(127, 'x') +
        R"(","b"]}]})");
    EXPECT_EQ(group("macros")[0]["enabled_notifications"].dump(), R"(["","b"])");
}

TEST_F(ConfigDocument, AlwaysWritesNotificationsButTriggersAndSceneOnlyWhenThereAreAny)
{
    startReady(R"({"macros":[{"title":"Door"}]})");
    const Json macro = group("macros")[0];
    EXPECT_TRUE(macro["scene"].isNull());
    EXPECT_TRUE(macro["triggers"].isNull());
    EXPECT_EQ(macro["enabled_notifications"].dump(), "[]");
}

TEST_F(ConfigDocument, ReplacesAPrivateSceneByANameAndBack)
{
    startReady(R"({"macros":[{"title":"Door","scene":{"title":"Private","icon":"i"}}]})");
    set(R"({"macros":[{"title":"Door","scene":"Evening"}]})");
    EXPECT_EQ(group("macros")[0]["scene"].dump(), R"("Evening")");
    set(R"({"macros":[{"title":"Door","scene":{"title":"Other"}}]})");
    const Json scene = group("macros")[0]["scene"];
    EXPECT_EQ(scene["title"].text(), "Other");
    EXPECT_EQ(scene["icon"].text(), "") << "nothing of the first private scene came back";
    set(R"({"macros":[{"title":"Door","scene":{"icon":"j"}}]})");
    EXPECT_EQ(group("macros")[0]["scene"]["title"].text(), "Other")
        << "it is updated, not replaced";
}

TEST_F(ConfigDocument, ReadsASchedulesMacroAsNameOrObject)
{
    startReady();
    set(R"({"schedules":[{"title":"Night","macro":{"title":"Own","enabled":1}}]})");
    EXPECT_EQ(group("schedules")[0]["macro"]["title"].text(), "Own");
    EXPECT_EQ(callForText("jsongettitles", "macros"), "[]") << "it is the schedule's alone";
    set(R"({"schedules":[{"title":"Night","macro":"Door"}]})");
    EXPECT_EQ(group("schedules")[0]["macro"].dump(), R"("Door")") << "a name wins";
    EXPECT_TRUE(daemon.logged("schedule Night not found, add new schedule"));
}

TEST_F(ConfigDocument, TellsASirenTypeThatIsNoNumber)
{
    startReady();
    set(R"({"scenes":[{"title":"A","buildinSiren":{"siren_type":"loud"}}]})");
    EXPECT_TRUE(daemon.eventuallyLogged("siren_type is not an integer"));
}

TEST_F(ConfigDocument, KeepsTheLargestNumberOfScenesEverReceived)
{
    startReady();
    set(R"({"scenes":[{"title":"A"},{"title":"B"},{"title":"C"}]})");
    set(R"({"scenes":[{"title":"A"}]})");
    EXPECT_TRUE(daemon.eventuallyLogged("json_array_size 1"));
    EXPECT_GE(daemon.timesLogged("maximun json_array_size 3"), 2u);
}

TEST_F(ConfigDocument, KeepsALongTokenWhole)
{
    startReady();
    const std::string token(1000, 't');
    EXPECT_EQ(set(R"({"registeredDevices":[{"token":")" + token + R"(","email":"e"}]})"), 1);
    EXPECT_EQ(set(R"({"registeredDevices":[{"token":")" + token + R"(","email":"f"}]})"), 1);
    const Json devices = Json(callForText("jsongetall", ""))["registeredDevices"];
    ASSERT_EQ(devices.size(), 1u);
    EXPECT_EQ(devices[0]["token"].text(), token);
    EXPECT_EQ(devices[0]["email"].text(), "f");
}

TEST_F(ConfigDocument, CutsATokenThatDoesNotFit)
{
    startReady();
    set(R"({"registeredDevices":[{"token":")" + std::string(3000, 't') + R"("}]})");
    const Json devices = Json(callForText("jsongetall", ""))["registeredDevices"];
    ASSERT_EQ(devices.size(), 1u);
    EXPECT_EQ(devices[0]["token"].text(), std::string(1023, 't'));
}

TEST_F(ConfigDocument, ReplacesATargetName)
{
    startReady(R"({"targetNames":{"5_0_1":"Lamp"}})");
    EXPECT_EQ(set(R"({"targetNames":{"5_0_1":"Light","6_0_1":"Fan"}})"), 1);
    EXPECT_EQ(Json(callForText("jsongetall", ""))["targetNames"].dump(),
              R"({"5_0_1":"Light","6_0_1":"Fan"})");
}

TEST_F(ConfigDocument, KeepsNumbersOfSixtyFourBits)
{
    startReady();
    set(R"({"scenes":[{"title":"A","ID":-9223372036854775808,"comps":[
        {"target":{"dev":4294967296,"if":0,"ch":-1},"value":9223372036854775807}]}]})");
    const Json scene = group("scenes")[0];
    EXPECT_EQ(scene["ID"].integer(), INT64_MIN);
    EXPECT_EQ(scene["comps"][0]["value"].integer(), INT64_MAX);
    EXPECT_EQ(scene["comps"][0]["target"]["dev"].integer(), 4294967296);
}
