// Pushes as the phones see them: which programs the daemon runs, with which words, and what of it
// it logs and announces.

#include "support/daemon_on_its_own_bus.h"
#include "support/push_helpers.h"
#include "support/wall_clock.h"

#include <algorithm>
#include <csignal>

using namespace support;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

static constexpr const char *PUSH_MESSAGES = "com.OvrinTech.message.pushMsg";
static constexpr const char *UUID = "ABCDEFGHIJKLMNOPQRST";
static constexpr uint16_t REPORT = 5001;
static constexpr uint16_t TAMPER = 4001;
static constexpr uint16_t LOW_BATTERY = 4002;
static constexpr uint16_t LOGGED_ONLY = 9999;
static constexpr uint16_t PUSH_SENT = 5032;

// The phone most tests push to, as a member of the configuration.
static const std::string ONE_PHONE =
    R"("registeredDevices":[{"token":"T","platform":"ios","app_id":"A"}])";

static std::string quoted(const std::string &text)
{
    json_t *value = json_stringn(text.data(), text.size());
    char *dumped = json_dumps(value, JSON_ENCODE_ANY);
    const std::string result = dumped ? dumped : "";
    free(dumped);
    json_decref(value);
    return result;
}

class Pushes : public ConfigurableDaemon {
protected:
    void SetUp() override
    {
        ConfigurableDaemon::SetUp();
        platform.set("TUTK_UUID", UUID);
        sdk.set({.uid = 5, .channels = {{.chid = 1, .functype = DOOR, .name = "Door sensor"}}});
        sdk.set({.uid = 20, .channels = {{.chid = 0, .functype = SWITCH, .name = "Light"}}});
    }
    void TearDown() override
    {
        helpers.release();  // or the daemon's output stays open
        ConfigurableDaemon::TearDown();
    }
    // The daemon finds the helpers, and no other program, by their names.
    void startHome(const std::string &setup, const std::vector<std::string> &more = {})
    {
        std::vector<std::string> settings = helpers.settings();
        settings.insert(settings.end(), more.begin(), more.end());
        startWith(setup, settings);
    }
    void startWithPhones(const std::string &phones)
    {
        startHome(R"({"registeredDevices":[)" + phones + "]}");
    }
    std::string push(const std::string &text)
    {
        return callForText("message", text, PUSH_MESSAGES);
    }
    bool eventuallyRun(size_t number)
    {
        return eventually([&] { return helpers.count() >= number; });
    }
    // What the first phone of the home has been shown, all of it: commands run in their order, so
    // what was to come before this last one has come.
    std::vector<std::string> shown()
    {
        const std::string marker = "that is all " + std::to_string(++markers);
        EXPECT_EQ(push(marker), "done");
        std::vector<std::string> texts;
        EXPECT_TRUE(eventually([&] {
            texts = helpers.texts();
            return !texts.empty() && texts.back() == marker;
        })) << "the last push was not run";
        std::erase_if(texts,
                      [](const std::string &text) { return text.rfind("that is all ", 0) == 0; });
        return texts;
    }
    // Returns when the event has been done with, its push queued.
    void eventDone(uint16_t code, uint16_t gid, uint16_t channel)
    {
        event(code, gid, channel);
        eventHandled(LOGGED_ONLY, gid, channel);
    }
    // The records of deliveries as they were announced, in order.
    std::vector<Json> deliveries() const
    {
        std::vector<Json> result;
        for (const Json &record : recent()) {
            if (record["eventCode"].integer() == PUSH_SENT)
                result.push_back(record);
        }
        return result;
    }

    PushHelpers helpers;
    int markers = 0;
};

TEST_F(Pushes, ReachAnIosPhoneWithTheGatewaysIdentity)
{
    startWithPhones(R"({"token":"T1","platform":"ios","app_id":"com.example.home"})");
    EXPECT_EQ(push("Door was triggered"), "done");
    ASSERT_TRUE(eventuallyRun(1));
    EXPECT_THAT(helpers.commands(), ElementsAre(ElementsAre("ios_push", "com.example.home", "T1",
                                                            UUID, "Door was triggered")));
    EXPECT_TRUE(daemon.eventuallyLogged("********* push message ios_push \"com.example.home\" T1 "
                                        "ABCDEFGHIJKLMNOPQRST \"Door was triggered\"\n"));
    EXPECT_TRUE(daemon.logged("word: Door was triggered\n"));
}

TEST_F(Pushes, ReachAnAndroidPhoneWithoutIt)
{
    startWithPhones(R"({"token":"T1","platform":"android","app_id":"com.example.home"})");
    EXPECT_EQ(push("Door was triggered"), "done");
    ASSERT_TRUE(eventuallyRun(1));
    EXPECT_THAT(helpers.commands(), ElementsAre(ElementsAre("gcm_push", "com.example.home", "T1",
                                                            "Door was triggered")));
    EXPECT_TRUE(daemon.eventuallyLogged(
        "********* push message gcm_push \"com.example.home\" T1 \"Door was triggered\"\n"));
}

TEST_F(Pushes, ReachThePhonesInTheOrderOfTheirRegistration)
{
    startWithPhones(R"({"token":"1","platform":"android"},{"token":"2","platform":"ios"},
        {"token":"3","platform":"android"},{"token":"4","platform":"ios"})");
    gatewayReady();
    ASSERT_EQ(set(R"({"registeredDevices":[{"token":"0","platform":"android"},
        {"token":"3","platform":"ios"}]})"),
              1);
    push("text");
    ASSERT_TRUE(eventuallyRun(5));
    EXPECT_THAT(helpers.commands(), ElementsAre(ElementsAre("gcm_push", "", "1", "text"),
                                                ElementsAre("ios_push", "", "2", UUID, "text"),
                                                ElementsAre("ios_push", "", "3", UUID, "text"),
                                                ElementsAre("ios_push", "", "4", UUID, "text"),
                                                ElementsAre("gcm_push", "", "0", "text")));
}

