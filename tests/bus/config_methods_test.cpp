// Reading and changing the configuration over the bus: the methods, the write gate, what is saved
// and announced.

#include "support/daemon_on_its_own_bus.h"

using namespace support;
using testing::ElementsAre;

class ConfigMethods : public ConfigurableDaemon {
protected:
    Json all()
    {
        return Json(callForText("jsongetall", ""));
    }
};

TEST_F(ConfigMethods, SetsASceneAndAnswersOne)
{
    startReady();
    EXPECT_EQ(set(R"({"scenes":[{"title":"Evening","invisible":1,"ID":7,"icon_name":"moon",
        "icon":"m.png","comps":[{"target":{"dev":5,"if":1,"ch":2},"value":99}],
        "buildinSiren":{"siren_type":4}}]})"),
              1);
    EXPECT_EQ(
        callForText("jsongetgroup", "scenes"),
        R"([{"ID":7,"buildinSiren":{"siren_type":4},"comps":[{"target":{"ch":2,"dev":5,"if":1},)"
        R"("value":99}],"icon":"m.png","icon_name":"moon","invisible":1,"title":"Evening"}])");
}

TEST_F(ConfigMethods, SetsAMacroWithAPrivateScene)
{
    startReady();
    EXPECT_EQ(
        set(R"({"macros":[{"title":"Door","enabled":1,"invisible":1,"priority":3,"duration":20,
        "duration_type":2,"user_notification_message":"open","icon_name":"d",
        "enabled_notifications":["pns","email"],
        "scene":{"title":"Private","comps":[{"target":{"dev":5,"if":0,"ch":0},"value":255}]},
        "triggers":[{"target":{"dev":9,"if":0,"ch":1},"op":"=","field":"f","duration":4,
                     "threshold":255,"dataunit":1}]}]})"),
        1);
    EXPECT_EQ(
        callForText("jsongetgroup", "macros"),
        R"([{"duration":20,"duration_type":2,"enabled":1,"enabled_notifications":["pns","email"],)"
        R"("icon_name":"d","invisible":1,"priority":3,"scene":{"ID":0,"comps":[{"target":{"ch":0,)"
        R"("dev":5,"if":0},"value":255}],"icon":"","icon_name":"","invisible":0,"title":"Private"},)"
        R"("title":"Door","triggers":[{"dataunit":1,"duration":4,"field":"f","op":"=","target":)"
        R"({"ch":1,"dev":9,"if":0},"threshold":255}],"user_notification_message":"open"}])");
}

TEST_F(ConfigMethods, SetsAScheduleAndWritesEveryMember)
{
    startReady();
    set(R"({"schedules":[{"title":"Night","macro":"Door","icon":"i","icon_name":"n","enabled":1,
        "home_security_alarm":1,"repeat_type":2,"weekdays":127,"start_minute":1,"start_hour":2,
        "start_day":3,"start_month":4,"end_minute":5,"end_hour":6,"end_day":7,"end_month":8,
        "invisible":9}]})");
    EXPECT_EQ(callForText("jsongetgroup", "schedules"),
              R"([{"enabled":1,"end_day":7,"end_hour":6,"end_minute":5,"end_month":8,)"
              R"("home_security_alarm":1,"icon":"i","icon_name":"n","invisible":0,"macro":"Door",)"
              R"("repeat_type":2,"start_day":3,"start_hour":2,"start_minute":1,"start_month":4,)"
              R"("title":"Night","weekdays":127}])")
        << "a schedule's \"invisible\" is written but never read";
}

TEST_F(ConfigMethods, SetsARoomAndKeepsEachTargetOnce)
{
    startReady();
    const std::string room = R"({"rooms":[{"title":"Hall","icon_name":"h","icon":"i","camera":"c",
        "camera_password":"p","targets":[{"dev":5,"if":0,"ch":1},{"dev":5,"if":0,"ch":1}],
        "extra_camera":[{"camera":"second","camera_password":"q"}]}]})";
    EXPECT_EQ(set(room), 1);
    set(room);
    EXPECT_EQ(callForText("jsongetgroup", "rooms"),
              R"([{"camera":"c","camera_password":"p","extra_camera":[{"camera":"second",)"
              R"("camera_password":"q"}],"icon":"i","icon_name":"h","targets":[{"ch":1,"dev":5,)"
              R"("if":0}],"title":"Hall"}])");
}

