// A large request finds its elements through an index, a small one walks the list. Both have to
// come to the same configuration.

#include "config/text_index.h"

#include "config/camera.h"
#include "config/document.h"
#include "config/groups.h"
#include "config/lists.h"
#include "daemon_in_process.h"

struct IndexedGroup {
    const char *word;
    const char *key;
    const char *field;  // a text member, another text in each element
    size_t records;     // that the 40 elements below make of the ten that are there
};

// One request with those elements.
static std::string request(const char *word, const std::vector<std::string> &elements)
{
    std::string text = "{\"" + std::string(word) + "\":[";
    for (size_t i = 0; i < elements.size(); ++i)
        text += (i ? "," : "") + elements[i];
    return text + "]}";
}

static std::string element(const IndexedGroup &group, const std::string &keyMember)
{
    static int made;
    return "{" + keyMember + (keyMember.empty() ? "" : ",") + "\"" + group.field + "\":\"" +
           std::to_string(++made) + "\"}";
}

static std::string keyed(const IndexedGroup &group, const std::string &key)
{
    return element(group, "\"" + std::string(group.key) + "\":\"" + key + "\"");
}

static std::vector<std::string> present(const IndexedGroup &group)
{
    std::vector<std::string> elements;
    for (int i = 0; i < 10; ++i)
        elements.push_back(keyed(group, "old " + std::to_string(i)));
    return elements;
}

// 40 elements whose keys are of every kind: none, known, new, new twice, empty, as long as a key
// may be, too long.
static std::vector<std::string> everyKindOfKey(const IndexedGroup &group)
{
    const std::string longest(126, 'x');
    const std::string tooLong(127, 'x');
    std::vector<std::string> elements = {element(group, ""), element(group, "")};
    for (const std::string &key : {std::string("old 3"), std::string("new"), std::string("new"),
                                   tooLong, longest, std::string(), tooLong, longest})
        elements.push_back(keyed(group, key));
    elements.push_back(element(group, "\"" + std::string(group.key) + "\":5"));
    for (int i = 0; i < 10; ++i) {
        elements.push_back(keyed(group, "old " + std::to_string(9 - i)));
        elements.push_back(keyed(group, "new " + std::to_string(i)));
    }
    elements.push_back(element(group, ""));
    for (const char *key : {"", "new", "OLD 1", "old 1 ", "new 0", "old 0", "new 9", ""})
        elements.push_back(keyed(group, key));
    return elements;
}

static size_t elementCount(const IndexedGroup &group)
{
    json_t *root = getAllAppConfig();
    const size_t count = json_array_size(json_object_get(root, group.word));
    json_decref(root);
    return count;
}

static constexpr auto caseName = [](const auto &info) { return std::string(info.param.word); };

class IndexedRequest : public testing::TestWithParam<IndexedGroup> {};

TEST_P(IndexedRequest, ComesToTheSameAsItsElementsOneByOne)
{
    const std::string before = request(GetParam().word, present(GetParam()));
    const std::vector<std::string> elements = everyKindOfKey(GetParam());
    ASSERT_EQ(elements.size(), 40u);
    parseAll(before.c_str());
    for (const std::string &single : elements)
        parseAll(request(GetParam().word, {single}).c_str());
    const std::string oneByOne = takeText(getAllAppConfig());
    EXPECT_EQ(elementCount(GetParam()), GetParam().records);

    freeAppConfigList();
    parseAll(before.c_str());
    EXPECT_EQ(parseAll(request(GetParam().word, elements).c_str()), 1);
    EXPECT_EQ(takeText(getAllAppConfig()), oneByOne);
}

TEST_P(IndexedRequest, ComesToTheSameInAnEmptyList)
{
    const std::vector<std::string> elements = everyKindOfKey(GetParam());
    for (const std::string &single : elements)
        parseAll(request(GetParam().word, {single}).c_str());
    const std::string oneByOne = takeText(getAllAppConfig());
    freeAppConfigList();
    parseAll(request(GetParam().word, elements).c_str());
    EXPECT_EQ(takeText(getAllAppConfig()), oneByOne);
}

// 24 keys that differ, two elements whose key is too long and, but for rooms, four without one.
INSTANTIATE_TEST_SUITE_P(Groups, IndexedRequest,
                         testing::Values(IndexedGroup{"macros", "title", "icon_name", 30},
                                         IndexedGroup{"scenes", "title", "icon", 30},
                                         IndexedGroup{"schedules", "title", "icon", 30},
                                         IndexedGroup{"rooms", "title", "icon", 26},
                                         IndexedGroup{"cameras", "uid", "display", 30}),
                         caseName);