TEST_F(Pushes, CarryTheGatewaysNameWhereItHasOne)
{
    startWithPhones(R"({"token":"1","platform":"ios","gateway_name":"Home"},
        {"token":"2","platform":"ios","gateway_name":""},{"token":"3","platform":"android",
        "gateway_name":"家"})");
    push("Door was triggered");
    ASSERT_TRUE(eventuallyRun(3));
    EXPECT_THAT(helpers.texts(), ElementsAre("Home => Door was triggered", "Door was triggered",
                                             "家 => Door was triggered"));
}

TEST_F(Pushes, OfAnEmptyMessageAreShownAllTheSame)
{
    startWithPhones(R"({"token":"1","platform":"ios","gateway_name":"Home"},
        {"token":"2","platform":"ios"})");
    EXPECT_EQ(push(""), "done");
    ASSERT_TRUE(eventuallyRun(2));
    EXPECT_THAT(helpers.commands(), ElementsAre(ElementsAre("ios_push", "", "1", UUID, "Home => "),
                                                ElementsAre("ios_push", "", "2", UUID, "")));
}

TEST_F(Pushes, GoToNobodyWhenNoPhoneIsRegistered)
{
    startHome("{}");
    EXPECT_EQ(push("unheard"), "done") << "nobody to tell is no failure";
    gatewayReady();
    ASSERT_EQ(set("{" + ONE_PHONE + "}"), 1);
    EXPECT_THAT(shown(), IsEmpty());
}

struct PhoneCase {
    const char *name;
    const char *members;  // of the phone, besides its platform
    bool wants;
};

class PushPhone : public Pushes, public testing::WithParamInterface<PhoneCase> {};

TEST_P(PushPhone, GetsItUnlessItHasNoTokenOrWantsNone)
{
    startWithPhones(
        R"({"token":"first","platform":"ios"},{"platform":"ios","email":"x@example.org",)" +
        std::string(GetParam().members) + "}");
    push("text");
    ASSERT_TRUE(eventuallyRun(1));
    push("marker");
    ASSERT_TRUE(eventually([&] { return helpers.texts().back() == "marker"; }));
    const std::vector<std::string> texts = helpers.texts();
    EXPECT_EQ(std::count(texts.begin(), texts.end(), "text"), GetParam().wants ? 2 : 1);
    EXPECT_EQ(deliveries().size(), GetParam().wants ? 2u : 0u);
}

INSTANTIATE_TEST_SUITE_P(
    Settings, PushPhone,
    testing::Values(PhoneCase{"Plain", R"("token":"T")", true},
                    PhoneCase{"EmptyToken", R"("token":"")", false},
                    PhoneCase{"Disabled0", R"("token":"T","disable_notifications":0)", true},
                    PhoneCase{"Disabled1", R"("token":"T","disable_notifications":1)", false},
                    PhoneCase{"Disabled2", R"("token":"T","disable_notifications":2)", true},
                    PhoneCase{"DisabledMinus1", R"("token":"T","disable_notifications":-1)", true}),
    caseName);

TEST_F(Pushes, StopForAPhoneThatIsDeleted)
{
    startWithPhones(R"({"token":"1","platform":"ios"},{"token":"2","platform":"ios"})");
    gatewayReady();
    ASSERT_EQ(callForNumber("jsondel", R"({"registeredDevices":[{"token":"1"}]})"), 1);
    EXPECT_THAT(shown(), IsEmpty());
    EXPECT_EQ(helpers.count(), 1u);
    EXPECT_EQ(helpers.runs().at(0).arguments.at(1), "2");
}

struct PlatformCase {
    const char *name;
    const char *platform;
};

class PushPlatform : public Pushes, public testing::WithParamInterface<PlatformCase> {};

TEST_P(PushPlatform, OfAnotherKindGetsNoCommandButIsLogged)
{
    startWithPhones(R"({"token":"X","platform":)" + std::string(GetParam().platform) +
                    R"(,"email":"x@example.org"},{"token":"T","platform":"ios"})");
    push("text");
    EXPECT_THAT(shown(), ElementsAre("text"));
    const std::vector<Json> logged = deliveries();
    ASSERT_EQ(logged.size(), 2u) << "of the text and of the marker";
    EXPECT_EQ(logged[0]["payload"].dump(),
              R"({"email":"x@example.org","msg":"text","uuid":)" + quoted(UUID) + "}");
}

INSTANTIATE_TEST_SUITE_P(Platforms, PushPlatform,
                         testing::Values(PlatformCase{"None", R"("")"},
                                         PlatformCase{"Unknown", R"("fridge")"},
                                         PlatformCase{"CapitalIos", R"("iOS")"},
                                         PlatformCase{"IosAndMore", R"("ios ")"}),
                         caseName);

TEST_F(Pushes, AreLoggedAsEventsAndAnnounced)
{
    startWithPhones(
        R"({"token":"T","platform":"ios","email":"a@example.org","gateway_name":"Home"})");
    const time_t before = time(nullptr);
    push("Door was triggered");
    ASSERT_TRUE(eventually([&] { return deliveries().size() == 1; }));
    const Json record = deliveries()[0];
    EXPECT_THAT(record.keys(), ElementsAre("Scene_schedule_time", "eventCode", "payload",
                                           "sequence", "timeStamp", "timeStamp_ms"));
    EXPECT_EQ(record["payload"].dump(),
              R"({"email":"a@example.org","msg":"Home => Door was triggered",)"
              R"("uuid":"ABCDEFGHIJKLMNOPQRST"})");
    EXPECT_EQ(record["sequence"].integer(), 1);
    EXPECT_GE(record["timeStamp"].integer(), before);

    const Json journal = Json(callForText("jsongeteventbyseq", "1"))["eventLog"];
    ASSERT_EQ(journal.size(), 1u);
    EXPECT_EQ(journal[0], record) << "it can be read back";
}

