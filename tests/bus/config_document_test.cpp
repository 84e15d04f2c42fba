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

TEST_F(ConfigDocument, CreatesAScheduleAndACameraWithoutTheirKeys)
{
    startReady();
    EXPECT_EQ(set(R"({"schedules":[{"icon":"i"}],"cameras":[{"display":"d"},{"uid":5}]})"), 1);
    EXPECT_EQ(callForText("jsongettitles", "schedules"), R"([""])");
    EXPECT_TRUE(daemon.logged("schedule  not found, add new schedule\n"));
    EXPECT_EQ(Json(callForText("jsongetall", ""))["cameras"].dump(),
              R"([{"display":"d","password":"","uid":""},{"display":"","password":"","uid":""}])");
}

TEST_F(ConfigDocument, FindsAnElementWithAnEmptyTitleByIt)
{
    startReady(R"({"scenes":[{"ID":1},{"ID":2}]})");
    EXPECT_EQ(set(R"({"scenes":[{"title":"","ID":7}]})"), 1);
    EXPECT_EQ(group("scenes")[0]["ID"].integer(), 7);
    EXPECT_EQ(group("scenes")[1]["ID"].integer(), 2);
}

TEST_F(ConfigDocument, TellsTitlesApartByEveryByte)
{
    startReady();
    EXPECT_EQ(set(R"({"rooms":[{"title":"Hall"},{"title":"hall"},{"title":"Hall "},)"
                  R"({"title":"Hal"},{"title":"Hall","icon":"i"}]})"),
              1);
    EXPECT_EQ(callForText("jsongettitles", "rooms"), R"(["Hall","hall","Hall ","Hal"])");
}

TEST_F(ConfigDocument, SkipsAnExtraCameraWithoutAName)
{
    startReady();
    EXPECT_EQ(set(R"({"rooms":[{"title":"Hall","extra_camera":[{"camera_password":"p"},)"
                  R"({"camera":5},{"camera":"c","camera_password":"q"}]}]})"),
              1);
    EXPECT_EQ(group("rooms")[0]["extra_camera"].dump(),
              R"([{"camera":"c","camera_password":"q"}])");
}

TEST_F(ConfigDocument, LogsWhetherARoomHadItsTargetsAndCameras)
{
    startReady();
    const std::string room = R"({"rooms":[{"title":"Hall","targets":[{"dev":5}],
        "extra_camera":[{"camera":"c","camera_password":"p"}]}]})";
    set(room);
    EXPECT_TRUE(daemon.logged("extra_camera name not exist, it will be created.\n"));
    EXPECT_FALSE(daemon.logged("target exists.\n"));
    EXPECT_FALSE(daemon.logged("camera exists.\n"));
    set(room);
    EXPECT_EQ(daemon.timesLogged("extra_camera name not exist, it will be created.\n"), 1u);
    EXPECT_TRUE(daemon.logged("target exists.\n"));
    EXPECT_TRUE(daemon.logged("camera exists.\n"));
}

TEST_F(ConfigDocument, LeavesTheSlotOfANotificationThatIsNoText)
{
    startReady(R"({"macros":[{"title":"Door","enabled_notifications":["a","b","c"]}]})");
    set(R"({"macros":[{"title":"Door","enabled_notifications":["x",5,"z"]}]})");
    EXPECT_EQ(group("macros")[0]["enabled_notifications"].dump(), R"(["x","b","z"])");
    set(R"({"macros":[{"title":"Motion","enabled_notifications":[null,"b"]}]})");
    EXPECT_EQ(group("macros")[1]["enabled_notifications"].dump(), R"(["b"])");
    set(R"({"macros":[{"title":"Motion","enabled_notifications":["a"]}]})");
    EXPECT_EQ(group("macros")[1]["enabled_notifications"].dump(), R"(["a","b"])");
}

TEST_F(ConfigDocument, CountsAMemberOfAFilterThatIsNegativeOrNoNumberAsNotSet)
{
    startReady();
    EXPECT_EQ(set(R"({"eventFilter":[{"uid":"5","channel":3},{"uid":-9,"eventCode":7},)"
                  R"({"uid":1.0,"channel":true,"eventCode":8},{"uid":0,"channel":0}]})"),
              1);
    EXPECT_EQ(Json(callForText("jsongetall", ""))["eventFilter"].dump(),
              R"([{"channel":3},{"eventCode":7},{"eventCode":8},{"channel":0,"uid":0}])");
    restart();
    EXPECT_EQ(Json(callForText("jsongetall", ""))["eventFilter"].dump(),
              R"([{"channel":3},{"eventCode":7},{"eventCode":8},{"channel":0,"uid":0}])");
}

