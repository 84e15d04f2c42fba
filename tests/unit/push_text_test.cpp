// The lines that a phone shows, in English and in Japanese.

#include "notify/push_text.h"

#include "config/device_value.h"
#include "config/room.h"
#include "config/snapshot.h"
#include "config/target_name.h"
#include "daemon_in_process.h"

#include <apr_general.h>
#include <cstring>

using support::Answer;
using testing::Contains;
using testing::Field;
using testing::Not;

static constexpr auto caseName = [](const auto &info) { return std::string(info.param.name); };

// Device 5 is what triggers, device 20 what is switched.
static constexpr TargetId TRIGGER = {5, 0, 1};

class PushLine : public OutboundOnItsOwnBus {
protected:
    void SetUp() override
    {
        OutboundOnItsOwnBus::SetUp();
        apr_pool_create(&pool, nullptr);
        channel.chid = 1;
        channel.functype = FUNC_DOOR;
        strcpy(channel.name, "Door sensor");
    }
    void TearDown() override
    {
        if (scene)
            freeScene(scene);
        apr_pool_destroy(pool);
        {
            const MutexLock lock(allDevs_mutex);
            if (allDevs)
                freeGetDevice(allDevs);
            allDevs = nullptr;
        }
        freeRooms(&roomsListHead);
        freeTargetNames(&targetNamesListHead);
        OutboundOnItsOwnBus::TearDown();
    }
    void inJapanese()
    {
        platform.set("language", "2");
    }
    void nameTrigger(const std::string &name)
    {
        setTargetNames(Value(R"({"5.0.1":")" + name + R"("})"));
    }
    void nameLamp(const std::string &name)
    {
        setTargetNames(Value(R"({"20.0.2":")" + name + R"("})"));
    }
    void putIntoRoom(const std::string &room)
    {
        setRooms(Value(R"([{"title":")" + room + R"(","targets":[{"dev":5,"if":0,"ch":1}]}])"));
    }
    // The snapshot has the lamp alone, as a channel of that function type.
    void addLamp(Integer functype)
    {
        const MutexLock lock(allDevs_mutex);
        ASSERT_EQ(allDevs, nullptr);
        allDevs = setGetDevice((R"({"device":[{"uid":20,"code":"","lasttampertime":"",
            "channel":[{"chid":2,"lastbeattime":"","name":"Light","functype":)" +
                                std::to_string(functype) + "}]}]}")
                                   .c_str());
    }
    void setSceneTo(const std::string &text)
    {
        scene = setNewScene(Value(text));
    }
    void switchLamp(Integer value)
    {
        setSceneTo(R"({"title":"Evening","comps":[{"target":{"dev":20,"if":0,"ch":2},"value":)" +
                   std::to_string(value) + "}]}");
    }
    std::string line()
    {
        const char *text = getFullPushMsg(pool, TRIGGER, &channel, scene);
        return text ? text : "(nothing)";
    }

    apr_pool_t *pool = nullptr;
    GetDev_channel channel = {};
    Scene *scene = nullptr;
};

TEST_F(PushLine, SaysWhatTriggeredWhereAndWhatWasDone)
{
    nameTrigger("Front door");
    putIntoRoom("Hall");
    nameLamp("Lamp");
    addLamp(FUNC_SWITCH);
    switchLamp(255);
    EXPECT_EQ(line(), "Front door in Hall was triggered => Lamp to ON");
}

TEST_F(PushLine, SaysTheSameInJapanese)
{
    inJapanese();
    strcpy(channel.name, "Front door");
    putIntoRoom("Hall");
    nameLamp("Lamp");
    addLamp(FUNC_SWITCH);
    switchLamp(255);
    EXPECT_EQ(line(), "Hallの Front door 感知 => Lamp  オン!!");
}

TEST_F(PushLine, LeavesAUsersNameOutInJapanese)
{
    inJapanese();
    nameTrigger("Front door");
    putIntoRoom("Hall");
    nameLamp("Lamp");
    addLamp(FUNC_SWITCH);
    switchLamp(255);
    EXPECT_EQ(line(), "Hallの 感知 => Lamp  オン!!");
}

TEST_F(PushLine, SaysThatASceneOfSeveralCommandsIsExecuting)
{
    putIntoRoom("Hall");
    setSceneTo(R"({"title":"Evening","comps":[{"target":{"dev":20,"if":0,"ch":2},"value":1},
        {"target":{"dev":21,"if":0,"ch":2},"value":1},{"target":{"dev":22,"if":0,"ch":2},"value":1}]})");
    EXPECT_EQ(line(), "Door sensor in Hall was triggered => Evening is executing");
    inJapanese();
    EXPECT_EQ(line(), "Hallの Door sensor 感知 => Evening is executing");
}

