#include "events/trigger_check.h"

#include "config/device_value.h"
#include "daemon_in_process.h"

#include <algorithm>
#include <cstring>

static constexpr Integer ORDINARY_PRODUCT = 0x01010101;

static GetDev_channel channelOf(Integer functype, Integer basicvalue, Integer sensorvalue)
{
    GetDev_channel channel = {};
    channel.functype = functype;
    channel.basicvalue = basicvalue;
    channel.sensorvalue = sensorvalue;
    return channel;
}

static Trigger triggerOf(const char *op, Integer threshold)
{
    Trigger trigger = {};
    strcpy(trigger.op, op);
    trigger.threshold = threshold;
    trigger.target = {.dev = 5, .if_ = 9, .ch = 1};
    return trigger;
}

static LoggedEvent eventOf(Integer product)
{
    return {.uid = 5, .channelID = 1, .productCode = product, .funcType = 0};
}

static int check(const Trigger &trigger, const GetDev_channel &channel,
                 Integer product = ORDINARY_PRODUCT)
{
    const LoggedEvent event = eventOf(product);
    return checkTrigger(&trigger, &channel, &event);
}

TEST(DeviceValue, IsTheSensorsForTheseFunctionTypes)
{
    const std::vector<Integer> sensors = {11, 12, 15, 18, 19, 21, 22, 27, 29, 31, 32, 33, 34};
    std::vector<Integer> functypes = {INT64_MIN, INT64_MAX};
    for (Integer functype = -5; functype < 70; ++functype)
        functypes.push_back(functype);
    for (const Integer functype : functypes) {
        const GetDev_channel channel = channelOf(functype, 1, 2);
        const bool isSensor = std::find(sensors.begin(), sensors.end(), functype) != sensors.end();
        EXPECT_EQ(getDevValByFuncType(&channel), isSensor ? 2 : 1) << functype;
    }
}

TEST(DeviceValue, OfAMeteringSwitchIsItsBasicValue)
{
    GetDev_channel channel = channelOf(22, 1, 2);
    channel.ctrltype = 23;
    EXPECT_EQ(getDevValByFuncType(&channel), 1);
    EXPECT_EQ(check(triggerOf("=", 2), channel), 1);  // a trigger reads it the other way
}

TEST(DeviceValue, IsCutTo32Bits)
{
    const std::pair<Integer, int32_t> cases[] = {{4294967297, 1},
                                                 {4294967295, -1},
                                                 {2147483647, 2147483647},
                                                 {2147483648, INT32_MIN},
                                                 {-2147483649, 2147483647}};
    for (const auto &[value, cut] : cases) {
        const GetDev_channel lamp = channelOf(23, value, 7);
        EXPECT_EQ(getDevValByFuncType(&lamp), cut) << value;
        const GetDev_channel thermometer = channelOf(11, 7, value);
        EXPECT_EQ(getDevValByFuncType(&thermometer), cut) << value;
    }
}

TEST(DeviceValue, OfNothingIsMinusOne)
{
    EXPECT_EQ(getDevValByFuncType(nullptr), -1);
    EXPECT_EQ(logLines(),
              (std::vector<LogLine>{{6, "getDevValByFuncType", "1. channel is NULL\n"}}));
}

TEST(FunctionNames, AreLookedUpByTheLowByte)
{
    const std::pair<int, const char *> names[] = {
        {11, "Temperature"}, {12, "Illumination"}, {13, "Door / Window"}, {14, "PIR"},
        {15, "Humidity"},    {16, "GPIO"},         {17, "Smoke"},         {18, "CO"},
        {19, "CO2"},         {20, "Flood"},        {21, "Glass Break"},   {22, "Meter"},
        {23, "Switch"},      {24, "Dimmer"},       {25, "Siren"},         {26, "Curtain"}};
    for (const auto &[code, name] : names) {
        EXPECT_STREQ(funcTypeToString(code), name);
        EXPECT_STREQ(funcTypeToString(code + 256), name);
        EXPECT_STREQ(funcTypeToString(code - 256), name);
        EXPECT_STREQ(funcTypeToString(code + (1LL << 40)), name);
    }
    for (int code = 0; code < 256; ++code) {
        if (code < 11 || code > 26) {
            EXPECT_EQ(funcTypeToString(code), nullptr) << code;
        }
    }
}