TEST_F(ConfigDocument, TakesTheLastOfAMemberGivenTwice)
{
    startReady();
    EXPECT_EQ(set(R"({"scenes":[{"title":"A"}],"scenes":[{"title":"B","title":"C","ID":1,"ID":2}],)"
                  R"("targetNames":{"5":"a","5":"b"}})"),
              1);
    EXPECT_EQ(callForText("jsongettitles", "scenes"), R"(["C"])");
    EXPECT_EQ(group("scenes")[0]["ID"].integer(), 2);
    EXPECT_EQ(Json(callForText("jsongetall", ""))["targetNames"].dump(), R"({"5":"b"})");
}

TEST_F(ConfigDocument, ShowsAMacrosNameBeforeTheSchedulesOwnUntilItIsEmpty)
{
    startReady(R"({"schedules":[{"title":"Night","macro":"Door"}]})");
    set(R"({"schedules":[{"title":"Night","macro":{"title":"First","enabled":1}}]})");
    EXPECT_EQ(group("schedules")[0]["macro"].dump(), R"("Door")") << "the name stays";
    set(R"({"schedules":[{"title":"Night","macro":{"title":"Second"}}]})");
    set(R"({"schedules":[{"title":"Night","macro":""}]})");
    EXPECT_EQ(group("schedules")[0]["macro"]["title"].text(), "First");
    set(R"({"schedules":[{"title":"Night","macro":{"title":"Second","enabled":2}}]})");
    EXPECT_EQ(group("schedules")[0]["macro"]["title"].text(), "First");
    EXPECT_EQ(group("schedules")[0]["macro"]["enabled"].integer(), 1);
    set(R"({"schedules":[{"title":"Night","macro":{"title":"First","enabled":3}}]})");
    EXPECT_EQ(group("schedules")[0]["macro"]["enabled"].integer(), 3);
}

TEST_F(ConfigDocument, TakesTheSceneFromAMacroWithAnEmptyName)
{
    startReady(R"({"macros":[{"title":"Door","scene":"Evening"},
        {"title":"Motion","scene":{"title":"Own"}}]})");
    set(R"({"macros":[{"title":"Door","scene":""},{"title":"Motion","scene":""}]})");
    EXPECT_TRUE(group("macros")[0]["scene"].isNull());
    EXPECT_TRUE(group("macros")[1]["scene"].isNull());
}

TEST_F(ConfigDocument, KeepsTheSirenThatARequestGivesNoTypeFor)
{
    startReady(R"({"scenes":[{"title":"A","buildinSiren":{"siren_type":4}}]})");
    for (const char *siren :
         {"{}", R"({"siren_type":"5"})", R"({"siren_type":5.0})", "5", "null"}) {
        set(std::string(R"({"scenes":[{"title":"A","buildinSiren":)") + siren + "}]}");
        EXPECT_EQ(group("scenes")[0]["buildinSiren"].dump(), R"({"siren_type":4})") << siren;
    }
    set(R"({"scenes":[{"title":"A","buildinSiren":{"siren_type":6}}]})");
    EXPECT_EQ(group("scenes")[0]["buildinSiren"].dump(), R"({"siren_type":6})");
}

TEST_F(ConfigDocument, CreatesNoSirenWithoutAType)
{
    startReady();
    EXPECT_EQ(set(R"({"scenes":[{"title":"A","buildinSiren":{}}]})"), 1);
    EXPECT_TRUE(group("scenes")[0]["buildinSiren"].isNull());
    EXPECT_TRUE(daemon.logged("siren_type is not an integer\n"));
}

TEST_F(ConfigDocument, StopsAtATargetNameThatIsNoText)
{
    startReady();
    EXPECT_EQ(set(R"({"targetNames":{"z":"first","m":5,"a":"last"}})"), 1);
    EXPECT_EQ(Json(callForText("jsongetall", ""))["targetNames"].dump(), R"({"z":"first"})");
    EXPECT_TRUE(daemon.logged("value is not a string."));
}

