// The families of the configuration records: copy, search, free.

#include "config/event_filter.h"
#include "config/home_scene.h"
#include "config/macro.h"
#include "config/reg_device.h"
#include "config/resume.h"
#include "config/room.h"
#include "config/scene.h"
#include "config/schedule.h"
#include "config/sys_cmd.h"
#include "config/target_comp.h"
#include "config/trigger_thread.h"
#include "daemon_in_process.h"

static ListNode emptyList()
{
    return {};
}

static Scene *sceneOf(const std::string &text)
{
    const Value value(text);
    return setNewScene(value);
}

TEST(Records, KeepTheOrderOfTheirFields)
{
    static_assert(offsetof(Scene, icon_name) == 128 && offsetof(Scene, icon) == 256);
    static_assert(offsetof(Macro, user_notification_message) == 128);
    static_assert(sizeof(RegDevice::token) == 1024);
    static_assert(offsetof(ListNode, prev) == 0);
    SUCCEED();
}

TEST(Records, AreZeroFilledWithEmptyLists)
{
    Macro *macro = callocMacro();
    EXPECT_STREQ(macro->title, "");
    EXPECT_EQ(macro->scene, nullptr);
    EXPECT_TRUE(listEmpty(&macro->triggers));
    freeMacro(&macro->node);
}

TEST(Records, SayInTheNameOfTheirFamilyThatMemoryHasRunOut)
{
    failAllocation(1);
    EXPECT_EQ(callocScene(), nullptr);
    EXPECT_EQ(logLines(), (std::vector<LogLine>{{6, "callocScene", "calloc fail\n"}}));
}

