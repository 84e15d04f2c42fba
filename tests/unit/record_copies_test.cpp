// Copies of the configuration records: what they hold, and what they leave alone.

#include "config/alarm.h"
#include "config/device.h"
#include "config/macro.h"
#include "config/reg_device.h"
#include "config/scene.h"
#include "daemon_in_process.h"

#include <cstring>

struct List : ListNode {
    List()
    {
        listInit(this);
    }
};

static Scene *sceneOf(const std::string &text)
{
    const Value value(text);
    return setNewScene(value);
}

TEST(CopiedScene, HasEverythingButInvisibleAndID)
{
    Scene *scene = sceneOf(R"({"title":"Evening","icon":"i","icon_name":"n","invisible":1,"ID":7,
        "comps":[{"target":{"dev":5,"if":1,"ch":2},"value":99},{"target":{"dev":6},"value":1}],
        "buildinSiren":{"siren_type":4}})");
    Scene *copy = copyScene(scene);
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(copy->invisible, 0);
    EXPECT_EQ(copy->ID, 0);
    scene->invisible = 0;
    scene->ID = 0;
    EXPECT_EQ(takeText(sceneToJson(copy)), takeText(sceneToJson(scene)));
    EXPECT_NE(copy->buildinSiren, scene->buildinSiren);
    freeScene(scene);
    freeScene(copy);
}

TEST(CopiedScene, OfNothingIsNothing)
{
    EXPECT_EQ(copyScene(nullptr), nullptr);
    EXPECT_EQ(logged("sceneSrc == NULL\n"), 1u);
}

TEST(CopiedMacro, HasEverythingButInvisible)
{
    List macros;
    const Value value(
        R"({"title":"Door","enabled":1,"invisible":1,"priority":2,"duration":3,"duration_type":1,
        "enabled_notifications":["pns","mail"],"user_notification_message":"m","icon_name":"i",
        "scene":{"title":"private"},"triggers":[{"target":{"dev":2,"ch":1},"op":"=","threshold":255}]})");
    setMacro(value, &macros);
    Macro *macro = searchMacro(&macros, "Door");
    Macro *copy = copyMacro(macro);
    EXPECT_EQ(copy->invisible, 0);
    EXPECT_EQ(macro->invisible, 1);
    macro->invisible = 0;
    EXPECT_EQ(takeText(macroToJson(copy)), takeText(macroToJson(macro)));
    EXPECT_NE(copy->scene, macro->scene);
    freeMacro(&copy->node);
    freeMacros(&macros);
    EXPECT_TRUE(listEmpty(&macros));
}

// In no list: its node is an empty list's.
static bool isInNoList(const ListNode &node)
{
    return node.next == &node && node.prev == &node;
}

TEST(Copies, AreInNoList)
{
    List scenes;
    List macros;
    List devices;
    Scene *scene = sceneOf(R"({"title":"Evening"})");
    listAddTail(&scene->node, &scenes);
    const Value value(
        R"({"title":"Door","scene":{"title":"own"},"triggers":[{"target":{"dev":1}}]})");
    setMacro(value, &macros);
    Macro *macro = searchMacro(&macros, "Door");
    GetDev_dev *device = callocGetDev_dev();
    listAddTail(&device->node, &devices);
    listAddTail(&callocGetDev_channel()->node, &device->channels);

    Scene *sceneCopy = copyScene(scene);
    Macro *macroCopy = copyMacro(macro);
    Trigger *triggerCopy = copyTrigger(FIRST_ELEMENT(Trigger, node, &macro->triggers));
    GetDev_dev *deviceCopy = copyGetDev_dev(device);
    GetDev_channel *channelCopy =
        copyGetDev_dev_channel(FIRST_ELEMENT(GetDev_channel, node, &device->channels));
    for (const ListNode *node : {&sceneCopy->node, &macroCopy->node, &macroCopy->scene->node,
                                 &triggerCopy->node, &deviceCopy->node, &channelCopy->node})
        EXPECT_TRUE(isInNoList(*node));
    for (const ListNode *head : std::initializer_list<ListNode *>{
             &scenes, &macros, &macro->triggers, &macroCopy->triggers, &devices, &device->channels})
        EXPECT_EQ(getListObjNum(head), 1);

    freeScene(sceneCopy);
    freeMacro(&macroCopy->node);
    freeTrigger(triggerCopy);
    freeGetDevice_dev(deviceCopy);
    freeGetDevice_dev_channel(channelCopy);
    freeScenes(&scenes);
    freeMacros(&macros);
    freeGetDevice_dev(device);
}

// The numbers that tell the elements of a list apart, in its order.
template <typename Record> static std::vector<Integer> devices(ListNode *head)
{
    std::vector<Integer> result;
    for (const Record &record : ELEMENTS(Record, node, head))
        result.push_back(record.target.dev);
    return result;
}

TEST(CopiedComps, AreAppendedBehindThoseThatAreThereInTheirOrder)
{
    Scene *source = sceneOf(R"({"comps":[{"target":{"dev":3,"if":1,"ch":2},"value":7},
        {"target":{"dev":1},"value":8},{"target":{"dev":2},"value":9}]})");
    Scene *destination = sceneOf(R"({"comps":[{"target":{"dev":9}},{"target":{"dev":1}}]})");
    EXPECT_TRUE(copyComps(&source->comps, &destination->comps));
    EXPECT_THAT(devices<Comp>(&destination->comps), testing::ElementsAre(9, 1, 3, 1, 2));
    EXPECT_THAT(devices<Comp>(&source->comps), testing::ElementsAre(3, 1, 2));
    EXPECT_EQ(searchComp(3, 1, 2, &destination->comps)->value, 7);
    freeScene(source);
    freeScene(destination);
}

