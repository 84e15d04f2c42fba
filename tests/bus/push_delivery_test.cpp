// Pushes as the phones see them: who gets one, which program the daemon runs with which words, what
// of it it logs and announces, and that no helper keeps anybody waiting.

#include "bus/push_fixture.h"

#include <algorithm>
#include <csignal>

using namespace support;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

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
              R"({"email":"x@example.org","msg":"text","uuid":")" + std::string(UUID) + R"("})");
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
