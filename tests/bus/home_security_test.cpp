// Home security over the bus: a door opens or something moves, the sirens sound after the entry
// delay, and are put back when their time is up or when somebody disarms.
//
// An alarm that begins asks at once what the sirens show ("getdevice" of 256), in the hand-over of
// its event; so one that has not asked when the next event is done has not begun.

#include "support/daemon_on_its_own_bus.h"
#include "support/scale.h"

#include <algorithm>
#include <ctime>

using namespace support;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

static constexpr const char *SWITCH_APP = "com.OvrinTech.switch.app";
static constexpr uint16_t REPORT = 5001;
static constexpr int64_t FOREVER = 3600;  // seconds that no test lives to see the end of

// Two sirens, the second of which shows 7 when all is quiet.
static constexpr int64_t SOUND = 4;
static const std::string FIRST_ON = switchCommand(30, 0, SOUND);
static const std::string SECOND_ON = switchCommand(31, 2, SOUND);
static const std::string FIRST_BACK = switchCommand(30, 0, 0);
static const std::string SECOND_BACK = switchCommand(31, 2, 7);
static const std::string GATEWAY_ON = sysSound(SOUND);
static const std::string GATEWAY_BACK = sysSound(0);

struct Settings {
    int64_t enabled = 1;
    int64_t entryDelay = 1;
    int64_t duration = FOREVER;
    int64_t sirenType = SOUND;
};

static std::string alarmText(const Settings &settings)
{
    return R"("alarm":{"duration":)" + std::to_string(settings.duration) + R"(,"enabled":)" +
           std::to_string(settings.enabled) + R"(,"siren_type":)" +
           std::to_string(settings.sirenType) + R"(,"trigger_duration":)" +
           std::to_string(settings.entryDelay) + "}";
}

class HomeSecurity : public ConfigurableDaemon {
protected:
    void SetUp() override
    {
        ConfigurableDaemon::SetUp();
        sdk.set(device(5, 0, DOOR, 255));
        sdk.set(device(6, 0, MOTION, 255));
        sdk.set(device(7, 0, TEMPERATURE, 255));
    }
    void addSirens()
    {
        sdk.set(device(30, 0, SIREN, 0));
        sdk.set(device(31, 2, SIREN, 7));
    }
    void startHome(const Settings &settings, const std::string &more = "")
    {
        startReady("{" + alarmText(settings) + more + "}");
        sdk.forgetHeard();
    }
    void startHomeWithSirens(const Settings &settings, const std::string &more = "")
    {
        addSirens();
        startHome(settings, more);
    }
    void change(const Settings &settings)
    {
        ASSERT_EQ(set("{" + alarmText(settings) + "}"), 1);
    }
    int64_t setHomeScene(int32_t enable)
    {
        const auto reply = client.call(SWITCH_APP, "setHomeScene", {enable});
        EXPECT_TRUE(eventually([&] { return reply->arrived(); })) << "no reply to setHomeScene";
        EXPECT_EQ(reply->signature(), "i") << reply->error();
        return reply->number();
    }
    void disarm()
    {
        setHomeScene(0);
    }

    // Returns when the event and all that it starts have been done with.
    void report(uint16_t uid, uint16_t channel = 0)
    {
        eventHandled(REPORT, uid, channel);
        eventHandled(9999, uid, channel);  // one that is logged and nothing else
    }
    void openDoor()
    {
        report(5);
    }
    size_t alarms() const
    {
        return sdk.asked("getdevice", 256);
    }
    Moment alarmBegan(size_t number) const
    {
        return sdk.calls("getdevice", 256).at(number).at;
    }
    bool eventuallySounding()
    {
        return eventually([&] { return sdk.heard(FIRST_ON) && sdk.heard(SECOND_ON); });
    }
    bool eventuallyPutBack()
    {
        return eventually([&] {
            return sdk.heard(GATEWAY_BACK) && sdk.heard(FIRST_BACK) && sdk.heard(SECOND_BACK);
        });
    }
    Moment momentOf(const std::string &command) const
    {
        const std::vector<Heard> all = sdk.commands();
        const auto found = std::find_if(all.begin(), all.end(),
                                        [&](const Heard &heard) { return heard.text == command; });
        return found == all.end() ? Moment() : found->at;
    }
    Json storedAlarm() const
    {
        return Json(daemon.storedSetup())["alarm"];
    }
};