TEST_F(ConfigMethods, SetsTheGroupsThatHaveNoReadMethodOfTheirOwn)
{
    startReady();
    EXPECT_EQ(set(R"({"targetNames":{"5_0_1":"Lamp"},
        "cameras":[{"uid":"c1","display":"Door","password":"s"}],
        "eventFilter":[{"uid":5},{"channel":3,"eventCode":4001}],
        "registeredDevices":[{"token":"t1","app_id":"a","email":"e","username":"u","password":"p",
            "gateway_name":"g","platform":"ios","update_ts":12,"disable_notifications":1,"ver":"9"}],
        "alarm":{"duration":10,"siren_type":2}})"),
              1);
    const Json config = all();
    EXPECT_EQ(config["targetNames"].dump(), R"({"5_0_1":"Lamp"})");
    EXPECT_EQ(config["cameras"].dump(), R"([{"display":"Door","password":"s","uid":"c1"}])");
    EXPECT_EQ(config["eventFilter"].dump(), R"([{"uid":5},{"channel":3,"eventCode":4001}])");
    EXPECT_EQ(
        config["registeredDevices"].dump(),
        R"([{"app_id":"a","disable_notifications":1,"email":"e","gateway_name":"g",)"
        R"("password":"p","platform":"ios","token":"t1","update_ts":12,"username":"u","ver":""}])");
    EXPECT_EQ(config["alarm"].dump(),
              R"({"duration":10,"enabled":0,"siren_type":2,"trigger_duration":3})");
}

TEST_F(ConfigMethods, KeepsTheAlarmsOtherMembersWhenSomeAreSet)
{
    startReady(R"({"alarm":{"duration":10,"siren_type":2}})");
    EXPECT_EQ(all()["alarm"].dump(),
              R"({"duration":10,"enabled":0,"siren_type":2,"trigger_duration":0})")
        << "the first alarm object starts from 0, not from the defaults";
    EXPECT_EQ(set(R"({"alarm":{"enabled":1}})"), 1);
    EXPECT_EQ(all()["alarm"].dump(),
              R"({"duration":10,"enabled":1,"siren_type":2,"trigger_duration":0})");
}

TEST_F(ConfigMethods, MergesIntoWhatIsThereAndRemovesNothing)
{
    startReady(R"({"scenes":[{"title":"Evening","icon":"a","comps":[
        {"target":{"dev":5,"if":0,"ch":0},"value":1},{"target":{"dev":6,"if":0,"ch":0},"value":2}]},
        {"title":"Morning"}]})");
    set(R"({"scenes":[{"title":"Evening","ID":3,"comps":[
        {"target":{"dev":6,"if":0,"ch":0},"value":20},{"target":{"dev":7,"if":0,"ch":0},"value":30}]}]})");
    const Json scenes = group("scenes");
    ASSERT_EQ(scenes.size(), 2u);
    EXPECT_EQ(scenes[0]["icon"].text(), "a");
    EXPECT_EQ(scenes[0]["ID"].integer(), 3);
    EXPECT_EQ(scenes[0]["comps"].dump(),
              R"([{"target":{"ch":0,"dev":5,"if":0},"value":1},{"target":{"ch":0,"dev":6,"if":0},)"
              R"("value":20},{"target":{"ch":0,"dev":7,"if":0},"value":30}])");
    EXPECT_EQ(callForText("jsongettitles", "scenes"), R"(["Evening","Morning"])");
}

