// The housekeeping's second and its minute's duties, one by one, at times of the test's own.

#include "scene/housekeeping.h"

#include "daemon_in_process.h"
#include "main/settings.h"
#include "schedule/daylight_saving.h"
#include "schedule/sun_clock.h"

using support::Answer;
using support::Heard;
using testing::ElementsAre;
using testing::IsEmpty;

static constexpr time_t CLOCK_SET = 1'700'000'000;

class Housekeeping : public OutboundOnItsOwnBus {
protected:
    void SetUp() override
    {
        OutboundOnItsOwnBus::SetUp();
        startupRefreshPending = 0;
    }
    void second()
    {
        const MutexLock lock(tick_mutex);
        tm local = {};
        local.tm_hour = hour;
        scene_int(now, local);
    }
    void seconds(int count)
    {
        for (int i = 0; i < count; ++i)
            second();
    }
    // The second that runs a minute's duties, without the 59 before it.
    void minute()
    {
        edit([](TickCounters &count) { count.watchdogCount = 60; });
        second();
    }
    void minutes(int count)
    {
        for (int i = 0; i < count; ++i)
            minute();
    }
    // The minutes until the count stands there.
    void minutesUntil(int minuteCount)
    {
        while (counters().minuteCount != minuteCount)
            minute();
    }
    void edit(void (*change)(TickCounters &count))
    {
        const MutexLock lock(tick_mutex);
        change(tickCounters);
    }
    TickCounters counters()
    {
        const MutexLock lock(tick_mutex);
        return tickCounters;
    }
    // What the SDK daemon has been told and asked since it was looked at last.
    std::vector<std::string> heard()
    {
        hearEverything();
        std::vector<std::string> texts;
        for (const Heard &message : sdk.everything()) {
            if (message.kind == Heard::KICK)
                texts.push_back("kick " + std::to_string(message.number));
            else if (message.kind != Heard::EVENT)
                texts.push_back(message.text);
        }
        sdk.forgetHeard();
        return texts;
    }
    size_t saves()
    {
        return sdk.asked("savedata", 256);
    }
    size_t reboots()
    {
        return sdk.asked("rebootplatform", 256);
    }

    int hour = 12;
    time_t now = CLOCK_SET;
};

static const std::string JUDGE = support::deviceCommand("sunrise_set_trig_time_judge", 509, {}, 0);
static const std::string ASK_ZWID = support::plainCommand("getZWID", 0);
static const std::string KICK = "kick 77";

static std::string sunriseCommand(int64_t time)
{
    return support::deviceCommand("sunrise_time_set", 509, {}, time);
}

static std::string sunsetCommand(int64_t time)
{
    return support::deviceCommand("sunset_time_set", 508, {}, time);
}

static void setPosition(double longitude, double latitude)
{
    const MutexLock lock(settings_mutex);
    lon = longitude;
    lat = latitude;
}

TEST_F(Housekeeping, OfAMinuteDoesItsDutiesInTheirOrder)
{
    platform.set("setDST", "1");
    platform.behave("WifiMode", Answer::refusing());
    setPosition(16, 48);
    enast = 1;
    hour = 2;
    edit([](TickCounters &count) { count.abortCount = 4; });
    minute();
    EXPECT_THAT(platform.askedKeys(), ElementsAre("setDST", "setsavingtime", "WifiMode"));
    const Heard first = sdk.everything().at(0);
    EXPECT_LE(platform.requests().at(0).at, first.at) << "daylight saving is read first";
    EXPECT_THAT(heard(), ElementsAre(sunriseCommand(sunrise), sunsetCommand(sunset), JUDGE,
                                     ASK_ZWID, KICK, support::plainCommand("rebootplatform", 256),
                                     support::plainCommand("abort", 256)));
}

