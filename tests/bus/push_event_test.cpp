// The pushes of single events: somebody tampers with a device, or its battery is low.

#include "bus/push_fixture.h"
#include "support/wall_clock.h"

using namespace support;
using testing::ElementsAre;
using testing::IsEmpty;

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