TEST_F(ConfigMethods, LeavesAFieldWhoseMemberHasAnotherType)
{
    startReady(R"({"scenes":[{"title":"Evening","icon":"a","ID":3}]})");
    set(R"({"scenes":[{"title":"Evening","icon":5,"ID":"seven","invisible":1}]})");
    const Json scene = group("scenes")[0];
    EXPECT_EQ(scene["icon"].text(), "a");
    EXPECT_EQ(scene["ID"].integer(), 3);
    EXPECT_EQ(scene["invisible"].integer(), 1);
}

TEST_F(ConfigMethods, ListsTheTitlesOfEachGroupInTheOrderOfSetting)
{
    startReady();
    for (const char *word : {"scenes", "macros", "rooms", "schedules"}) {
        set(std::string("{\"") + word + R"(":[{"title":"b"},{"title":"a"}]})");
        EXPECT_EQ(callForText("jsongettitles", word), R"(["b","a"])") << word;
        const Json elements = group(word);
        ASSERT_EQ(elements.size(), 2u) << word;
        EXPECT_EQ(elements[0]["title"].text(), "b") << word;
    }
}

TEST_F(ConfigMethods, AnswersAnEmptyGroupWithAnEmptyArray)
{
    start();
    for (const char *member : {"jsongetgroup", "jsongettitles"}) {
        for (const char *word : {"macros", "scenes", "rooms", "schedules"})
            EXPECT_EQ(callForText(member, word), "[]") << member << " " << word;
    }
}

TEST_F(ConfigMethods, AnswersInAsciiAlone)
{
    startReady();
    set(R"({"scenes":[{"title":"Küche 外"}]})");
    EXPECT_EQ(callForText("jsongettitles", "scenes"), R"(["K\u00FCche \u5916"])");
}

TEST_F(ConfigMethods, NeverRepliesToAnUnknownGroupWord)
{
    start();
    for (const char *member : {"jsongetgroup", "jsongettitles"}) {
        for (const char *word : {"Macros", "scene", "", "macros ", "alarm", "cameras"})
            callWithoutReply(member, {word});
        EXPECT_EQ(daemon.timesLogged(std::string("DBUS request not handled, method: ") + member),
                  6u);
    }
}

TEST_F(ConfigMethods, GivesTheWholeConfigurationWhateverTheText)
{
    startReady(R"({"scenes":[{"title":"Evening"}]})");
    const std::string text = callForText("jsongetall", "");
    EXPECT_EQ(callForText("jsongetall", "scenes"), text);
    EXPECT_THAT(Json(text).keys(),
                ElementsAre("alarm", "cameras", "eventFilter", "macros", "registeredDevices",
                            "rooms", "scenes", "schedules", "targetNames"));
    EXPECT_EQ(Json(text).dump(), text) << "compact, ASCII, keys sorted";
}

TEST_F(ConfigMethods, AnnouncesTheWholeConfigurationAfterASet)
{
    startReady();
    sdk.forgetHeard();
    set(R"({"scenes":[{"title":"Evening"}]})");
    ASSERT_TRUE(eventually([&] { return sdk.events("jsongetall").size() == 1; }));
    const Heard announcement = sdk.events("jsongetall").at(0);
    EXPECT_EQ(announcement.path, "/com/OvrinTech/process/app/jsongetall");
    EXPECT_EQ(announcement.signature, "s");
    EXPECT_EQ(announcement.text, callForText("jsongetall", ""));
}

TEST_F(ConfigMethods, StoresTheConfigurationBeforeItAnswers)
{
    startReady();
    set(R"({"scenes":[{"title":"Evening"}]})");
    EXPECT_EQ(daemon.storedSetup(), callForText("jsongetall", ""));
    set(R"({"rooms":[{"title":"A much longer configuration than the one before"}]})");
    EXPECT_EQ(daemon.storedSetup(), callForText("jsongetall", ""));
}