TEST_F(Housekeeping, OfAPlainMinuteTellsTheRadioTwoThings)
{
    minute();
    platform.forgetRequests();
    heard();
    minute();
    EXPECT_THAT(heard(), ElementsAre(JUDGE, ASK_ZWID, KICK));
    EXPECT_THAT(platform.askedKeys(), IsEmpty());
    EXPECT_EQ(logged("resettime1440= 1  hour = 12 gateway_app_star2 =1\n"), 1u);
}

TEST_F(Housekeeping, OfASecondSaysNothing)
{
    seconds(60);
    EXPECT_THAT(heard(), IsEmpty());
    EXPECT_THAT(platform.askedKeys(), IsEmpty());
}

TEST_F(Housekeeping, StaysAtItsDutiesWhenTheCountIsHigherThanAMinute)
{
    edit([](TickCounters &count) { count.watchdogCount = 1000; });
    second();
    EXPECT_EQ(sdk.asked("getZWID", 0), 1u);
    EXPECT_EQ(counters().watchdogCount, 1);
}

struct RefreshCase {
    const char *name;
    int flag;
    time_t now;
    size_t associations;
    size_t switches;
    size_t refreshes;
    bool stillPending;
};

class HousekeepingRefresh : public Housekeeping, public testing::WithParamInterface<RefreshCase> {};

TEST_P(HousekeepingRefresh, GoesByTheClockAndItsFlag)
{
    const RefreshCase &expected = GetParam();
    startupRefreshPending = 1;
    appstart_time_flag = expected.flag;
    now = expected.now;
    seconds(31);
    EXPECT_EQ(sdk.asked("getassociation", 256), expected.associations);
    EXPECT_EQ(sdk.asked("getswitch", 256) + sdk.asked("getdevice", 256), 0u) << "not yet";
    seconds(29);  // up to the count of 60
    EXPECT_EQ(sdk.asked("getassociation", 256), expected.associations);
    EXPECT_EQ(sdk.asked("getswitch", 256), expected.switches);
    EXPECT_EQ(sdk.asked("getdevice", 256), expected.refreshes);
    EXPECT_EQ(startupRefreshPending == 1, expected.stillPending);
}

