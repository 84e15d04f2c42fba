#include "events/event_documents.h"

#include "daemon_in_process.h"
#include "events/event_intake.h"
#include "main/json_memory.h"
#include "main/settings.h"
#include "main/stored_file.h"
#include "scene/housekeeping.h"
#include "support/scale.h"

#include <algorithm>
#include <apr_general.h>
#include <atomic>
#include <cstring>
#include <functional>
#include <thread>

class Journal : public testing::Test {
protected:
    void SetUp() override
    {
        apr_initialize();
        apr_pool_create(&pool, nullptr);
    }
    void TearDown() override
    {
        apr_pool_destroy(pool);
        const MutexLock events(eventLog_mutex);
        for (EventLog &log : ELEMENTS(EventLog, node, &eventLogListHead))
            freeEventLog(&log);
        const MutexLock macros(macroEventLog_mutex);
        for (MacroEventLog &log : ELEMENTS(MacroEventLog, node, &macroEventLogListHead))
            freeMacroEventLog(&log);
    }
    LoggedEvent add(Integer code, const char *payload = nullptr, const GetDev_dev *device = nullptr,
                    const GetDev_channel *channel = nullptr)
    {
        LoggedEvent logged = {};
        EXPECT_TRUE(addEventLog(code, 5, 1, payload, device, channel, &logged));
        return logged;
    }
    json_t *newestToJson()
    {
        const MutexLock lock(eventLog_mutex);
        return eventLogToJson(LAST_ELEMENT(EventLog, node, &eventLogListHead));
    }

    apr_pool_t *pool = nullptr;
};

TEST_F(Journal, KeepsThe200NewestEvents)
{
    for (int i = 1; i <= 250; ++i)
        add(5001);
    EXPECT_EQ(getListObjNum(&eventLogListHead), 200);
    EXPECT_EQ(FIRST_ELEMENT(EventLog, node, &eventLogListHead)->sequence, 51u);
    EXPECT_EQ(LAST_ELEMENT(EventLog, node, &eventLogListHead)->sequence, 250u);
}

TEST_F(Journal, KnowsNothingOfAnUnknownDevice)
{
    const LoggedEvent logged = add(5001);
    EXPECT_EQ(logged.productCode, -1);
    EXPECT_EQ(logged.uid, 5);
    EXPECT_EQ(logged.channelID, 1);
    const json_t *object = newestToJson();
    EXPECT_EQ(json_integer_value(json_object_get(object, "battery")), 0);
    EXPECT_EQ(json_integer_value(json_object_get(object, "productCode")), -1);
    EXPECT_EQ(json_object_get(object, "meter"), nullptr);
    EXPECT_EQ(json_object_get(object, "switch_color"), nullptr);
    EXPECT_EQ(json_object_get(object, "payload"), nullptr);
    json_decref(const_cast<json_t *>(object));
}

TEST_F(Journal, CopiesWhatTheDeviceShows)
{
    GetDev_dev device = {};
    strcpy(device.code, "0101020D");
    device.battery = 42;
    GetDev_channel_meter meter = {.watt = 1, .current = 2, .kwh = 3, .pf = 4, .voltage = 5};
    GetDev_channel_switch_color color = {.comp_mask1 = 6, .comp_mask2 = 7, .comp_value = 0};
    GetDev_channel channel = {};
    channel.functype = 22;
    channel.sensorvalue = 8;
    channel.basicvalue = 9;
    channel.Dim_ON_Value = 10;
    channel.sensorunit = 2;
    channel.meter = &meter;
    channel.switch_color = &color;
    strcpy(channel.name, "Plug");
    const LoggedEvent logged = add(5002, R"({"x":1})", &device, &channel);
    EXPECT_EQ(logged.productCode, 0x0101020D);
    EXPECT_EQ(logged.funcType, 22);
    meter.watt = 100;  // the record has copies
    json_t *object = newestToJson();
    json_object_del(object, "timeStamp");
    json_object_del(object, "timeStamp_ms");
    EXPECT_EQ(
        takeText(object),
        R"({"Dim_ON_Value":10,"Scene_schedule_time":0,"basicValue":9,"battery":42,"channelID":1,"dataUnit":2,)"
        R"("eventCode":5002,"funcName":"Plug","funcType":22,)"
        R"("meter":{"current":2,"kwh":3,"pf":4,"voltage":5,"watt":1},"payload":{"x":1},"productCode":16843277,)"
        R"("sensorValue":8,"sequence":1,"switch_color":{"comp_mask1":6,"comp_mask2":7,"comp_value":)"
        R"([{"comp_id":0,"value":0},{"comp_id":0,"value":0},{"comp_id":0,"value":0},{"comp_id":0,"value":0},)"
        R"({"comp_id":0,"value":0}]},"uid":5})");
}