TEST_F(ConfigMethods, SaysOfASetThatIsStoredThatItIsAndOfNoOther)
{
    startReady();
    EXPECT_EQ(set(R"({"scenes":[{"title":"Evening"}]})"), 1);
    EXPECT_EQ(daemon.timesLogged("2 word: "), 1u);
    const std::string log = daemon.log();
    const size_t line = log.rfind('\n', log.find("2 word: ")) + 1;
    EXPECT_EQ(log.substr(line, 22), "4 app_dbus_jsonSetAll:");
    EXPECT_EQ(set(R"({"scenes":[]})"), 0);
    EXPECT_EQ(set("no JSON"), 0);
    EXPECT_EQ(daemon.timesLogged("2 word: "), 1u);
    EXPECT_EQ(set(R"({"rooms":[{"title":"Hall"}]})"), 1);
    EXPECT_EQ(daemon.timesLogged("2 word: "), 2u);
}

TEST_F(ConfigMethods, RepliesOneToATitleThatIsTooLongHoweverOftenItIsSet)
{
    startReady();
    const std::string request = R"({"macros":[{"title":")" + std::string(127, 'x') + R"("}]})";
    EXPECT_EQ(set(request), 1);
    EXPECT_EQ(set(request), 1);
    EXPECT_EQ(callForText("jsongettitles", "macros"), R"(["",""])");
}

TEST_F(ConfigMethods, TakesTheTimeOfSavingAsTheConfigurationsOwn)
{
    startReady();
    const time_t before = time(nullptr);
    set(R"({"scenes":[{"title":"Evening"}]})");
    eventHandled(9, 5, 0);
    EXPECT_GE(Json(sdk.events("recent").back().text)["send.dat_ts"].integer(), before);
}

TEST_F(ConfigMethods, RefusesWritesSilentlyUntilTheGatewayIsReady)
{
    startWith(R"({"scenes":[{"title":"Evening"}]})");
    const std::string before = callForText("jsongetall", "");
    const std::string stored = daemon.data.read("appSetup.json").value_or("");
    callWithoutReply("jsonsetall", {R"({"scenes":[{"title":"Morning"}]})"});
    EXPECT_EQ(callForText("jsongetall", ""), before);
    EXPECT_EQ(daemon.data.read("appSetup.json"), stored);
    EXPECT_EQ(sdk.events("jsongetall").size(), 0u);
    EXPECT_FALSE(daemon.logged("DBUS request not handled, method: jsonsetall"));

    gatewayReady();
    EXPECT_EQ(set(R"({"scenes":[{"title":"Morning"}]})"), 1);
}

struct LockCase {
    const char *name;
    const char *value;
    bool open;
};

class ConfigMethodsLock : public DaemonOnItsOwnBus, public testing::WithParamInterface<LockCase> {};

TEST_P(ConfigMethodsLock, IsReadAtEveryWriteAsANumberWithoutItsFraction)
{
    start();
    gatewayReady();
    platform.set("enablelock", GetParam().value);
    const std::string document = R"({"scenes":[{"title":"Evening"}]})";
    if (GetParam().open) {
        EXPECT_EQ(callForNumber("jsonsetall", document), 1);
    } else {
        callWithoutReply("jsonsetall", {document});
    }
    EXPECT_EQ(callForText("jsongettitles", "scenes"), GetParam().open ? R"(["Evening"])" : "[]");
    EXPECT_EQ(daemon.storedSetup().empty(), !GetParam().open);
    EXPECT_EQ(platform.asked("enablelock"), 1u);

    platform.set("enablelock", "0");
    EXPECT_EQ(callForNumber("jsonsetall", document), 1);
    EXPECT_EQ(platform.asked("enablelock"), 2u);
}

INSTANTIATE_TEST_SUITE_P(
    Values, ConfigMethodsLock,
    testing::Values(LockCase{"One", "1", false}, LockCase{"OneAndABit", "1.9", false},
                    LockCase{"Zero", "0", true}, LockCase{"AlmostOne", "0.9", true},
                    LockCase{"Two", "2", true}, LockCase{"Text", "locked", true},
                    LockCase{"Empty", "", true}),
    caseName);

TEST_F(ConfigMethods, SurvivesALockThatCannotBeRead)
{
    startReady();
    platform.behave("enablelock", Answer::refusing());
    client.call(APP, "jsonsetall", {R"({"scenes":[{"title":"Evening"}]})"});
    listenerIsIdle();
    platform.leave();
    client.call(APP, "jsonsetall", {R"({"scenes":[{"title":"Evening"}]})"});
    listenerIsIdle();
}