TEST_F(Pushes, AreAnnouncedOnceForEachPhoneWithAnAddress)
{
    startWithPhones(R"({"token":"1","platform":"ios","email":"a@example.org"},
        {"token":"2","platform":"ios"},{"token":"3","platform":"android","email":"c@example.org"})");
    push("text");
    ASSERT_TRUE(eventuallyRun(3));
    std::vector<std::string> addresses;
    for (const Json &record : deliveries())
        addresses.push_back(record["payload"]["email"].text());
    EXPECT_THAT(addresses, ElementsAre("a@example.org", "c@example.org"));
    EXPECT_EQ(sdk.events("recent").size(), 2u);
}

TEST_F(Pushes, AreAnnouncedWithAsManyRecordsAsAreAskedFor)
{
    startWithPhones(R"({"token":"1","platform":"ios","email":"a@example.org"})");
    const auto reply = client.call(APP, "setRecentEventLogNum", {uint32_t{2}});
    ASSERT_TRUE(eventually([&] { return reply->arrived(); }));
    push("first");
    push("second");
    ASSERT_TRUE(eventually([&] { return sdk.events("recent").size() == 2; }));
    const Json records = Json(sdk.events("recent")[1].text)["eventLog"];
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0]["payload"]["msg"].text(), "second");
    EXPECT_EQ(records[1]["payload"]["msg"].text(), "first");
}

TEST_F(Pushes, AreAnnouncedWhateverTheFilters)
{
    startHome(R"({"eventFilter":[{"uid":256},{"eventCode":5032}],"registeredDevices":[
        {"token":"1","platform":"ios","email":"a@example.org"}]})");
    push("text");
    EXPECT_TRUE(eventually([&] { return deliveries().size() == 1; }));
}

TEST_F(Pushes, FailWithoutTheGatewaysIdentity)
{
    platform.set("TUTK_UUID", "");
    startWithPhones(R"({"token":"1","platform":"ios","email":"a@example.org"})");
    EXPECT_EQ(push("text"), "fail");
    EXPECT_TRUE(daemon.logged("strlen(uuid) == 0\n"));
    listenerIsIdle();
    EXPECT_EQ(deliveries().size(), 0u);
    EXPECT_EQ(helpers.count(), 0u);
}

TEST_F(Pushes, AnswerNothingToAWrongArgument)
{
    startHome("{" + ONE_PHONE + "}");
    callWithoutReply("message", {5}, PUSH_MESSAGES);
    callWithoutReply("message", {}, PUSH_MESSAGES);
    EXPECT_THAT(shown(), IsEmpty());
}

TEST_F(Pushes, OfASlowHelperKeepNobodyWaiting)
{
    startHome("{" + ONE_PHONE + "}");
    helpers.hold();
    EXPECT_EQ(push("first"), "done");
    ASSERT_TRUE(eventuallyRun(1));
    for (const char *text : {"second", "third", "fourth"})
        EXPECT_EQ(push(text), "done");
    eventHandled(REPORT, 5, 1);
    EXPECT_EQ(helpers.count(), 1u) << "one at a time";
    helpers.release();
    ASSERT_TRUE(eventuallyRun(4));
    EXPECT_THAT(helpers.texts(), ElementsAre("first", "second", "third", "fourth"));
    EXPECT_THAT(helpers.runs(), Each(testing::Field(&HelperRun::alone, true)));
}

TEST_F(Pushes, GoOnAfterAHelperThatFails)
{
    startHome("{" + ONE_PHONE + "}");
    helpers.fail();
    push("first");
    push("second");
    EXPECT_THAT(shown(), ElementsAre("first", "second")) << "each once: nothing is tried again";
}

TEST_F(Pushes, GoOnAfterAHelperThatIsMissing)
{
    startWithPhones(R"({"token":"1","platform":"android"},{"token":"2","platform":"ios"})");
    helpers.remove("gcm_push");
    push("text");
    EXPECT_THAT(shown(), ElementsAre("text"));
    EXPECT_TRUE(daemon.logged("********* push message gcm_push"));
}

TEST_F(Pushes, GoOnAfterAHelperThatIsKilled)
{
    startHome("{" + ONE_PHONE + "}");
    helpers.hold();
    push("first");
    push("second");
    ASSERT_TRUE(eventuallyRun(1));
    kill(helpers.runs().at(0).pid, SIGKILL);
    ASSERT_TRUE(eventuallyRun(2));
    helpers.release();
    EXPECT_THAT(shown(), ElementsAre("first", "second"));
}

TEST_F(Pushes, StartAgainAfterAPause)
{
    startHome("{" + ONE_PHONE + "}");
    for (const char *text : {"1", "2", "3", "4", "5"}) {
        push(text);
        ASSERT_TRUE(daemon.eventuallyLogged(std::string(UUID) + " \"" + text + "\"\n"));
    }
    EXPECT_THAT(helpers.texts(), ElementsAre("1", "2", "3", "4", "5"));
}

TEST_F(Pushes, ThatWaitDoNotKeepTheDaemonFromEnding)
{
    startHome("{" + ONE_PHONE + "}");
    helpers.hold();
    push("first");
    push("second");
    ASSERT_TRUE(eventuallyRun(1));
    daemon.signal(SIGTERM);
    EXPECT_TRUE(eventually([&] { return !daemon.running(); }));
    helpers.release();  // it has the daemon's output open
    daemon.expectEnd(0);
    endsOrderly = false;
    EXPECT_THAT(helpers.texts(), ElementsAre("first"));
}

// Tamper

class TamperPush : public Pushes {
protected:
    static Device sensor(int64_t uid, const Channel &channel)
    {
        return {.uid = uid, .channels = {channel}};
    }
    void SetUp() override
    {
        Pushes::SetUp();
        sdk.set(sensor(5, {.chid = 1, .functype = DOOR, .tampernotify = 0, .name = "Front door"}));
    }
    static std::string hall(const std::string &targets)
    {
        return R"("rooms":[{"title":"Hall","targets":[)" + targets + "]}]";
    }
};

TEST_F(TamperPush, SaysWhatWasTamperedWith)
{
    startHome("{" + ONE_PHONE + "}");
    eventDone(TAMPER, 5, 1);
    EXPECT_THAT(shown(), ElementsAre("Front door  tamper trigger !!"));
}