TEST_F(ConfigDocument, KeepsATargetNameThatARequestMakesTooLong)
{
    startReady(R"({"targetNames":{"5":"Lamp"}})");
    const std::string longText(127, 'x');
    EXPECT_EQ(set(R"({"targetNames":{"5":")" + longText + R"("}})"), 0);
    EXPECT_EQ(set(R"({"targetNames":{"6":")" + longText + R"("}})"), 1);
    EXPECT_EQ(set(R"({"targetNames":{")" + longText + R"(":"name"}})"), 1);
    EXPECT_EQ(Json(callForText("jsongetall", ""))["targetNames"].dump(),
              R"({"":"name","5":"Lamp","6":""})");
}

TEST_F(ConfigDocument, CreatesTheAlarmFromAnEmptyObjectAndThenHasNothingToStore)
{
    start();
    gatewayReady();
    EXPECT_EQ(set(R"({"alarm":{}})"), 1);
    EXPECT_EQ(Json(callForText("jsongetall", ""))["alarm"].dump(),
              R"({"duration":0,"enabled":0,"siren_type":0,"trigger_duration":0})");
    EXPECT_EQ(set(R"({"alarm":{}})"), 0);
    EXPECT_EQ(set(R"({"alarm":{"duration":"5","enabled":1.0,"siren_type":null}})"), 0);
    EXPECT_EQ(set(R"({"alarm":{"duration":0}})"), 1) << "stored, though it is the same";
}

TEST_F(ConfigDocument, AnswersOneForWhatIsThereAlready)
{
    const std::string configuration = R"({"scenes":[{"title":"Evening"}]})";
    startReady(configuration);
    const std::string before = callForText("jsongetall", "");
    for (const char *request :
         {R"({"targetNames":{"5":"Lamp"}})", R"({"cameras":[{"uid":"c"}]})",
          R"({"macros":[{"title":"Door"}]})", R"({"scenes":[{"title":"Evening"}]})",
          R"({"schedules":[{"title":"Week"}]})", R"({"rooms":[{"title":"Hall"}]})",
          R"({"eventFilter":[{"uid":5}]})", R"({"registeredDevices":[{"token":"t"}]})"}) {
        set(request);
        const std::string shown = callForText("jsongetall", "");
        EXPECT_EQ(set(request), 1) << request;
        EXPECT_EQ(callForText("jsongetall", ""), shown) << request;
    }
}

TEST_F(ConfigDocument, WritesWhatAsciiCannotShowAsEscapes)
{
    startReady();
    EXPECT_EQ(set(R"({"rooms":[{"title":"\"q\" \\ \/ \b\f\n\r\t \u0001\u007f é 外 😀"}]})"), 1);
    EXPECT_EQ(callForText("jsongettitles", "rooms"),
              "[\"\\\"q\\\" \\\\ / \\b\\f\\n\\r\\t \\u0001\x7f \\u00E9 \\u5916 \\uD83D\\uDE00\"]");
    restart();
    EXPECT_EQ(callForText("jsongettitles", "rooms"),
              "[\"\\\"q\\\" \\\\ / \\b\\f\\n\\r\\t \\u0001\x7f \\u00E9 \\u5916 \\uD83D\\uDE00\"]");
}

// As the daemon writes it: compact, sorted, in ASCII.
static constexpr const char *WHOLE =
    R"({"alarm":{"duration":30,"enabled":1,"siren_type":2,"trigger_duration":7},)"
    R"("cameras":[{"display":"Front \u00E9","password":"p","uid":"c1"}],)"
    R"("eventFilter":[{"uid":5},{"channel":3,"eventCode":4001}],)"
    R"("macros":[{"duration":60,"duration_type":1,"enabled":1,"enabled_notifications":["pns","sms"],)"
    R"("icon_name":"door","invisible":1,"priority":4,"scene":"Evening","title":"Door",)"
    R"("triggers":[{"dataunit":1,"duration":9,"field":"state","op":"=",)"
    R"("target":{"ch":1,"dev":9,"if":2},"threshold":255}],"user_notification_message":"open"},)"
    R"({"duration":0,"duration_type":0,"enabled":0,"enabled_notifications":[],"icon_name":"",)"
    R"("invisible":0,"priority":0,"scene":{"ID":7,"buildinSiren":{"siren_type":3},)"
    R"("comps":[{"target":{"ch":4,"dev":21,"if":1},"value":255}],"icon":"o","icon_name":"n",)"
    R"("invisible":1,"title":"Own"},"title":"Motion","user_notification_message":""}],)"
    R"("registeredDevices":[{"app_id":"a","disable_notifications":1,"email":"e",)"
    R"("gateway_name":"g","password":"p","platform":"ios","token":"t","update_ts":1700000000,)"
    R"("username":"u","ver":""}],)"
    R"("rooms":[{"camera":"c","camera_password":"p",)"
    R"("extra_camera":[{"camera":"d","camera_password":"q"}],"icon":"i","icon_name":"n",)"
    R"("targets":[{"ch":1,"dev":5,"if":2}],"title":"Hall"}],)"
    R"("scenes":[{"ID":1,"buildinSiren":{"siren_type":4},)"
    R"("comps":[{"target":{"ch":1,"dev":5,"if":2},"value":-99}],"icon":"i","icon_name":"n",)"
    R"("invisible":1,"title":"Evening"},)"
    R"({"ID":0,"comps":[],"icon":"","icon_name":"","invisible":0,"title":"Empty"}],)"
    R"("schedules":[{"enabled":1,"end_day":2,"end_hour":3,"end_minute":4,"end_month":5,)"
    R"("home_security_alarm":6,"icon":"i","icon_name":"n","invisible":0,"macro":"Door",)"
    R"("repeat_type":7,"start_day":8,"start_hour":9,"start_minute":10,"start_month":11,)"
    R"("title":"Week","weekdays":127}],"targetNames":{"5_2_1":"Lamp","6_2_1":"Fan"}})";

