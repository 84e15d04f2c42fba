// Which reports fire a macro: operators, units, and the products that fire on every report.

#include "support/daemon_on_its_own_bus.h"

using namespace support;
using testing::ElementsAre;

static constexpr uint16_t REPORT = 5001;

// Macros under test, and one that fires on every report of device 6 and so shows that the others
// are done with.
class TriggerHome : public DaemonOnItsOwnBus {
protected:
    void SetUp() override
    {
        DaemonOnItsOwnBus::SetUp();
        sdk.set(device(6, 0, SWITCH, 1));
        sdk.set(device(20, 0, SWITCH, 7));
    }
    // A macro that switches device 20 to 1, from the members of its one trigger.
    static std::string macro(const std::string &title, const std::string &trigger,
                             const std::string &members = "")
    {
        return R"({"title":")" + title + R"(","enabled":1,)" + members + R"("scene":{"title":"s",
            "comps":[{"target":{"dev":20,"if":0,"ch":0},"value":1}]},"triggers":[{)" +
               trigger + "}]}";
    }
    void startWithMacros(const std::string &macros)
    {
        startWith(R"({"macros":[)" + macros + R"(,{"title":"Marker","enabled":1,
            "scene":{"title":"m"},
            "triggers":[{"target":{"dev":6,"if":0,"ch":0},"op":"=","threshold":1}]}]})");
        gatewayReady();
        sdk.forgetHeard();
        threadsAtRest = daemon.threads();
    }
    // Returns when every macro that the report has fired has ended.
    void report(uint16_t gid, uint16_t channel)
    {
        event(REPORT, gid, channel);
        event(REPORT, 6, 0);
        ++reports;
        ASSERT_TRUE(eventually([&] { return runs("Marker") == reports; }));
        ASSERT_TRUE(eventually([&] { return daemon.threads() == threadsAtRest; }));
    }
    size_t runs(const std::string &title) const
    {
        return daemon.timesLogged("macro '" + title + "' triggered,");
    }

private:
    size_t threadsAtRest = 0;
    size_t reports = 0;
};

struct TriggerCase {
    const char *name;
    Device reporter;      // device 5, channel 1
    const char *trigger;  // its members beside the target
    bool fires;
};

class Triggers : public TriggerHome, public testing::WithParamInterface<TriggerCase> {};

static const std::string TARGET = R"("target":{"dev":5,"if":0,"ch":1},)";

TEST_P(Triggers, CompareTheReportedValueWithTheThreshold)
{
    sdk.set(GetParam().reporter);
    startWithMacros(macro("Tested", TARGET + GetParam().trigger));
    report(5, 1);
    EXPECT_EQ(runs("Tested"), GetParam().fires ? 1u : 0u);
}

static Device reporter(Channel channel, const char *code = "01010101")
{
    channel.chid = 1;
    return {.uid = 5, .channels = {channel}, .code = code};
}

static const Device SEVEN = reporter({.functype = SWITCH, .basicvalue = 7, .sensorvalue = 99});
static const Device FAHRENHEIT_77 =
    reporter({.functype = TEMPERATURE, .sensorvalue = 770, .sensorunit = FAHRENHEIT});
static const Device CELSIUS_25 =
    reporter({.functype = TEMPERATURE, .sensorvalue = 250, .sensorunit = CELSIUS});
static constexpr int64_t METERING_SWITCH_TYPE = 23;
static const Device METERING_SWITCH = reporter(
    {.functype = METER, .basicvalue = 1, .sensorvalue = 2, .ctrltype = METERING_SWITCH_TYPE});