TEST_F(TamperPush, SaysWhere)
{
    startHome("{" + ONE_PHONE + "," + hall(R"({"dev":5,"if":0,"ch":1})") + "}");
    eventDone(TAMPER, 5, 1);
    EXPECT_THAT(shown(), ElementsAre("Front door in Hall tamper trigger !!"));
}

TEST_F(TamperPush, IsJapaneseWhenTheLanguageIs)
{
    platform.set("language", "2");
    startHome("{" + ONE_PHONE + "}");
    eventDone(TAMPER, 5, 1);
    gatewayReady();
    ASSERT_EQ(set("{" + hall(R"({"dev":5,"if":0,"ch":1})") + "}"), 1);
    eventDone(TAMPER, 5, 1);
    platform.set("language", "3");
    eventDone(TAMPER, 5, 1);
    EXPECT_THAT(shown(),
                ElementsAre("Front door  取り外し感知 !!", "Front door in Hall 取り外し感知 !!",
                            "Front door in Hall tamper trigger !!"));
}

TEST_F(TamperPush, TakesTheChannelsNameNotTheUsers)
{
    startHome("{" + ONE_PHONE + R"(,"targetNames":{"5.0.1":"Mine"}})");
    eventDone(TAMPER, 5, 1);
    EXPECT_THAT(shown(), ElementsAre("Front door  tamper trigger !!"));
}

TEST_F(TamperPush, IsWantedWhereTheValueIsZeroOnly)
{
    startHome("{" + ONE_PHONE + "}");
    for (const int64_t value : {1, 2, -1}) {
        sdk.set(sensor(5, {.chid = 1, .functype = DOOR, .tampernotify = value}));
        eventDone(TAMPER, 5, 1);
    }
    EXPECT_THAT(shown(), IsEmpty());
}

TEST_F(TamperPush, IsSentEachTime)
{
    startHome("{" + ONE_PHONE + "}");
    eventDone(TAMPER, 5, 1);
    eventDone(TAMPER, 5, 1);
    EXPECT_EQ(shown().size(), 2u);
}

TEST_F(TamperPush, IsSentOfAnEventThatIsFiltered)
{
    startHome("{" + ONE_PHONE + R"(,"eventFilter":[{"uid":-1,"channel":-1,"eventCode":4001}]})");
    eventDone(TAMPER, 5, 1);
    EXPECT_EQ(announced(TAMPER, 5), 0u);
    EXPECT_THAT(shown(), ElementsAre("Front door  tamper trigger !!"));
}

TEST_F(TamperPush, IsNotSentOfWhatIsNotKnown)
{
    startHome("{" + ONE_PHONE + "}");
    eventDone(TAMPER, 5, 9);
    EXPECT_TRUE(daemon.logged("triggeredChannel is NULL\n"));
    eventDone(TAMPER, 77, 1);
    EXPECT_TRUE(daemon.logged("triggeredDev is NULL\n"));
    EXPECT_THAT(shown(), IsEmpty());
    EXPECT_EQ(announced(TAMPER, 5), 1u) << "but it is logged";
    EXPECT_EQ(announced(TAMPER, 77), 1u);
}

TEST_F(TamperPush, IsSentOfThatCodeOnly)
{
    startHome("{" + ONE_PHONE + "}");
    for (const uint16_t code : {4000, 4003, 5001, 5002, 100})
        eventDone(code, 5, 1);
    EXPECT_THAT(shown(), IsEmpty());
}

// An alarm asks for all devices when it begins.
TEST_F(TamperPush, EndsItsEvent)
{
    const std::string armed = R"("alarm":{"enabled":1,"trigger_duration":3600})";
    sdk.set(sensor(6, {.chid = 0, .functype = MOTION, .tampernotify = 0}));
    sdk.set(device(30, 0, SIREN));
    startHome("{" + ONE_PHONE + "," + armed + "}");
    sdk.forgetHeard();
    eventDone(TAMPER, 6, 0);
    EXPECT_EQ(sdk.asked("getdevice", 256), 0u) << "home security has not seen it";
    sdk.set(sensor(6, {.chid = 0, .functype = MOTION, .tampernotify = 1}));
    eventDone(TAMPER, 6, 0);
    EXPECT_EQ(sdk.asked("getdevice", 256), 1u) << "nothing was pushed: it goes on";
}

struct ProductCase {
    const char *name;
    const char *code;
    std::vector<int64_t> roomChannels;  // the device's channels that are in the room
    bool inRoom;                        // of an event of channel 1
};

class TamperProduct : public TamperPush, public testing::WithParamInterface<ProductCase> {};

TEST_P(TamperProduct, IsInTheRoomOfItsTamperChannel)
{
    sdk.set({.uid = 5,
             .channels = {{.chid = 1, .functype = DOOR, .tampernotify = 0, .name = "Front door"}},
             .code = GetParam().code});
    std::string targets;
    for (const int64_t channel : GetParam().roomChannels)
        targets += (targets.empty() ? "" : ",") + std::string(R"({"dev":5,"if":0,"ch":)") +
                   std::to_string(channel) + "}";
    startHome("{" + ONE_PHONE + "," + hall(targets) + "}");
    eventDone(TAMPER, 5, 1);
    EXPECT_THAT(shown(), ElementsAre(GetParam().inRoom ? "Front door in Hall tamper trigger !!"
                                                       : "Front door  tamper trigger !!"));
}