struct LanguageCase {
    const char *name;
    Answer answer;
    bool japanese;
};

class PushLanguage : public PushLine, public testing::WithParamInterface<LanguageCase> {};

TEST_P(PushLanguage, IsJapaneseForTwoAndEnglishForAllElse)
{
    platform.behave("language", GetParam().answer);
    EXPECT_EQ(line(), GetParam().japanese ? "Door sensor 感知" : "Door sensor was triggered");
    EXPECT_EQ(platform.asked("language"), 1u);
}

INSTANTIATE_TEST_SUITE_P(
    Values, PushLanguage,
    testing::Values(LanguageCase{"Two", Answer::saying("2"), true},
                    LanguageCase{"TwoAndMore", Answer::saying(" 2x"), true},
                    LanguageCase{"One", Answer::saying("1"), false},
                    LanguageCase{"Zero", Answer::saying("0"), false},
                    LanguageCase{"Three", Answer::saying("3"), false},
                    LanguageCase{"TwentyTwo", Answer::saying("22"), false},
                    LanguageCase{"Negative", Answer::saying("-2"), false},
                    LanguageCase{"NoNumber", Answer::saying("Japanese"), false},
                    LanguageCase{"Empty", Answer::saying(""), false},
                    LanguageCase{"NoText", Answer::withANumber(), false},
                    LanguageCase{"NoArgument", Answer::withoutArguments(), false},
                    LanguageCase{"Refused", Answer::refusing(), false}),
    caseName);

TEST_F(PushLine, FollowsTheLanguageFromOneLineToTheNext)
{
    EXPECT_EQ(line(), "Door sensor was triggered");
    inJapanese();
    EXPECT_EQ(line(), "Door sensor 感知");
    platform.set("language", "1");
    EXPECT_EQ(line(), "Door sensor was triggered");
}

// Which parts there are, and what is left of the line.
struct PartsCase {
    const char *name;
    bool trigger;
    bool room;
    bool action;
    const char *english;
    const char *japanese;
};

class PushParts : public PushLine, public testing::WithParamInterface<PartsCase> {
protected:
    // A named lock at which nobody has shown up has no trigger part in English; nor has any other
    // named channel in Japanese.
    void dropTrigger(bool japanese)
    {
        nameTrigger("Front door");
        channel.functype = japanese ? FUNC_DOOR : FUNC_LOCK;
    }
    void setUpParts(bool japanese)
    {
        if (!GetParam().trigger)
            dropTrigger(japanese);
        if (GetParam().room)
            putIntoRoom("Hall");
        if (GetParam().action)
            setSceneTo(R"({"title":"Evening"})");
    }
};

TEST_P(PushParts, MakeTheEnglishLine)
{
    setUpParts(false);
    EXPECT_EQ(line(), GetParam().english);
}

TEST_P(PushParts, MakeTheJapaneseLine)
{
    inJapanese();
    setUpParts(true);
    EXPECT_EQ(line(), GetParam().japanese);
}

INSTANTIATE_TEST_SUITE_P(
    Lines, PushParts,
    testing::Values(PartsCase{"All", true, true, true,
                              "Door sensor in Hall was triggered => Evening is executing",
                              "Hallの Door sensor 感知 => Evening is executing"},
                    PartsCase{"NoAction", true, true, false, "Door sensor in Hall was triggered",
                              "Hallの Door sensor 感知"},
                    PartsCase{"NoRoom", true, false, true,
                              "Door sensor was triggered => Evening is executing",
                              "Door sensor 感知 => Evening is executing"},
                    PartsCase{"TriggerAlone", true, false, false, "Door sensor was triggered",
                              "Door sensor 感知"},
                    PartsCase{"NoTrigger", false, true, true,
                              " was triggered => Evening is executing",
                              "Hallの 感知 => Evening is executing"},
                    PartsCase{"RoomAlone", false, true, false, " was triggered", "Hallの 感知"},
                    PartsCase{"ActionAlone", false, false, true, " => Evening is executing",
                              " => Evening is executing"},
                    PartsCase{"None", false, false, false, "", ""}),
    caseName);

