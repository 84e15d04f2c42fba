// The stored document of schedules that have started and not ended.

#include "schedule/resume_file.h"

#include "daemon_in_process.h"
#include "main/json_memory.h"
#include "support/temp_dir.h"

#include <cstdlib>
#include <cstring>
#include <sys/stat.h>

using support::storedLayout;
using testing::ElementsAre;
using testing::IsEmpty;

static constexpr const char *NAME = "scheduleResumeScene.json";

// As it is written: compact, keys sorted, the scene in the form of the configuration.
static const std::string EVENING =
    R"({"scene":{"ID":0,"buildinSiren":{"siren_type":0},)"
    R"("comps":[{"target":{"ch":1,"dev":20,"if":0},"value":7},)"
    R"({"target":{"ch":0,"dev":21,"if":2},"value":-9223372036854775807}],)"
    R"("icon":"i","icon_name":"n","invisible":0,"title":"Hall \"light\""},"title":"\u00C4bend"})";
static const std::string MORNING = R"({"title":"Morning"})";

class ResumeFile : public testing::Test {
protected:
    void SetUp() override
    {
        setenv("APP_DATA_DIR", folder.path().c_str(), 1);
        listInit(&head);
    }
    void TearDown() override
    {
        freeAll(&head);
    }
    static void freeAll(ListNode *list)
    {
        for (ResumeSchedule &resume : ELEMENTS(ResumeSchedule, node, list))
            freeResumeSchedule(&resume);
    }

    void add(const char *title, const char *scene = nullptr)
    {
        ResumeSchedule *resume = callocResumeSchedule();
        strcpy(resume->title, title);
        if (scene)
            resume->scene = setNewScene(Value(scene));
        listAddTail(&resume->node, &head);
    }
    void addEveningAndMorning()
    {
        add("Äbend", R"({"title":"Hall \"light\"","icon":"i","icon_name":"n",
            "buildinSiren":{"siren_type":0},"comps":[
            {"target":{"dev":20,"if":0,"ch":1},"value":7},
            {"target":{"dev":21,"if":2,"ch":0},"value":-9223372036854775807}]})");
        add("Morning");
    }
    void write(const std::string &text)
    {
        folder.write(NAME, storedLayout(text));
    }
    std::string stored()
    {
        return folder.read(NAME).value_or("(nothing)");
    }
    // The list as its document.
    std::string text()
    {
        std::string result = "[";
        for (const ResumeSchedule &resume : ELEMENTS(ResumeSchedule, node, &head)) {
            result += result == "[" ? "" : ",";
            result += std::string(resume.title) + "=";
            result += resume.scene ? takeText(sceneToJson(resume.scene)) : "none";
        }
        return result + "]";
    }
    std::vector<std::string> titles()
    {
        std::vector<std::string> result;
        for (const ResumeSchedule &resume : ELEMENTS(ResumeSchedule, node, &head))
            result.push_back(resume.title);
        return result;
    }

    support::TempDir folder;
    ListNode head;
};

TEST_F(ResumeFile, HoldsTitlesAndScenesInTheOrderOfTheList)
{
    addEveningAndMorning();
    saveScheduleResume(&head);
    EXPECT_EQ(stored(), storedLayout("[" + EVENING + "," + MORNING + "]"));
    EXPECT_EQ(logged("scene is NULL\n"), 0u);
}

TEST_F(ResumeFile, OfAnEmptyListIsAnEmptyArray)
{
    write("[" + MORNING + "]");
    saveScheduleResume(&head);
    EXPECT_EQ(stored(), storedLayout("[]"));
}

TEST_F(ResumeFile, ReadsBackWhatWasWritten)
{
    addEveningAndMorning();
    saveScheduleResume(&head);
    const std::string before = text();
    const std::string document = stored();
    freeAll(&head);
    EXPECT_EQ(takeText(parseResumeSchedule(&head)), "[" + EVENING + "," + MORNING + "]");
    EXPECT_EQ(text(), before);
    write("[]");
    saveScheduleResume(&head);
    EXPECT_EQ(stored(), document);
}

TEST_F(ResumeFile, IsAppendedToTheListThatIsThere)
{
    add("First");
    write(R"([{"title":"Second"},{"title":"Third"}])");
    json_decref(parseResumeSchedule(&head));
    EXPECT_THAT(titles(), ElementsAre("First", "Second", "Third"));
}

TEST_F(ResumeFile, IsOnlyReadWithoutAList)
{
    write("[" + EVENING + "]");
    EXPECT_EQ(takeText(parseResumeSchedule(nullptr)), "[" + EVENING + "]");
    EXPECT_THAT(logLines(), IsEmpty());
}