INSTANTIATE_TEST_SUITE_P(Codes, TamperProduct,
                         testing::Values(ProductCase{"20D14", "0101020D", {14}, true},
                                         ProductCase{"20DOthers", "0101020D", {1, 13}, false},
                                         ProductCase{"224At14", "01010224", {14}, true},
                                         ProductCase{"224Others", "01010224", {1, 13}, false},
                                         ProductCase{"20E13", "0101020E", {13}, true},
                                         ProductCase{"20EOthers", "0101020E", {1, 14}, false},
                                         ProductCase{"225At13", "01010225", {13}, true},
                                         ProductCase{"225Others", "01010225", {1, 14}, false},
                                         ProductCase{"20C13", "0101020C", {13}, true},
                                         ProductCase{"20C14", "0101020C", {14}, true},
                                         ProductCase{"20COthers", "0101020C", {1, 15}, false},
                                         ProductCase{"223At13", "01010223", {13}, true},
                                         ProductCase{"223At14", "01010223", {14}, true},
                                         ProductCase{"223Others", "01010223", {1, 15}, false},
                                         ProductCase{"OtherProduct", "0101020F", {1}, true},
                                         ProductCase{
                                             "OtherProductOthers", "0101020F", {13, 14}, false},
                                         ProductCase{"NoProduct", "none", {1}, true},
                                         ProductCase{"SmallLetters", "0101020d", {14}, true}),
                         caseName);

TEST_F(TamperPush, PrefersChannel13WhereBothAreInRooms)
{
    sdk.set({.uid = 5,
             .channels = {{.chid = 1, .functype = DOOR, .tampernotify = 0, .name = "Front door"}},
             .code = "0101020C"});
    startHome("{" + ONE_PHONE +
              R"(,"rooms":[{"title":"Fourteen","targets":[{"dev":5,"if":0,"ch":14}]},
        {"title":"Thirteen","targets":[{"dev":5,"if":0,"ch":13}]}]})");
    eventDone(TAMPER, 5, 1);
    EXPECT_THAT(shown(), ElementsAre("Front door in Thirteen tamper trigger !!"));
}

// Low battery

class LowBatteryPush : public Pushes {
protected:
    void SetUp() override
    {
        Pushes::SetUp();
        // Pushes hang on the hour in the home's own time zone.
        for (const uint16_t uid : {5, 6})
            sdk.set({.uid = uid,
                     .channels = {{.chid = 1,
                                   .functype = DOOR,
                                   .lowbattnotify = 0,
                                   .name = uid == 5 ? "Front door" : "Window"}}});
        clock.set(2024, 5, 14, 12, 0);
    }
    void startAtHome(const std::string &more = "")
    {
        startHome("{" + ONE_PHONE + more + "}", clock.settings());
    }
    void lowBatteryAt(int day, int hour, int minute, uint16_t uid = 5)
    {
        eventAt(day, hour, minute, LOW_BATTERY, uid);
    }
    void eventAt(int day, int hour, int minute, uint16_t code, uint16_t uid = 5)
    {
        clock.set(2024, 5, day, hour, minute);
        eventDone(code, uid, 1);
    }

    WallClock clock;
};

TEST_F(LowBatteryPush, SaysWhoseBatteryIsLow)
{
    startAtHome();
    lowBatteryAt(14, 12, 0);
    EXPECT_THAT(shown(), ElementsAre("Front door  low battery !!"));
}

TEST_F(LowBatteryPush, SaysWhere)
{
    startAtHome(R"(,"rooms":[{"title":"Cellar","targets":[{"dev":5,"if":0,"ch":2}]},
        {"title":"Hall","targets":[{"dev":5,"if":0,"ch":1}]}])");
    lowBatteryAt(14, 12, 0);
    EXPECT_THAT(shown(), ElementsAre("Front door in Hall low battery  !!"));
}

TEST_F(LowBatteryPush, IsEnglishInJapanToo)
{
    platform.set("language", "2");
    startAtHome();
    platform.forgetRequests();
    lowBatteryAt(14, 12, 0);
    EXPECT_THAT(shown(), ElementsAre("Front door  low battery !!"));
    EXPECT_EQ(platform.asked("language"), 0u);
}

struct HourCase {
    int code;  // hour and minute, as 759
    bool pushed;
};

class LowBatteryHour : public LowBatteryPush, public testing::WithParamInterface<HourCase> {};

TEST_P(LowBatteryHour, IsOneInWhichPeopleAreAwake)
{
    startAtHome();
    lowBatteryAt(14, GetParam().code / 100, GetParam().code % 100);
    EXPECT_EQ(shown().size(), GetParam().pushed ? 1u : 0u);
}

INSTANTIATE_TEST_SUITE_P(Times, LowBatteryHour,
                         testing::Values(HourCase{0, false}, HourCase{759, false},
                                         HourCase{800, true}, HourCase{1259, true},
                                         HourCase{2200, true}, HourCase{2259, true},
                                         HourCase{2300, false}, HourCase{2359, false}),
                         caseCode);

TEST_F(LowBatteryPush, GoesByTheLocalHour)
{
    startHome("{" + ONE_PHONE + "}", clock.settings("JST-9"));
    lowBatteryAt(14, 14, 0);  // 23:00 there
    EXPECT_THAT(shown(), IsEmpty());
    lowBatteryAt(14, 23, 0);  // 08:00 there
    EXPECT_EQ(shown().size(), 1u);
}

TEST_F(LowBatteryPush, IsSentOnceAnHourForTheWholeGateway)
{
    startAtHome();
    lowBatteryAt(14, 9, 0, 5);
    lowBatteryAt(14, 9, 1, 5);
    lowBatteryAt(14, 9, 59, 6);
    EXPECT_THAT(shown(), ElementsAre("Front door  low battery !!"));
    lowBatteryAt(14, 10, 0, 6);
    lowBatteryAt(14, 10, 30, 5);
    EXPECT_THAT(shown(), ElementsAre("Front door  low battery !!", "Window  low battery !!"));
}

TEST_F(LowBatteryPush, WaitsForALaterHourOfTheNextDay)
{
    startAtHome();
    lowBatteryAt(14, 15, 0);
    lowBatteryAt(15, 9, 0);  // nothing has come in between, so 16 is the hour from which one may
    lowBatteryAt(15, 15, 59);
    EXPECT_EQ(shown().size(), 1u);
    lowBatteryAt(15, 16, 0);
    EXPECT_EQ(shown().size(), 2u);
}

