// What the daemon does with a device event before any macro runs: the question to the SDK daemon,
// the log, the announcement, the filters, and the choice of the macros.

#include "support/daemon_on_its_own_bus.h"

#include <ctime>

using namespace support;
using testing::ElementsAre;

static constexpr uint16_t REPORT = 5001;  // an ordinary device report

// A lamp (device 20) that a macro switches when the door (device 5, channel 1) opens, and a second
// macro on device 6 that does the same with device 21: its run shows that nothing else is to come.
static std::string doorAndMarker(const std::string &doorMembers)
{
    return R"({"macros":[{"title":"Door",)" + doorMembers + R"(,
        "scene":{"title":"S","comps":[{"target":{"dev":20,"if":0,"ch":0},"value":255}]},
        "triggers":[{"target":{"dev":5,"if":0,"ch":1},"op":"=","threshold":255}]},
      {"title":"Marker","enabled":1,
        "scene":{"title":"M","comps":[{"target":{"dev":21,"if":0,"ch":0},"value":1}]},
        "triggers":[{"target":{"dev":6,"if":0,"ch":0},"op":"=","threshold":255}]}]})";
}

class EventIntake : public DaemonOnItsOwnBus {
protected:
    void SetUp() override
    {
        DaemonOnItsOwnBus::SetUp();
        sdk.set(device(5, 1, DOOR, 255));
        sdk.set(device(6, 0, DOOR, 255));
        sdk.set(device(20, 0, SWITCH));
        sdk.set(device(21, 0, SWITCH));
    }
    // Runs the marker macro: whatever the door's macro was to do at once, it has done before.
    void runMarker()
    {
        event(REPORT, 6, 0);
        ASSERT_TRUE(eventually([&] { return sdk.heard(switchCommand(21, 0, 1)); }));
    }
    void expectDoorMacro(bool toRun)
    {
        runMarker();
        if (toRun) {
            EXPECT_TRUE(eventually([&] { return doorMacroRan(); }));
        } else {
            EXPECT_FALSE(doorMacroRan());
        }
    }
    bool doorMacroRan()
    {
        return sdk.heard(switchCommand(20, 0, 255));
    }
    size_t runsOf(const std::string &macro) const
    {
        size_t runs = 0;
        for (const Json &macroEvent : macroEvents())
            runs += macroEvent["name"].text() == macro;
        return runs;
    }
};

TEST_F(EventIntake, LeavesOutAPayloadThatNoDeviceWouldSend)
{
    startWith("{}");
    const auto payloadOf = [](size_t size) {
        return R"({"t":")" + std::string(size - 8, 'x') + "\"}";
    };
    eventWithPayload(5001, 20, 0, 1, payloadOf(16 * 1024));
    eventWithPayload(5001, 20, 0, 1, payloadOf(16 * 1024 + 1));
    ASSERT_TRUE(eventually([&] { return recent().size() == 2; }));
    EXPECT_EQ(recent().at(0)["payload"]["t"].text().size(), 16u * 1024 - 8);
    EXPECT_TRUE(recent().at(1)["payload"].isNull());
    EXPECT_TRUE(daemon.logged("payload of 16385 bytes is left out"));
}

