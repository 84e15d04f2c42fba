// Reading the two journals back: what is kept, from where on it is told, and what is told beside
// it.

#include "support/daemon_on_its_own_bus.h"
#include "support/wall_clock.h"

#include <atomic>
#include <numeric>
#include <thread>

using namespace support;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

static constexpr uint16_t REPORT = 5001;
static constexpr size_t KEPT = 200;
static constexpr const char *FROM_THE_FIRST = "1";

// The numbers of its records, in their order.
static std::vector<int64_t> sequencesOf(const Json &log)
{
    std::vector<int64_t> sequences;
    for (size_t i = 0; i < log.size(); ++i)
        sequences.push_back(log[i]["sequence"].integer());
    return sequences;
}

static std::vector<int64_t> numbers(int64_t first, int64_t last)
{
    std::vector<int64_t> result(static_cast<size_t>(last - first + 1));
    std::iota(result.begin(), result.end(), first);
    return result;
}

class Journals : public DaemonOnItsOwnBus {
protected:
    void SetUp() override
    {
        DaemonOnItsOwnBus::SetUp();
        sdk.set(device(5, 1, DOOR, 255));
        sdk.set(device(6, 0, DOOR, 255));
        sdk.set(device(20, 0, SWITCH));
    }
    Json read(const std::string &from = FROM_THE_FIRST)
    {
        const std::string text = callForText("jsongeteventbyseq", from);
        const Json document(text);
        EXPECT_EQ(document.dump(), text) << "compact, ASCII, keys sorted";
        return document;
    }
    std::vector<int64_t> sequencesFrom(const std::string &from)
    {
        return sequencesOf(read(from)["eventLog"]);
    }
    Json readMacros(const std::string &from = FROM_THE_FIRST)
    {
        return Json(callForText("jsongetmacroeventbyseq", from));
    }
    std::vector<int64_t> macroSequencesFrom(const std::string &from)
    {
        return sequencesOf(readMacros(from)["macroEventLog"]);
    }
    // As fast as it goes without a loss: never more than the queue holds.
    void report(size_t events)
    {
        static constexpr size_t QUEUED = 15;
        const size_t before = announcements();
        for (size_t i = 0; i < events; ++i) {
            ASSERT_TRUE(eventually([&] { return announcements() + QUEUED > before + i; }));
            eventWithPayload(REPORT, 5, 1, 1, R"({"n":)" + std::to_string(i + 1) + "}");
        }
        ASSERT_TRUE(eventually([&] { return announcements() == before + events; }));
    }
    size_t announcements() const
    {
        return sdk.events("recent").size();
    }
    std::vector<int64_t> announcedAfterAnEvent()
    {
        const size_t before = announcements();
        event(REPORT, 5, 1);
        EXPECT_TRUE(eventually([&] { return announcements() > before; }));
        return sequencesOf(Json(sdk.events("recent").back().text)["eventLog"]);
    }
    std::shared_ptr<PendingReply> setRecentNumber(uint32_t number)
    {
        auto reply = client.call(APP, "setRecentEventLogNum", {number});
        EXPECT_TRUE(eventually([&] { return reply->arrived(); }));
        return reply;
    }
};

TEST_F(Journals, HoldTheEvents51To250After250)
{
    start();
    report(250);
    EXPECT_EQ(sequencesFrom("1"), numbers(51, 250));
    EXPECT_EQ(sequencesFrom("51"), numbers(51, 250));
    EXPECT_EQ(sequencesFrom("52"), numbers(52, 250));
    EXPECT_EQ(sequencesFrom("250"), numbers(250, 250));
    EXPECT_THAT(sequencesFrom("251"), IsEmpty());
}

