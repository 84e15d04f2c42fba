// The families of the configuration records: calloc, search, free.

#include "config/camera.h"
#include "config/device.h"
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
#include "config/target_name.h"
#include "config/trigger_thread.h"
#include "daemon_in_process.h"
#include "events/event_log.h"

static Scene *sceneOf(const std::string &text)
{
    const Value value(text);
    return setNewScene(value);
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

TEST(Search, OfANullKeyFindsNothing)
{
    const Value rooms(R"([{"title":"","extra_camera":[{"camera":""}]}])");
    const Value schedules(R"([{"title":""}])");
    const Value names(R"({"":""})");
    const Value phones(R"([{"token":""}])");
    const Value empty(R"({"title":"","uid":""})");
    setRooms(rooms);
    setSchedules(schedules);
    setTargetNames(names);
    setRegisteredDevices(phones);
    setMacro(empty, &macrosListHead);
    setCamera(empty, &camerasListHead);
    listAddTail(&callocResumeScene()->node, &resumeSceneListHead);
    threadOf("", &doSceneThrListHead);
    const auto foundBy = [](const char *key) -> std::vector<const void *> {
        Room *room = FIRST_ELEMENT(Room, node, &roomsListHead);
        return {searchMacro(&macrosListHead, key),
                searchRoom(&roomsListHead, key),
                searchSchedule(&schedulesListHead, key),
                searchCamera(&camerasListHead, key),
                searchTargetName(&targetNamesListHead, key),
                searchExtraCamera(&room->extra_camera, key),
                searchRegDev(&pushDevsListHead, key),
                searchResumeScene(&resumeSceneListHead, key),
                searchMacroInTriggerThrList(&doSceneThrListHead, key),
                searchLastMacroInTriggerThrList(&doSceneThrListHead, key)};
    };
    EXPECT_THAT(foundBy(nullptr), testing::Each(nullptr));
    EXPECT_THAT(foundBy(""), testing::Each(testing::NotNull()));  // an empty key is a key
    EXPECT_EQ(countDoSceneThdListItems(&doSceneThrListHead, nullptr), 0);
    EXPECT_EQ(countDoSceneThdListItems(&doSceneThrListHead, ""), 1);
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

TEST(PhonesToKeep, OfTheSameTimeAreTheOlder)
{
    const Value phones(R"([{"token":"a","update_ts":20},{"token":"b","update_ts":10},
        {"token":"c","update_ts":10}])");
    setRegisteredDevices(phones);
    EXPECT_STREQ(searchEarlyPushDev(&pushDevsListHead)->device->token, "b");
    const Value named(R"([{"token":"d","update_ts":10,"gateway_name":"Home"},
        {"token":"e","update_ts":10,"gateway_name":"Cabin"}])");
    setRegisteredDevices(named);
    EXPECT_STREQ(searchEarlyPushDev(&pushDevsListHead)->device->token, "d");
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

// Of three records in a list the middle one is freed: its neighbours are each other's.
template <typename Record>
static void expectToBeUnlinked(Record *(*callocOne)(), void (*freeOne)(Record *),
                               ListNode Record::*node)
{
    ListNode head;
    listInit(&head);
    Record *records[3] = {callocOne(), callocOne(), callocOne()};
    for (Record *record : records)
        listAddTail(&(record->*node), &head);
    freeOne(records[1]);
    ListNode *first = &(records[0]->*node);
    ListNode *third = &(records[2]->*node);
    EXPECT_EQ(first->next, third);
    EXPECT_EQ(third->prev, first);
    EXPECT_EQ(head.next, first);
    EXPECT_EQ(head.prev, third);
    freeOne(records[0]);
    freeOne(records[2]);
    EXPECT_TRUE(listEmpty(&head));
}

static void freeMacroRecord(Macro *macro)
{
    freeMacro(&macro->node);
}

TEST(FreedRecords, LeaveTheirNeighboursToEachOther)
{
    expectToBeUnlinked(callocScene, freeScene, &Scene::node);
    expectToBeUnlinked(callocComp, freeComp, &Comp::node);
    expectToBeUnlinked(callocMacro, freeMacroRecord, &Macro::node);
    expectToBeUnlinked(callocTrigger, freeTrigger, &Trigger::node);
    expectToBeUnlinked(callocSchedule, freeSchedule, &Schedule::node);
    expectToBeUnlinked(callocRoom, freeRoom, &Room::node);
    expectToBeUnlinked(callocTargets, freeTarget, &Target::node);
    expectToBeUnlinked(callocExtraCamera, freeExtraCamera, &ExtraCamera::node);
    expectToBeUnlinked(callocCamera, freeCamera, &Camera::node);
    expectToBeUnlinked(callocTargetName, freeTargetName, &TargetName::node);
    expectToBeUnlinked(callocRegDevices, free_reg_dev_info, &RegDevices::node);
    expectToBeUnlinked(callocEventFilter, freeEventFilter, &EventFilter::node);
    expectToBeUnlinked(callocSysCmd, freeSysCmd, &SysCmd::node);
    expectToBeUnlinked(callocEventLog, freeEventLog, &EventLog::node);
    expectToBeUnlinked(callocMacroEventLog, freeMacroEventLog, &MacroEventLog::node);
    expectToBeUnlinked(callocResumeScene, freeResumeScene, &ResumeScene::node);
    expectToBeUnlinked(callocResumeSchedule, freeResumeSchedule, &ResumeSchedule::node);
    expectToBeUnlinked(callocHomeSceneResume, freeHomeSceneResume, &HomeSceneResume::node);
    expectToBeUnlinked(callocHomeSceneData, freehomeSceneData, &HomeSceneData::node);
    expectToBeUnlinked(callocTriggerThrData, freeTriggerThrData, &TriggerThrData::node);
    expectToBeUnlinked(callocGetDev_dev, freeGetDevice_dev, &GetDev_dev::node);
    expectToBeUnlinked(callocGetDev_channel, freeGetDevice_dev_channel, &GetDev_channel::node);
}