INSTANTIATE_TEST_SUITE_P(
    Clocks, HousekeepingRefresh,
    testing::Values(RefreshCase{"SetAndBefore", 1, 1'508'689'532, 1, 0, 1, false},
                    RefreshCase{"SetAndAtTheBorder", 1, 1'508'689'533, 1, 0, 0, true},
                    RefreshCase{"SetAndAfter", 1, 1'508'689'534, 1, 1, 1, false},
                    RefreshCase{"SetAndLongAfter", 1, CLOCK_SET, 1, 1, 1, false},
                    RefreshCase{"UnsetAndInTheSeventies", 0, 86'400, 0, 0, 1, false},
                    RefreshCase{"UnsetAndBefore", 0, 1'508'689'532, 0, 0, 1, false},
                    RefreshCase{"UnsetAndAtTheBorder", 0, 1'508'689'533, 0, 0, 0, true},
                    RefreshCase{"UnsetAndAfter", 0, 1'508'689'534, 0, 0, 0, false},
                    RefreshCase{"OfAnotherFlagAndAfter", 2, 1'508'689'534, 0, 0, 0, false}),
    [](const auto &test) { return std::string(test.param.name); });

TEST_F(HousekeepingRefresh, IsMadeUpForWhenTheClockLeavesTheBorder)
{
    startupRefreshPending = 1;
    appstart_time_flag = 1;
    now = 1'508'689'533;
    seconds(40);
    now = 1'508'689'534;
    second();
    EXPECT_EQ(logged("Watch dog count 40, \n"), 1u);
    EXPECT_EQ(sdk.asked("getdevice", 256), 1u);
}

TEST_F(HousekeepingRefresh, AsksForAssociationsAgainWhileItIsPending)
{
    startupRefreshPending = 1;
    appstart_time_flag = 1;
    now = 1'508'689'533;
    seconds(80);
    EXPECT_EQ(sdk.asked("getassociation", 256), 1u);
    second();  // the count begins at 1 after the first minute, not at 0
    EXPECT_EQ(sdk.asked("getassociation", 256), 2u);
}

TEST_F(Housekeeping, ReadsDaylightSavingInTheFirstMinuteAndThenWhenAsked)
{
    EXPECT_EQ(setDSTflag, 1);
    platform.set("setDST", "1");
    minute();
    EXPECT_EQ(platform.asked("setDST"), 1u);
    EXPECT_EQ(setDSTflag, 0);
    EXPECT_EQ(enableDTS, 1);
    platform.set("setDST", "0");
    minutes(3);
    EXPECT_EQ(platform.asked("setDST"), 1u);
    EXPECT_EQ(enableDTS, 1) << "nobody said that it has changed";
    setDSTflag = 1;
    seconds(59);
    EXPECT_EQ(platform.asked("setDST"), 1u) << "only a minute reads it";
    minute();
    EXPECT_EQ(platform.asked("setDST"), 2u);
    EXPECT_EQ(enableDTS, 0);
}

TEST_F(Housekeeping, TakesDaylightSavingForOnWhenTheSettingIsOneAndOnlyThen)
{
    const struct {
        Answer answer;
        int expected;
    } cases[] = {
        {Answer::saying("1"), 1},        {Answer::saying("0"), 0},      {Answer::saying("1"), 1},
        {Answer::saying(""), 0},         {Answer::saying("01"), 0},     {Answer::saying("1 "), 0},
        {Answer::saying("1"), 1},        {Answer::refusing(), 0},       {Answer::saying("1"), 1},
        {Answer::withoutArguments(), 0}, {Answer::saying("enable"), 0}, {Answer::saying("1"), 1}};
    for (const auto &[answer, expected] : cases) {
        platform.behave("setDST", answer);
        setDSTflag = 1;
        minute();
        EXPECT_EQ(enableDTS, expected) << answer.text;
    }
}

static constexpr const char *SAVING_TIME = R"({"startmonth":3,"startday":31,"starthour":2,
    "endmonth":10,"endday":27,"endhour":4})";

static std::vector<int> savingDates()
{
    return {save_start_month, save_start_day, save_start_hour,
            save_end_month,   save_end_day,   save_end_hour};
}

static void setSavingDates(int value)
{
    for (std::atomic<int> *date : {&save_start_month, &save_start_day, &save_start_hour,
                                   &save_end_month, &save_end_day, &save_end_hour})
        *date = value;
}

class HousekeepingDates : public Housekeeping {
protected:
    void change(const char *setting)
    {
        platform.set("setDST", setting);
        setDSTflag = 1;
    }
    size_t reads()
    {
        return platform.asked("setsavingtime");
    }
};

TEST_F(HousekeepingDates, AreReadInTheMinuteThatSeesAChange)
{
    platform.set("setsavingtime", SAVING_TIME);
    change("1");
    minute();
    EXPECT_EQ(reads(), 1u);
    EXPECT_THAT(savingDates(), ElementsAre(3, 31, 2, 10, 27, 4));
    EXPECT_EQ(logged(std::string("nvram read setsavingtime= ") + SAVING_TIME +
                     ", smonth =3,sday =31,shour =2,emonth =10,eday =27,ehour =4\n"),
              1u);
}

TEST_F(HousekeepingDates, AreNotReadWithoutAChange)
{
    change("0");
    minutes(31);
    EXPECT_EQ(reads(), 0u);
    change("1");
    minutes(2);
    EXPECT_EQ(reads(), 1u);
    change("1");
    minutes(2);
    EXPECT_EQ(reads(), 1u);
}

TEST_F(HousekeepingDates, AreReadWhenDaylightSavingIsSwitchedOffToo)
{
    change("1");
    minutes(5);
    ASSERT_EQ(reads(), 1u);
    change("0");
    minute();
    EXPECT_EQ(reads(), 2u);
}

TEST_F(HousekeepingDates, AreReadAgainEachTimeTheCountComesRound)
{
    minutesUntil(5);
    change("1");
    minute();
    EXPECT_EQ(reads(), 1u);
    EXPECT_EQ(counters().dstReadMinute, 6);
    minutes(29);
    EXPECT_EQ(reads(), 1u);
    platform.set("setsavingtime", SAVING_TIME);
    minute();
    EXPECT_EQ(reads(), 2u);
    EXPECT_EQ(counters().minuteCount, 6);
    EXPECT_THAT(savingDates(), ElementsAre(3, 31, 2, 10, 27, 4));
    minutes(30);
    EXPECT_EQ(reads(), 3u);
}

TEST_F(HousekeepingDates, AreReadBeforeTheCountIsResetAtThirty)
{
    minutesUntil(29);
    change("1");
    minute();
    EXPECT_EQ(reads(), 1u);
    EXPECT_EQ(counters().minuteCount, 0);
    minutes(30);
    EXPECT_EQ(reads(), 2u);
}

TEST_F(HousekeepingDates, MoveToTheMinuteOfTheLatestChange)
{
    minutesUntil(5);
    change("1");
    minute();
    minutesUntil(9);
    change("0");
    minute();
    EXPECT_EQ(reads(), 2u);
    minutesUntil(6);
    EXPECT_EQ(reads(), 2u);
    minutesUntil(10);
    EXPECT_EQ(reads(), 3u);
}

TEST_F(HousekeepingDates, OfTheFirstMinuteAreNeverReadAgain)
{
    change("1");
    minute();  // the 31st, which the count does not come round to
    minutes(62);
    EXPECT_EQ(reads(), 1u);
}

TEST_F(HousekeepingDates, CountAsNoughtWhereTheSettingLacksThem)
{
    const struct {
        Answer answer;
        std::vector<int> expected;
    } cases[] = {
        {Answer::saying("no JSON"), {0, 0, 0, 0, 0, 0}},
        {Answer::saying(""), {0, 0, 0, 0, 0, 0}},
        {Answer::saying("[3,31,2,10,27,4]"), {0, 0, 0, 0, 0, 0}},
        {Answer::saying("{}"), {0, 0, 0, 0, 0, 0}},
        {Answer::refusing(), {0, 0, 0, 0, 0, 0}},
        {Answer::withoutArguments(), {0, 0, 0, 0, 0, 0}},
        {Answer::saying(R"({"startmonth":3,"endday":27})"), {3, 0, 0, 0, 27, 0}},
        {Answer::saying(R"({"startmonth":"3","startday":31.5,"starthour":null,"endhour":4})"),
         {0, 0, 0, 0, 0, 4}},
    };
    const char *setting = "1";
    for (const auto &[answer, expected] : cases) {
        setSavingDates(9);
        platform.behave("setsavingtime", answer);
        change(setting);
        minute();
        EXPECT_EQ(savingDates(), expected) << answer.text;
        setting = *setting == '1' ? "0" : "1";
    }
    EXPECT_EQ(reads(), std::size(cases));
    EXPECT_EQ(logged("nvram read setsavingtime= no JSON, smonth =0,sday =0,shour =0,emonth =0,"
                     "eday =0,ehour =0\n"),
              1u);
}

class HousekeepingSun : public Housekeeping {
protected:
    void SetUp() override
    {
        Housekeeping::SetUp();
        setPosition(16, 48);
        minute();
        heard();
    }
    int64_t rise(double longitude, double latitude) const
    {
        return astronomical_clock(static_cast<int32_t>(now), 1, longitude, latitude);
    }
    int64_t set(double longitude, double latitude) const
    {
        return astronomical_clock(static_cast<int32_t>(now), 0, longitude, latitude);
    }
};

TEST_F(HousekeepingSun, IsAnnouncedWhenItsClockIsOn)
{
    minute();
    EXPECT_THAT(heard(), ElementsAre(JUDGE, ASK_ZWID, KICK)) << "not while it is off";
    enast = 1;
    minute();
    EXPECT_THAT(heard(), ElementsAre(sunriseCommand(rise(16, 48)), sunsetCommand(set(16, 48)),
                                     JUDGE, ASK_ZWID, KICK));
    EXPECT_EQ(sunrise, rise(16, 48));
    EXPECT_EQ(sunset, set(16, 48));
    EXPECT_EQ(logged("sunrise timestamp =" + std::to_string(rise(16, 48)) +
                     ", sunset timestamp=" + std::to_string(set(16, 48)) +
                     "\ntimestamp now=1700000000, lon=16.000000, lat=48.000000  enast=1\n"),
              1u);
}

TEST_F(HousekeepingSun, IsAnnouncedAnewOnlyWhenItsTimesHaveChanged)
{
    enast = 1;
    minute();
    heard();
    now += 60;
    minutes(3);
    EXPECT_THAT(heard(), ElementsAre(JUDGE, ASK_ZWID, KICK, JUDGE, ASK_ZWID, KICK, JUDGE, ASK_ZWID,
                                     KICK, support::plainCommand("abort", 256)));
    now += 86400;
    minute();
    EXPECT_THAT(heard(), ElementsAre(sunriseCommand(rise(16, 48)), sunsetCommand(set(16, 48)),
                                     JUDGE, ASK_ZWID, KICK));
}

TEST_F(HousekeepingSun, TellsOnlyTheTimeThatHasChanged)
{
    enast = 1;
    minute();
    heard();
    sunset = 5;
    minute();
    EXPECT_THAT(heard(), ElementsAre(sunsetCommand(set(16, 48)), JUDGE, ASK_ZWID, KICK));
    sunrise = 5;
    minute();
    EXPECT_THAT(heard(), ElementsAre(sunriseCommand(rise(16, 48)), JUDGE, ASK_ZWID, KICK));
}

TEST_F(HousekeepingSun, IsTakenBackWithOnePairOfNoughts)
{
    enast = 1;
    minute();
    heard();
    enast = 0;
    minute();
    EXPECT_THAT(heard(), ElementsAre(sunriseCommand(0), sunsetCommand(0), JUDGE, ASK_ZWID, KICK));
    minute();
    EXPECT_THAT(heard(), ElementsAre(JUDGE, ASK_ZWID, KICK));
}

TEST_F(HousekeepingSun, IsTakenBackByAnySettingButOne)
{
    enast = 1;
    minute();
    heard();
    enast = 2;
    minute();
    EXPECT_THAT(heard(), ElementsAre(sunriseCommand(0), sunsetCommand(0), JUDGE, ASK_ZWID, KICK));
}

// Deliberate: what was taken back is not forgotten, so times that are still right are not told.
TEST_F(HousekeepingSun, IsNotToldAgainTheSameDayAfterItWasTakenBack)
{
    enast = 1;
    minute();
    enast = 0;
    minute();
    heard();
    enast = 1;
    minute();
    EXPECT_THAT(heard(), ElementsAre(JUDGE, ASK_ZWID, KICK));
    enast = 0;
    minute();
    EXPECT_EQ(heard().at(0), sunriseCommand(0)) << "but it is taken back once more";
}

TEST_F(HousekeepingSun, IsPassedOnAsItIsWhereItNeitherRisesNorSets)
{
    setPosition(16, 89);
    enast = 1;
    sunrise = 5;
    sunset = 5;
    minute();
    EXPECT_THAT(heard(), ElementsAre(sunriseCommand(0), sunsetCommand(0), JUDGE, ASK_ZWID, KICK));
}

TEST_F(HousekeepingSun, IsToldAtTheNextSecondWhenThePositionHasChanged)
{
    enast = 1;
    minute();
    seconds(10);
    heard();
    setPosition(-70, -30);
    second();
    EXPECT_THAT(heard(), IsEmpty());
    astclockflag = 1;
    second();
    EXPECT_THAT(heard(), ElementsAre(sunriseCommand(rise(-70, -30)), sunsetCommand(set(-70, -30)),
                                     JUDGE, ASK_ZWID, KICK));
    EXPECT_EQ(astclockflag, 0);
}

TEST_F(Housekeeping, BeginsTheMinuteAnewWhenItIsForced)
{
    seconds(30);
    astclockflag = 1;
    second();
    EXPECT_EQ(sdk.asked("getZWID", 0), 1u);
    EXPECT_EQ(counters().watchdogCount, 1);
    EXPECT_EQ(counters().minuteCount, 0) << "it counts as a minute";
    seconds(59);
    EXPECT_EQ(sdk.asked("getZWID", 0), 1u);
    second();
    EXPECT_EQ(sdk.asked("getZWID", 0), 2u);
}

TEST_F(Housekeeping, IsForcedByNothingButOne)
{
    astclockflag = 2;
    seconds(2);
    EXPECT_EQ(sdk.asked("getZWID", 0), 0u);
}

TEST_F(Housekeeping, AsksForTheWifiModeAtTwoAndEveryThirtyMinutes)
{
    platform.set("WifiMode", "ap");
    hour = 2;
    minute();
    EXPECT_EQ(platform.asked("WifiMode"), 1u) << "the first minute after the start is the 31st";
    EXPECT_EQ(counters().minuteCount, 0);
    EXPECT_EQ(logged("nvram read wifi mode= ap\n"), 1u);
    minutes(29);
    EXPECT_EQ(platform.asked("WifiMode"), 1u);
    minute();
    EXPECT_EQ(platform.asked("WifiMode"), 2u);
    EXPECT_EQ(counters().minuteCount, 0);
    EXPECT_EQ(reboots(), 0u);
}

TEST_F(Housekeeping, AsksForNoWifiModeAtAnyOtherHour)
{
    platform.behave("WifiMode", Answer::refusing());
    for (hour = 0; hour < 24; ++hour) {
        if (hour == 2)
            continue;
        edit([](TickCounters &count) { count.minuteCount = 29; });
        minute();
        EXPECT_EQ(counters().minuteCount, 0) << hour;
    }
    EXPECT_EQ(platform.asked("WifiMode"), 0u);
    EXPECT_EQ(reboots(), 0u);
}

TEST_F(Housekeeping, RebootsThePlatformThatHasNoWifiMode)
{
    hour = 2;
    const struct {
        Answer answer;
        size_t reboots;
        const char *log;
    } cases[] = {{Answer::saying("ap"), 0, "nvram read wifi mode= ap\n"},
                 {Answer::saying(""), 0, "nvram read wifi mode= \n"},  // a text, if an empty one
                 {Answer::withoutArguments(), 0, "nvram read wifi mode= (null)\n"},
                 {Answer::refusing(), 1, "nvram read wifi mode= \n"},
                 {Answer::silence(), 1, "nvram read wifi mode= \n"}};
    for (const auto &[answer, expected, log] : cases) {
        platform.behave("WifiMode", answer);
        edit([](TickCounters &count) { count.minuteCount = 29; });
        sdk.forgetHeard();
        forgetLog();
        minute();
        EXPECT_EQ(reboots(), expected) << answer.kind;
        EXPECT_EQ(logged(log), 1u) << answer.kind;
        EXPECT_EQ(counters().minuteCount, 0);
    }
}

TEST_F(Housekeeping, SavesOnTheTickThatMakesTheCountFifty)
{
    hour = 1;
    seconds(49);
    EXPECT_EQ(saves(), 0u);
    second();
    EXPECT_EQ(saves(), 1u);
    EXPECT_TRUE(sdk.heard(R"({"control":{"cmd":"savedata","uid":256}})"));
    seconds(3 * 60);
    EXPECT_EQ(saves(), 1u) << "once an hour of the two";
}

TEST_F(Housekeeping, SavesAtOneAndAtThirteenByTurns)
{
    std::vector<int> savedAt;
    for (int day = 0; day < 3; ++day) {
        for (hour = 0; hour < 24; ++hour) {
            const size_t before = saves();
            seconds(2 * 60);
            EXPECT_LE(saves(), before + 1);
            if (saves() > before)
                savedAt.push_back(hour);
        }
    }
    EXPECT_THAT(savedAt, ElementsAre(1, 13, 1, 13, 1, 13));
}

TEST_F(Housekeeping, DoesNotSaveTwiceAtOneWithoutThirteenBetween)
{
    for (const int visited : {1, 5, 1, 1, 12, 1}) {
        hour = visited;
        seconds(60);
    }
    EXPECT_EQ(saves(), 1u);
    hour = 13;
    seconds(60);
    EXPECT_EQ(saves(), 2u);
    hour = 5;
    seconds(60);
    hour = 13;
    seconds(60);
    EXPECT_EQ(saves(), 2u);
    hour = 1;
    seconds(60);
    EXPECT_EQ(saves(), 3u);
}

TEST_F(Housekeeping, SavesInTheFirstMinuteOfTheHourThatReachesFifty)
{
    hour = 13;
    for (int i = 0; i < 5; ++i) {  // forced minutes never come so far
        seconds(40);
        astclockflag = 1;
        second();
    }
    EXPECT_EQ(saves(), 0u);
    seconds(49);
    EXPECT_EQ(saves(), 1u);
}

TEST_F(Housekeeping, SavesAllTheSameWhenNobodyAnswers)
{
    sdk.behave("savedata", 256, Answer::refusing());
    hour = 1;
    seconds(120);
    EXPECT_EQ(saves(), 1u) << "it is not repeated";
    hour = 13;
    seconds(60);
    EXPECT_EQ(saves(), 2u);
}

TEST_F(Housekeeping, CountsTheMinutesToTheAbortOverTheRoundOfThirty)
{
    std::vector<int> abortedIn;
    for (int i = 1; i <= 65; ++i) {
        const size_t before = sdk.asked("abort", 256);
        minute();
        if (sdk.asked("abort", 256) > before)
            abortedIn.push_back(i);
    }
    EXPECT_THAT(abortedIn, ElementsAre(5, 10, 15, 20, 25, 30, 35, 40, 45, 50, 55, 60, 65));
}

TEST_F(Housekeeping, TakesNoLongerThanItsTimeOutsAndLeavesNoDutyOut)
{
    platform.behave("setDST", Answer::silence());
    platform.behave("WifiMode", Answer::silence());
    for (const auto &[command, uid] :
         {std::pair<const char *, int64_t>{"getZWID", 0}, {"rebootplatform", 256}, {"abort", 256}})
        sdk.behave(command, uid, Answer::silence());
    hour = 2;
    edit([](TickCounters &count) { count.abortCount = 4; });
    const support::Moment begin = support::Clock::now();
    minute();
    const int64_t took = support::millisecondsBetween(begin, support::Clock::now());
    EXPECT_GE(took, 2 * 1000 + 3 * 2000 - 100);
    if (support::SPEED_COUNTS) {
        EXPECT_LE(took, 2 * 1000 + 3 * 2000 + 500);
    }
    EXPECT_THAT(heard(), ElementsAre(JUDGE, ASK_ZWID, support::plainCommand("rebootplatform", 256),
                                     support::plainCommand("abort", 256)))
        << "all but the kick, which wants an answer";
    sdk.forgetBehaviour("getZWID", 0);
    minute();
    EXPECT_THAT(heard(), ElementsAre(JUDGE, ASK_ZWID, KICK));
}