TEST_F(Journals, TellTheWholeStateEvenWhenThereIsNoRecord)
{
    platform.set("jsongetuserdata_number", "3");
    platform.set("jsonsetall_number", "4");
    start();
    eventHandled(REPORT, 5, 1);
    const time_t before = time(nullptr);
    const Json document = read("2");
    EXPECT_TRUE(document["eventLog"].isArray());
    EXPECT_EQ(document["eventLog"].size(), 0u);
    EXPECT_THAT(document.keys(),
                ElementsAre("Now_timeStamp", "checkbox", "deoscene_n_run", "eventLog",
                            "gateway_app_star", "san", "scene_device_number_total",
                            "scene_device_success_number", "scene_exec_check_enable",
                            "scene_success", "send.dat_ts", "udn"));
    EXPECT_EQ(document["checkbox"].integer(), 0);
    EXPECT_EQ(document["deoscene_n_run"].integer(), 1);
    EXPECT_EQ(document["gateway_app_star"].integer(), 1) << "the first refresh is still due";
    EXPECT_EQ(document["scene_device_number_total"].integer(), 0);
    EXPECT_EQ(document["scene_device_success_number"].integer(), 0);
    EXPECT_EQ(document["scene_exec_check_enable"].integer(), 0);
    EXPECT_EQ(document["scene_success"].integer(), 1);
    EXPECT_EQ(document["udn"].integer(), 3);
    EXPECT_EQ(document["san"].integer(), 4);
    EXPECT_GE(document["Now_timeStamp"].integer(), before);
    EXPECT_LE(document["Now_timeStamp"].integer(), time(nullptr));
}

TEST_F(Journals, TellAnEventAsItWasAnnounced)
{
    start();
    eventWithPayload(REPORT, 5, 1, 1, R"({"user":"外"})");
    ASSERT_TRUE(eventually([&] { return announcements() == 1; }));
    EXPECT_EQ(read()["eventLog"][0], recent().at(0));
}

TEST_F(Journals, TellWhatTheEventWasAndNotWhatTheDeviceIsNow)
{
    start();
    eventHandled(REPORT, 5, 1);
    sdk.set(device(5, 1, SWITCH, 1));
    eventHandled(1001, 6, 0);
    const Json first = read()["eventLog"][0];
    EXPECT_EQ(first["funcType"].integer(), DOOR);
    EXPECT_EQ(first["basicValue"].integer(), 255);
}

struct NumberCase {
    const char *name;
    const char *argument;
    std::vector<int64_t> told;  // of the records 1 to 3
};

class JournalsFrom : public Journals, public testing::WithParamInterface<NumberCase> {};

TEST_P(JournalsFrom, TakeTheirArgumentForANumber)
{
    startWith(R"({"macros":[{"title":"Door","enabled":1,"scene":"Nowhere",
        "triggers":[{"target":{"dev":5,"if":0,"ch":1},"op":"=","threshold":255}]}]})");
    event(100, 5, 1);
    for (const size_t runs : {1u, 2u, 3u}) {
        ASSERT_TRUE(eventually([&] { return daemon.timesLogged("not found resume") == runs; }));
        if (runs < 3)
            event(REPORT, 5, 1);
    }
    EXPECT_EQ(sequencesFrom(GetParam().argument), GetParam().told);
    EXPECT_EQ(macroSequencesFrom(GetParam().argument), GetParam().told);
}

INSTANTIATE_TEST_SUITE_P(
    Arguments, JournalsFrom,
    testing::Values(NumberCase{"Nought", "0", {1, 2, 3}}, NumberCase{"Two", "2", {2, 3}},
                    NumberCase{"Three", "3", {3}}, NumberCase{"Four", "4", {}},
                    NumberCase{"AWord", "first", {1, 2, 3}}, NumberCase{"Nothing", "", {1, 2, 3}},
                    NumberCase{"ANumberAndAWord", " 2nd", {2, 3}},
                    NumberCase{"MinusOne", "-1", {}},  // unsigned, that is far above the newest
                    NumberCase{"TheSmallest", "-2147483648", {}},
                    NumberCase{"TheGreatest", "2147483647", {}},
                    NumberCase{"BeyondTheGreatest", "2147483648", {}},
                    NumberCase{"ThatComesRoundToTwo", "4294967298", {2, 3}}),
    caseName);

TEST_F(Journals, OfMacrosSayWhereTheyBegin)
{
    start();
    callForText("jsongetmacroeventbyseq", "7th");
    EXPECT_TRUE(daemon.logged("seq: 7th 7\n"));
    callForText("jsongetmacroeventbyseq", "-1");
    EXPECT_TRUE(daemon.logged("seq: -1 4294967295\n"));
    callForText("jsongetmacroeventbyseq", "2147483648");
    EXPECT_TRUE(daemon.logged("seq: 2147483648 2147483648\n")) << "whatever a long holds";
}