TEST_F(ResumeFile, IsNotWrittenAgainWhileItSaysTheSame)
{
    const std::string sameInOtherWords = "[ {\"title\" : \"Morning\"} ]";
    write(sameInOtherWords);
    add("Morning");
    saveScheduleResume(&head);
    EXPECT_EQ(stored(), storedLayout(sameInOtherWords));
    add("Evening");
    saveScheduleResume(&head);
    EXPECT_EQ(stored(), storedLayout(R"([{"title":"Morning"},{"title":"Evening"}])"));
}

TEST_F(ResumeFile, IsWrittenAgainForAnotherValueOrOrder)
{
    add("A", R"({"comps":[{"target":{"dev":1},"value":1}]})");
    add("B");
    saveScheduleResume(&head);
    const std::string before = stored();
    FIRST_ELEMENT(Comp, node, &FIRST_ELEMENT(ResumeSchedule, node, &head)->scene->comps)->value = 2;
    saveScheduleResume(&head);
    const std::string changed = stored();
    EXPECT_NE(changed, before);
    ListNode *first = head.next;
    listDel(first);
    listAddTail(first, &head);
    saveScheduleResume(&head);
    EXPECT_NE(stored(), changed);
}

TEST_F(ResumeFile, ThatIsMissingGivesNothingAndIsLogged)
{
    EXPECT_EQ(parseResumeSchedule(&head), nullptr);
    EXPECT_EQ(logLines(), (std::vector<LogLine>{{4, "jsonStrReadFromFile",
                                                 folder.file(NAME).string() + " not exist.\n"},
                                                {6, "parseResumeSchedule", "jsonStr == NULL\n"}}));
    EXPECT_TRUE(listEmpty(&head));
}

struct DamagedDocument {
    const char *name;
    std::string bytes;
    const char *log;
};

static void PrintTo(const DamagedDocument &document, std::ostream *out)
{
    *out << document.name;
}

class ResumeFileDamaged : public ResumeFile, public testing::WithParamInterface<DamagedDocument> {};

TEST_P(ResumeFileDamaged, GivesNothingIsLoggedAndIsWrittenAnew)
{
    folder.write(NAME, GetParam().bytes);
    EXPECT_EQ(parseResumeSchedule(&head), nullptr);
    EXPECT_TRUE(listEmpty(&head));
    EXPECT_EQ(logLines().back(), (LogLine{6, "parseResumeSchedule", GetParam().log}));

    add("Morning");
    saveScheduleResume(&head);
    EXPECT_EQ(stored(), storedLayout("[" + MORNING + "]"));
}

INSTANTIATE_TEST_SUITE_P(
    Documents, ResumeFileDamaged,
    testing::Values(
        DamagedDocument{"OfNoBytes", "", "jsonStr == NULL\n"},
        DamagedDocument{"OfItsLengthAlone", std::string("\x03\0\0\0", 4), "jsonStr == NULL\n"},
        DamagedDocument{"CutShort", storedLayout("[" + EVENING + "]").substr(0, 40),
                        "error: on line 1: premature end of input near '\"s'\n"},
        DamagedDocument{"OfNoJson", storedLayout("nonsense"),
                        "error: on line 1: '[' or '{' expected near 'nonsense'\n"},
        DamagedDocument{"OnItsSecondLine", storedLayout("[\n}]"),
                        "error: on line 2: unexpected token near '}'\n"},
        DamagedDocument{"ThatIsAnObject", storedLayout(R"({"title":"Morning"})"),
                        "error: root is not an object\n"},
        DamagedDocument{"NestedTooDeep",
                        storedLayout(std::string(100'000, '[') + std::string(100'000, ']')),
                        "error: on line 1: maximum parsing depth reached\n"}),
    [](const auto &document) { return std::string(document.param.name); });

TEST_F(ResumeFile, GivesItsOtherElementsWhereSomeAreNone)
{
    write(R"([5,{"title":"A"},null,"text",[],{"title":"B","scene":{"title":"S"}}])");
    json_decref(parseResumeSchedule(&head));
    EXPECT_THAT(titles(), ElementsAre("A", "B"));
    EXPECT_EQ(logged("a resume is not an object\n"), 4u);
}

TEST_F(ResumeFile, GivesARecordWithoutASceneWhereItIsNone)
{
    write(R"([{"title":"A","scene":5},{"title":"B","scene":[]},{"title":"C","scene":"S"},
        {"title":"D","scene":null},{"title":"E"}])");
    json_decref(parseResumeSchedule(&head));
    EXPECT_EQ(text(), "[A=none,B=none,C=none,D=none,E=none]");
}