static Trigger *triggerOf(Integer dev, ListNode *head)
{
    Trigger *trigger = callocTrigger();
    trigger->target.dev = dev;
    listAddTail(&trigger->node, head);
    return trigger;
}

TEST(CopiedTriggers, AreAppendedBehindThoseThatAreThereInTheirOrder)
{
    List source;
    List destination;
    for (const Integer dev : {3, 1, 2})
        triggerOf(dev, &source)->threshold = dev * 10;
    triggerOf(9, &destination);
    EXPECT_TRUE(copyTriggers(&source, &destination));
    EXPECT_THAT(devices<Trigger>(&destination), testing::ElementsAre(9, 3, 1, 2));
    EXPECT_THAT(devices<Trigger>(&source), testing::ElementsAre(3, 1, 2));
    EXPECT_EQ(searchTrigger(1, 0, 0, &destination)->threshold, 10);
    freeTriggers(&source);
    freeTriggers(&destination);
}

TEST(CopiedMacros, AreAppendedBehindThoseThatAreThereInTheirOrder)
{
    List source;
    List destination;
    for (const char *text : {R"({"title":"C"})", R"({"title":"A"})", R"({"title":"B"})"})
        setMacro(Value(text), &source);
    setMacro(Value(R"({"title":"A","priority":5})"), &destination);
    EXPECT_TRUE(copyMacros(&source, &destination));
    EXPECT_EQ(takeText(macrosTitleToJson(&destination)), R"(["A","C","A","B"])");
    EXPECT_EQ(takeText(macrosTitleToJson(&source)), R"(["C","A","B"])");
    EXPECT_EQ(searchMacro(&destination, "A")->priority, 5);
    freeMacros(&source);
    freeMacros(&destination);
}

TEST(CopiedScene, OfOneWithoutASirenHasNone)
{
    Scene *scene = sceneOf(R"({"title":"Evening"})");
    Scene *copy = copyScene(scene);
    EXPECT_EQ(copy->buildinSiren, nullptr);
    EXPECT_TRUE(listEmpty(&copy->comps));
    freeScene(scene);
    freeScene(copy);
}

TEST(CopiedMacro, KeepsEachNotificationInItsSlotAndAnUnsetOneUnset)
{
    Macro *macro = callocMacro();
    macro->enabled_notifications[0] = strdup("pns");
    macro->enabled_notifications[2] = strdup("mail");
    Macro *copy = copyMacro(macro);
    EXPECT_STREQ(copy->enabled_notifications[0], "pns");
    EXPECT_EQ(copy->enabled_notifications[1], nullptr);
    EXPECT_STREQ(copy->enabled_notifications[2], "mail");
    EXPECT_NE(copy->enabled_notifications[0], macro->enabled_notifications[0]);
    EXPECT_EQ(takeText(macroToJson(copy)), takeText(macroToJson(macro)));
    EXPECT_EQ(copy->scene, nullptr);
    freeMacro(&copy->node);
    freeMacro(&macro->node);
}

TEST(Copies, LeaveNothingBehindWhenMemoryRunsOut)
{
    List macros;
    const Value value(R"({"title":"Door","enabled_notifications":["pns","mail"],
        "scene":{"title":"private","comps":[{"target":{"dev":1},"value":1}],"buildinSiren":{"siren_type":1}},
        "triggers":[{"target":{"dev":2,"ch":1}}]})");
    setMacro(value, &macros);
    Macro *macro = searchMacro(&macros, "Door");
    int refused = 0;
    for (int n = 1; n < 20; ++n) {  // the leak checker looks at what is left
        failAllocation(n);
        Macro *copy = copyMacro(macro);
        failAllocation(0);
        if (copy)
            freeMacro(&copy->node);
        else
            ++refused;
    }
    EXPECT_EQ(refused, 7);  // the macro, its scene, siren, comp, trigger and two notifications
    freeMacros(&macros);
}

TEST(CopiedPhone, IsWhole)
{
    RegDevice *phone = callocRegDevice();
    strcpy(phone->token, "t");
    phone->update_ts = 5;
    RegDevice *copy = copyRegDev(phone);
    EXPECT_STREQ(copy->token, "t");
    EXPECT_EQ(copy->update_ts, 5);
    freeRegDev(phone);
    freeRegDev(copy);
    EXPECT_EQ(copyRegDev(nullptr), nullptr);
}

TEST(CopiedAlarmSettings, AreAllFour)
{
    const Alarm source = {.duration = 1, .enabled = 2, .siren_type = 3, .trigger_duration = 4};
    Alarm destination = {};
    EXPECT_EQ(copyAlarmSetting(&destination, &source), 1);
    EXPECT_EQ(destination.trigger_duration, 4);
    EXPECT_EQ(copyAlarmSetting(&destination, nullptr), -1);
    EXPECT_EQ(logged("src == NULL\n"), 1u);
}