// A JSON object has each key once, so the kinds are fewer.
static std::vector<std::string> nameMembers()
{
    std::vector<std::string> members = {"\"" + std::string(127, 'x') + "\":\"1\"", "\"\":\"2\"",
                                        "\"" + std::string(126, 'x') + "\":\"3\""};
    for (int i = 0; i < 18; ++i) {
        members.push_back("\"old " + std::to_string(i) + "\":\"changed\"");
        members.push_back("\"new " + std::to_string(i) + "\":\"added\"");
    }
    members.push_back("\"" + std::string(127, 'y') + "\":\"4\"");
    return members;
}

static void setNames(const std::vector<std::string> &members)
{
    std::string text;
    for (const std::string &member : members)
        text += (text.empty() ? "" : ",") + member;
    EXPECT_EQ(parseAll(("{\"targetNames\":{" + text + "}}").c_str()), 1);
}

TEST(IndexedNames, ComeToTheSameAsOneByOne)
{
    const char *const before = R"({"targetNames":{"old 0":"a","old 7":"b","old 17":"c"}})";
    const std::vector<std::string> members = nameMembers();
    ASSERT_EQ(members.size(), 40u);
    parseAll(before);
    for (const std::string &member : members)
        setNames({member});
    const std::string oneByOne = takeText(getAllAppConfig());
    const int count = getListObjNum(groupOf(TARGET_NAMES).head);
    EXPECT_EQ(count, 39);  // "" is that of the key that was too long

    freeAppConfigList();
    parseAll(before);
    setNames(members);
    EXPECT_EQ(takeText(getAllAppConfig()), oneByOne);
    EXPECT_EQ(getListObjNum(groupOf(TARGET_NAMES).head), count);
}

TEST(IndexedSchedules, KnowTheMacrosThatTheyName)
{
    std::vector<std::string> macros;
    std::vector<std::string> schedules;
    for (int i = 0; i < 20; ++i) {
        macros.push_back(R"({"title":"M)" + std::to_string(i) + R"("})");
        schedules.push_back(R"({"title":"S)" + std::to_string(i) + R"(","macro":"M)" +
                            std::to_string(i + 1) + R"("})");
    }
    parseAll(request("macros", macros).c_str());
    parseAll(request("schedules", schedules).c_str());
    std::vector<LogLine> unknown;
    for (const LogLine &line : logLines()) {
        if (line.text.find("of the schedule is not known") != std::string::npos)
            unknown.push_back(line);
    }
    EXPECT_EQ(unknown, (std::vector<LogLine>{
                           {3, "setSchedules", "macro M20 of the schedule is not known\n"}}));
}

static std::string cameras(int count)
{
    std::vector<std::string> elements;
    for (int i = 0; i < count; ++i)
        elements.push_back(R"({"uid":")" + std::to_string(i) + R"("})");
    return request("cameras", elements);
}

// True when the allocation that was to fail has been tried.
static bool allocationWasTried()
{
    void *memory = callocMem(1);
    failAllocation(0);
    free(memory);
    return memory != nullptr;
}

TEST(TextIndex, IsMadeFromSixteenElementsOn)
{
    parseAll(cameras(16).c_str());
    failAllocation(1);  // every camera is there: nothing but an index needs memory
    parseAll(cameras(15).c_str());
    EXPECT_FALSE(allocationWasTried());
    failAllocation(1);
    parseAll(cameras(16).c_str());
    EXPECT_TRUE(allocationWasTried());
}

TEST(TextIndex, WithoutMemoryIsDoneWithout)
{
    parseAll(cameras(20).c_str());
    const std::string before = takeText(getAllAppConfig());
    failAllocation(1);
    EXPECT_EQ(parseAll(cameras(20).c_str()), 1);
    EXPECT_TRUE(allocationWasTried());
    EXPECT_EQ(takeText(getAllAppConfig()), before);
    failAllocation(1);
    EXPECT_EQ(parseAll(cameras(40).c_str()), 1);
    EXPECT_TRUE(allocationWasTried());
    EXPECT_EQ(getListObjNum(&camerasListHead), 40);
}

TEST(TextIndex, FindsTheFirstOfTwoRecordsWithTheSameText)
{
    Camera first = {.uid = "twice", .display = {}, .password = {}, .node = {}};
    Camera second = first;
    ListNode head;
    listInit(&head);
    TextIndex<Camera> index(ELEMENTS(Camera, node, &head), &Camera::uid, 16);
    EXPECT_EQ(index.find("twice"), nullptr);  // the index is made here, of an empty list
    for (Camera *camera : {&first, &second}) {
        listAddTail(&camera->node, &head);
        index.add(*camera);
    }
    EXPECT_EQ(index.find("twice"), &first);
    EXPECT_EQ(index.find("once"), nullptr);
    EXPECT_EQ(index.find(nullptr), nullptr);
}