TEST_F(Journals, AnswerNothingToAnArgumentThatIsNoText)
{
    start();
    callWithoutReply("jsongeteventbyseq", {int32_t{1}});
    callWithoutReply("jsongetmacroeventbyseq", {uint32_t{1}});
    callWithoutReply("jsongeteventbyseq", {});
}

TEST_F(Journals, TellTheCheckboxAsItsEventHasReadIt)
{
    platform.set("jsonsetcheckbox", "1");
    start();
    EXPECT_EQ(read()["checkbox"].integer(), 1);
    platform.set("jsonsetcheckbox", "6");
    eventHandled(REPORT, 5, 1);
    EXPECT_EQ(read()["checkbox"].integer(), 1);
    eventHandled(5004, 5, 1);
    EXPECT_EQ(read()["checkbox"].integer(), 6);
}

TEST_F(Journals, TellHowManyDevicesTheLastSceneHas)
{
    startWith(R"({"scenes":[{"title":"S","comps":[{"target":{"dev":20,"if":0,"ch":0},"value":1},
        {"target":{"dev":505,"if":0,"ch":0},"value":1},
        {"target":{"dev":21,"if":0,"ch":0},"value":0}]}]})");
    callForText("doscene", "S");
    EXPECT_EQ(read()["scene_device_number_total"].integer(), 3);
    EXPECT_EQ(read()["scene_device_success_number"].integer(), 0);
}

TEST_F(Journals, TellThatTheFirstRefreshIsDone)
{
    platform.set("appstart_time_flag", "0");
    start();
    EXPECT_EQ(read()["gateway_app_star"].integer(), 1);
    ASSERT_TRUE(tickUntil([&] { return daemon.logged("resettime1440= "); }));
    EXPECT_EQ(read()["gateway_app_star"].integer(), 0);
}

TEST_F(Journals, TellTheCountersOfOtherProgramsOnlyWhenTheyAreThere)
{
    platform.set("jsongetuserdata_number", "12 and more");
    platform.behave("jsonsetall_number", Answer::refusing());
    start();
    Json document = read();
    EXPECT_EQ(document["udn"].integer(), 12);
    EXPECT_TRUE(document["san"].isNull());

    platform.behave("jsongetuserdata_number", Answer::refusing());
    platform.set("jsonsetall_number", "");
    document = read();
    EXPECT_TRUE(document["udn"].isNull());
    EXPECT_EQ(document["san"].dump(), "0") << "a value that is no number";
}

// 21 January 2019, 11:23:19 UTC: whoever lives before that has not set the clock.
static constexpr time_t CLOCK_SET_FROM = 1548069799;
static constexpr time_t TODAY = 1'700'000'000;
static constexpr const char *YESTERDAY = "1699913600";
static constexpr const char *TOMORROW = "1700086400";
static constexpr const char *THE_DAY_AFTER = "1700172800";

class JournalTime : public Journals {
protected:
    void startAt(time_t now, const std::string &udn, const std::string &san)
    {
        platform.set("jsongetuserdata_number", udn);
        platform.set("jsonsetall_number", san);
        clock.set(now);
        start(clock.settings());
    }
    int64_t configTime()
    {
        return read()["send.dat_ts"].integer();
    }
    WallClock clock;
};

TEST_F(JournalTime, BeginsWithTheFirstReading)
{
    startAt(TODAY, YESTERDAY, YESTERDAY);
    clock.set(TODAY + 1000);
    const Json document = read();
    EXPECT_EQ(document["send.dat_ts"], document["Now_timeStamp"]);
    EXPECT_GE(document["send.dat_ts"].integer(), TODAY + 1000);
}

TEST_F(JournalTime, StaysUntilSomethingIsNewer)
{
    startAt(TODAY, YESTERDAY, YESTERDAY);
    const int64_t first = configTime();
    clock.set(TODAY + 1000);
    EXPECT_EQ(configTime(), first);
}