TEST_F(LowBatteryPush, IsNotSentTheNextMorningAfterOneOfTheLastHour)
{
    startAtHome();
    lowBatteryAt(14, 22, 10);
    lowBatteryAt(15, 8, 0);
    eventAt(15, 12, 0, REPORT);
    lowBatteryAt(15, 22, 59);
    EXPECT_EQ(shown().size(), 1u);
}

// What has to come in the hour from 23:00, so that one may be sent the next morning.
struct LastHourCase {
    const char *name;
    uint16_t code;
    uint16_t uid;
    bool resets;
};

class LowBatteryLastHour : public LowBatteryPush,
                           public testing::WithParamInterface<LastHourCase> {};

TEST_P(LowBatteryLastHour, LetsTheNextMorningsPushThrough)
{
    sdk.set({.uid = 7, .channels = {{.chid = 1, .functype = DOOR, .tampernotify = 0}}});
    startAtHome();
    lowBatteryAt(14, 22, 10);
    eventAt(14, 23, 30, GetParam().code, GetParam().uid);
    const size_t before = shown().size();
    lowBatteryAt(15, 8, 0);
    EXPECT_EQ(shown().size(), before + (GetParam().resets ? 1 : 0));
}

INSTANTIATE_TEST_SUITE_P(Events, LowBatteryLastHour,
                         testing::Values(LastHourCase{"Report", REPORT, 5, true},
                                         LastHourCase{"LowBattery", LOW_BATTERY, 5, true},
                                         LastHourCase{"OfAnUnknownDevice", REPORT, 77, true},
                                         LastHourCase{"TamperWithoutAPush", TAMPER, 5, true},
                                         LastHourCase{"TamperWithAPush", TAMPER, 7, false},
                                         LastHourCase{"LoggedOnly4003", 4003, 5, false},
                                         LastHourCase{"LoggedOnly5102", 5102, 5, false},
                                         LastHourCase{"LoggedOnly5008", 5008, 5, false},
                                         LastHourCase{"LoggedOnly5009", 5009, 5, false}),
                         caseName);

TEST_F(LowBatteryPush, IsWantedWhereTheValueIsZeroOnly)
{
    startAtHome();
    for (const int64_t value : {1, 2, -1}) {
        sdk.set({.uid = 5, .channels = {{.chid = 1, .functype = DOOR, .lowbattnotify = value}}});
        lowBatteryAt(14, 12, 0);
    }
    EXPECT_THAT(shown(), IsEmpty());
    lowBatteryAt(14, 12, 1, 6);
    EXPECT_EQ(shown().size(), 1u) << "what was not sent takes no hour";
}

TEST_F(LowBatteryPush, IsNotSentOfWhatIsNotKnown)
{
    startAtHome();
    clock.set(2024, 5, 14, 12, 0);
    eventDone(LOW_BATTERY, 5, 9);
    EXPECT_TRUE(daemon.logged("triggeredChannel is NULL\n"));
    eventDone(LOW_BATTERY, 77, 1);
    EXPECT_TRUE(daemon.logged("triggeredDev is NULL\n"));
    EXPECT_THAT(shown(), IsEmpty());
}

TEST_F(LowBatteryPush, IsSentOfThatCodeOnly)
{
    startAtHome();
    for (const uint16_t code : {4000, 4001, 4003, 5001, 100})
        eventAt(14, 12, 0, code);
    EXPECT_THAT(shown(), IsEmpty());
}

TEST_F(LowBatteryPush, EndsItsEvent)
{
    sdk.set({.uid = 6, .channels = {{.chid = 1, .functype = MOTION, .lowbattnotify = 0}}});
    startAtHome(R"(,"alarm":{"enabled":1,"trigger_duration":3600})");
    sdk.set(device(30, 0, SIREN));
    eventDone(1003, 5, 1);  // the siren is known
    sdk.forgetHeard();
    lowBatteryAt(14, 12, 0, 6);
    EXPECT_EQ(sdk.asked("getdevice", 256), 0u) << "home security has not seen it";
    lowBatteryAt(14, 12, 1, 6);
    EXPECT_EQ(sdk.asked("getdevice", 256), 1u) << "nothing was pushed: it goes on";
}

// Macros

class MacroPush : public Pushes {
protected:
    void SetUp() override
    {
        Pushes::SetUp();
        openDoor();
    }
    void openDoor()
    {
        sdk.set({.uid = 5,
                 .channels = {
                     {.chid = 1, .functype = DOOR, .basicvalue = 255, .name = "Door sensor"}}});
    }
    // The macro "Door", which fires with every report of the door; its members without the title,
    // the triggers and what enables it.
    void startWithMacro(const std::string &members, const std::string &more = "")
    {
        startHome("{" + ONE_PHONE + R"(,"macros":[{"title":"Door","enabled":1,"triggers":[
            {"target":{"dev":5,"if":0,"ch":1},"op":"=","threshold":255}],)" +
                  members + "}]" + more + "}");
        gatewayReady();
        sdk.forgetHeard();
    }
    static std::string lampOn()
    {
        return R"("scene":{"title":"Evening","comps":[{"target":{"dev":20,"if":0,"ch":0},"value":255}]})";
    }
    // Returns when the threads of these many macros in all have ended.
    void fire(size_t threads = 1)
    {
        const size_t before = daemon.timesLogged(" end\n");
        event(REPORT, 5, 1);
        ASSERT_TRUE(eventually([&] { return daemon.timesLogged(" end\n") == before + threads; }));
    }
    size_t statusesTold() const
    {
        return sdk.count(deviceCommand("set_s_sta_num", 511, 99, 9));
    }
};

TEST_F(MacroPush, SaysWhatTheMacroHasDone)
{
    startWithMacro(lampOn() + R"(,"enabled_notifications":["pns"])",
                   R"(,"targetNames":{"5.0.1":"Front door","20.0.0":"Lamp"},
                      "rooms":[{"title":"Hall","targets":[{"dev":5,"if":0,"ch":1}]}])");
    fire();
    EXPECT_THAT(shown(), ElementsAre("Front door in Hall was triggered => Lamp to ON"));
    EXPECT_EQ(statusesTold(), 1u);
    EXPECT_EQ(daemon.timesLogged("sendPushMsg i: 0\n"), 1u);
}