TEST_F(Journal, LeavesOutAPayloadThatIsNoJson)
{
    add(5001, "not JSON");
    json_t *object = newestToJson();
    EXPECT_EQ(json_object_get(object, "payload"), nullptr);
    json_decref(object);
}

TEST_F(Journal, ShowsAPushWithoutADevice)
{
    add(5032, R"({"email":"e","uuid":"u","msg":"m"})");
    json_t *object = newestToJson();
    json_object_del(object, "timeStamp");
    json_object_del(object, "timeStamp_ms");
    EXPECT_EQ(takeText(object), R"({"Scene_schedule_time":0,"eventCode":5032,)"
                                R"("payload":{"email":"e","msg":"m","uuid":"u"},"sequence":1})");
}

TEST_F(Journal, ResetsTheSunWhenAnOlderRecordIsSerialized)
{
    add(5001);
    add(5001);
    json_decref(newestToJson());
    sunrise = 1;
    sunset = 2;
    json_decref(newestToJson());
    EXPECT_EQ(sunrise, 1);
    json_decref(eventLogToJson(FIRST_ELEMENT(EventLog, node, &eventLogListHead)));
    EXPECT_EQ(sunrise, 0);
    EXPECT_EQ(sunset, 0);
    EXPECT_EQ(seqold, 1u);
}

TEST_F(Journal, GivesTheNewestRecordsNewestFirst)
{
    for (int i = 0; i < 5; ++i)
        add(5001);
    const auto sequences = [&](uint32_t number) {
        recentLogNum = number;
        const Value document(genRecentEvent(pool));
        std::vector<Integer> result;
        size_t index;
        json_t *record;
        json_array_foreach(json_object_get(document, "eventLog"), index, record)
            result.push_back(json_integer_value(json_object_get(record, "sequence")));
        return result;
    };
    EXPECT_THAT(sequences(1), testing::ElementsAre(5));
    EXPECT_THAT(sequences(3), testing::ElementsAre(5, 4, 3));
    EXPECT_THAT(sequences(0), testing::ElementsAre());
    EXPECT_THAT(sequences(1000), testing::ElementsAre(5, 4, 3, 2, 1));
}

TEST_F(Journal, SaysWhoseItIs)
{
    recentLogNum = 0;
    EXPECT_STREQ(genRecentEvent(pool), R"({"eventLog":[],"send.dat_ts":0})");
    lan_mac = "00:11:22:33:44:55";
    setConfigTime(7);
    EXPECT_STREQ(genRecentEvent(pool),
                 R"({"eventLog":[],"mac":"00:11:22:33:44:55","send.dat_ts":7})");
}

TEST_F(Journal, AnnouncesAWholeDocumentOrNoneWhenMemoryRunsOut)
{
    watchJsonMemory();
    add(5001, R"({"x":1})");
    for (int n = 1;; ++n) {
        failJsonAllocation(n);
        const char *text = genRecentEvent(pool);
        failJsonAllocation(0);
        if (!text)
            continue;
        const std::string whole = genRecentEvent(pool);
        EXPECT_EQ(text, whole);
        EXPECT_GT(n, 10);
        break;
    }
}

// What that writer gives when the n-th allocation fails, for every n that it comes to: nothing, and
// then the whole of what it writes.
static void expectWholeOrNone(const std::function<const char *()> &write, const char *log,
                              size_t members)
{
    for (int n = 1;; ++n) {
        failJsonAllocation(n);
        const char *text = write();
        failJsonAllocation(0);
        if (!text)
            continue;
        EXPECT_GT(n, 10);
        const support::Json document((std::string_view(text)));
        EXPECT_EQ(document.size(), members);
        EXPECT_EQ(document[log].size(), 2u);
        break;
    }
}

TEST_F(Journal, IsReadBackAsAWholeOrNotAtAllWhenMemoryRunsOut)
{
    watchJsonMemory();
    add(5001, R"({"x":1})");
    add(5032, R"({"msg":"m"})");
    const auto read = [this] { return eventLogsToStrBySeq(&eventLogListHead, 1, pool); };
    expectWholeOrNone(read, "eventLog", 10);
}