TEST(freeMem, LogsANullPointer)
{
    freeMem(nullptr);
    EXPECT_EQ(logLines(), (std::vector<LogLine>{{6, "freeMem", "freeMem: p is NULL\n"}}));
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
    ListNode macros = emptyList();
    listInit(&macros);
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

TEST(Copies, LeaveNothingBehindWhenMemoryRunsOut)
{
    ListNode macros = emptyList();
    listInit(&macros);
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

TEST(Search, RefusesNullTitlesAndHeads)
{
    EXPECT_EQ(searchScene(&scenesListHead, nullptr), nullptr);
    EXPECT_EQ(searchScene(nullptr, "x"), nullptr);
    EXPECT_EQ(logTexts(), (std::vector<std::string>{"title is NULL\n", "head is NULL\n"}));
}

TEST(Search, ComparesAllThreeNumbersOfATarget)
{
    Scene *scene = sceneOf(R"({"comps":[{"target":{"dev":1,"if":2,"ch":3},"value":7}]})");
    EXPECT_NE(searchComp(1, 2, 3, &scene->comps), nullptr);
    EXPECT_EQ(searchComp(1, 2, 4, &scene->comps), nullptr);
    EXPECT_EQ(searchComp(1, 0, 3, &scene->comps), nullptr);
    EXPECT_EQ(searchComp(0, 2, 3, &scene->comps), nullptr);
    EXPECT_EQ(searchanddelComp(1, 2, 4, &scene->comps), 0);
    EXPECT_EQ(searchanddelComp(1, 2, 3, &scene->comps), 1);
    EXPECT_TRUE(listEmpty(&scene->comps));
    freeScene(scene);
}

TEST(EventFilterSearch, MatchesFieldByField)
{
    const Value filters(R"([{"uid":5}, {"uid":5,"channel":1}, {"eventCode":4001}])");
    setEventFilter(filters);
    EventFilter *onlyUid = searchEventFliter(&eventFilterListHead, 5, -1, -1);
    ASSERT_NE(onlyUid, nullptr);
    EXPECT_EQ(onlyUid->channel, -1);
    EXPECT_EQ(onlyUid->eventCode, -1);
    EXPECT_NE(searchEventFliter(&eventFilterListHead, -7, -1, 4001), nullptr);
    EXPECT_EQ(searchEventFliter(&eventFilterListHead, 5, 2, -1), nullptr);
    EXPECT_EQ(searchEventFliter(&eventFilterListHead, 5, 1, 4001), nullptr);
}

TEST(EventFilterSearch, RefusesAQueryWithoutAnyField)
{
    EXPECT_EQ(searchEventFliter(&eventFilterListHead, -1, -2, -3), nullptr);
    EXPECT_EQ(logged("uid, channel, eventCode all small than zero\n"), 1u);
}

TEST(EventFilterSearch, WalksFromTheNewest)
{
    EventFilter older = {.uid = 5, .channel = -1, .eventCode = -1, .node = {}};
    EventFilter newer = older;
    ListNode head;
    listInit(&head);
    listAddTail(&older.node, &head);
    listAddTail(&newer.node, &head);
    EXPECT_EQ(searchEventFliter(&head, 5, -1, -1), &newer);
}

TEST(DueEntries, AreFoundInListOrderAndOnlyWhenDue)
{
    ListNode table;
    listInit(&table);
    for (const uint32_t timer : {1000u, 500u, 2000u}) {
        TARGET_Comp *entry = callocTARGET_Comp();
        entry->timer = timer;
        listAddTail(&entry->node, &table);
    }
    EXPECT_EQ(searchTargetComp(500, &table)->timer, 500u);
    EXPECT_EQ(searchTargetComp(501, &table), nullptr);
    EXPECT_EQ(searchanddelTargetComp(499, -10, &table), nullptr);
    TARGET_Comp *first = searchanddelTargetComp(1000, 0, &table);
    EXPECT_EQ(first->timer, 500u);  // 1000 − 1000 is not greater than 0
    freeMem(first);
    TARGET_Comp *due = searchanddelTargetComp(1001, 0, &table);
    EXPECT_EQ(due->timer, 1000u);
    EXPECT_EQ(searchanddelTargetComp(1999, -10, &table), nullptr);  // never before its planned time
    EXPECT_EQ(getListObjNum(&table), 1);
    freeMem(due);
    freeTARGETComps(&table);
}

static TriggerThrData *threadOf(const char *title, ListNode *head)
{
    TriggerThrData *data = callocTriggerThrData();
    data->macro = callocMacro();
    strcpy(data->macro->title, title);
    listAddTail(&data->node, head);
    return data;
}

TEST(MacroThreadRecords, AreCountedAndFoundByTheirMacro)
{
    ListNode head;
    listInit(&head);
    EXPECT_EQ(countDoSceneThdListItems(nullptr, "A"), 0);
    EXPECT_EQ(countDoSceneThdListItems(&head, "A"), 0);
    EXPECT_EQ(searchMacroInTriggerThrList(&head, "A"), nullptr);
    TriggerThrData *oldest = threadOf("A", &head);
    threadOf("B", &head);
    TriggerThrData *newest = threadOf("A", &head);
    threadOf("B", &head);
    EXPECT_EQ(countDoSceneThdListItems(&head, "A"), 2);
    EXPECT_EQ(countDoSceneThdListItems(&head, "a"), 0);
    EXPECT_EQ(searchMacroInTriggerThrList(&head, "A"), oldest);
    EXPECT_EQ(searchLastMacroInTriggerThrList(&head, "A"), newest);
    for (TriggerThrData &data : ELEMENTS(TriggerThrData, node, &head))
        freeTriggerThrData(&data);
    EXPECT_TRUE(listEmpty(&head));
}

TEST(PhonesToKeep, AreTheEarliest)
{
    const Value phones(R"([{"token":"a","update_ts":20},{"token":"b","update_ts":10},
        {"token":"c","update_ts":10,"gateway_name":"Home"},{"token":"d","update_ts":30}])");
    EXPECT_EQ(searchEarlyPushDev(&pushDevsListHead), nullptr);
    setRegisteredDevices(phones);
    EXPECT_STREQ(searchEarlyPushDev(&pushDevsListHead)->device->token, "c");
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

TEST(Rooms, AreFoundByADeviceTheyHold)
{
    const Value rooms(R"([{"title":"Hall","targets":[{"dev":2,"ch":1}]},
        {"title":"Bath","targets":[{"dev":3,"if":9,"ch":1},{"dev":2,"ch":2}]}])");
    setRooms(rooms);
    EXPECT_STREQ(searchDevInRooms(&roomsListHead, 2, 1)->title, "Hall");
    EXPECT_STREQ(searchDevInRooms(&roomsListHead, 2, 2)->title, "Bath");
    EXPECT_STREQ(searchDevInRooms(&roomsListHead, 3, 1)->title, "Bath");
    EXPECT_EQ(searchDevInRooms(&roomsListHead, 3, 2), nullptr);
}

TEST(PluralFrees, LogANullHeadAndEmptyAList)
{
    void (*const frees[])(ListNode *) = {freeScenes,
                                         freeComps,
                                         freeMacros,
                                         freeTriggers,
                                         freeSchedules,
                                         freeRooms,
                                         freeTargets,
                                         freeExtraCameras,
                                         freeTARGETComps,
                                         freeEventFilterList,
                                         free_reg_dev_info_list,
                                         freeHomeSceneResumeList};
    ListNode empty;
    listInit(&empty);
    for (auto *freeAll : frees) {
        freeAll(nullptr);
        freeAll(&empty);
    }
    EXPECT_EQ(logged("head is NULL\n"), std::size(frees));
}

TEST(OtherRecords, AreFreedWithWhatTheyOwn)
{
    ResumeScene *resume = callocResumeScene();
    resume->scene = callocScene();
    resume->enabled_notifications[1] = strdup("pns");
    freeResumeScene(resume);
    ResumeSchedule *schedule = callocResumeSchedule();
    schedule->scene = callocScene();
    freeResumeSchedule(schedule);
    HomeSceneResume *home = callocHomeSceneResume();
    home->scene = callocScene();
    freeHomeSceneResume(home);
    HomeSceneData *alarm = callocHomeSceneData();
    alarm->device = callocGetDev_dev();
    alarm->channel = callocGetDev_channel();
    freehomeSceneData(alarm);
    SysCmd *command = callocSysCmd();
    command->cmd = strdup("true");
    freeSysCmd(command);
    SUCCEED();  // the leak checker judges
}