struct OperatorCase {
    const char *op;
    int below;
    int equal;
    int above;
};

TEST(Trigger, ComparesTheValueWithItsThreshold)
{
    const OperatorCase cases[] = {{">", 0, 0, 1},  {"<", 1, 0, 0},  {"=", 0, 1, 0},
                                  {"<=", 1, 1, 0}, {">=", 0, 1, 1}, {"!=", 1, 0, 1},
                                  {"=>", 0, 0, 0}, {"", 0, 0, 0}};
    for (const OperatorCase &expected : cases) {
        for (const Integer threshold :
             {-2147483647LL, -100LL, -1LL, 0LL, 1LL, 100LL, 2147483646LL}) {
            const Trigger trigger = triggerOf(expected.op, threshold);
            EXPECT_EQ(check(trigger, channelOf(23, threshold - 1, 0)), expected.below)
                << expected.op;
            EXPECT_EQ(check(trigger, channelOf(23, threshold, 0)), expected.equal) << expected.op;
            EXPECT_EQ(check(trigger, channelOf(23, threshold + 1, 0)), expected.above)
                << expected.op;
        }
    }
}

TEST(Trigger, ComparesTheSmallestAndTheGreatestNumberByTheirSign)
{
    static constexpr Integer SMALLEST = -2147483648LL;
    static constexpr Integer GREATEST = 2147483647;
    const OperatorCase cases[] = {{">", 0, 0, 1},  {"<", 1, 0, 0},  {"=", 0, 1, 0},
                                  {"<=", 1, 1, 0}, {">=", 0, 1, 1}, {"!=", 1, 0, 1}};
    for (const OperatorCase &expected : cases) {
        EXPECT_EQ(check(triggerOf(expected.op, GREATEST), channelOf(23, SMALLEST, 0)),
                  expected.below)
            << expected.op;
        for (const Integer border : {SMALLEST, GREATEST}) {
            EXPECT_EQ(check(triggerOf(expected.op, border), channelOf(23, border, 0)),
                      expected.equal)
                << expected.op;
        }
        EXPECT_EQ(check(triggerOf(expected.op, SMALLEST), channelOf(23, GREATEST, 0)),
                  expected.above)
            << expected.op;
    }
}

TEST(Trigger, KnowsNoOtherSpellingOfAnOperator)
{
    for (const char *op : {"==", "=<", "<>", ">>", "> ", " >", "=!", "!", "<==", "gt"}) {
        for (const Integer value : {9, 10, 11})
            EXPECT_EQ(check(triggerOf(op, 10), channelOf(23, value, 0)), 0) << op << value;
    }
}

TEST(Trigger, ComparesTheLow32BitsOfItsThreshold)
{
    EXPECT_EQ(check(triggerOf("=", 4294967297), channelOf(23, 1, 0)), 1);
    EXPECT_EQ(check(triggerOf("<", 4294967295), channelOf(23, -2, 0)), 1);
}

TEST(Trigger, ComparesTheLow32BitsOfTheValue)
{
    GetDev_channel plug = channelOf(22, 7, 4294967297);
    plug.ctrltype = 23;
    EXPECT_EQ(check(triggerOf("=", 1), plug), 1);
    EXPECT_EQ(check(triggerOf("=", 1), channelOf(11, 7, 4294967297)), 1);
    EXPECT_EQ(check(triggerOf("=", 1), channelOf(11, 4294967297, 7), 0x01010167), 1);
    EXPECT_EQ(check(triggerOf("<", 0), channelOf(11, 7, 2147483648)), 1);
}