TEST_F(ConfigDocument, ShowsAndStoresAConfigurationAsItWasSet)
{
    startReady();
    EXPECT_EQ(set(WHOLE), 1);
    EXPECT_EQ(callForText("jsongetall", ""), WHOLE);
    EXPECT_EQ(daemon.storedSetup(), WHOLE);
    restart();
    EXPECT_EQ(callForText("jsongetall", ""), WHOLE);
    gatewayReady();
    EXPECT_EQ(set(WHOLE), 1);
    EXPECT_EQ(callForText("jsongetall", ""), WHOLE);
}

// ---- Requests of which a part is applied, or nothing

struct FaultyRequest {
    const char *name;
    const char *request;
    const char *message;
    int answer;
    const char *group;
    const char *shown;
};

class ConfigDocumentFaulty : public ConfigurableDaemon,
                             public testing::WithParamInterface<FaultyRequest> {};

TEST_P(ConfigDocumentFaulty, IsAppliedUpToItsFault)
{
    startReady(R"({"alarm":{"duration":1},"scenes":[{"title":"Evening","ID":1}]})");
    const size_t from = daemon.logSize();
    EXPECT_EQ(set(GetParam().request), GetParam().answer);
    EXPECT_TRUE(daemon.logged(GetParam().message, from)) << GetParam().message;
    EXPECT_EQ(Json(callForText("jsongetall", ""))[GetParam().group].dump(), GetParam().shown);
}

#define EVENING_1 R"({"ID":1,"comps":[],"icon":"","icon_name":"","invisible":0,"title":"Evening"})"