INSTANTIATE_TEST_SUITE_P(
    Cases, Triggers,
    testing::Values(
        TriggerCase{"GreaterHolds", SEVEN, R"("op":">","threshold":6)", true},
        TriggerCase{"GreaterIsStrict", SEVEN, R"("op":">","threshold":7)", false},
        TriggerCase{"LessHolds", SEVEN, R"("op":"<","threshold":8)", true},
        TriggerCase{"LessIsStrict", SEVEN, R"("op":"<","threshold":7)", false},
        TriggerCase{"EqualHolds", SEVEN, R"("op":"=","threshold":7)", true},
        TriggerCase{"EqualFails", SEVEN, R"("op":"=","threshold":99)", false},
        TriggerCase{"AtMostHolds", SEVEN, R"("op":"<=","threshold":7)", true},
        TriggerCase{"AtLeastHolds", SEVEN, R"("op":">=","threshold":7)", true},
        TriggerCase{"UnequalHolds", SEVEN, R"("op":"!=","threshold":6)", true},
        TriggerCase{"UnequalFails", SEVEN, R"("op":"!=","threshold":7)", false},
        TriggerCase{"UnknownOperator", SEVEN, R"("op":"=>","threshold":7)", false},
        TriggerCase{"ThresholdInItsLowBits", SEVEN, R"("op":"=","threshold":4294967303)", true},
        TriggerCase{"FahrenheitAgainstCelsius", FAHRENHEIT_77,
                    R"("op":"=","threshold":250,"dataunit":1)", true},
        TriggerCase{"CelsiusAgainstFahrenheit", CELSIUS_25,
                    R"("op":"=","threshold":770,"dataunit":2)", true},
        TriggerCase{"CelsiusAgainstCelsius", CELSIUS_25, R"("op":"=","threshold":250,"dataunit":1)",
                    true},
        TriggerCase{"NoUnitNoConversion", FAHRENHEIT_77, R"("op":"=","threshold":770)", true},
        TriggerCase{"MeteringSwitchByItsSensor", METERING_SWITCH, R"("op":"=","threshold":2)",
                    true},
        TriggerCase{"MeterOfAProductByItsBasicValue",
                    reporter({.functype = METER, .basicvalue = 1, .sensorvalue = 2}, "01010167"),
                    R"("op":"=","threshold":1)", true},
        TriggerCase{"MeterOfAnotherProductByItsSensor",
                    reporter({.functype = METER, .basicvalue = 1, .sensorvalue = 2}),
                    R"("op":"=","threshold":1)", false}),
    caseName);

class EveryReport : public TriggerHome {};

struct EveryReportCase {
    const char *name;
    const char *code;
    bool fires;
};

class EveryReportOf : public EveryReport, public testing::WithParamInterface<EveryReportCase> {};

TEST_P(EveryReportOf, SomeProductsFiresAThresholdOfMinusOne)
{
    sdk.set(reporter({.functype = SWITCH, .basicvalue = -5}, GetParam().code));
    startWithMacros(macro("Tested", TARGET + R"("op":"=>","threshold":-1)"));
    report(5, 1);
    EXPECT_EQ(runs("Tested"), GetParam().fires ? 1u : 0u);
}

INSTANTIATE_TEST_SUITE_P(Codes, EveryReportOf,
                         testing::Values(EveryReportCase{"Code922", "01010922", true},
                                         EveryReportCase{"Code201", "01020201", true},
                                         EveryReportCase{"Code939", "01010939", true},
                                         EveryReportCase{"Code167", "01010167", true},
                                         EveryReportCase{"Code173", "01010173", true},
                                         EveryReportCase{"NoLeadingZero", "1010173", true},
                                         EveryReportCase{"AnotherCode", "01010174", false},
                                         EveryReportCase{"NoNumber", "no code", false},
                                         EveryReportCase{"Empty", "", false}),
                         caseName);

TEST_F(EveryReport, OfADeviceWithoutACodeIsComparedByItsValue)
{
    sdk.behave("getdevice", 5, Answer::saying(R"({"device":[{"uid":5,"channel":[
        {"chid":1,"functype":23,"basicvalue":-5}]}]})"));
    startWithMacros(macro("EveryReport", TARGET + R"("op":"=>","threshold":-1)") + "," +
                    macro("ByValue", TARGET + R"("op":"=","threshold":-5)"));
    report(5, 1);
    EXPECT_EQ(runs("EveryReport"), 0u);
    EXPECT_EQ(runs("ByValue"), 1u);
}