TEST_F(ResumeFile, GivesAnEmptyTitleWhereItIsNone)
{
    write(R"([{"title":5},{},{"title":")" + std::string(127, 'x') + R"("},{"title":")" +
          std::string(126, 'x') + R"("}])");
    json_decref(parseResumeSchedule(&head));
    EXPECT_THAT(titles(), ElementsAre("", "", "", std::string(126, 'x')));
}

TEST_F(ResumeFile, GivesASceneOfOddMembersAsFarAsItGoes)
{
    write(R"([{"title":"A","scene":{"title":7,"comps":[{"value":"x"},{"target":5},
        {"target":{"dev":1.5,"ch":"2"},"value":3},8,{"target":{"dev":9}}],"buildinSiren":1}}])");
    json_decref(parseResumeSchedule(&head));
    EXPECT_EQ(text(), R"([A={"ID":0,"comps":[{"target":{"ch":0,"dev":0,"if":0},"value":3}],)"
                      R"("icon":"","icon_name":"","invisible":0,"title":""}])");
}

TEST_F(ResumeFile, WhoseWritingWasCutShortIsFinishedBeforeItIsRead)
{
    write("[]");
    folder.write(std::string(NAME) + ".new", storedLayout("[" + MORNING + "]"));
    json_decref(parseResumeSchedule(&head));
    EXPECT_THAT(titles(), ElementsAre("Morning"));
    EXPECT_EQ(stored(), storedLayout("[" + MORNING + "]"));
}

TEST_F(ResumeFile, ThatCannotBeStoredIsLogged)
{
    setenv("APP_DATA_DIR", folder.file("none").c_str(), 1);
    add("Morning");
    saveScheduleResume(&head);
    EXPECT_EQ(logged(folder.file("none").string() + "/" + NAME +
                     " cannot be stored: No such file or directory\n"),
              1u);
    EXPECT_THAT(titles(), ElementsAre("Morning"));
}

TEST_F(ResumeFile, IsWrittenWholeOrStaysWhenMemoryRunsOut)
{
    watchJsonMemory();
    addEveningAndMorning();
    const std::string before = storedLayout("[]");
    const std::string whole = storedLayout("[" + EVENING + "," + MORNING + "]");
    int refused = 0;
    bool failed = true;
    for (int n = 1; failed && n < 1000; ++n) {
        write("[]");
        failJsonAllocation(n);
        saveScheduleResume(&head);
        failJsonAllocation(0);
        failed = stored() != whole;
        refused += failed;
        if (failed) {
            EXPECT_EQ(stored(), before) << "allocation " << n;
        }
    }
    EXPECT_FALSE(failed);
    EXPECT_GT(refused, 50);
}

TEST_F(ResumeFile, IsReadWholeOrNotWhenMemoryRunsOut)
{
    watchJsonMemory();
    write("[" + EVENING + "," + MORNING + "]");
    json_decref(parseResumeSchedule(&head));
    const std::string whole = text();
    int refused = 0;
    bool failed = true;
    for (int n = 1; failed && n < 1000; ++n) {
        freeAll(&head);
        failJsonAllocation(n);
        json_t *root = parseResumeSchedule(&head);
        failed = jsonAllocationHasFailed();
        failJsonAllocation(0);
        EXPECT_EQ(text(), root ? whole : "[]") << "allocation " << n;
        refused += !root;
        json_decref(root);
    }
    EXPECT_FALSE(failed);
    EXPECT_GT(refused, 20);
}

TEST_F(ResumeFile, LeavesNothingBehindWhenMemoryForItsRecordsRunsOut)
{
    static constexpr int ALLOCATIONS =
        7;  // the text, two records, a scene, its siren and two comps
    write("[" + EVENING + "," + MORNING + "]");
    json_decref(parseResumeSchedule(&head));
    const std::string whole = text();
    for (int n = 1; n <= ALLOCATIONS + 1; ++n) {  // the leak checker looks at what is left
        freeAll(&head);
        failAllocation(n);
        json_decref(parseResumeSchedule(&head));
        failAllocation(0);
        EXPECT_EQ(text() == whole, n > ALLOCATIONS) << "allocation " << n << ": " << text();
    }
    EXPECT_EQ(stored(), storedLayout("[" + EVENING + "," + MORNING + "]"));
}