TEST_F(MacroPush, SaysItInJapanese)
{
    platform.set("language", "2");
    startWithMacro(lampOn() + R"(,"enabled_notifications":["pns"])",
                   R"(,"targetNames":{"20.0.0":"Lamp"},
                      "rooms":[{"title":"Hall","targets":[{"dev":5,"if":0,"ch":1}]}])");
    fire();
    EXPECT_THAT(shown(), ElementsAre("Hallの Door sensor 感知 => Lamp  オン!!"));
}

struct NotificationCase {
    const char *name;
    const char *notifications;
    size_t pushes;
};

class MacroNotifications : public MacroPush,
                           public testing::WithParamInterface<NotificationCase> {};

TEST_P(MacroNotifications, AreOnePushEach)
{
    startWithMacro(lampOn() + R"(,"enabled_notifications":)" + GetParam().notifications);
    fire();
    const std::string text = "Door sensor was triggered => Light to ON";
    EXPECT_EQ(shown(), std::vector(GetParam().pushes, text));
    EXPECT_EQ(statusesTold(), GetParam().pushes);
}

INSTANTIATE_TEST_SUITE_P(
    Lists, MacroNotifications,
    testing::Values(NotificationCase{"None", "[]", 0}, NotificationCase{"One", R"(["pns"])", 1},
                    NotificationCase{"Two", R"(["pns","pns"])", 2},
                    NotificationCase{"Three", R"(["pns","pns","pns"])", 3},
                    NotificationCase{"TheThirdOnly", R"(["mail","","pns"])", 1},
                    NotificationCase{"AroundAnother", R"(["pns","email","pns"])", 2},
                    NotificationCase{"Others", R"(["PNS","pns ","pnsx"])", 0},
                    NotificationCase{"Done", R"(["done"])", 0}),
    caseName);

TEST_F(MacroPush, IsSentOnceWhileItsSceneIsActive)
{
    startWithMacro(lampOn() + R"(,"duration":3600,"enabled_notifications":["pns","pns"])");
    event(REPORT, 5, 1);
    ASSERT_TRUE(eventuallyRun(2));
    event(REPORT, 5, 1);
    ASSERT_TRUE(daemon.eventuallyLogged("macro 'Door' triggered repeatedly"));
    EXPECT_EQ(shown().size(), 2u);
    EXPECT_EQ(statusesTold(), 2u);
    EXPECT_EQ(macroEvents().size(), 1u);
}

TEST_F(MacroPush, IsSentAgainWhenTheMacroRunsAgain)
{
    startWithMacro(lampOn() + R"(,"enabled_notifications":["pns"])");
    fire();
    fire();
    EXPECT_EQ(shown().size(), 2u);
    const Json macro = group("macros")[0];
    EXPECT_EQ(macro["enabled_notifications"].dump(), R"(["pns"])") << "the macro keeps its own";
}

TEST_F(MacroPush, FollowsTheAnnouncement)
{
    startWithMacro(lampOn() + R"(,"enabled_notifications":["pns"])");
    ASSERT_EQ(set(R"({"registeredDevices":[{"token":"T","email":"a@example.org"}]})"), 1);
    sdk.forgetHeard();
    fire();
    ASSERT_TRUE(eventually([&] { return deliveries().size() == 1; }));
    std::vector<std::string> steps;
    for (const Heard &heard : sdk.everything()) {
        if (heard.text != switchCommand(20, 0, 255))  // goes out when its time has come
            steps.push_back(heard.kind == Heard::EVENT ? heard.member : heard.text);
    }
    EXPECT_THAT(steps,
                ElementsAre(plainCommand("getdevice", 5), "recent", plainCommand("getdevice", 20),
                            "MacroEvent", deviceCommand("set_s_sta_num", 511, 99, 9), "recent"));
}

TEST_F(MacroPush, SaysWhatTheSceneDidWithACopiedValue)
{
    sdk.set({.uid = 20, .channels = {{.chid = 0, .functype = DIMMER, .name = "Light"}}});
    sdk.set({.uid = 5,
             .channels = {{.chid = 1, .functype = DOOR, .basicvalue = 37, .name = "Door sensor"}}});
    startHome("{" + ONE_PHONE + R"(,"macros":[{"title":"Copy","enabled":1,"triggers":[
        {"target":{"dev":5,"if":0,"ch":1},"op":"!=","threshold":-1}],"scene":"Evening",
        "enabled_notifications":["pns"]}],"scenes":[{"title":"Evening","comps":[
        {"target":{"dev":20,"if":0,"ch":0},"value":255}]}]})");
    gatewayReady();
    fire();
    EXPECT_THAT(shown(), ElementsAre("Door sensor was triggered => Light to 37"));
}

TEST_F(MacroPush, CountsTheStepsOfAScene)
{
    startWithMacro(R"("scene":{"title":"Evening","comps":[
        {"target":{"dev":505,"if":0,"ch":0},"value":1},
        {"target":{"dev":20,"if":0,"ch":0},"value":255}]},"enabled_notifications":["pns"])");
    fire();
    EXPECT_THAT(shown(), ElementsAre("Door sensor was triggered => Evening is executing"));
}

TEST_F(MacroPush, OfASceneThatDoesNotExistSaysWhatTriggered)
{
    startWithMacro(R"("scene":"Gone","enabled_notifications":["pns"])");
    fire();
    EXPECT_THAT(shown(), ElementsAre("Door sensor was triggered"));
    const std::vector<Json> announcements = macroEvents();
    ASSERT_EQ(announcements.size(), 1u) << "it is announced all the same";
    EXPECT_EQ(announcements[0]["name"].text(), "Door");
    EXPECT_TRUE(announcements[0]["scene"].isNull());
    const Json log = Json(callForText("jsongetmacroeventbyseq", "1"))["macroEventLog"];
    ASSERT_EQ(log.size(), 1u) << "and logged";
    EXPECT_EQ(log[0]["name"].text(), "Door");
    EXPECT_TRUE(log[0]["scene"].isNull());
    EXPECT_TRUE(daemon.logged("data->macro->title is NULL\n"));
}