TEST(Trigger, ConvertsTenthsOfADegreeToItsOwnUnit)
{
    struct Conversion {
        Integer triggerUnit;
        Integer sensorUnit;
        Integer sensor;
        Integer compared;
    };
    const Conversion cases[] = {{1, 2, 770, 250},
                                {2, 1, 250, 770},
                                {1, 1, 10, 10},
                                {2, 2, 10, 10},
                                {0, 2, 770, 770},
                                {1, 0, 770, 770},
                                {1, 2, -400, -400},
                                {2, 1, -400, -400},
                                {1, 2, 320, 0},
                                {2, 1, 0, 320},
                                {1, 2, 321, 0},
                                {1, 2, 319, 0},
                                {1, 2, 322, 1},
                                {1, 2, 318, -1},
                                {2, 1, 1, 321},
                                {2, 1, -1, 319},
                                {1, 2, 0, -177},
                                {1, 2, 1, -177},
                                {1, 2, -1, -178},
                                {1, 2, 2120, 1000},
                                {1, 2, 311, -5},
                                {1, 2, 329, 5},
                                {1, 2, -401, -400},
                                {1, 2, -402, -401},
                                {2, 1, 2, 323},
                                {2, 1, -2, 317},
                                {2, 1, 3, 325},
                                {2, 1, -3, 315},
                                {2, 1, 4, 327},
                                {2, 1, -4, 313},
                                {2, 1, 5, 329},
                                {2, 1, -5, 311},
                                {2, 1, -177, 2},
                                {2, 1, -178, 0},
                                {2, 1, -401, -401},
                                {2, 1, -399, -398},
                                {2, 1, 1000, 2120},
                                {2, 0, 770, 770},
                                {2, 3, 770, 770},
                                {3, 1, 770, 770},
                                {0, 1, 770, 770},
                                {-1, 2, 770, 770},
                                {1, 1 + (1LL << 32), 770, 770},
                                {2 + (1LL << 32), 1, 770, 770}};
    for (const Conversion &unit : cases) {
        GetDev_channel channel = channelOf(11, 0, unit.sensor);
        channel.sensorunit = unit.sensorUnit;
        Trigger trigger = triggerOf("=", unit.compared);
        trigger.dataunit = unit.triggerUnit;
        EXPECT_EQ(check(trigger, channel), 1) << unit.sensor << " as " << unit.compared;
    }
}

TEST(Trigger, ConvertsWhateverValueItCompares)
{
    GetDev_channel lamp = channelOf(23, 770, 0);
    GetDev_channel plug = channelOf(22, 0, 770);
    plug.ctrltype = 23;
    GetDev_channel button = channelOf(11, 770, 0);
    for (GetDev_channel *channel : {&lamp, &plug, &button})
        channel->sensorunit = 2;
    Trigger trigger = triggerOf("=", 250);
    trigger.dataunit = 1;
    EXPECT_EQ(check(trigger, lamp), 1);
    EXPECT_EQ(check(trigger, plug), 1);
    EXPECT_EQ(check(trigger, button, 0x01010167), 1);
}

TEST(Trigger, ConcernsOnlyItsOwnDeviceAndChannel)
{
    Trigger trigger = triggerOf("=", 1);
    EXPECT_EQ(check(trigger, channelOf(23, 1, 0)), 1);
    trigger.target.dev = 6;
    EXPECT_EQ(check(trigger, channelOf(23, 1, 0)), 0);
    trigger.target = {.dev = 5, .if_ = 9, .ch = 2};
    EXPECT_EQ(check(trigger, channelOf(23, 1, 0)), 0);
    trigger.target = {.dev = 5 + (1LL << 32), .if_ = 9, .ch = 1};
    EXPECT_EQ(check(trigger, channelOf(23, 1, 0)), 0);
}