TEST_F(PushLine, IsOfTheTriggersChannelInARoom)
{
    setRooms(Value(R"([{"title":"Cellar","targets":[{"dev":5,"if":0,"ch":2}]},
        {"title":"Attic","targets":[{"dev":6,"if":0,"ch":1}]},
        {"title":"Hall","targets":[{"dev":7,"if":0,"ch":1},{"dev":5,"if":3,"ch":1}]},
        {"title":"Porch","targets":[{"dev":5,"if":0,"ch":1}]}])"));
    EXPECT_EQ(line(), "Door sensor in Hall was triggered") << "the first; the interface is no key";
}

TEST_F(PushLine, KnowsANameByItsWholeKey)
{
    setTargetNames(Value(R"({"5.0.2":"Other channel","5.1.1":"Other interface",
        "6.0.1":"Other device","5.0.11":"Longer","05.0.1":"Zero"})"));
    EXPECT_EQ(line(), "Door sensor was triggered");
    nameTrigger("Front door");
    EXPECT_EQ(line(), "Front door was triggered");
}

TEST_F(PushLine, KnowsTheNameOfALargeKey)
{
    setTargetNames(Value(R"({"9223372036854775807.-9223372036854775808.-1":"Far away"})"));
    const TargetId target = {9223372036854775807LL, -9223372036854775807LL - 1, -1};
    EXPECT_STREQ(getFullPushMsg(pool, target, &channel, nullptr), "Far away was triggered");
}

TEST_F(PushLine, TakesAnEmptyNameAsAName)
{
    nameTrigger("");
    EXPECT_EQ(line(), " was triggered");
    putIntoRoom("Hall");
    EXPECT_EQ(line(), " in Hall was triggered");
}

TEST_F(PushLine, SaysWhatItCanWithoutAChannel)
{
    EXPECT_STREQ(getFullPushMsg(pool, TRIGGER, nullptr, nullptr), "");
    putIntoRoom("Hall");
    EXPECT_STREQ(getFullPushMsg(pool, TRIGGER, nullptr, nullptr), " was triggered");
    nameTrigger("Front door");
    EXPECT_STREQ(getFullPushMsg(pool, TRIGGER, nullptr, nullptr),
                 "Front door in Hall was triggered");
}

struct LockCase {
    const char *name;
    Integer sensorvalue;
    const char *english;  // null: no trigger part
};

class PushOfALock : public PushLine, public testing::WithParamInterface<LockCase> {
protected:
    void SetUp() override
    {
        PushLine::SetUp();
        channel.functype = FUNC_LOCK;
        channel.sensorvalue = GetParam().sensorvalue;
    }
};

TEST_P(PushOfALock, NamesTheUserWhoUnlocked)
{
    nameTrigger("Front door");
    const char *text = getTriggerPushMsg(pool, ENGLISH, TRIGGER, &channel);
    EXPECT_STREQ(text, GetParam().english);
    EXPECT_EQ(line(), GetParam().english ? std::string(GetParam().english) + " was triggered" : "");
}

TEST_P(PushOfALock, IsAnElectricLockInJapaneseWhoeverUnlocked)
{
    inJapanese();
    nameTrigger("Front door");
    EXPECT_STREQ(getTriggerPushMsg(pool, JAPANESE, TRIGGER, &channel), "電子錠");
    EXPECT_EQ(line(), "電子錠 感知");
}

TEST_P(PushOfALock, IsTheChannelsNameWithoutAUsersName)
{
    EXPECT_EQ(line(), "Door sensor was triggered");
    inJapanese();
    EXPECT_EQ(line(), "Door sensor 感知");
}

INSTANTIATE_TEST_SUITE_P(SensorValues, PushOfALock,
                         testing::Values(LockCase{"Negative", -30, nullptr},
                                         LockCase{"Zero", 0, nullptr}, LockCase{"Nine", 9, nullptr},
                                         LockCase{"Ten", 10, nullptr},
                                         LockCase{"Eleven", 11, "User 1 unlock the door"},
                                         LockCase{"Nineteen", 19, "User 1 unlock the door"},
                                         LockCase{"Twenty", 20, "User 2 unlock the door"},
                                         LockCase{"Thirty", 30, "User 3 unlock the door"},
                                         LockCase{"Large", 2549, "User 254 unlock the door"}),
                         caseName);