TEST_F(JournalTime, IsWhatTheAnnouncementsTell)
{
    startAt(TODAY, TOMORROW, YESTERDAY);
    eventHandled(REPORT, 5, 1);
    EXPECT_EQ(Json(sdk.events("recent").at(0).text)["send.dat_ts"].integer(), 0) << "as it stands";
    read();
    eventHandled(REPORT, 5, 1);
    EXPECT_EQ(Json(sdk.events("recent").at(1).text)["send.dat_ts"].dump(), TOMORROW);
}

TEST_F(JournalTime, FollowsTheCounterOfTheSettings)
{
    startAt(TODAY, YESTERDAY, TOMORROW);
    EXPECT_EQ(read()["send.dat_ts"].dump(), TOMORROW);
    platform.set("jsonsetall_number", YESTERDAY);
    EXPECT_EQ(read()["send.dat_ts"].dump(), TOMORROW) << "never back";
}

TEST_F(JournalTime, FollowsTheCounterOfTheUsersData)
{
    startAt(TODAY, TOMORROW, YESTERDAY);
    EXPECT_EQ(read()["send.dat_ts"].dump(), TOMORROW);
}

TEST_F(JournalTime, FollowsOneCounterAtAReading)
{
    startAt(TODAY, THE_DAY_AFTER, TOMORROW);
    EXPECT_EQ(read()["send.dat_ts"].dump(), TOMORROW) << "the settings come first";
    EXPECT_EQ(read()["send.dat_ts"].dump(), THE_DAY_AFTER);
}

TEST_F(JournalTime, RemembersACounterThatIsNotThereAnyMore)
{
    startAt(TODAY, THE_DAY_AFTER, TOMORROW);
    EXPECT_EQ(read()["send.dat_ts"].dump(), TOMORROW);
    platform.behave("jsongetuserdata_number", Answer::refusing());
    EXPECT_EQ(read()["send.dat_ts"].dump(), THE_DAY_AFTER);
}

TEST_F(JournalTime, IsTheCounterOfTheSettingsWhileTheClockIsNotSet)
{
    startAt(CLOCK_SET_FROM - 1000, TOMORROW, "5");
    EXPECT_EQ(configTime(), 5);
    platform.set("jsonsetall_number", "0");
    EXPECT_EQ(configTime(), 0);
    clock.set(TODAY);
    EXPECT_EQ(read()["send.dat_ts"].dump(), TOMORROW) << "since it is set";
}

TEST_F(JournalTime, KnowsTheFirstSecondOfAClockThatIsSet)
{
    startAt(CLOCK_SET_FROM, "0", "5");
    const auto readIn = [&](time_t second) {
        Json document;
        EXPECT_TRUE(eventually([&] {
            clock.set(second);
            document = read();
            return document["Now_timeStamp"].integer() == second;
        }));
        return document["send.dat_ts"].integer();
    };
    EXPECT_EQ(readIn(CLOCK_SET_FROM - 1), 5);
    platform.set("jsonsetall_number", "4");
    EXPECT_EQ(readIn(CLOCK_SET_FROM), 5);
    EXPECT_EQ(readIn(CLOCK_SET_FROM - 1), 4);
}