TEST_F(HomeSecurity, SoundsEverySirenAndPutsThemBack)
{
    startHomeWithSirens({.duration = 1});
    openDoor();
    ASSERT_TRUE(eventuallyPutBack());
    EXPECT_THAT(sdk.commandTexts(), UnorderedElementsAre(GATEWAY_ON, FIRST_ON, SECOND_ON,
                                                         GATEWAY_BACK, FIRST_BACK, SECOND_BACK));
    EXPECT_LT(momentOf(GATEWAY_ON), momentOf(FIRST_ON)) << "the gateway's own siren is not planned";
    EXPECT_LT(momentOf(GATEWAY_ON), momentOf(GATEWAY_BACK));
    EXPECT_LT(momentOf(FIRST_ON), momentOf(FIRST_BACK));
    EXPECT_LT(momentOf(SECOND_ON), momentOf(SECOND_BACK));
    EXPECT_EQ(alarms(), 1u) << "the sirens are asked for once, and all together";
    EXPECT_EQ(daemon.timesLogged("sleep(data->alarmSetting.duration): 1 secs"), 1u);
}

TEST_F(HomeSecurity, WaitsForTheEntryDelayAndSoundsForTheDuration)
{
    startHomeWithSirens({.entryDelay = 2, .duration = 2});
    openDoor();
    ASSERT_TRUE(eventually([&] { return sdk.heard(GATEWAY_BACK); }));
    EXPECT_GE(millisecondsBetween(alarmBegan(0), momentOf(GATEWAY_ON)), 2000);
    EXPECT_GE(millisecondsBetween(alarmBegan(0), momentOf(GATEWAY_BACK)), 4000);
    if (SPEED_COUNTS) {
        EXPECT_LT(millisecondsBetween(alarmBegan(0), momentOf(GATEWAY_ON)), 3500);
        EXPECT_LT(millisecondsBetween(momentOf(GATEWAY_ON), momentOf(GATEWAY_BACK)), 3500);
    }
}

struct DelayCase {
    const char *name;
    int64_t seconds;
};

class HomeSecurityShortDelay : public HomeSecurity,
                               public testing::WithParamInterface<DelayCase> {};

TEST_P(HomeSecurityShortDelay, LastsASecondAllTheSame)
{
    startHomeWithSirens({.entryDelay = GetParam().seconds, .duration = 0});
    openDoor();
    ASSERT_TRUE(eventually([&] { return sdk.heard(GATEWAY_ON); }));
    EXPECT_GE(millisecondsBetween(alarmBegan(0), momentOf(GATEWAY_ON)), 1000);
    if (SPEED_COUNTS) {
        EXPECT_LT(millisecondsBetween(alarmBegan(0), momentOf(GATEWAY_ON)), 2500);
    }
    EXPECT_TRUE(eventuallyPutBack()) << "a duration of nothing is over at once";
}

INSTANTIATE_TEST_SUITE_P(Seconds, HomeSecurityShortDelay,
                         testing::Values(DelayCase{"Zero", 0}, DelayCase{"Negative", -5}),
                         caseName);

TEST_F(HomeSecurity, AnnouncesAndLogsEachAlarmOnce)
{
    startHomeWithSirens({.duration = 0});
    const time_t before = time(nullptr);
    openDoor();
    ASSERT_TRUE(eventuallyPutBack());
    ASSERT_EQ(sdk.events("MacroEvent").size(), 1u);
    EXPECT_EQ(sdk.events("MacroEvent")[0].path, "/com/OvrinTech/process/app/MacroEvent");
    const Json event = macroEvents().at(0);
    EXPECT_EQ(event["scene"].text(), "Home Security Alarm");
    EXPECT_TRUE(event["name"].isNull());
    EXPECT_GE(event["timeStamp"].integer(), before);
    EXPECT_LT(momentOf(GATEWAY_ON), sdk.events("MacroEvent")[0].at) << "the sirens come first";
    EXPECT_LT(sdk.events("MacroEvent")[0].at, momentOf(GATEWAY_BACK));

    const Json log = Json(callForText("jsongetmacroeventbyseq", "0"))["macroEventLog"];
    ASSERT_EQ(log.size(), 1u);
    EXPECT_EQ(log[0]["scene"].text(), "Home Security Alarm");
    EXPECT_TRUE(log[0]["name"].isNull());
}

