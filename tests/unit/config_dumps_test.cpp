// The dumps for whoever looks for a fault: every list and record as lines of level 3.

#include "config/document.h"
#include "config/macro.h"
#include "config/resume.h"
#include "config/room.h"
#include "config/scene.h"
#include "config/schedule.h"
#include "config/sys_cmd.h"
#include "config/trigger_thread.h"
#include "daemon_in_process.h"
#include "main/locks.h"

#include <cstring>
#include <functional>

using testing::AllOf;
using testing::Field;
using testing::HasSubstr;

// What a dump logs. It leaves no lock behind, or the next one would never end.
static std::vector<LogLine> dumped(const std::function<void()> &dump)
{
    forgetLog();
    dump();
    EXPECT_EQ(pthread_mutex_trylock(&Macro_op_mutex), 0);
    pthread_mutex_unlock(&Macro_op_mutex);
    return logLines();
}

// A line of level 3 in that function's name that shows the text.
static testing::Matcher<const LogLine &> shows(const std::string &function, const std::string &text)
{
    return AllOf(Field(&LogLine::level, 3), Field(&LogLine::function, function),
                 Field(&LogLine::text, HasSubstr(text)));
}

static Scene *privateScene(const char *title)
{
    Scene *scene = callocScene();
    strcpy(scene->title, title);
    return scene;
}

class Dump : public testing::Test {
protected:
    void SetUp() override
    {
        parseAll(R"({"scenes":[{"title":"Evening","comps":[{"target":{"dev":5,"ch":2},"value":99},
                {"target":{"dev":6},"value":1}],"buildinSiren":{"siren_type":4}},{"title":"Empty"}],
            "macros":[{"title":"Door","scene":{"title":"own","comps":[{"target":{"dev":7},"value":3}]},
                "triggers":[{"target":{"dev":8,"ch":1},"op":">","field":"f","threshold":20}]},
                {"title":"Bare"}],
            "schedules":[{"title":"Night","macro":{"title":"embedded"}},{"title":"Day","macro":"Door"}],
            "rooms":[{"title":"Hall","targets":[{"dev":9,"if":1,"ch":3}]}]})");
    }
};

TEST_F(Dump, OfScenesShowsTheirCompsAndSirens)
{
    EXPECT_THAT(dumped([] { listScenes(&scenesListHead); }),
                testing::ElementsAre(shows("listScene", "Evening"), shows("listScene", "4"),
                                     shows("listComps", "99"), shows("listComps", "6"),
                                     shows("listScene", "Empty")));
}

TEST_F(Dump, OfOneSceneIsThatSceneAlone)
{
    Scene *scene = searchScene(&scenesListHead, "Empty");
    EXPECT_THAT(dumped([&] { listScene(scene); }),
                testing::ElementsAre(shows("listScene", "Empty")));
    EXPECT_TRUE(dumped([] { listScene(nullptr); }).empty());
}

TEST_F(Dump, OfCompsTakesNoLock)
{
    Scene *scene = searchScene(&scenesListHead, "Evening");
    const MutexLock lock(Macro_op_mutex);  // whoever lists a scene's comps holds it
    forgetLog();
    listComps(&scene->comps);
    EXPECT_THAT(logLines(), testing::ElementsAre(shows("listComps", "5"), shows("listComps", "6")));
}

TEST_F(Dump, OfMacrosShowsTheirScenesAndTriggers)
{
    EXPECT_THAT(dumped([] { listMacros(&macrosListHead); }),
                testing::ElementsAre(shows("listMacros", "Door"), shows("listScene", "own"),
                                     shows("listComps", "7"), shows("listTrigger", "20"),
                                     shows("listMacros", "Bare")));
}

TEST_F(Dump, OfTriggersIsALineEach)
{
    ListNode *triggers = &searchMacro(&macrosListHead, "Door")->triggers;
    const auto one = dumped([&] { listTrigger(FIRST_ELEMENT(Trigger, node, triggers)); });
    EXPECT_THAT(one, testing::ElementsAre(shows("listTrigger", ">")));
    EXPECT_EQ(dumped([&] { listTriggers(triggers); }), one);
}

TEST_F(Dump, OfSchedulesShowsTheirOwnMacros)
{
    EXPECT_THAT(dumped([] { listSchedules(&schedulesListHead); }),
                testing::ElementsAre(shows("listSchedules", "Night"),
                                     shows("listMacros", "embedded"),
                                     shows("listSchedules", "Door")));
}

TEST_F(Dump, OfRoomsShowsTheirTargets)
{
    EXPECT_THAT(dumped([] { listRooms(&roomsListHead); }),
                testing::ElementsAre(shows("listRooms", "Hall"), shows("listTarget", "9")));
    ListNode *targets = &searchRoom(&roomsListHead, "Hall")->targets;
    const auto one = dumped([&] { listTarget(FIRST_ELEMENT(Target, node, targets)); });
    EXPECT_THAT(one, testing::ElementsAre(shows("listTarget", "3")));
    EXPECT_EQ(dumped([&] { listTargets(targets); }), one);
}

TEST(DumpOfResumeScenes, SurvivesOneWithoutAScene)
{
    ResumeScene *with = callocResumeScene();
    with->scene = privateScene("before");
    strcpy(with->macroTitle, "Door");
    with->triggerFunctionType = -5;
    ResumeScene *without = callocResumeScene();
    strcpy(without->macroTitle, "Bare");
    for (ResumeScene *resume : {with, without})
        listAddTail(&resume->node, &resumeSceneListHead);
    EXPECT_THAT(dumped([] { listResumeScene(&resumeSceneListHead); }),
                testing::ElementsAre(shows("listResumeScene", "Door"), shows("listScene", "before"),
                                     shows("listResumeScene", "Bare")));
    for (ResumeScene *resume : {with, without})
        freeResumeScene(resume);
}

TEST(DumpOfMacroThreads, SurvivesOneWithoutAMacro)
{
    TriggerThrData *with = callocTriggerThrData();
    with->macro = callocMacro();
    strcpy(with->macro->title, "Door");
    TriggerThrData *without = callocTriggerThrData();
    for (TriggerThrData *data : {with, without})
        listAddTail(&data->node, &doSceneThrListHead);
    EXPECT_THAT(dumped([] { listTriggerThrDataList(&doSceneThrListHead); }),
                testing::ElementsAre(shows("listTriggerThrDataList", "Door"),
                                     shows("listTriggerThrDataList", "macro:  outdated: 0\n")));
    for (TriggerThrData *data : {with, without})
        freeTriggerThrData(data);
}

TEST(DumpOfCommands, SurvivesOneWithoutAText)
{
    SysCmd *with = callocSysCmd();
    with->cmd = strdup("true %s %n");  // a text, never a format
    SysCmd *without = callocSysCmd();
    for (SysCmd *command : {with, without})
        listAddTail(&command->node, &sysCmdListHead);
    EXPECT_THAT(
        dumped([] { listSysCmd(&sysCmdListHead); }),
        testing::ElementsAre(shows("listSysCmd", "true %s %n"), shows("listSysCmd", "cmd: \n")));
    for (SysCmd *command : {with, without})
        freeSysCmd(command);
}

TEST(DumpOfAnEmptyList, IsNothing)
{
    ListNode empty;
    listInit(&empty);
    for (auto *dump : {listScenes, listComps, listMacros, listTriggers, listSchedules, listRooms,
                       listTargets, listResumeScene, listTriggerThrDataList, listSysCmd})
        EXPECT_TRUE(dumped([&] { dump(&empty); }).empty());
}