INSTANTIATE_TEST_SUITE_P(
    Requests, ConfigDocumentFaulty,
    testing::Values(
        FaultyRequest{"Comp", R"({"scenes":[{"title":"Evening","comps":[{"value":3},null]}]})",
                      "in setComps,comps 2 data is not an object\n", 1, "scenes",
                      R"([{"ID":1,"comps":[{"target":{"ch":0,"dev":0,"if":0},"value":3}],)"
                      R"("icon":"","icon_name":"","invisible":0,"title":"Evening"}])"},
        FaultyRequest{"Scene", R"({"scenes":[{"title":"Evening","ID":2},[],{"title":"B"}]})",
                      "in setScenes,scenes 2 data is not an object\n", 1, "scenes",
                      R"([{"ID":2,"comps":[],"icon":"","icon_name":"","invisible":0,)"
                      R"("title":"Evening"}])"},
        FaultyRequest{"Trigger",
                      R"({"macros":[{"title":"M","triggers":[{"target":{"dev":5}},1,)"
                      R"({"target":{"dev":5},"op":"="}]}]})",
                      "in setTrigger,triggers 2 data is not an object\n", 1, "macros",
                      R"([{"duration":0,"duration_type":0,"enabled":0,"enabled_notifications":[],)"
                      R"("icon_name":"","invisible":0,"priority":0,"title":"M",)"
                      R"("triggers":[{"dataunit":0,"duration":0,"field":"","op":"",)"
                      R"("target":{"ch":0,"dev":5,"if":0},"threshold":0}],)"
                      R"("user_notification_message":""}])"},
        FaultyRequest{"RoomTarget",
                      R"({"rooms":[{"title":"R","targets":[{"dev":5},"6",{"dev":7}]}]})",
                      "targets 2 is not an object\n", 1, "rooms",
                      R"([{"camera":"","camera_password":"","extra_camera":[],"icon":"",)"
                      R"("icon_name":"","targets":[{"ch":0,"dev":5,"if":0}],"title":"R"}])"},
        FaultyRequest{
            "ExtraCamera",
            R"({"rooms":[{"title":"R","extra_camera":[{"camera":"c"},6,{"camera":"d"}]}]})",
            "extraCamera 2 is not an object\n", 1, "rooms",
            R"([{"camera":"","camera_password":"",)"
            R"("extra_camera":[{"camera":"c","camera_password":""}],"icon":"",)"
            R"("icon_name":"","targets":[],"title":"R"}])"},
        FaultyRequest{"Camera", R"({"cameras":[{"uid":"c"},true,{"uid":"d"}]})",
                      "cameras 2 is not an object\n", 1, "cameras",
                      R"([{"display":"","password":"","uid":"c"}])"},
        FaultyRequest{"Filter", R"({"eventFilter":[{"uid":5},1.5,{"uid":6}]})",
                      "filter 2 is not an object\n", 1, "eventFilter", R"([{"uid":5}])"},
        FaultyRequest{"Phone", R"({"registeredDevices":[{"token":"t"},"u",{"token":"v"}]})",
                      "pushData 2 is not an object\n", 1, "registeredDevices",
                      R"([{"app_id":"","disable_notifications":0,"email":"","gateway_name":"",)"
                      R"("password":"","platform":"","token":"t","update_ts":0,"username":"",)"
                      R"("ver":""}])"},
        FaultyRequest{"PhoneWithoutTokenBetween",
                      R"({"registeredDevices":[{"email":"e"},{"token":"t"},{"token":5}]})",
                      "searchedPushDev is NULL !!!\n", 1, "registeredDevices",
                      R"([{"app_id":"","disable_notifications":0,"email":"","gateway_name":"",)"
                      R"("password":"","platform":"","token":"t","update_ts":0,"username":"",)"
                      R"("ver":""}])"},
        FaultyRequest{"RoomWithoutTitleBetween",
                      R"({"rooms":[{"title":"R"},{"icon":"i"},{"title":"S"}]})",
                      "title_text is NULL\n", 1, "rooms",
                      R"([{"camera":"","camera_password":"","extra_camera":[],"icon":"",)"
                      R"("icon_name":"","targets":[],"title":"R"},)"
                      R"({"camera":"","camera_password":"","extra_camera":[],"icon":"",)"
                      R"("icon_name":"","targets":[],"title":"S"}])"},
        FaultyRequest{"NumberTooLarge",
                      R"({"scenes":[{"title":"Evening","ID":9223372036854775808}]})",
                      "error: on line 1: ", 0, "scenes", "[" EVENING_1 "]"},
        FaultyRequest{"NumberTooSmall",
                      R"({"scenes":[{"title":"Evening","ID":-9223372036854775809}]})",
                      "error: on line 1: ", 0, "scenes", "[" EVENING_1 "]"},
        FaultyRequest{"RealThatIsWhole", R"({"scenes":[{"title":"Evening","ID":2.0}]})", "", 1,
                      "scenes", "[" EVENING_1 "]"},
        FaultyRequest{"NulInAText", R"({"scenes":[{"title":"Evening\u0000","ID":2}]})",
                      "error: on line 1: ", 0, "scenes", "[" EVENING_1 "]"},
        FaultyRequest{"HalfAPairOfSurrogates", R"({"scenes":[{"title":"\ud83d","ID":2}]})",
                      "error: on line 1: ", 0, "scenes", "[" EVENING_1 "]"},
        FaultyRequest{"MoreThanOneDocument", R"({"scenes":[{"title":"Evening","ID":2}]} {})",
                      "error: on line 1: ", 0, "scenes", "[" EVENING_1 "]"},
        FaultyRequest{"FaultInTheLastGroup",
                      "{\"scenes\":[{\"title\":\"Evening\",\"ID\":2}],\n\n\"x\":nul}",
                      "error: on line 3: ", 0, "scenes", "[" EVENING_1 "]"}),
    caseName);