TEST_F(HomeSecurity, IgnoresASecondTriggerInTheEntryDelay)
{
    startHomeWithSirens({.entryDelay = FOREVER});
    openDoor();
    ASSERT_EQ(alarms(), 1u);
    openDoor();
    report(6);
    EXPECT_EQ(alarms(), 1u);
    EXPECT_THAT(sdk.commandTexts(), IsEmpty());
}

TEST_F(HomeSecurity, IgnoresASecondTriggerWhileTheSirensSound)
{
    startHomeWithSirens({});
    openDoor();
    ASSERT_TRUE(eventuallySounding());
    openDoor();
    report(6);
    EXPECT_EQ(alarms(), 1u);
    EXPECT_EQ(macroEvents().size(), 1u);
    EXPECT_THAT(sdk.commandTexts(), ElementsAre(GATEWAY_ON, FIRST_ON, SECOND_ON));
}

TEST_F(HomeSecurity, SoundsAgainAfterAnAlarm)
{
    startHomeWithSirens({.duration = 0});
    openDoor();
    ASSERT_TRUE(eventuallyPutBack());
    ASSERT_TRUE(eventually([&] {
        openDoor();
        return alarms() == 2;
    }));
    EXPECT_TRUE(eventually([&] { return sdk.count(SECOND_BACK) == 2; }));
    EXPECT_EQ(sdk.count(GATEWAY_ON), 2u);
    EXPECT_EQ(macroEvents().size(), 2u);
}

TEST_F(HomeSecurity, StartsTheNextAlarmWhenTheSirensHaveBeenPutBack)
{
    startHomeWithSirens({.duration = 0});
    openDoor();
    ASSERT_TRUE(eventually([&] {
        openDoor();
        return alarms() == 2;
    }));
    ASSERT_TRUE(sdk.heard(SECOND_BACK)) << "what the sirens show would be that they sound";
    EXPECT_GT(alarmBegan(1), momentOf(SECOND_BACK));
}

// What a scene has planned meanwhile may lie far ahead: the next alarm does not wait for that.
using HomeSecurityInRealTime = HomeSecurity;

TEST_F(HomeSecurityInRealTime, StartsTheNextAlarmWithinTenSecondsWhateverASceneStillWaitsFor)
{
    static constexpr int64_t LONGEST_WAIT = 10'000;  // milliseconds
    startHomeWithSirens({.duration = 0}, R"(,"scenes":[{"title":"Later","comps":[
        {"target":{"dev":512},"value":1100},{"target":{"dev":20},"value":1}]}])");
    openDoor();
    ASSERT_EQ(alarms(), 1u);
    EXPECT_EQ(callForText("doscene", "Later"), "Later");
    ASSERT_TRUE(eventuallyPutBack());
    const Moment over = momentOf(GATEWAY_BACK);
    ASSERT_TRUE(eventually(
        [&] {
            openDoor();
            return alarms() == 2;
        },
        20s))
        << "the scene's command is due in 110 s";
    if (SPEED_COUNTS) {
        EXPECT_LT(millisecondsBetween(over, alarmBegan(1)), LONGEST_WAIT + 2500);
    }
    figure("next_alarm_after", millisecondsBetween(over, alarmBegan(1)), "ms");
}

TEST_F(HomeSecurity, TakesTheSirensAndTheirSoundAnewForEachAlarm)
{
    startHomeWithSirens({.duration = 0});
    openDoor();
    ASSERT_TRUE(eventuallyPutBack());
    sdk.remove(30);
    sdk.set(device(32, 1, SIREN, 3));
    eventHandled(1001, 32, 1);  // a device was added
    change({.duration = 0, .sirenType = 9});
    sdk.forgetHeard();
    ASSERT_TRUE(eventually([&] {
        openDoor();
        return alarms() == 1;
    }));
    ASSERT_TRUE(eventually([&] { return sdk.heard(switchCommand(32, 1, 3)); }));
    EXPECT_THAT(sdk.commandTexts(),
                UnorderedElementsAre(sysSound(9), switchCommand(31, 2, 9), switchCommand(32, 1, 9),
                                     GATEWAY_BACK, SECOND_BACK, switchCommand(32, 1, 3)));
}