TEST(Trigger, ConcernsNoDeviceOrChannelThatIsTheSameInItsLowBitsOnly)
{
    Trigger trigger = triggerOf("=", 1);
    for (const Integer ch : {257LL, 65537LL, 1 + (1LL << 32)}) {
        trigger.target = {.dev = 5, .if_ = 9, .ch = ch};
        EXPECT_EQ(check(trigger, channelOf(23, 1, 0)), 0) << ch;
    }
    for (const Integer dev : {261LL, 65541LL, 5 + (1LL << 32)}) {
        trigger.target = {.dev = dev, .if_ = 9, .ch = 1};
        EXPECT_EQ(check(trigger, channelOf(23, 1, 0)), 0) << dev;
    }
}

TEST(Trigger, HoldsOnEveryReportOfTheseProducts)
{
    for (const Integer product : {0x01010922, 0x01020201, 0x01010939, 0x01010167, 0x01010173}) {
        EXPECT_EQ(check(triggerOf("=>", -1), channelOf(23, 77, 0), product), 1) << product;
        EXPECT_EQ(check(triggerOf("=>", 4294967295), channelOf(23, 77, 0), product), 1) << product;
        EXPECT_EQ(check(triggerOf("=>", -2), channelOf(23, 77, 0), product), 0) << product;
    }
    EXPECT_EQ(check(triggerOf("=>", -1), channelOf(23, 77, 0)), 0);
    EXPECT_EQ(check(triggerOf("=>", -1), channelOf(23, 77, 0), 0x01010173 + (1LL << 32)), 0);
}

TEST(Trigger, HoldsForAnyValueAndOperatorOfTheseProductsButOnlyOnItsOwnChannel)
{
    for (const char *op : {">", "<", "=", "<=", ">=", "!=", "=>", ""}) {
        for (const Integer value : {-2, -1, 0, 77})
            EXPECT_EQ(check(triggerOf(op, -1), channelOf(23, value, 0), 0x01010173), 1)
                << op << value;
        Trigger elsewhere = triggerOf(op, -1);
        elsewhere.target.dev = 6;
        EXPECT_EQ(check(elsewhere, channelOf(23, 1, 0), 0x01010173), 0);
        elsewhere.target = {.dev = 5, .if_ = 0, .ch = 1 + (1LL << 32)};
        EXPECT_EQ(check(elsewhere, channelOf(23, 1, 0), 0x01010173), 0);
    }
}

TEST(Trigger, ReadsTheSensorOfAMeteringSwitchWhateverTheProduct)
{
    GetDev_channel plug = channelOf(22, 1, 2);
    plug.ctrltype = 23;
    EXPECT_EQ(check(triggerOf("=", 2), plug, 0x01010167), 1);
    GetDev_channel lamp = channelOf(23, 1, 2);
    lamp.ctrltype = 23;
    EXPECT_EQ(check(triggerOf("=", 1), lamp), 1);
    EXPECT_EQ(getDevValByFuncType(&lamp), 1);
}

TEST(Trigger, ConvertsAnyNumberWithoutOverflow)
{
    GetDev_channel channel = channelOf(11, 0, 2147483647);
    channel.sensorunit = 2;
    Trigger trigger = triggerOf("=", 1193046292);
    trigger.dataunit = 1;
    EXPECT_EQ(check(trigger, channel), 1);
}

TEST(Trigger, ReadsTheBasicValueOfTheseProducts)
{
    for (const Integer product : {0x01010167, 0x01010173})
        EXPECT_EQ(check(triggerOf("=", 1), channelOf(11, 1, 2), product), 1);
    EXPECT_EQ(check(triggerOf("=", 2), channelOf(11, 1, 2)), 1);
}