TEST_F(MacroPush, OfAMacroWithoutASceneSaysWhatTriggered)
{
    startWithMacro(R"("enabled_notifications":["pns"])");
    fire();
    EXPECT_THAT(shown(), ElementsAre("Door sensor was triggered"));
    EXPECT_EQ(macroEvents().size(), 1u);
}

TEST_F(MacroPush, NamesTheUserOfALock)
{
    static constexpr int64_t DOOR_LOCK = 31;
    sdk.set({.uid = 5,
             .channels = {{.chid = 1,
                           .functype = DOOR_LOCK,
                           .basicvalue = 255,
                           .sensorvalue = 30,
                           .name = "Lock"}}});
    startHome("{" + ONE_PHONE + R"(,"targetNames":{"5.0.1":"Front door"},
        "macros":[{"title":"Lock","enabled":1,"triggers":[
        {"target":{"dev":5,"if":0,"ch":1},"op":">","threshold":0}],"scene":"Gone",
        "enabled_notifications":["pns"]}]})");
    gatewayReady();
    fire();
    EXPECT_THAT(shown(), ElementsAre("User 3 unlock the door was triggered"));
}

TEST_F(MacroPush, OfSeveralMacrosComesFromEach)
{
    startHome("{" + ONE_PHONE + R"(,"macros":[
        {"title":"A","enabled":1,"enabled_notifications":["pns"],"scene":{"title":"a"},
         "triggers":[{"target":{"dev":5,"if":0,"ch":1},"op":"=","threshold":255}]},
        {"title":"B","enabled":1,"enabled_notifications":["pns"],"scene":{"title":"b"},
         "triggers":[{"target":{"dev":5,"if":0,"ch":1},"op":"=","threshold":255}]}]})");
    gatewayReady();
    fire(2);
    EXPECT_THAT(shown(),
                testing::UnorderedElementsAre("Door sensor was triggered => a is executing",
                                              "Door sensor was triggered => b is executing"));
}

// The alarm

class AlarmPush : public MacroPush {
protected:
    void SetUp() override
    {
        MacroPush::SetUp();
        sdk.set({.uid = 6, .channels = {{.chid = 0, .functype = MOTION, .name = "Motion"}}});
        sdk.set({.uid = 30, .channels = {{.chid = 0, .functype = SIREN, .name = "Siren"}}});
    }
    void startArmed(int64_t duration, const std::string &more = "")
    {
        startHome("{" + ONE_PHONE +
                  R"(,"alarm":{"enabled":1,"siren_type":4,"trigger_duration":1,"duration":)" +
                  std::to_string(duration) + "}" + more + "}");
        gatewayReady();
    }
    void move()
    {
        eventDone(REPORT, 6, 0);
    }
};

TEST_F(AlarmPush, SaysWhatSetTheAlarmOff)
{
    startArmed(3600, R"(,"targetNames":{"5.0.1":"Front door"},
        "rooms":[{"title":"Hall","targets":[{"dev":5,"if":0,"ch":1}]}])");
    eventDone(REPORT, 5, 1);
    ASSERT_TRUE(eventuallyRun(1));
    EXPECT_THAT(shown(), ElementsAre("Front door in Hall was triggered => Siren to 4"));
    ASSERT_EQ(macroEvents().size(), 1u);
    EXPECT_EQ(macroEvents()[0]["scene"].text(), "Home Security Alarm");
}

TEST_F(AlarmPush, SaysItInJapanese)
{
    platform.set("language", "2");
    startArmed(3600, R"(,"rooms":[{"title":"Hall","targets":[{"dev":6,"if":0,"ch":0}]}])");
    move();
    ASSERT_TRUE(eventuallyRun(1));
    EXPECT_THAT(shown(), ElementsAre("Hallの Motion 感知 => Siren to 4"));
}

TEST_F(AlarmPush, NamesTheSceneOfSeveralSirens)
{
    sdk.set({.uid = 31, .channels = {{.chid = 2, .functype = SIREN}}});
    startArmed(3600);
    move();
    ASSERT_TRUE(eventuallyRun(1));
    EXPECT_THAT(shown(), ElementsAre("Motion was triggered => Home Scene is executing"));
}

TEST_F(AlarmPush, SaysNothingOfSirensWhereThereAreNone)
{
    sdk.remove(30);
    startArmed(3600);
    move();
    ASSERT_TRUE(eventuallyRun(1));
    EXPECT_THAT(shown(), ElementsAre("Motion was triggered"));
}

TEST_F(AlarmPush, IsSentOnceAnAlarm)
{
    startArmed(1);
    move();
    eventDone(REPORT, 5, 1);
    ASSERT_TRUE(eventuallyRun(1));
    move();
    // The sirens are put back; soon the next alarm may begin.
    ASSERT_TRUE(eventually([&] { return sdk.heard(switchCommand(30, 0, 0)); }));
    EXPECT_THAT(shown(), ElementsAre("Motion was triggered => Siren to 4"));
    ASSERT_TRUE(eventually([&] {
        eventDone(REPORT, 5, 1);
        return macroEvents().size() == 2;
    }));
    ASSERT_TRUE(eventuallyRun(3));
    EXPECT_THAT(shown(), ElementsAre("Motion was triggered => Siren to 4",
                                     "Door sensor was triggered => Siren to 4"));
}

TEST_F(AlarmPush, IsNotSentOfAnAlarmThatIsCancelled)
{
    startHome("{" + ONE_PHONE + R"(,"alarm":{"enabled":1,"trigger_duration":3600}})");
    gatewayReady();
    sdk.forgetHeard();
    move();
    ASSERT_EQ(sdk.asked("getdevice", 256), 1u) << "the alarm has begun";
    const auto reply = client.call("com.OvrinTech.switch.app", "setHomeScene", {0});
    ASSERT_TRUE(eventually([&] { return reply->arrived(); }));
    EXPECT_THAT(shown(), IsEmpty());
}

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