TEST_F(HomeSecurity, SoundsTheGatewaysOwnSirenWhenThereIsNoOther)
{
    startHome({.duration = 0});
    openDoor();
    ASSERT_TRUE(eventually([&] { return sdk.heard(GATEWAY_BACK); }));
    EXPECT_THAT(sdk.commandTexts(), ElementsAre(GATEWAY_ON, GATEWAY_BACK));
    EXPECT_EQ(macroEvents().size(), 1u);
    EXPECT_EQ(alarms(), 0u) << "there is nothing to ask for";
    EXPECT_TRUE(daemon.logged("homeScene->compsListHead empty"));
}

TEST_F(HomeSecurity, DoesNothingWhenItIsNotArmed)
{
    startHomeWithSirens({.enabled = 0});
    openDoor();
    report(6);
    EXPECT_EQ(alarms(), 0u);
}

TEST_F(HomeSecurity, IsArmedByItsMethod)
{
    startHomeWithSirens({.enabled = 0});
    EXPECT_EQ(setHomeScene(1), 1);
    openDoor();
    EXPECT_EQ(alarms(), 1u);
}

TEST_F(HomeSecurity, IsArmedByADocument)
{
    startHomeWithSirens({.enabled = 0});
    change({.enabled = 1});
    openDoor();
    EXPECT_EQ(alarms(), 1u);
}

TEST_F(HomeSecurity, IsDisarmedByItsMethod)
{
    startHomeWithSirens({});
    EXPECT_EQ(setHomeScene(0), 1);
    openDoor();
    EXPECT_EQ(alarms(), 0u);
    EXPECT_THAT(sdk.commandTexts(), IsEmpty()) << "there was nothing to put back";
}

struct SensorCase {
    const char *name;
    int64_t functype;
    int64_t basicvalue;
    const char *mainscene;
    bool starts;
};

class HomeSecuritySensor : public HomeSecurity, public testing::WithParamInterface<SensorCase> {};

TEST_P(HomeSecuritySensor, StartsAnAlarmOnlyAsADoorThatOpensOrAsMotion)
{
    const Device sensor = device(5, 0, GetParam().functype, GetParam().basicvalue);
    std::string text = deviceText({{5, sensor}}, 5);
    const std::string member = R"("mainscene":0)";
    text.replace(text.find(member), member.size(), GetParam().mainscene);
    sdk.behave("getdevice", 5, Answer::saying(text));
    startHomeWithSirens({.entryDelay = FOREVER});
    report(5);
    EXPECT_EQ(alarms(), GetParam().starts ? 1u : 0u);
    if (!GetParam().starts) {
        report(6);
        EXPECT_EQ(alarms(), 1u) << "the one before is not in the way";
    }
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, HomeSecuritySensor,
    testing::Values(SensorCase{"OpenDoor", DOOR, 255, R"("mainscene":0)", true},
                    SensorCase{"ClosedDoor", DOOR, 0, R"("mainscene":0)", false},
                    SensorCase{"DoorOfAnotherValue", DOOR, 254, R"("mainscene":0)", false},
                    SensorCase{"OpenDoorOfAMainScene", DOOR, 255, R"("mainscene":1)", false},
                    SensorCase{"OpenDoorWithoutMainScene", DOOR, 255, R"("other":1)", true},
                    SensorCase{"Motion", MOTION, 255, R"("mainscene":0)", true},
                    SensorCase{"MotionOfNoValue", MOTION, 0, R"("mainscene":0)", true},
                    SensorCase{"MotionOfAMainScene", MOTION, 255, R"("mainscene":2)", false},
                    SensorCase{"Temperature", TEMPERATURE, 255, R"("mainscene":0)", false},
                    SensorCase{"Switch", SWITCH, 255, R"("mainscene":0)", false},
                    SensorCase{"Siren", SIREN, 255, R"("mainscene":0)", false},
                    SensorCase{"Unknown", 99, 255, R"("mainscene":0)", false}),
    caseName);

TEST_F(HomeSecurity, LooksAtTheChannelThatReported)
{
    sdk.set({.uid = 8,
             .channels = {{.chid = 0, .functype = TEMPERATURE, .basicvalue = 255},
                          {.chid = 1, .functype = DOOR, .basicvalue = 255}}});
    startHomeWithSirens({.entryDelay = FOREVER});
    report(8, 0);
    EXPECT_EQ(alarms(), 0u);
    report(8, 1);
    EXPECT_EQ(alarms(), 1u);
}

