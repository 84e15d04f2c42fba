// Memory that runs out while the configuration is set or built.

#include "config/alarm.h"
#include "config/camera.h"
#include "config/document.h"
#include "config/event_filter.h"
#include "config/lists.h"
#include "config/macro.h"
#include "config/reg_device.h"
#include "config/room.h"
#include "config/scene.h"
#include "config/schedule.h"
#include "config/target_name.h"
#include "daemon_in_process.h"

#include <cctype>
#include <iterator>
#include <optional>

// One element of everything that can be set.
static const char *const EVERYTHING = R"({
    "targetNames":{"1.0.1":"Lamp"},
    "cameras":[{"uid":"u","display":"d","password":"p"}],
    "macros":[{"title":"M","enabled":1,"enabled_notifications":["a","b"],
        "scene":{"title":"own","comps":[{"target":{"dev":1},"value":2}],"buildinSiren":{"siren_type":3}},
        "triggers":[{"target":{"dev":4},"op":"="}]}],
    "scenes":[{"title":"S","comps":[{"target":{"dev":5},"value":6}],"buildinSiren":{"siren_type":7}}],
    "schedules":[{"title":"T","weekdays":127,"macro":{"title":"embedded","priority":8}}],
    "rooms":[{"title":"R","targets":[{"dev":9}],"extra_camera":[{"camera":"c"}]}],
    "eventFilter":[{"uid":10}],
    "registeredDevices":[{"token":"t","email":"e"}],
    "alarm":{"duration":11,"enabled":1,"siren_type":2,"trigger_duration":4}})";

// Where the memory was refused, what is said of it, and what alone is missing afterwards.
struct Refusal {
    const char *allocation;
    std::optional<LogLine> message;
    const char *missing;  // its place in the document; a number is the position in an array
};

static const LogLine NO_MACRO = {6, "setMacro", "searchedMacro is NULL\n"};
static const LogLine NO_PHONE = {6, "setRegisteredDevice", "searchedPushDev is NULL !!!\n"};

// In the order in which the document needs memory.
static const Refusal REFUSALS[] = {
    {"callocTargetName", {}, "targetNames/1.0.1"},
    {"callocCamera", {}, "cameras/0"},
    {"callocMacro", NO_MACRO, "macros/0"},
    {"callocEnabled_notifications", {}, "macros/0/enabled_notifications/*"},
    {"callocEnabled_notifications", {}, "macros/0/enabled_notifications/1"},
    {"callocScene", {}, "macros/0/scene"},
    {"callocComp", {}, "macros/0/scene/comps/0"},
    {"callocBuildinSiren", {}, "macros/0/scene/buildinSiren"},
    {"callocTrigger", LogLine{6, "setTrigger", "callocTrigger fail\n"}, "macros/0/triggers"},
    {"callocScene", {}, "scenes/0"},
    {"callocComp", {}, "scenes/0/comps/0"},
    {"callocBuildinSiren", {}, "scenes/0/buildinSiren"},
    {"callocSchedule", LogLine{6, "setSchedules", "callocSchedule fail.\n"}, "schedules/0"},
    {"callocMacro", NO_MACRO, "schedules/0/macro"},
    {"callocRoom", {}, "rooms/0"},
    {"callocTargets", LogLine{6, "setTargets", "callocTargets return NULL\n"}, "rooms/0/targets/0"},
    {"callocExtraCamera", LogLine{6, "setExtraCamera", "callocTargets return NULL\n"},
     "rooms/0/extra_camera/0"},
    {"callocEventFilter", {}, "eventFilter/0"},
    {"callocRegDevices", NO_PHONE, "registeredDevices/0"},
    {"callocRegDevice", NO_PHONE, "registeredDevices/0"},
    {"callocAlarm", LogLine{6, "setAlarm", "callocAlarm return NULL\n"}, "alarm"},
};

