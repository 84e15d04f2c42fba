// The pushes of macros and of the alarm: what triggered it, and what was done.

#include "bus/push_fixture.h"

using namespace support;
using testing::ElementsAre;
using testing::IsEmpty;

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