static tm localTime()
{
    const time_t now = time(nullptr);
    tm local;
    localtime_r(&now, &local);
    return local;
}

static std::string window(int startHour, int endHour, int endMinute = 59, unsigned weekdays = 127,
                          int enabled = 1, int homeSecurity = 1)
{
    return R"(,"schedules":[{"title":"Night","enabled":)" + std::to_string(enabled) +
           R"(,"home_security_alarm":)" + std::to_string(homeSecurity) + R"(,"weekdays":)" +
           std::to_string(weekdays) + R"(,"start_hour":)" + std::to_string(startHour) +
           R"(,"start_minute":0,"end_hour":)" + std::to_string(endHour) + R"(,"end_minute":)" +
           std::to_string(endMinute) + "}]";
}

// The hour hand is counted from this hour, so that two hours away is far enough whatever the
// minute.
static std::string windowFromNow(int startsIn, int endsIn)
{
    const int hour = localTime().tm_hour + 24;
    return window((hour + startsIn) % 24, (hour + endsIn) % 24, 0);
}

static unsigned everyDayButTodayAndTomorrow()
{
    const int today = localTime().tm_wday;
    return 127u & ~(1u << today) & ~(1u << ((today + 1) % 7));
}

struct ArmedHours {
    const char *name;
    std::string (*schedule)();
    bool guards;
};

class HomeSecuritySchedule : public HomeSecurity, public testing::WithParamInterface<ArmedHours> {};

TEST_P(HomeSecuritySchedule, GuardsTheHomeWhileItIsInForce)
{
    startHomeWithSirens({.enabled = 0, .entryDelay = FOREVER}, GetParam().schedule());
    openDoor();
    EXPECT_EQ(alarms(), GetParam().guards ? 1u : 0u);
}

INSTANTIATE_TEST_SUITE_P(
    Schedules, HomeSecuritySchedule,
    testing::Values(
        ArmedHours{"OfAllHours", [] { return window(0, 23); }, true},
        ArmedHours{"AroundNow", [] { return windowFromNow(-2, 2); }, true},
        ArmedHours{"OfLater", [] { return windowFromNow(2, 4); }, false},
        ArmedHours{"OfEarlier", [] { return windowFromNow(-4, -2); }, false},
        ArmedHours{"OfOtherDays", [] { return window(0, 23, 59, everyDayButTodayAndTomorrow()); },
                   false},
        ArmedHours{"ThatIsDisabled", [] { return window(0, 23, 59, 127, 0); }, false},
        ArmedHours{"ThatIsNotForHomeSecurity", [] { return window(0, 23, 59, 127, 1, 0); }, false},
        ArmedHours{"OfAnotherHomeSecurity", [] { return window(0, 23, 59, 127, 1, 2); }, false}),
    caseName);

TEST_F(HomeSecurity, SoundsInAScheduleAsWhenItIsArmed)
{
    startHomeWithSirens({.enabled = 0, .duration = 0}, window(0, 23));
    report(6);
    ASSERT_TRUE(eventuallyPutBack());
    EXPECT_EQ(macroEvents().size(), 1u);
    EXPECT_EQ(sdk.count(GATEWAY_ON), 1u);
}

TEST_F(HomeSecurity, CancelsTheAlarmThatIsDisarmedInTheEntryDelay)
{
    startHomeWithSirens({.entryDelay = FOREVER});
    openDoor();
    ASSERT_EQ(alarms(), 1u);
    disarm();
    change({.entryDelay = 0});  // armed again
    ASSERT_TRUE(eventually([&] {
        openDoor();
        return alarms() == 2;
    })) << "a cancelled alarm makes room for the next";
    ASSERT_TRUE(eventuallySounding());
    EXPECT_EQ(sdk.count(GATEWAY_ON), 1u) << "the next alone has sounded";
    EXPECT_EQ(sdk.count(FIRST_ON), 1u);
    EXPECT_TRUE(eventually([&] { return macroEvents().size() == 1; }));
    EXPECT_EQ(Json(callForText("jsongetmacroeventbyseq", "0"))["macroEventLog"].size(), 1u);
}