TEST_F(Journal, OfMacrosIsReadBackAsAWholeOrNotAtAllWhenMemoryRunsOut)
{
    watchJsonMemory();
    freeMacroEventLog(addMacroEventLogInAlarm());
    freeMacroEventLog(addMacroEventLogInAlarm());
    const auto read = [this] { return macroEventLogsToStrBySeq(&macroEventLogListHead, 1, pool); };
    expectWholeOrNone(read, "macroEventLog", 1);
}

TEST_F(Journal, OfMacrosKeeps100Runs)
{
    TriggerThrData *data = callocTriggerThrData();
    data->macro = callocMacro();
    strcpy(data->macro->title, "Door");
    Scene *scene = callocScene();
    strcpy(scene->title, "Evening");
    for (int i = 1; i <= 101; ++i) {
        MacroEventLog *copy = addMacroEventLog(data, scene);
        EXPECT_EQ(copy->sequence, i);
        freeMacroEventLog(copy);
    }
    EXPECT_EQ(getListObjNum(&macroEventLogListHead), 100);
    EXPECT_EQ(FIRST_ELEMENT(MacroEventLog, node, &macroEventLogListHead)->sequence, 2);
    freeScene(scene);
    freeTriggerThrData(data);
}

TEST_F(Journal, OfMacrosSaysWhatItDoesNotKnow)
{
    EXPECT_EQ(addMacroEventLog(nullptr, nullptr), nullptr);
    TriggerThrData *data = callocTriggerThrData();
    MacroEventLog *copy = addMacroEventLog(data, nullptr);
    EXPECT_THAT(logTexts(), testing::ElementsAre("data is NULL.\n", "data->macroTitle is NULL\n",
                                                 "data->macro->title is NULL\n"));
    char *document = genMacroEvent(copy);
    EXPECT_THAT(document, testing::MatchesRegex(R"(\{"EventMacro":\{"timeStamp":[0-9]+\}\})"));
    free(document);
    freeMacroEventLog(copy);
    freeTriggerThrData(data);
}

TEST_F(Journal, AnnouncesAMacroEventInTheTimeOfItsMaking)
{
    MacroEventLog log = {};
    char name[] = "Door";
    char scene[] = "Evening";
    log.name = name;
    log.scene = scene;
    log.timeStamp = 1;
    lan_mac = "00:11:22:33:44:55";
    char *text = genMacroEvent(&log);
    const Value document(text);
    const json_t *event = json_object_get(document, "EventMacro");
    EXPECT_STREQ(json_string_value(json_object_get(event, "name")), "Door");
    EXPECT_STREQ(json_string_value(json_object_get(event, "scene")), "Evening");
    EXPECT_STREQ(json_string_value(json_object_get(event, "mac")), "00:11:22:33:44:55");
    EXPECT_GT(json_integer_value(json_object_get(event, "timeStamp")), 1000);
    free(text);
}

TEST(Serialized, NothingIsNothing)
{
    EXPECT_EQ(eventLogToJson(nullptr), nullptr);
    EXPECT_EQ(macroEventLogToJson(nullptr), nullptr);
    EXPECT_EQ(logLines(), (std::vector<LogLine>{{6, "eventLogToJson", "eLog is NULL\n"},
                                                {6, "macroEventLogToJson", "log  is NULL\n"}}));
}

// The records' numbers, in the document's order.
static std::vector<uint32_t> numbersIn(const char *journal, const char *list)
{
    const Value document(journal);
    const json_t *events = json_object_get(document, list);
    std::vector<uint32_t> result;
    for (size_t i = 0; i < json_array_size(events); ++i)
        result.push_back(static_cast<uint32_t>(
            json_integer_value(json_object_get(json_array_get(events, i), "sequence"))));
    return result;
}

// What a client that asks from that number gets.
static std::vector<uint32_t> numbersFrom(apr_pool_t *pool, uint32_t sequence)
{
    return numbersIn(eventLogsToStrBySeq(&eventLogListHead, sequence, pool), "eventLog");
}

static void expectNoGap(const std::vector<uint32_t> &numbers)
{
    for (size_t i = 1; i < numbers.size(); ++i)
        EXPECT_EQ(numbers[i], numbers[i - 1] + 1);
}

TEST_F(Journal, CountsOnFromZeroWhenTheNumbersHaveRunOut)
{
    continueEventSequence(UINT32_MAX - 2);
    for (int i = 0; i < 4; ++i)
        add(5001);
    EXPECT_THAT(numbersFrom(pool, 0), testing::ElementsAre(UINT32_MAX - 1, UINT32_MAX, 0, 1));
    EXPECT_THAT(numbersFrom(pool, UINT32_MAX), testing::ElementsAre(UINT32_MAX));
    EXPECT_THAT(numbersFrom(pool, 1), testing::ElementsAre(UINT32_MAX - 1, UINT32_MAX, 1));
}