TEST_F(EventIntake, AnnouncesAnEventAsRecent)
{
    sdk.set({.uid = 5,
             .channels = {{.chid = 1,
                           .functype = DOOR,
                           .basicvalue = 255,
                           .sensorvalue = 17,
                           .sensorunit = 2,
                           .dimOnValue = 33,
                           .name = "Front door"}},
             .code = "0101020D",
             .battery = 88});
    start();
    const time_t before = time(nullptr);
    eventHandled(REPORT, 5, 1);
    const Heard announcement = sdk.events("recent").at(0);
    EXPECT_EQ(announcement.path, "/com/OvrinTech/process/app/recent");
    EXPECT_EQ(announcement.signature, "s");
    const Json document(announcement.text);
    EXPECT_EQ(document.dump(), announcement.text) << "compact, ASCII, keys sorted";
    EXPECT_EQ(document["send.dat_ts"].integer(), 0);
    ASSERT_EQ(document["eventLog"].size(), 1u);

    const Json record = document["eventLog"][0];
    EXPECT_THAT(record.keys(), ElementsAre("Dim_ON_Value", "Scene_schedule_time", "basicValue",
                                           "battery", "channelID", "dataUnit", "eventCode",
                                           "funcName", "funcType", "productCode", "sensorValue",
                                           "sequence", "timeStamp", "timeStamp_ms", "uid"));
    EXPECT_EQ(record["eventCode"].integer(), REPORT);
    EXPECT_EQ(record["uid"].integer(), 5);
    EXPECT_EQ(record["channelID"].integer(), 1);
    EXPECT_EQ(record["productCode"].integer(), 0x0101020D);
    EXPECT_EQ(record["funcType"].integer(), DOOR);
    EXPECT_EQ(record["basicValue"].integer(), 255);
    EXPECT_EQ(record["sensorValue"].integer(), 17);
    EXPECT_EQ(record["dataUnit"].integer(), 2);
    EXPECT_EQ(record["Dim_ON_Value"].integer(), 33);
    EXPECT_EQ(record["battery"].integer(), 88);
    EXPECT_EQ(record["funcName"].text(), "Front door");
    EXPECT_EQ(record["sequence"].integer(), 1);
    EXPECT_EQ(record["Scene_schedule_time"].integer(), 0);
    EXPECT_GE(record["timeStamp"].integer(), before);
    EXPECT_LE(record["timeStamp"].integer(), time(nullptr));
    EXPECT_LT(record["timeStamp_ms"].integer(), 1000);
}

TEST_F(EventIntake, AnnouncesTheNewestEventAloneAndCountsThem)
{
    start();
    for (int i = 0; i < 3; ++i)
        eventHandled(REPORT, 5, 1);
    eventHandled(REPORT, 6, 0);
    const std::vector<Json> records = recent();
    ASSERT_EQ(records.size(), 4u);
    for (size_t i = 0; i < records.size(); ++i)
        EXPECT_EQ(records[i]["sequence"].integer(), static_cast<int64_t>(i + 1));
    for (const Heard &announcement : sdk.events("recent"))
        EXPECT_EQ(Json(announcement.text)["eventLog"].size(), 1u);
}

// A millisecond stamp of the wall clock that wraps after a million seconds, in 32 bits.
static int32_t stampNow()
{
    timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<int32_t>(
        static_cast<uint32_t>(now.tv_sec % 1'000'000 * 1000 + now.tv_nsec / 1'000'000));
}

TEST_F(EventIntake, TellsForWhenTheLatestSceneCommandIsPlanned)
{
    startWith(R"({"scenes":[{"title":"S","comps":[{"target":{"dev":20,"if":0,"ch":0},"value":1},
        {"target":{"dev":21,"if":0,"ch":0},"value":1}]}]})");
    const int32_t before = stampNow();
    callForText("doscene", "S");
    const int32_t after = stampNow();
    eventHandled(REPORT, 5, 1);
    const int64_t planned = recent().at(0)["Scene_schedule_time"].integer();
    EXPECT_GE(planned, before + 400);
    EXPECT_LE(planned, after + 400);
}