TEST_F(HomeSecurity, CancelsTheAlarmThatIsDisarmedWhileTheSirensAreAskedFor)
{
    startHomeWithSirens({.entryDelay = FOREVER});
    sdk.behave("getdevice", 256, Answer::asUsual().after(1500ms));
    event(REPORT, 5, 0);
    ASSERT_TRUE(eventually([&] { return alarms() == 1; }));
    disarm();
    sdk.forgetBehaviour("getdevice", 256);
    setHomeScene(1);
    ASSERT_TRUE(eventually([&] {
        openDoor();
        return alarms() == 2;
    }));
    EXPECT_FALSE(sdk.heard(GATEWAY_ON));
    EXPECT_THAT(macroEvents(), IsEmpty());
}

TEST_F(HomeSecurity, CancelsTheAlarmOfAScheduleToo)
{
    startHomeWithSirens({.enabled = 0, .entryDelay = FOREVER}, window(0, 23));
    openDoor();
    ASSERT_EQ(alarms(), 1u);
    disarm();
    EXPECT_TRUE(eventually([&] {
        openDoor();
        return alarms() == 2;
    })) << "the schedule goes on guarding";
    EXPECT_FALSE(sdk.heard(GATEWAY_ON));
}

TEST_F(HomeSecurity, IsNotCancelledByArmingItOnceMore)
{
    startHomeWithSirens({.entryDelay = 1});
    openDoor();
    setHomeScene(1);
    EXPECT_TRUE(eventuallySounding());
    EXPECT_EQ(alarms(), 1u);
}

TEST_F(HomeSecurity, SilencesTheSirensAtOnceWhenItIsDisarmed)
{
    startHomeWithSirens({.duration = FOREVER});
    openDoor();
    ASSERT_TRUE(eventuallySounding());
    disarm();
    ASSERT_TRUE(eventuallyPutBack());
    EXPECT_THAT(sdk.commandTexts(), ElementsAre(GATEWAY_ON, FIRST_ON, SECOND_ON, GATEWAY_BACK,
                                                FIRST_BACK, SECOND_BACK));
    setHomeScene(1);
    openDoor();
    EXPECT_EQ(alarms(), 1u) << "the alarm lasts as long as it would have";
    disarm();
    EXPECT_EQ(sdk.count(GATEWAY_BACK), 1u) << "there is nothing left to put back";
}

TEST_F(HomeSecurity, RunsOnToItsEndWhenItIsDisarmedWhileTheSirensSound)
{
    startHomeWithSirens({.entryDelay = 0, .duration = 3});
    openDoor();
    ASSERT_TRUE(eventually([&] { return sdk.heard(GATEWAY_ON); }));
    disarm();
    setHomeScene(1);
    ASSERT_TRUE(eventually([&] {
        openDoor();
        return alarms() == 2;
    }));
    EXPECT_GE(millisecondsBetween(alarmBegan(0), alarmBegan(1)), 4000);
    EXPECT_EQ(sdk.count(GATEWAY_BACK), 1u) << "the end finds nothing to put back";
}

TEST_F(HomeSecurity, SoundsWithASilentRadioAndPutsTheSirensBackToNothing)
{
    startHomeWithSirens({.duration = 0});
    sdk.behave("getdevice", 256, Answer::silence());
    openDoor();
    ASSERT_TRUE(eventually([&] { return sdk.heard(switchCommand(31, 2, 0)); }));
    EXPECT_THAT(sdk.commandTexts(),
                UnorderedElementsAre(GATEWAY_ON, FIRST_ON, SECOND_ON, GATEWAY_BACK,
                                     switchCommand(30, 0, 0), switchCommand(31, 2, 0)));
    EXPECT_TRUE(daemon.logged("getDev is NULL"));
    EXPECT_EQ(macroEvents().size(), 1u);
}

TEST_F(HomeSecurity, StopsAtTheFirstSirenThatIsNoLongerThere)
{
    sdk.set(device(29, 0, SIREN, 6));
    startHomeWithSirens({.duration = 0});
    sdk.remove(30);
    openDoor();
    ASSERT_TRUE(eventually([&] { return sdk.heard(switchCommand(31, 2, 0)); }));
    EXPECT_TRUE(sdk.heard(switchCommand(29, 0, 6))) << "the one before was asked for";
    EXPECT_TRUE(sdk.heard(switchCommand(30, 0, 0)));
    EXPECT_FALSE(sdk.heard(SECOND_BACK)) << "the one after was not";
    EXPECT_EQ(daemon.timesLogged("getChannelFromGetDev_dev fails"), 1u);
}