struct RefusedDocument {
    const char *name;
    const char *text;
    const char *message;
};

class ConfigMethodsRefused : public DaemonOnItsOwnBus,
                             public testing::WithParamInterface<RefusedDocument> {};

TEST_P(ConfigMethodsRefused, IsAnsweredZeroAndChangesNothing)
{
    startWith(R"({"scenes":[{"title":"Evening"}],"eventFilter":[{"uid":5}]})");
    gatewayReady();
    const std::string before = callForText("jsongetall", "");
    const std::string stored = daemon.data.read("appSetup.json").value_or("");
    const size_t from = daemon.logSize();
    EXPECT_EQ(callForNumber("jsonsetall", GetParam().text), 0);
    EXPECT_EQ(callForText("jsongetall", ""), before);
    EXPECT_EQ(daemon.data.read("appSetup.json"), stored);
    EXPECT_TRUE(daemon.eventuallyLogged(GetParam().message, from));
}

INSTANTIATE_TEST_SUITE_P(
    Documents, ConfigMethodsRefused,
    testing::Values(
        RefusedDocument{"NoText", "", "error: on line 1:"},
        RefusedDocument{"NoJson", "scenes", "error: on line 1:"},
        RefusedDocument{"HalfAnObject", "{\n\"scenes\":[", "error: on line 2:"},
        RefusedDocument{"AnArray", R"([{"title":"Evening"}])", "error: root is not an object"},
        RefusedDocument{"NothingKnown", R"({"colour":"red"})", "rooms does not exist"},
        RefusedDocument{"WrongTypes", R"({"scenes":{"title":"x"},"targetNames":[1]})",
                        "targetNames does not exist"},
        RefusedDocument{"SceneIsANumber", R"({"scenes":[5]})",
                        "in setScenes,scenes 1 data is not an object"},
        RefusedDocument{"MacroIsANumber", R"({"macros":[5]})", "Macros 1 is not an object"},
        RefusedDocument{"ScheduleIsANumber", R"({"schedules":[5]})", "Macros 1 is not an object"},
        RefusedDocument{"RoomIsANumber", R"({"rooms":[5]})", "rooms 1 is not an object"},
        RefusedDocument{"RoomWithoutTitle", R"({"rooms":[{"icon":"x"}]})", "title_text is NULL"},
        RefusedDocument{"CameraIsANumber", R"({"cameras":[5]})", "cameras 1 is not an object"},
        RefusedDocument{"FilterIsANumber", R"({"eventFilter":[5]})", "filter 1 is not an object"},
        RefusedDocument{"PhoneIsANumber", R"({"registeredDevices":[5]})",
                        "pushData 1 is not an object"},
        RefusedDocument{"PhoneWithoutToken", R"({"registeredDevices":[{"email":"e"}]})",
                        "searchedPushDev is NULL !!!"},
        RefusedDocument{"NameIsANumber", R"({"targetNames":{"a":5}})", "value is not a string."}),
    caseName);

TEST_F(ConfigMethods, CountsAFilterThatIsThereAlreadyAsStored)
{
    startReady(R"({"eventFilter":[{"uid":5}]})");
    EXPECT_EQ(set(R"({"eventFilter":[{"uid":5}]})"), 1);
    EXPECT_EQ(Json(callForText("jsongetall", ""))["eventFilter"], Json(R"([{"uid":5}])"));
}

TEST_F(ConfigMethods, AnswersWithTheResultOfTheLastGroup)
{
    startReady();
    EXPECT_EQ(set(R"({"scenes":[{"title":"Evening"}],"eventFilter":[]})"), 0)
        << "the filters come last and held nothing";
    EXPECT_EQ(callForText("jsongettitles", "scenes"), R"(["Evening"])")
        << "the scene is there all the same";
    EXPECT_FALSE(Json(daemon.storedSetup())["scenes"].size()) << "but it is not saved";
}