TEST(Trigger, ReadsTheBasicValueOfTheMetersOfTheseProductsUnlessTheySwitch)
{
    for (const Integer product : {0x01010167, 0x01010173}) {
        GetDev_channel meter = channelOf(22, 1, 2);
        for (const Integer ctrltype : {0LL, 22LL, 24LL, 23 + (1LL << 32)}) {
            meter.ctrltype = ctrltype;
            EXPECT_EQ(check(triggerOf("=", 1), meter, product), 1) << ctrltype;
            EXPECT_EQ(check(triggerOf("=", 2), meter), 1) << ctrltype;
        }
        meter.ctrltype = 23;
        EXPECT_EQ(check(triggerOf("=", 2), meter, product), 1);
    }
}

TEST(Trigger, WithoutAnArgumentIsAnError)
{
    const Trigger trigger = triggerOf("=", 1);
    const GetDev_channel channel = channelOf(23, 1, 0);
    const LoggedEvent event = eventOf(ORDINARY_PRODUCT);
    EXPECT_EQ(checkTrigger(nullptr, &channel, &event), -1);
    EXPECT_EQ(checkTrigger(&trigger, nullptr, &event), -1);
    EXPECT_EQ(checkTrigger(&trigger, &channel, nullptr), -1);
    EXPECT_EQ(logLines(), std::vector<LogLine>(3, {6, "checkTrigger", "parameter error.\n"}));
}

static Trigger *addTrigger(Macro *macro, Integer dev)
{
    Trigger *trigger = callocTrigger();
    trigger->target.dev = dev;
    listAddTail(&trigger->node, &macro->triggers);
    return trigger;
}

// A list of macros that a test fills.
class Priorities : public testing::Test {
protected:
    void SetUp() override
    {
        listInit(&macros);
    }
    void TearDown() override
    {
        freeMacros(&macros);
    }
    Macro *addMacro(const char *title, Integer priority, const std::vector<Integer> &devices = {})
    {
        Macro *macro = callocMacro();
        strcpy(macro->title, title);
        macro->priority = priority;
        for (const Integer dev : devices)
            addTrigger(macro, dev);
        listAddTail(&macro->node, &macros);
        return macro;
    }
    // Those that are left of the list, in its order.
    std::vector<const Macro *> keepGreatestOf(Integer gid)
    {
        EXPECT_EQ(keepMaxPriority(&macros, gid), &macros);
        std::vector<const Macro *> left;
        for (const Macro &macro : ELEMENTS(Macro, node, &macros))
            left.push_back(&macro);
        return left;
    }

    ListNode macros;
};

TEST_F(Priorities, HaveNoMaximumWithoutAMacro)
{
    EXPECT_EQ(findMaxPriorityFromMacros(&macros), -1);
    EXPECT_EQ(findMaxPriorityFromMacros(nullptr), -1);
}

TEST_F(Priorities, HaveAMaximumOfAtLeastZero)
{
    addMacro("A", -5);
    addMacro("B", INT64_MIN);
    EXPECT_EQ(findMaxPriorityFromMacros(&macros), 0);
    addMacro("C", 0);
    EXPECT_EQ(findMaxPriorityFromMacros(&macros), 0);
}