static void removeAt(json_t *value, const std::string &place)
{
    const size_t slash = place.find('/');
    const std::string step = place.substr(0, slash);
    const bool last = slash == std::string::npos;
    if (step == "*") {
        json_array_clear(value);
    } else if (json_is_array(value)) {
        const size_t index = std::stoul(step);
        ASSERT_LT(index, json_array_size(value)) << place;
        if (last)
            json_array_remove(value, index);
        else
            removeAt(json_array_get(value, index), place.substr(slash + 1));
    } else {
        json_t *member = json_object_get(value, step.c_str());
        ASSERT_NE(member, nullptr) << place;
        if (last)
            json_object_del(value, step.c_str());
        else
            removeAt(member, place.substr(slash + 1));
    }
}

// The document without that; an alarm that is missing shows as its defaults.
static std::string without(const std::string &document, const std::string &place)
{
    json_t *root = json_loads(document.c_str(), 0, nullptr);
    removeAt(root, place);
    if (place == "alarm")
        json_object_set_new(root, "alarm",
                            json_pack("{s:i,s:i,s:i,s:i}", "duration", 3, "enabled", 0,
                                      "siren_type", 1, "trigger_duration", 3));
    return takeText(root);
}

static std::string configuration()
{
    return takeText(getAllAppConfig());
}

// As many elements from either end, and each one's neighbours know it.
static void expectSoundList(ListNode *head)
{
    for (ListNode *node = head->next; node != head; node = node->next) {
        ASSERT_EQ(node->prev->next, node);
        ASSERT_EQ(node->next->prev, node);
    }
}

static void expectSoundLists()
{
    for (ListNode *head :
         {&targetNamesListHead, &camerasListHead, &macrosListHead, &scenesListHead,
          &schedulesListHead, &roomsListHead, &eventFilterListHead, &pushDevsListHead})
        expectSoundList(head);
    for (Macro &macro : ELEMENTS(Macro, node, &macrosListHead))
        expectSoundList(&macro.triggers);
    for (Scene &scene : ELEMENTS(Scene, node, &scenesListHead))
        expectSoundList(&scene.comps);
    for (Schedule &schedule : ELEMENTS(Schedule, node, &schedulesListHead))
        expectSoundList(&schedule.macros);
    for (Room &room : ELEMENTS(Room, node, &roomsListHead)) {
        expectSoundList(&room.targets);
        expectSoundList(&room.extra_camera);
    }
}

// What was logged for the refusal, beside what the document logs anyway.
static std::vector<LogLine> complaints(const std::vector<LogLine> &usual)
{
    std::vector<LogLine> lines;
    for (const LogLine &line : logLines()) {
        if (line.level == 6 && std::find(usual.begin(), usual.end(), line) == usual.end())
            lines.push_back(line);
    }
    return lines;
}

class MemoryThatRunsOut : public testing::Test {
protected:
    void SetUp() override
    {
        parseAll(EVERYTHING);
        usual = logLines();
        whole = configuration();
        freeAppConfigList();
    }
    // Sets everything; the n-th allocation is refused. False when none was left to refuse.
    bool setWithoutAllocation(int n)
    {
        forgetLog();
        failAllocation(n);
        result = parseAll(EVERYTHING);
        failAllocation(0);
        return !complaints(usual).empty();
    }

    std::vector<LogLine> usual;
    std::string whole;
    int result = 0;
};

TEST_F(MemoryThatRunsOut, CostsARequestThatOneElementAlone)
{
    int n = 0;
    while (setWithoutAllocation(n + 1)) {  // the leak checker looks at what is left
        ASSERT_LT(n, std::ssize(REFUSALS));
        const Refusal &refusal = REFUSALS[n++];
        EXPECT_EQ(configuration(), without(whole, refusal.missing)) << refusal.missing;
        expectSoundLists();
        freeAppConfigList();
    }
    EXPECT_EQ(n, std::ssize(REFUSALS));
    EXPECT_EQ(configuration(), whole);
}