// What fires on the low 32 bits of -1 hands a value on only with all 64 of them.
TEST_F(EveryReport, HandsNoValueOnAtAThresholdThatIsMinusOneIn32BitsOnly)
{
    sdk.set(reporter({.functype = SWITCH, .basicvalue = 42}, "01010173"));
    startWithMacros(macro("Tested", TARGET + R"("op":"=>","threshold":4294967295)"));
    report(5, 1);
    EXPECT_EQ(runs("Tested"), 1u);
    ASSERT_TRUE(eventually([&] { return !sdk.commands().empty(); }));
    EXPECT_THAT(sdk.commandTexts(), ElementsAre(switchCommand(20, 0, 1)));
    EXPECT_FALSE(daemon.logged("bypass sensor value"));
}

class MeteringSwitch : public TriggerHome {};

TEST_F(MeteringSwitch, FiresByItsSensorAndHandsItsBasicValueOn)
{
    sdk.set(reporter({.functype = METER,
                      .basicvalue = 42,
                      .sensorvalue = -1,
                      .ctrltype = METERING_SWITCH_TYPE}));
    startWithMacros(macro("Tested", TARGET + R"("op":"=","threshold":-1)"));
    report(5, 1);
    EXPECT_EQ(runs("Tested"), 1u);
    ASSERT_TRUE(eventually([&] { return !sdk.commands().empty(); }));
    EXPECT_THAT(sdk.commandTexts(), ElementsAre(switchCommand(20, 0, 42)));
}

TEST_F(MeteringSwitch, IsPutBackToItsBasicValue)
{
    sdk.set(device(5, 1, SWITCH, 1));
    sdk.set({.uid = 20,
             .channels = {{.functype = METER,
                           .basicvalue = 7,
                           .sensorvalue = 3,
                           .ctrltype = METERING_SWITCH_TYPE}}});
    startWithMacros(macro("Tested", TARGET + R"("op":"=","threshold":1)",
                          R"("duration":-1,"duration_type":0,)"));
    report(5, 1);
    ASSERT_TRUE(eventually([&] { return sdk.commands().size() == 2; }));
    EXPECT_THAT(sdk.commandTexts(), ElementsAre(switchCommand(20, 0, 1), switchCommand(20, 0, 7)));
}

class TriggerTargets : public TriggerHome {
protected:
    static std::string onReportOf(const std::string &target)
    {
        return R"("target":)" + target + R"(,"op":"=","threshold":255)";
    }
};

// The interface number of a target is not looked at.
TEST_F(TriggerTargets, AreTheDeviceAndTheChannelAlone)
{
    sdk.set({.uid = 5,
             .channels = {{.chid = 1, .functype = DOOR, .basicvalue = 255},
                          {.chid = 2, .functype = DOOR, .basicvalue = 255}}});
    startWithMacros(macro("First", onReportOf(R"({"dev":5,"if":3,"ch":1})")) + "," +
                    macro("Second", onReportOf(R"({"dev":5,"if":0,"ch":2})")));
    report(5, 2);
    EXPECT_EQ(runs("First"), 0u);
    EXPECT_EQ(runs("Second"), 1u);
    report(5, 1);
    EXPECT_EQ(runs("First"), 1u);
    EXPECT_EQ(runs("Second"), 1u);
}

TEST_F(TriggerTargets, AreNotThoseThatAreTheSameInTheirLowBitsOnly)
{
    sdk.set(device(5, 1, DOOR, 255));
    startWithMacros(macro("Right", onReportOf(R"({"dev":5,"if":0,"ch":1})")) + "," +
                    macro("Channel", onReportOf(R"({"dev":5,"if":0,"ch":257})")) + "," +
                    macro("Device", onReportOf(R"({"dev":65541,"if":0,"ch":1})")));
    report(5, 1);
    EXPECT_EQ(runs("Right"), 1u);
    EXPECT_EQ(runs("Channel"), 0u);
    EXPECT_EQ(runs("Device"), 0u);
}