TEST_F(Priorities, HaveTheSameMaximumInAnyOrder)
{
    std::vector<Integer> priorities = {-4, 0, 3, 7, 4'294'967'296};
    do {
        for (const Integer priority : priorities)
            addMacro("M", priority);
        EXPECT_EQ(findMaxPriorityFromMacros(&macros), 4'294'967'296)
            << testing::PrintToString(priorities);
        freeMacros(&macros);
    } while (std::next_permutation(priorities.begin(), priorities.end()));
}

TEST_F(Priorities, OfNoMacroKeepNothing)
{
    EXPECT_EQ(keepMaxPriority(nullptr, 1), nullptr);
    EXPECT_EQ(keepMaxPriority(&macros, 1), nullptr);
    EXPECT_EQ(logLines(), (std::vector<LogLine>{{6, "keepMaxPriority", "maxPriority < 0\n"}}));
}

TEST_F(Priorities, KeepTheGreatestOfADeviceAndWhatIsOnOthersInTheirOrder)
{
    addMacro("Lower", 1, {1});
    const Macro *elsewhere = addMacro("Elsewhere", 1, {2});
    const Macro *greatest = addMacro("Greatest", 5, {1});
    addMacro("Lower too", 4, {1});
    const Macro *asGreat = addMacro("As great", 5, {1});
    const Macro *last = addMacro("Last", -1, {3});
    EXPECT_THAT(keepGreatestOf(1), testing::ElementsAre(elsewhere, greatest, asGreat, last));
}

TEST_F(Priorities, AreComparedWithTheGreatestOfTheWholeList)
{
    addMacro("The device's greatest", 4, {1});
    const Macro *elsewhere = addMacro("Elsewhere", 5, {2});
    EXPECT_THAT(keepGreatestOf(1), testing::ElementsAre(elsewhere));
}

TEST_F(Priorities, AreLookedAtWhicheverTriggerIsOnTheDevice)
{
    addMacro("Second", 1, {2, 1});
    const Macro *elsewhere = addMacro("Elsewhere", 1, {2, 3});
    const Macro *greatest = addMacro("Greatest", 2, {2, 1});
    EXPECT_THAT(keepGreatestOf(1), testing::ElementsAre(elsewhere, greatest));
}

TEST_F(Priorities, KeepALowerMacroWithoutTriggers)
{
    const Macro *plain = addMacro("Plain", 1);
    const Macro *greatest = addMacro("Greatest", 2, {1});
    EXPECT_THAT(keepGreatestOf(1), testing::ElementsAre(plain, greatest));
    EXPECT_EQ(logLines(),
              (std::vector<LogLine>{{4, "findDevFromTriggers", "triggersListHead is empty\n"}}));
}

TEST_F(Priorities, BelowZeroAreAllBelowTheMaximum)
{
    addMacro("A", -1, {1});
    const Macro *elsewhere = addMacro("Elsewhere", -2, {2});
    addMacro("B", -3, {1});
    EXPECT_THAT(keepGreatestOf(1), testing::ElementsAre(elsewhere));
}

TEST_F(Priorities, FreeAMacroWithItsScene)
{
    const Value text(R"({"title":"Evening","comps":[{"target":{"dev":5},"value":1}],
        "buildinSiren":{"siren_type":4}})");
    addMacro("Lower", 1, {1})->scene = setNewScene(text);
    const Macro *greatest = addMacro("Greatest", 2, {1});
    EXPECT_THAT(keepGreatestOf(1), testing::ElementsAre(greatest));
}

class Triggers : public testing::Test {
protected:
    void SetUp() override
    {
        macro = callocMacro();
    }
    void TearDown() override
    {
        freeMacro(&macro->node);
    }

    Macro *macro = nullptr;
};

TEST_F(Triggers, AreSearchedForADevice)
{
    for (const Integer dev : {4, 6, 8})
        addTrigger(macro, dev);
    for (const Integer dev : {4, 6, 8})
        EXPECT_EQ(findDevFromTriggers(&macro->triggers, dev), 1) << dev;
    for (const Integer dev : {0LL, 5LL, 260LL, 65540LL, 4 + (1LL << 32), 6 - (1LL << 32)})
        EXPECT_EQ(findDevFromTriggers(&macro->triggers, dev), 0) << dev;
    EXPECT_THAT(logLines(), testing::IsEmpty());
}

TEST_F(Triggers, ThatAreNotThereAreOnNoDevice)
{
    const LogLine line = {4, "findDevFromTriggers", "triggersListHead is empty\n"};
    EXPECT_EQ(findDevFromTriggers(&macro->triggers, 0), 0);
    EXPECT_EQ(logLines(), std::vector{line});
    EXPECT_EQ(findDevFromTriggers(nullptr, 0), 0);
    EXPECT_EQ(logLines(), std::vector(2, line));
}