TEST_F(Journals, OfMacrosTellEachRunInItsOrder)
{
    startWith(R"({"macros":[
        {"title":"Door","enabled":1,"scene":{"title":"Hall light"},
         "triggers":[{"target":{"dev":5,"if":0,"ch":1},"op":"=","threshold":255}]},
        {"title":"Lost","enabled":1,"scene":"Nowhere",
         "triggers":[{"target":{"dev":6,"if":0,"ch":0},"op":"=","threshold":255}]},
        {"title":"","enabled":1,"scene":{"title":""},
         "triggers":[{"target":{"dev":20,"if":0,"ch":0},"op":"=","threshold":0}]}]})");
    gatewayReady();
    EXPECT_EQ(readMacros()["macroEventLog"].dump(), "[]");
    const time_t before = time(nullptr);
    size_t runs = 0;
    for (const auto &[uid, channel] : {std::pair{5, 1}, {6, 0}, {20, 0}}) {
        event(REPORT, static_cast<uint16_t>(uid), static_cast<uint16_t>(channel));
        ++runs;
        ASSERT_TRUE(eventually([&] { return macroEvents().size() == runs; }));
    }

    const std::string text = callForText("jsongetmacroeventbyseq", "1");
    const Json document(text);
    EXPECT_EQ(document.dump(), text) << "compact, ASCII, keys sorted";
    const Json log = document["macroEventLog"];
    EXPECT_EQ(sequencesOf(log), numbers(1, 3));
    EXPECT_THAT(log[0].keys(), ElementsAre("name", "scene", "sequence", "timeStamp"));
    EXPECT_EQ(log[0]["name"].text(), "Door");
    EXPECT_EQ(log[0]["scene"].text(), "Hall light");
    EXPECT_GE(log[0]["timeStamp"].integer(), before);
    EXPECT_LE(log[0]["timeStamp"].integer(), time(nullptr));
    EXPECT_THAT(log[1].keys(), ElementsAre("name", "sequence", "timeStamp"))
        << "a scene that is not there has no name";
    EXPECT_EQ(log[1]["name"].text(), "Lost");
    EXPECT_THAT(log[2].keys(), ElementsAre("name", "scene", "sequence", "timeStamp"));
    EXPECT_EQ(log[2]["name"].dump(), R"("")");
    EXPECT_EQ(log[2]["scene"].dump(), R"("")");
    EXPECT_EQ(macroSequencesFrom("2"), numbers(2, 3));
    EXPECT_THAT(macroSequencesFrom("4"), IsEmpty());
}

TEST_F(Journals, OfMacrosHoldTheRuns2To101After101)
{
    std::string macros;
    for (int i = 1; i <= 101; ++i) {
        macros += (i > 1 ? "," : "") + (R"({"title":"M)" + std::to_string(i)) +
                  R"(","enabled":1,"scene":{"title":"S"},
            "triggers":[{"target":{"dev":5,"if":0,"ch":1},"op":"=","threshold":255}]})";
    }
    startWith(R"({"macros":[)" + macros + "]}");
    event(100, 5, 1);
    ASSERT_TRUE(eventually([&] { return sdk.events("MacroEvent").size() == 101; }, 30s));
    EXPECT_EQ(macroSequencesFrom("0"), numbers(2, 101));
    EXPECT_EQ(macroSequencesFrom("100"), numbers(100, 101));
}

TEST_F(Journals, OfMacrosTellAnAlarmWithoutAMacro)
{
    startWith(R"({"alarm":{"enabled":1,"duration":0,"trigger_duration":0,"siren_type":4}})");
    gatewayReady();
    event(REPORT, 5, 1);
    ASSERT_TRUE(eventually([&] { return macroEvents().size() == 1; }));
    const Json log = readMacros()["macroEventLog"];
    ASSERT_EQ(log.size(), 1u);
    EXPECT_THAT(log[0].keys(), ElementsAre("scene", "sequence", "timeStamp"));
    EXPECT_EQ(log[0]["scene"].text(), "Home Security Alarm");
    EXPECT_EQ(log[0]["sequence"].integer(), 1);
}

TEST_F(Journals, AnnounceAsManyRecordsAsTheyAreTold)
{
    start();
    EXPECT_THAT(announcedAfterAnEvent(), ElementsAre(1)) << "one, as long as nobody says more";
    const auto reply = setRecentNumber(3);
    EXPECT_EQ(reply->signature(), "u");
    EXPECT_EQ(reply->number(), 1);
    EXPECT_TRUE(daemon.logged("recentLogNum: 3\n"));
    EXPECT_THAT(announcedAfterAnEvent(), ElementsAre(2, 1)) << "there are no more yet";
    EXPECT_THAT(announcedAfterAnEvent(), ElementsAre(3, 2, 1));
    EXPECT_THAT(announcedAfterAnEvent(), ElementsAre(4, 3, 2)) << "the newest first";
    EXPECT_EQ(setRecentNumber(0)->number(), 1);
    EXPECT_THAT(announcedAfterAnEvent(), IsEmpty());
    EXPECT_EQ(Json(sdk.events("recent").back().text)["eventLog"].dump(), "[]");
    EXPECT_EQ(setRecentNumber(4294967295)->number(), 1);
    EXPECT_THAT(announcedAfterAnEvent(), ElementsAre(6, 5, 4, 3, 2, 1));
    EXPECT_THAT(sequencesFrom("1"), SizeIs(6)) << "read back, all of them count";
}