struct StateCase {
    Integer functype;
    Integer value;
    const char *english;
    const char *japanese;
};

static constexpr auto stateName = [](const auto &info) {
    const std::string sign = info.param.value < 0 ? "Minus" : "";
    return std::to_string(info.param.functype) + "At" + sign +
           std::to_string(std::abs(info.param.value));
};

class PushState : public PushLine, public testing::WithParamInterface<StateCase> {};

TEST_P(PushState, IsAWordOrANumberByTheFunctionType)
{
    addLamp(GetParam().functype);
    switchLamp(GetParam().value);
    EXPECT_STREQ(getTargetPushMsg(pool, ENGLISH, scene), GetParam().english);
    EXPECT_STREQ(getTargetPushMsg(pool, JAPANESE, scene), GetParam().japanese);
    EXPECT_EQ(line(), std::string("Door sensor was triggered => ") + GetParam().english);
    inJapanese();
    EXPECT_EQ(line(), std::string("Door sensor 感知 => ") + GetParam().japanese);
}

INSTANTIATE_TEST_SUITE_P(FunctionTypes, PushState,
                         testing::Values(StateCase{13, 0, "Light to OFF", "Light  オフ!!"},
                                         StateCase{13, 255, "Light to ON", "Light  オン!!"},
                                         StateCase{14, 0, "Light to OFF", "Light  オフ!!"},
                                         StateCase{14, 1, "Light to ON", "Light  オン!!"},
                                         StateCase{16, 0, "Light to OFF", "Light  オフ!!"},
                                         StateCase{16, -1, "Light to ON", "Light  オン!!"},
                                         StateCase{22, 0, "Light to OFF", "Light  オフ!!"},
                                         StateCase{22, 50, "Light to ON", "Light  オン!!"},
                                         StateCase{23, 0, "Light to OFF", "Light  オフ!!"},
                                         StateCase{23, 255, "Light to ON", "Light  オン!!"},
                                         StateCase{23, 1LL << 32, "Light to ON", "Light  オン!!"},
                                         StateCase{31, 0, "Light to OFF", "Light  OFF!!"},
                                         StateCase{31, 255, "Light to ON", "Light  ON!!"},
                                         StateCase{24, 50, "Light to 50", "Light to 50"},
                                         StateCase{24, 0, "Light to 0", "Light to 0"},
                                         StateCase{24, -5, "Light to -5", "Light to -5"},
                                         StateCase{11, 25, "Light to 25", "Light to 25"},
                                         StateCase{12, 1, "Light to 1", "Light to 1"},
                                         StateCase{15, 255, "Light to 255", "Light to 255"},
                                         StateCase{17, 255, "Light to 255", "Light to 255"},
                                         StateCase{21, 255, "Light to 255", "Light to 255"},
                                         StateCase{25, 4, "Light to 4", "Light to 4"},
                                         StateCase{26, 255, "Light to 255", "Light to 255"},
                                         StateCase{28, 255, "Light to 255", "Light to 255"},
                                         StateCase{30, 255, "Light to 255", "Light to 255"},
                                         StateCase{32, 1, "Light to 1", "Light to 1"},
                                         StateCase{0, 255, "Light to 255", "Light to 255"},
                                         StateCase{269, 255, "Light to 255",
                                                   "Light to 255"}),  // 13 in its low byte
                         stateName);

TEST_F(PushLine, GivesTheLampItsUsersName)
{
    nameLamp("Lamp");
    addLamp(FUNC_DIMMER);
    switchLamp(50);
    EXPECT_EQ(line(), "Door sensor was triggered => Lamp to 50");
    inJapanese();
    EXPECT_EQ(line(), "Door sensor 感知 => Lamp to 50");
}

TEST_F(PushLine, HasNoActionOfALampThatHasVanished)
{
    nameLamp("Lamp");
    setSceneTo(R"({"title":"Evening","comps":[{"target":{"dev":20,"if":0,"ch":7},"value":1}]})");
    addLamp(FUNC_SWITCH);
    EXPECT_EQ(line(), "Door sensor was triggered");
    EXPECT_THAT(logLines(),
                Contains(LogLine{6, "getTargetPushMsg", "not find targetChannel: 7\n"}));
}