TEST_F(EventIntake, CarriesTheMeterAndTheColourOfTheChannel)
{
    sdk.set({.uid = 5,
             .channels = {{.chid = 1,
                           .functype = METER,
                           .meter = R"({"watt":1,"current":2,"kwh":3,"pf":4,"voltage":5})",
                           .switchColor = R"({"comp_mask1":6,"comp_mask2":7,"comp_value":[
                               {"comp_id":0,"value":10},{"comp_id":1,"value":11},{"comp_id":2,"value":12},
                               {"comp_id":3,"value":13},{"comp_id":4,"value":14}]})"}}});
    start();
    eventHandled(REPORT, 5, 1);
    const Json record = recent().at(0);
    EXPECT_EQ(record["meter"].dump(), R"({"current":2,"kwh":3,"pf":4,"voltage":5,"watt":1})");
    EXPECT_EQ(record["switch_color"]["comp_mask1"].integer(), 6);
    EXPECT_EQ(record["switch_color"]["comp_mask2"].integer(), 7);
    EXPECT_EQ(record["switch_color"]["comp_value"][4].dump(), R"({"comp_id":4,"value":14})");
}

TEST_F(EventIntake, LeavesOutAPayloadThatIsNoJson)
{
    start();
    eventWithPayload(REPORT, 5, 1, 1, "not json {");
    eventWithPayload(REPORT, 5, 1, 1, R"({"user":"外"})");
    ASSERT_TRUE(eventually([&] { return recent().size() == 2; }));
    EXPECT_TRUE(recent().at(0)["payload"].isNull());
    EXPECT_EQ(recent().at(1)["payload"].dump(), R"({"user":"\u5916"})");
}

TEST_F(EventIntake, KnowsNothingOfAnUnknownDevice)
{
    start();
    eventHandled(REPORT, 77, 1);
    const Json record = recent().at(0);
    EXPECT_EQ(record["productCode"].integer(), -1);
    EXPECT_EQ(record["battery"].integer(), 0);
    EXPECT_EQ(record["funcType"].integer(), 0);
    EXPECT_EQ(record["funcName"].text(), "");
    EXPECT_TRUE(daemon.eventuallyLogged("triggeredDev is NULL"));
}

TEST_F(EventIntake, KnowsTheDeviceOfAnUnknownChannel)
{
    start();
    eventHandled(REPORT, 5, 9);
    const Json record = recent().at(0);
    EXPECT_EQ(record["productCode"].integer(), 0x01010101);
    EXPECT_EQ(record["battery"].integer(), 100);
    EXPECT_EQ(record["funcType"].integer(), 0);
    EXPECT_TRUE(daemon.eventuallyLogged("triggeredChannel is NULL"));
}

TEST_F(EventIntake, TakesAProductCodeThatIsNoNumberAsUnknown)
{
    sdk.set({.uid = 5, .channels = {{.chid = 1}}, .code = "no code"});
    start();
    eventHandled(REPORT, 5, 1);
    EXPECT_EQ(recent().at(0)["productCode"].integer(), -1);
}

TEST_F(EventIntake, AsksForTheReportingDeviceBeforeItAnnounces)
{
    start();
    sdk.forgetHeard();
    eventHandled(REPORT, 5, 1);
    const std::vector<Heard> heard = sdk.everything();
    ASSERT_EQ(heard.size(), 2u);
    EXPECT_EQ(heard[0].text, R"({"control":{"cmd":"getdevice","uid":5}})");
    EXPECT_EQ(heard[1].member, "recent");
    EXPECT_EQ(recent().at(0)["basicValue"].integer(), 255);
}

TEST_F(EventIntake, ReadsTheValueThatTheDeviceHasNow)
{
    start();
    eventHandled(REPORT, 5, 1);
    sdk.setBasicValue(5, 1, 0);
    eventHandled(REPORT, 5, 1);
    EXPECT_EQ(recent().at(0)["basicValue"].integer(), 255);
    EXPECT_EQ(recent().at(1)["basicValue"].integer(), 0);
}

TEST_F(EventIntake, DropsAnEventOfADeviceThatTheSdkDoesNotAnswerFor)
{
    sdk.behave("getdevice", 5, Answer::refusing());
    start();
    event(REPORT, 5, 1);
    eventHandled(REPORT, 6, 0);
    EXPECT_EQ(announced(REPORT, 5), 0u);
    EXPECT_TRUE(daemon.logged("sendOvrinSdkCmd failed"));
    EXPECT_EQ(recent().at(0)["sequence"].integer(), 1) << "it was not even logged";
}

TEST_F(EventIntake, KeepsTickingAfterADroppedEvent)
{
    sdk.behave("getdevice", 5, Answer::refusing());
    startWith(doorAndMarker(R"("enabled":1)"));
    gatewayReady();
    event(REPORT, 5, 1);
    runMarker();
}

TEST_F(EventIntake, TakesAnAnswerThatIsNoJsonAsAnUnknownDevice)
{
    start();
    sdk.behave("getdevice", 5, Answer::saying("{\"device\":[{\"uid\":5,"));
    eventHandled(REPORT, 5, 1);
    EXPECT_EQ(recent().at(0)["productCode"].integer(), -1);
    EXPECT_TRUE(daemon.logged("error: on line 1:"));
}

struct RefreshCase {
    uint16_t code;
    size_t refreshes;
};

class EventIntakeRefresh : public EventIntake, public testing::WithParamInterface<RefreshCase> {};

TEST_P(EventIntakeRefresh, FetchesAllDevicesAgainForTheCodesThatChangeThem)
{
    start();
    sdk.forgetHeard();
    eventHandled(GetParam().code, 5, 1);
    EXPECT_EQ(sdk.asked("getdevice", 256), GetParam().refreshes);
    EXPECT_EQ(sdk.asked("getdevice", 5), 1u);
}

INSTANTIATE_TEST_SUITE_P(Codes, EventIntakeRefresh,
                         testing::Values(RefreshCase{1000, 0}, RefreshCase{1001, 1},
                                         RefreshCase{1002, 1}, RefreshCase{1003, 1},
                                         RefreshCase{1004, 0}, RefreshCase{100, 0}),
                         caseCode);

TEST_F(EventIntake, FetchesAllDevicesAtEachEventWhileItKnowsNone)
{
    sdk.behave("getdevice", 256, Answer::saying(R"({"device":[]})"));
    start();
    eventHandled(REPORT, 5, 1);
    eventHandled(REPORT, 5, 1);
    EXPECT_EQ(sdk.asked("getdevice", 256), 3u);
    sdk.forgetBehaviour("getdevice", 256);
    eventHandled(REPORT, 5, 1);
    eventHandled(REPORT, 5, 1);
    EXPECT_EQ(sdk.asked("getdevice", 256), 4u) << "now it knows some";
}

TEST_F(EventIntake, FetchesAllDevicesWhenTheFirstAnswerWasNoJson)
{
    sdk.behave("getdevice", 256, Answer::saying("no json"));
    start();
    sdk.forgetBehaviour("getdevice", 256);
    eventHandled(REPORT, 5, 1);
    eventHandled(REPORT, 5, 1);
    EXPECT_EQ(sdk.asked("getdevice", 256), 2u);
}

TEST_F(EventIntake, ForgetsAllDevicesWhenARefreshGetsNoJson)
{
    start();
    sdk.behave("getdevice", 256, Answer::saying("no json"));
    eventHandled(1001, 5, 1);
    EXPECT_EQ(sdk.asked("getdevice", 256), 2u);
    sdk.forgetBehaviour("getdevice", 256);
    eventHandled(REPORT, 5, 1);
    EXPECT_EQ(sdk.asked("getdevice", 256), 3u);
}

TEST_F(EventIntake, ReadsTheCheckboxAgainOnItsEvent)
{
    start();
    EXPECT_EQ(platform.asked("jsonsetcheckbox"), 1u);
    eventHandled(5003, 5, 1);
    EXPECT_EQ(platform.asked("jsonsetcheckbox"), 1u);
    eventHandled(5004, 5, 1);
    EXPECT_EQ(platform.asked("jsonsetcheckbox"), 2u);
}

struct FilterCase {
    const char *name;
    const char *filter;
    bool hides;  // event 4001 of device 5, channel 1
};

class EventIntakeFilter : public EventIntake, public testing::WithParamInterface<FilterCase> {};

TEST_P(EventIntakeFilter, HidesTheEventsThatEachOfItsMembersMatches)
{
    startWith(std::string(R"({"eventFilter":[)") + GetParam().filter + "]}");
    event(4001, 5, 1);
    eventHandled(REPORT, 6, 0);
    EXPECT_EQ(announced(4001, 5), GetParam().hides ? 0u : 1u);
    EXPECT_EQ(recent().back()["sequence"].integer(), 2) << "a hidden event is logged all the same";
    EXPECT_EQ(daemon.logged(" do not filter dev: 5 ch: 1 eventCode: 4001"), !GetParam().hides);
    if (GetParam().hides) {
        EXPECT_TRUE(daemon.logged(" filter dev: 5 ch: 1 eventCode: 4001"));
    }
}

INSTANTIATE_TEST_SUITE_P(
    Filters, EventIntakeFilter,
    testing::Values(FilterCase{"Device", R"({"uid":5})", true},
                    FilterCase{"OtherDevice", R"({"uid":7})", false},
                    FilterCase{"Channel", R"({"channel":1})", true},
                    FilterCase{"ChannelZero", R"({"channel":0,"uid":5})", false},
                    FilterCase{"Code", R"({"uid":-1,"channel":-1,"eventCode":4001})", true},
                    FilterCase{"OtherCode", R"({"eventCode":4002})", false},
                    FilterCase{"AllThree", R"({"uid":5,"channel":1,"eventCode":4001})", true},
                    FilterCase{"TwoOfThree", R"({"uid":5,"channel":2,"eventCode":4001})", false},
                    FilterCase{"AnyOfTwo", R"({"uid":9},{"eventCode":4001})", true}),
    caseName);

TEST_F(EventIntake, RunsTheMacrosOfAFilteredEvent)
{
    std::string setup = doorAndMarker(R"("enabled":1)");
    setup.back() = ',';
    startWith(setup + R"("eventFilter":[{"uid":5}]})");
    gatewayReady();
    event(REPORT, 5, 1);
    EXPECT_TRUE(eventually([&] { return doorMacroRan(); }));
    EXPECT_EQ(announced(REPORT, 5), 0u);
}

TEST_F(EventIntake, StartsNoMacroBeforeTheGatewayHasReported)
{
    startWith(doorAndMarker(R"("enabled":1)"));
    eventHandled(REPORT, 5, 1);
    gatewayReady();
    expectDoorMacro(false);
    event(REPORT, 5, 1);
    EXPECT_TRUE(eventually([&] { return doorMacroRan(); }));
}

TEST_F(EventIntake, StartsMacrosFromAnEventMethodToo)
{
    startWith(doorAndMarker(R"("enabled":1)"));
    gatewayReady();
    EXPECT_EQ(eventMethod(REPORT, 5, 1), 1);
    EXPECT_TRUE(eventually([&] { return doorMacroRan(); }));
}

TEST_F(EventIntake, TheEventThatReportsTheGatewayMayStartMacrosItself)
{
    startWith(doorAndMarker(R"("enabled":1)"));
    event(100, 5, 1);
    EXPECT_TRUE(eventually([&] { return doorMacroRan(); }));
}

struct CodeCase {
    uint16_t code;
    bool fires;
};

class EventIntakeCode : public EventIntake, public testing::WithParamInterface<CodeCase> {};

TEST_P(EventIntakeCode, DecidesWhetherAMacroMayFire)
{
    startWith(doorAndMarker(R"("enabled":1)"));
    gatewayReady();
    eventHandled(GetParam().code, 5, 1);
    expectDoorMacro(GetParam().fires);
}

INSTANTIATE_TEST_SUITE_P(Codes, EventIntakeCode,
                         testing::Values(CodeCase{4001, false}, CodeCase{4002, false},
                                         CodeCase{4003, false}, CodeCase{5008, false},
                                         CodeCase{5009, false}, CodeCase{5102, false},
                                         CodeCase{9999, false}, CodeCase{5002, true},
                                         CodeCase{5004, true}, CodeCase{4000, true}),
                         caseCode);

TEST_F(EventIntake, AMeterReadingOfItsOwnEventFiresNoMacro)
{
    sdk.set({.uid = 5, .channels = {{.chid = 1, .functype = METER, .sensorvalue = 255}}});
    startWith(doorAndMarker(R"("enabled":1)"));
    gatewayReady();
    eventHandled(5002, 5, 1);
    expectDoorMacro(false);
    event(REPORT, 5, 1);
    EXPECT_TRUE(eventually([&] { return doorMacroRan(); })) << "another report of it does";
}

struct EnabledCase {
    const char *name;
    const char *members;  // of the macro, and what stands beside it
    bool fires;
};

class EventIntakeEnabled : public EventIntake, public testing::WithParamInterface<EnabledCase> {};

TEST_P(EventIntakeEnabled, DecidesTogetherWithTheSchedulesWhetherAMacroFires)
{
    startWith(doorAndMarker(GetParam().members));
    gatewayReady();
    eventHandled(REPORT, 5, 1);
    expectDoorMacro(GetParam().fires);
}

INSTANTIATE_TEST_SUITE_P(Values, EventIntakeEnabled,
                         testing::Values(EnabledCase{"Zero", R"("enabled":0)", false},
                                         EnabledCase{"One", R"("enabled":1)", true},
                                         EnabledCase{"Two", R"("enabled":2)", false},
                                         EnabledCase{"Three", R"("enabled":3)", true},
                                         EnabledCase{"Absent", R"("priority":9)", false}),
                         caseName);

struct ScheduleCase {
    const char *name;
    const char *schedule;
    bool fires;
};

class EventIntakeSchedule : public EventIntake, public testing::WithParamInterface<ScheduleCase> {};

TEST_P(EventIntakeSchedule, LetsItsMacroFireInItsWindowAlthoughItIsNotEnabled)
{
    std::string setup = doorAndMarker(R"("enabled":0)");
    setup.back() = ',';
    startWith(setup + R"("schedules":[)" + GetParam().schedule + "]}");
    gatewayReady();
    eventHandled(REPORT, 5, 1);
    expectDoorMacro(GetParam().fires);
}

INSTANTIATE_TEST_SUITE_P(
    Windows, EventIntakeSchedule,
    testing::Values(
        ScheduleCase{"AllDay", R"({"title":"s","macro":"Door","enabled":1,"weekdays":127,
            "start_hour":0,"start_minute":0,"end_hour":23,"end_minute":59})",
                     true},
        ScheduleCase{"NoDay", R"({"title":"s","macro":"Door","enabled":1,"weekdays":0,
            "start_hour":0,"start_minute":0,"end_hour":23,"end_minute":59})",
                     false},
        ScheduleCase{"NotEnabled", R"({"title":"s","macro":"Door","enabled":0,"weekdays":127,
            "start_hour":0,"start_minute":0,"end_hour":23,"end_minute":59})",
                     false},
        ScheduleCase{"OfAnotherMacro", R"({"title":"s","macro":"door","enabled":1,"weekdays":127,
            "start_hour":0,"start_minute":0,"end_hour":23,"end_minute":59})",
                     false},
        ScheduleCase{"SecondOfTwo", R"({"title":"t","macro":"Door","enabled":1,"weekdays":0,
            "start_hour":0,"start_minute":0,"end_hour":23,"end_minute":59},
            {"title":"s","macro":"Door","enabled":1,"weekdays":127,
            "start_hour":0,"start_minute":0,"end_hour":23,"end_minute":59})",
                     true}),
    caseName);

TEST_F(EventIntake, RunsEveryMacroThatAnEventFiresWhateverItsPriority)
{
    startWith(R"({"macros":[
        {"title":"A","enabled":1,"priority":0,"scene":{"title":"a","comps":[
            {"target":{"dev":20,"if":0,"ch":0},"value":1}]},
         "triggers":[{"target":{"dev":5,"if":0,"ch":1},"op":">","threshold":0}]},
        {"title":"B","enabled":1,"priority":9,"scene":{"title":"b","comps":[
            {"target":{"dev":21,"if":0,"ch":0},"value":2}]},
         "triggers":[{"target":{"dev":5,"if":0,"ch":1},"op":"<=","threshold":255}]}]})");
    gatewayReady();
    event(REPORT, 5, 1);
    EXPECT_TRUE(eventually(
        [&] { return sdk.heard(switchCommand(20, 0, 1)) && sdk.heard(switchCommand(21, 0, 2)); }));
    EXPECT_EQ(runsOf("A"), 1u);
    EXPECT_EQ(runsOf("B"), 1u);
}