TEST_F(Journals, AnnounceAllTheyHoldAndNoMore)
{
    start();
    report(210);
    setRecentNumber(1'000'000);
    const std::vector<int64_t> announced = announcedAfterAnEvent();
    ASSERT_EQ(announced.size(), KEPT);
    EXPECT_EQ(announced.front(), 211);
    EXPECT_EQ(announced.back(), 12);
}

TEST_F(Journals, KeepTheNumberToAnnounceWhenTheArgumentIsOfAnotherType)
{
    start();
    setRecentNumber(2);
    callWithoutReply("setRecentEventLogNum", {"5"});
    callWithoutReply("setRecentEventLogNum", {int32_t{5}});
    callWithoutReply("setRecentEventLogNum", {});
    report(4);
    EXPECT_THAT(announcedAfterAnEvent(), ElementsAre(5, 4));
}

TEST_F(Journals, AreNeverSeenHalfWrittenWhileEventsPourIn)
{
    static constexpr size_t EVENTS = 600;
    sdk.set({.uid = 5,
             .channels = {{.chid = 1,
                           .functype = METER,
                           .name = "Front door",
                           .meter = R"({"watt":1,"current":2,"kwh":3,"pf":4,"voltage":5})",
                           .switchColor = R"({"comp_mask1":6,"comp_mask2":7,"comp_value":[]})"}}});
    start();
    setRecentNumber(30);
    std::atomic<bool> over = false;
    size_t readings = 0;
    std::thread reader([&] {
        while (!over && !HasFailure()) {
            const Json log = read()["eventLog"];
            ASSERT_TRUE(log.isArray());
            ASSERT_LE(log.size(), KEPT);
            for (size_t i = 0; i < log.size(); ++i) {
                const Json record = log[i];
                ASSERT_EQ(record.size(), 18u) << record.dump();
                ASSERT_EQ(record["sequence"].integer(),
                          log[0]["sequence"].integer() + static_cast<int64_t>(i));
                ASSERT_EQ(record["payload"]["n"], record["sequence"]);
                ASSERT_EQ(record["funcName"].text(), "Front door");
                ASSERT_EQ(record["meter"]["voltage"].integer(), 5);
                ASSERT_EQ(record["switch_color"]["comp_mask2"].integer(), 7);
            }
            ++readings;
        }
    });
    report(EVENTS);
    over = true;
    reader.join();
    EXPECT_EQ(sequencesFrom("1"), numbers(EVENTS - KEPT + 1, EVENTS));
    EXPECT_GT(readings, 1u);
    RecordProperty("readings", static_cast<int>(readings));
}

// The times that the sun clock has announced go out once more after an older record was looked at.
TEST_F(Journals, LetTheSunBeAnnouncedAgainWhenTheyAreReadFromFurtherBack)
{
    platform.set("enableastclock", "1");
    platform.set("setastclock_lon", "16.37");
    platform.set("setastclock_lat", "48.21");
    start();
    const auto minutes = [&] { return daemon.timesLogged("resettime1440= "); };
    const auto oneMoreMinute = [&] {
        const size_t before = minutes();
        ASSERT_TRUE(tickUntil([&] { return minutes() > before; }));
    };
    const auto timesTold = [&] {
        size_t rises = 0;
        size_t sets = 0;
        for (const Heard &heard : sdk.commands()) {
            rises += heard.cmd() == "sunrise_time_set";
            sets += heard.cmd() == "sunset_time_set";
        }
        EXPECT_EQ(rises, sets);
        return rises;
    };
    oneMoreMinute();
    EXPECT_EQ(timesTold(), 1u);
    report(2);
    read("2");
    oneMoreMinute();
    EXPECT_EQ(timesTold(), 1u) << "the record that was looked at last is the newest still";
    read("1");
    oneMoreMinute();
    EXPECT_EQ(timesTold(), 2u);
    oneMoreMinute();
    EXPECT_EQ(timesTold(), 2u) << "once";
}