TEST_F(Journal, KeepsItsCapacityAndOrderAcrossTheWrap)
{
    static constexpr uint32_t BEFORE = 120;
    continueEventSequence(uint64_t{UINT32_MAX} - BEFORE);
    for (int i = 0; i < 300; ++i)
        add(5001);
    const std::vector<uint32_t> numbers = numbersFrom(pool, 0);
    ASSERT_EQ(numbers.size(), 200u);
    expectNoGap(numbers);
    EXPECT_EQ(numbers.back(), 300 - BEFORE - 1);
}

// Each read sees a journal at one moment: numbers without a gap up to the newest.
TEST_F(Journal, IsReadWholeBesideWrites)
{
    static constexpr int READERS = 3;
    static constexpr int DOCUMENTS = 3;  // each is a read
    static constexpr uint32_t NEWEST = 5;
    const int rounds = support::inFull(1'000'000, 5'000) / READERS / DOCUMENTS + 1;
    recentLogNum = NEWEST;
    std::atomic<uint32_t> newest = 0;
    std::atomic<bool> over = false;
    std::thread writer([&] {
        while (!over) {
            LoggedEvent logged = {};
            addEventLog(5001, 5, 1, R"({"a":1})", nullptr, nullptr, &logged);
            freeMacroEventLog(addMacroEventLogInAlarm());
            ++newest;
        }
    });
    const auto read = [&] {
        apr_pool_t *own = nullptr;
        apr_pool_create(&own, nullptr);
        for (int i = 0; i < rounds; ++i) {
            const uint32_t from = std::max(newest.load(), NEWEST) - NEWEST;
            const std::vector<uint32_t> numbers = numbersFrom(own, from);
            ASSERT_FALSE(numbers.empty() && from > 0);
            expectNoGap(numbers);
            const std::vector<uint32_t> macros = numbersIn(
                macroEventLogsToStrBySeq(&macroEventLogListHead, from, own), "macroEventLog");
            ASSERT_FALSE(macros.empty() && from > 0);
            expectNoGap(macros);
            const std::vector<uint32_t> recent = numbersIn(genRecentEvent(own), "eventLog");
            ASSERT_FALSE(recent.size() < NEWEST && from > 0);
            expectNoGap({recent.rbegin(), recent.rend()});  // the newest comes first
            apr_pool_clear(own);
            forgetLog();
        }
        apr_pool_destroy(own);
    };
    std::vector<std::thread> readers;
    for (int i = 0; i < READERS; ++i)
        readers.emplace_back(read);
    for (std::thread &reader : readers)
        reader.join();
    over = true;
    writer.join();
    recentLogNum = 1;
    EXPECT_GT(newest, 0u);
    support::figure("written_meanwhile", newest, "");
}

TEST(Filter, MatchesWithItsNegativeFieldsAnything)
{
    const Value filters(R"([{"uid":5,"channel":1,"eventCode":5001},{"eventCode":4001},{"uid":7}])");
    setEventFilter(filters);
    const MutexLock lock(eventFilter_mutex);
    EXPECT_NE(filterEvent(&eventFilterListHead, 5, 1, 5001), nullptr);
    EXPECT_EQ(filterEvent(&eventFilterListHead, 5, 2, 5001), nullptr);
    EXPECT_EQ(filterEvent(&eventFilterListHead, 6, 1, 5001), nullptr);
    EXPECT_NE(filterEvent(&eventFilterListHead, 99, 99, 4001), nullptr);
    EXPECT_NE(filterEvent(&eventFilterListHead, 7, 3, 1), nullptr);
    EXPECT_EQ(logged("filter dev: 7 ch: 3 eventCode: 1\n"), 1u);
    EXPECT_EQ(logged("do not filter dev: 6 ch: 1 eventCode: 5001\n"), 1u);
}

TEST(Filter, GivesTheNewestMatch)
{
    EventFilter older = {.uid = 5, .channel = -1, .eventCode = -1, .node = {}};
    EventFilter newer = {.uid = -1, .channel = -1, .eventCode = 5001, .node = {}};
    ListNode head;
    listInit(&head);
    listAddTail(&older.node, &head);
    listAddTail(&newer.node, &head);
    EXPECT_EQ(filterEvent(&head, 5, 1, 5001), &newer);
}
