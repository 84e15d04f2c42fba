// Which reports fire a macro: operators, units, and the products that fire on every report.

#include "support/daemon_on_its_own_bus.h"

using namespace support;

struct TriggerCase {
    const char *name;
    Device reporter;      // device 5, channel 1
    const char *trigger;  // its members beside the target
    bool fires;
};

class Triggers : public DaemonOnItsOwnBus, public testing::WithParamInterface<TriggerCase> {};

// One macro under test, and one that fires on every report of device 6 and so shows that the first
// is done with.
TEST_P(Triggers, CompareTheReportedValueWithTheThreshold)
{
    sdk.set(GetParam().reporter);
    sdk.set(device(6, 0, SWITCH, 1));
    startWith(std::string(R"({"macros":[{"title":"Tested","enabled":1,"scene":{"title":"s"},
        "triggers":[{"target":{"dev":5,"if":0,"ch":1},)") +
              GetParam().trigger + R"(}]},{"title":"Marker","enabled":1,"scene":{"title":"m"},
        "triggers":[{"target":{"dev":6,"if":0,"ch":0},"op":"=","threshold":1}]}]})");
    gatewayReady();
    event(5001, 5, 1);
    event(5001, 6, 0);
    const auto ran = [&](const std::string &name) {
        for (const Json &macroEvent : macroEvents()) {
            if (macroEvent["name"].text() == name)
                return true;
        }
        return false;
    };
    ASSERT_TRUE(eventually([&] { return ran("Marker"); }));
    EXPECT_EQ(eventually([&] { return ran("Tested"); }, GetParam().fires ? 8000ms : 0ms),
              GetParam().fires);
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
static const Device METERING_SWITCH =
    reporter({.functype = METER, .basicvalue = 1, .sensorvalue = 2, .ctrltype = 23});

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
        TriggerCase{"EveryReportOfSomeProducts",
                    reporter({.functype = SWITCH, .basicvalue = -5}, "01010173"),
                    R"("op":"=>","threshold":-1)", true},
        TriggerCase{"NotOfOthers", reporter({.functype = SWITCH, .basicvalue = -5}, "01010174"),
                    R"("op":"=>","threshold":-1)", false}),
    caseName);

class TriggerTargets : public DaemonOnItsOwnBus {};

// The interface number of a target is not looked at.
TEST_F(TriggerTargets, AreTheDeviceAndTheChannelAlone)
{
    sdk.set({.uid = 5,
             .channels = {{.chid = 1, .functype = DOOR, .basicvalue = 255},
                          {.chid = 2, .functype = DOOR, .basicvalue = 255}}});
    sdk.set(device(7, 1, DOOR, 255));
    startWith(R"({"macros":[{"title":"Tested","enabled":1,"scene":{"title":"s"},
        "triggers":[{"target":{"dev":5,"if":3,"ch":1},"op":"=","threshold":255}]},
        {"title":"Marker","enabled":1,"scene":{"title":"m"},
        "triggers":[{"target":{"dev":5,"if":0,"ch":2},"op":"=","threshold":255}]}]})");
    gatewayReady();
    eventHandled(5001, 7, 1);
    event(5001, 5, 2);
    ASSERT_TRUE(eventually([&] { return macroEvents().size() == 1; }));
    eventHandled(5001, 7, 1);
    EXPECT_EQ(daemon.timesLogged("macro 'Marker' triggered,"), 1u);
    EXPECT_EQ(daemon.timesLogged("macro 'Tested' triggered,"), 0u);

    event(5001, 5, 1);
    ASSERT_TRUE(eventually([&] { return macroEvents().size() == 2; }));
    EXPECT_EQ(daemon.timesLogged("macro 'Tested' triggered,"), 1u);
}