struct EnableCase {
    const char *name;
    int32_t enable;
    bool guards;
};

class HomeSecurityEnable : public HomeSecurity, public testing::WithParamInterface<EnableCase> {};

TEST_P(HomeSecurityEnable, IsStoredAsItIsAndArmsUnlessItIsNought)
{
    addSirens();
    startWith("{}");
    sdk.forgetHeard();
    EXPECT_EQ(setHomeScene(GetParam().enable), 1) << "whatever the number, and without the gate";
    EXPECT_EQ(storedAlarm().dump(), R"({"duration":3,"enabled":)" +
                                        std::to_string(GetParam().enable) +
                                        R"(,"siren_type":1,"trigger_duration":3})");
    EXPECT_TRUE(daemon.logged("enable: " + std::to_string(GetParam().enable)));
    openDoor();
    EXPECT_EQ(alarms(), GetParam().guards ? 1u : 0u);
}

INSTANTIATE_TEST_SUITE_P(Numbers, HomeSecurityEnable,
                         testing::Values(EnableCase{"One", 1, true}, EnableCase{"Nought", 0, false},
                                         EnableCase{"Two", 2, true},
                                         EnableCase{"MinusOne", -1, true},
                                         EnableCase{"TheGreatest", 2147483647, true}),
                         caseName);

TEST_F(HomeSecurity, MakesItsSettingsWhenNobodyHas)
{
    start();  // without a stored document
    EXPECT_EQ(setHomeScene(1), 1);
    EXPECT_EQ(storedAlarm().dump(),
              R"({"duration":3,"enabled":1,"siren_type":1,"trigger_duration":3})");
}

TEST_F(HomeSecurity, StoresTheWholeConfigurationWithItsSetting)
{
    startHome({.enabled = 0}, R"(,"scenes":[{"title":"Evening"}])");
    setHomeScene(1);
    EXPECT_EQ(daemon.storedSetup(), callForText("jsongetall", ""));
    EXPECT_EQ(Json(daemon.storedSetup())["scenes"][0]["title"].text(), "Evening");
    EXPECT_THAT(sdk.events("jsongetall"), IsEmpty()) << "arming is not announced";
}

TEST_F(HomeSecurity, IsStillArmedAfterARestart)
{
    startHomeWithSirens({.enabled = 0, .entryDelay = FOREVER});
    setHomeScene(1);
    restart();
    sdk.forgetHeard();
    openDoor();
    EXPECT_EQ(alarms(), 1u);
}

TEST_F(HomeSecurity, PutsTheSirensBackWhenTheConfigurationIsRestored)
{
    startHomeWithSirens({});
    openDoor();
    ASSERT_TRUE(eventuallySounding());
    const auto reply = client.call(SWITCH_APP, "restoreConfig", {int32_t{0}});
    ASSERT_TRUE(eventually([&] { return reply->arrived(); }));
    ASSERT_TRUE(eventuallyPutBack());
    disarm();
    EXPECT_EQ(sdk.count(GATEWAY_BACK), 1u) << "there is nothing left to put back";
}

TEST_F(HomeSecurity, SoundsAllTheSameWhenTheConfigurationIsRestoredInTheEntryDelay)
{
    startHomeWithSirens({.entryDelay = 3, .duration = 0});
    openDoor();
    const auto reply = client.call(SWITCH_APP, "restoreConfig", {int32_t{0}});
    ASSERT_TRUE(eventually([&] { return reply->arrived(); }));
    ASSERT_TRUE(eventually([&] { return sdk.heard(FIRST_BACK) && sdk.heard(SECOND_BACK); }));
    EXPECT_TRUE(sdk.heard(SECOND_ON));
    EXPECT_LT(momentOf(SECOND_ON), momentOf(SECOND_BACK));
    EXPECT_EQ(sdk.count(SECOND_BACK), 1u) << "nothing was put back before it sounded";
}

TEST_F(HomeSecurity, DoesNotKeepTheDaemonFromEnding)
{
    startHomeWithSirens({.entryDelay = FOREVER});
    openDoor();
    ASSERT_EQ(alarms(), 1u);
    daemon.stop();
    daemon.writeSetup("{" + alarmText({}) + "}");
    start();
    openDoor();
    ASSERT_TRUE(eventuallySounding());  // and is ended when the test is
}