TEST_F(PushLine, HasNoActionWithoutASnapshot)
{
    switchLamp(255);
    EXPECT_EQ(line(), "Door sensor was triggered");
    EXPECT_EQ(logged("not find targetChannel: 2\n"), 1u);
}

TEST_F(PushLine, CountsGapAndWaitStepsAsActions)
{
    addLamp(FUNC_SWITCH);
    setSceneTo(R"({"title":"Evening","comps":[{"target":{"dev":20,"if":0,"ch":2},"value":255},
        {"target":{"dev":505,"if":0,"ch":0},"value":1}]})");
    EXPECT_STREQ(getTargetPushMsg(pool, ENGLISH, scene), "Evening is executing");
    freeScene(scene);
    setSceneTo(R"({"title":"Evening","comps":[{"target":{"dev":512,"if":0,"ch":0},"value":1},
        {"target":{"dev":20,"if":0,"ch":2},"value":255}]})");
    EXPECT_STREQ(getTargetPushMsg(pool, ENGLISH, scene), "Evening is executing");
    freeScene(scene);
    setSceneTo(R"({"title":"Evening","comps":[{"target":{"dev":505,"if":0,"ch":3},"value":1}]})");
    EXPECT_EQ(getTargetPushMsg(pool, ENGLISH, scene), nullptr) << "a step is no channel";
    EXPECT_EQ(logged("not find targetChannel: 3\n"), 1u);
}

TEST_F(PushLine, DoesNotCountTheGatewaysOwnSiren)
{
    addLamp(FUNC_SWITCH);
    setSceneTo(R"({"title":"Evening","buildinSiren":{"siren_type":4},
        "comps":[{"target":{"dev":20,"if":0,"ch":2},"value":255}]})");
    EXPECT_STREQ(getTargetPushMsg(pool, ENGLISH, scene), "Light to ON");
    freeScene(scene);
    setSceneTo(R"({"title":"Evening","buildinSiren":{"siren_type":4}})");
    EXPECT_STREQ(getTargetPushMsg(pool, ENGLISH, scene), "Evening is executing");
}

TEST_F(PushLine, HasNoActionOfASceneWithoutATitle)
{
    setSceneTo(R"({"buildinSiren":{"siren_type":4}})");
    EXPECT_EQ(line(), "Door sensor was triggered");
    freeScene(scene);
    setSceneTo(R"({"comps":[{"target":{"dev":20,"if":0,"ch":2},"value":1},
        {"target":{"dev":21,"if":0,"ch":2},"value":1}]})");
    EXPECT_EQ(line(), "Door sensor was triggered");
    inJapanese();
    EXPECT_EQ(line(), "Door sensor 感知");
    EXPECT_THAT(logLines(), Not(Contains(Field(&LogLine::level, 6))));
}

TEST_F(PushLine, TakesFormatCharactersInNamesAsText)
{
    nameTrigger("%s%n%d");
    putIntoRoom("%s%s");
    setSceneTo(R"({"title":"%n%s%d"})");
    EXPECT_EQ(line(), "%s%n%d in %s%s was triggered => %n%s%d is executing");
}

TEST_F(PushLine, HoldsTheLongestNames)
{
    const std::string longest(126, 'n');
    nameTrigger(longest);
    putIntoRoom(longest);
    setSceneTo(R"({"title":")" + longest + R"("})");
    EXPECT_EQ(line(),
              longest + " in " + longest + " was triggered => " + longest + " is executing");
}

TEST_F(PushLine, IsNothingWithoutAPool)
{
    EXPECT_EQ(getFullPushMsg(nullptr, TRIGGER, &channel, nullptr), nullptr);
}

TEST(TamperPushLine, IsFixed)
{
    apr_initialize();
    apr_pool_t *pool = nullptr;
    apr_pool_create(&pool, nullptr);
    const std::string plain = "alarm ON alarm ON tamper was triggered";
    struct {
        Integer code;
        bool tamper;
    } const cases[] = {
        {4001, true}, {4002, false}, {0, false}, {4000, false}, {(1 << 16) + 4001, true},
        {-1, false}};
    for (const auto &[code, tamper] : cases)
        EXPECT_EQ(getTamperLowbattPushMsg(pool, code), tamper ? plain + " => alarm ON" : plain)
            << code;
    apr_pool_destroy(pool);
}