TEST_F(MemoryThatRunsOut, IsLoggedByTheAllocationAndByWhoSets)
{
    for (int n = 0; n < std::ssize(REFUSALS); ++n) {
        const Refusal &refusal = REFUSALS[n];
        setWithoutAllocation(n + 1);
        std::vector<LogLine> expected = {{6, refusal.allocation, "calloc fail\n"}};
        if (refusal.message)
            expected.push_back(*refusal.message);
        EXPECT_EQ(complaints(usual), expected) << "allocation " << n + 1;
        freeAppConfigList();
    }
}

TEST_F(MemoryThatRunsOut, LeavesNothingThatTheSameRequestDoesNotMendLater)
{
    for (int n = 1; n <= std::ssize(REFUSALS); ++n) {
        setWithoutAllocation(n);
        EXPECT_EQ(parseAll(EVERYTHING), 1);
        EXPECT_EQ(configuration(), whole) << "allocation " << n;
        freeAppConfigList();
    }
}

TEST_F(MemoryThatRunsOut, GivesZeroForTheGroupThatItLeavesNothingOf)
{
    for (int n = 1; n <= std::ssize(REFUSALS); ++n) {
        setWithoutAllocation(n);
        EXPECT_EQ(result, n < std::ssize(REFUSALS) ? 1 : 0) << "the alarm is the last group";
        freeAppConfigList();
    }
}

struct GroupAlone {
    const char *name;
    const char *request;
};

static constexpr auto caseName = [](const auto &info) { return std::string(info.param.name); };

class GroupWithoutMemory : public testing::TestWithParam<GroupAlone> {};

TEST_P(GroupWithoutMemory, IsAnsweredZeroAndStaysEmpty)
{
    const std::string before = configuration();
    freeAppConfigList();
    failAllocation(1);
    EXPECT_EQ(parseAll(GetParam().request), 0);
    failAllocation(0);
    EXPECT_EQ(configuration(), before);
    EXPECT_EQ(parseAll(GetParam().request), 1);
    EXPECT_NE(configuration(), before);
}

INSTANTIATE_TEST_SUITE_P(
    Groups, GroupWithoutMemory,
    testing::Values(GroupAlone{"TargetNames", R"({"targetNames":{"a":"b"}})"},
                    GroupAlone{"Cameras", R"({"cameras":[{"uid":"u"}]})"},
                    GroupAlone{"Macros", R"({"macros":[{"title":"M"}]})"},
                    GroupAlone{"Scenes", R"({"scenes":[{"title":"S"}]})"},
                    GroupAlone{"Schedules", R"({"schedules":[{"title":"T"}]})"},
                    GroupAlone{"Rooms", R"({"rooms":[{"title":"R"}]})"},
                    GroupAlone{"EventFilters", R"({"eventFilter":[{"uid":1}]})"},
                    GroupAlone{"Phones", R"({"registeredDevices":[{"token":"t"}]})"},
                    GroupAlone{"Alarm", R"({"alarm":{"duration":5}})"}),
    caseName);

TEST(AlarmSettings, WithoutMemoryAreLeftOutOfADocumentAndHaveTheirDefaultsInTheNext)
{
    failAllocation(1);
    json_t *root = getAllAppConfig();
    failAllocation(0);
    ASSERT_NE(root, nullptr);
    EXPECT_EQ(json_object_get(root, "alarm"), nullptr);
    EXPECT_EQ(json_object_size(root), 8u);  // every other group
    json_decref(root);
    EXPECT_EQ(ovrinAlarm, nullptr);
    EXPECT_EQ(logLines(), (std::vector<LogLine>{{6, "callocAlarm", "calloc fail\n"}}));

    root = getAllAppConfig();
    EXPECT_EQ(takeText(json_incref(json_object_get(root, "alarm"))),
              R"({"duration":3,"enabled":0,"siren_type":1,"trigger_duration":3})");
    json_decref(root);
}
