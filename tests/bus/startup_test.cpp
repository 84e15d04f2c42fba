// The daemon's start: the stored configuration, the settings, and everything that may be missing
// around it.

#include "support/daemon_on_its_own_bus.h"

#include <algorithm>
#include <csignal>
#include <filesystem>

using namespace support;
using Startup = DaemonOnItsOwnBus;
using testing::ElementsAre;
using testing::HasSubstr;

static constexpr const char *EMPTY_CONFIGURATION =
    R"({"alarm":{"duration":3,"enabled":0,"siren_type":1,"trigger_duration":3},"cameras":[],)"
    R"("eventFilter":[],"macros":[],"registeredDevices":[],"rooms":[],"scenes":[],"schedules":[],)"
    R"("targetNames":{}})";

static constexpr const char *ONE_SCENE = R"({"scenes":[{"title":"Evening","comps":[
    {"target":{"dev":5,"if":0,"ch":0},"value":99}]}]})";

static const std::string TWENTY_CHARACTERS = "ABCDEFGHIJ0123456789";

TEST_F(Startup, TakesItsNameAndAnswers)
{
    start();
    EXPECT_TRUE(client.peer.nameHasOwner(APP_NAME));
    EXPECT_EQ(callForText("jsongettitles", "scenes"), "[]");
}

TEST_F(Startup, ReadsItsSettingsOnceAndInOrder)
{
    platform.set("TUTK_UUID", TWENTY_CHARACTERS);
    start();
    EXPECT_THAT(platform.askedKeys(),
                ElementsAre("appstart_time_flag", "jsonsetcheckbox", "TimeZone", "setastclock_lon",
                            "setastclock_lat", "enableastclock", "enableswitchall", "TUTK_UUID",
                            "doscenemode", "customerName"));
}

TEST_F(Startup, FetchesAllDevicesBeforeTheSettings)
{
    start();
    const std::vector<Heard> fetches = sdk.calls("getdevice", 256);
    ASSERT_EQ(fetches.size(), 1u);
    EXPECT_EQ(fetches[0].text, R"({"control":{"cmd":"getdevice","uid":256}})");
    EXPECT_LE(fetches[0].answered, platform.requests().front().at);
}

struct UuidCase {
    const char *name;
    Answer uuid;
    size_t secondReads;
};

class StartupUuid : public DaemonOnItsOwnBus, public testing::WithParamInterface<UuidCase> {};

TEST_P(StartupUuid, IsReadFromTheSecondKeyUnlessTheFirstHasTwentyCharacters)
{
    platform.behave("TUTK_UUID", GetParam().uuid);
    platform.set("UUID", "from the second key");
    start();
    EXPECT_EQ(platform.asked("UUID"), GetParam().secondReads);
    EXPECT_EQ(daemon.logged("tutkUUID: from the second key"), GetParam().secondReads == 1);
}

INSTANTIATE_TEST_SUITE_P(
    Lengths, StartupUuid,
    testing::Values(UuidCase{"Nineteen", Answer::saying(TWENTY_CHARACTERS.substr(1)), 1},
                    UuidCase{"Twenty", Answer::saying(TWENTY_CHARACTERS), 0},
                    UuidCase{"TwentyOne", Answer::saying(TWENTY_CHARACTERS + "x"), 1},
                    UuidCase{"FiveHundred", Answer::saying(std::string(500, 'x')), 1},
                    UuidCase{"NoAnswer", Answer::refusing(), 1}),
    caseName);

struct SceneModeCase {
    const char *name;
    const char *value;
    bool announces;
};

class StartupSceneMode : public DaemonOnItsOwnBus,
                         public testing::WithParamInterface<SceneModeCase> {};

TEST_P(StartupSceneMode, DecidesWhetherScenesAreAnnounced)
{
    platform.set("doscenemode", GetParam().value);
    startWith(R"({"scenes":[{"title":"Evening","buildinSiren":{"siren_type":3}}]})");
    callForText("doscene", "Evening");
    ASSERT_TRUE(eventually([&] { return sdk.heard(sysSound(3)); }));
    EXPECT_EQ(sdk.heard(deviceCommand("set_s_sta_num", 511, 99, 1)), GetParam().announces);
    EXPECT_TRUE(daemon.logged(std::string("nvram read doscenemode value= ") + GetParam().value));
}

INSTANTIATE_TEST_SUITE_P(Values, StartupSceneMode,
                         testing::Values(SceneModeCase{"One", "1", true},
                                         SceneModeCase{"Zero", "0", false},
                                         SceneModeCase{"Two", "2", false},
                                         SceneModeCase{"Empty", "", false}),
                         caseName);

TEST_F(Startup, LoadsTheStoredConfiguration)
{
    startWith(ONE_SCENE);
    const Json scenes(callForText("jsongetgroup", "scenes"));
    ASSERT_EQ(scenes.size(), 1u);
    EXPECT_EQ(scenes[0]["title"].text(), "Evening");
    EXPECT_EQ(scenes[0]["comps"].dump(), R"([{"target":{"ch":0,"dev":5,"if":0},"value":99}])");
}

TEST_F(Startup, LoadsADocumentBehindAPrefixOfTwoBytes)
{
    daemon.data.write("appSetup.json", std::string("\x07\x2a") + ONE_SCENE);
    start();
    EXPECT_EQ(callForText("jsongettitles", "scenes"), R"(["Evening"])");
}

TEST_F(Startup, GoesByTheSizeOfTheFileAndNotByItsLengthField)
{
    std::string bytes = storedLayout(ONE_SCENE);
    bytes[0] = 1;
    bytes[1] = 0;
    daemon.data.write("appSetup.json", bytes);
    start();
    EXPECT_EQ(callForText("jsongettitles", "scenes"), R"(["Evening"])");
}

TEST_F(Startup, BeginsEmptyWithoutAStoredConfiguration)
{
    start();
    EXPECT_TRUE(daemon.logged("appSetup.json not exist."));
    EXPECT_TRUE(daemon.logged("jsonStr == NULL"));
    EXPECT_EQ(callForText("jsongetall", ""), EMPTY_CONFIGURATION);
    EXPECT_FALSE(daemon.data.read("appSetup.json"));
}

TEST_F(Startup, RemovesAStoredConfigurationOfNoBytes)
{
    daemon.data.write("appSetup.json", "");
    start();
    EXPECT_TRUE(daemon.logged("appSetup.json is empty."));
    EXPECT_FALSE(daemon.data.read("appSetup.json"));
    EXPECT_EQ(callForText("jsongetall", ""), EMPTY_CONFIGURATION);
}

TEST_F(Startup, LeavesAStoredConfigurationOfFourBytesAlone)
{
    daemon.data.write("appSetup.json", "{  }");
    start();
    EXPECT_EQ(daemon.data.read("appSetup.json"), "{  }");
    EXPECT_EQ(callForText("jsongetall", ""), EMPTY_CONFIGURATION);
}

TEST_F(Startup, BeginsEmptyWithAStoredConfigurationThatIsNoJson)
{
    startWith(R"({"scenes":[{"title":)");
    EXPECT_TRUE(daemon.logged("error: on line 1:"));
    EXPECT_EQ(callForText("jsongetall", ""), EMPTY_CONFIGURATION);
}

TEST_F(Startup, FindsAfterARestartWhatWasSet)
{
    start();
    gatewayReady();
    ASSERT_EQ(callForNumber("jsonsetall", R"({"scenes":[{"title":"Evening","ID":4}],
        "rooms":[{"title":"Hall","targets":[{"dev":5,"if":0,"ch":1}]}],
        "macros":[{"title":"Door","enabled":1,"scene":"Evening"}]})"),
              1);
    const std::string before = callForText("jsongetall", "");
    restart();
    EXPECT_EQ(callForText("jsongetall", ""), before);
}

TEST_F(Startup, DoesWithoutThePlatformDaemon)
{
    platform.leave();
    startWith(ONE_SCENE);
    EXPECT_TRUE(daemon.logged("No reply, key: customerName, dest: com.ovrinbus.platform, "
                              "ifac: com.OvrinTech.platform.nvram, cmd: get"));
    EXPECT_EQ(callForText("jsongettitles", "scenes"), R"(["Evening"])");
}

TEST_F(Startup, CountsASettingThatThePlatformRefusesAsMissing)
{
    for (const char *key :
         {"appstart_time_flag", "setastclock_lon", "UUID", "doscenemode", "customerName"})
        platform.behave(key, Answer::refusing());
    startWith(ONE_SCENE);
    EXPECT_TRUE(daemon.logged("tutkUUID is not set"));
    EXPECT_EQ(callForText("jsongettitles", "scenes"), R"(["Evening"])");
}

TEST_F(Startup, WaitsASecondForASettingThatIsNotAnswered)
{
    platform.behave("TimeZone", Answer::silence());
    start();
    EXPECT_TRUE(daemon.logged("No reply, key: TimeZone,"));
    const std::vector<NvramRequest> requests = platform.requests();
    const auto silent = std::find_if(requests.begin(), requests.end(),
                                     [](const auto &request) { return request.key == "TimeZone"; });
    ASSERT_NE(silent, requests.end());
    const int64_t waited = millisecondsBetween(silent->at, (silent + 1)->at);
    EXPECT_GE(waited, 990);
    if (SPEED_COUNTS) {
        EXPECT_LE(waited, 1800);
    }
}

TEST_F(Startup, DoesWithoutTheSdkDaemon)
{
    sdk.leave();
    startWith(ONE_SCENE);
    EXPECT_EQ(callForText("jsongettitles", "scenes"), R"(["Evening"])");
}

// Its supervisor starts it again until the bus is there.
TEST_F(Startup, GoesToItsEndWithoutABusAndThenEnds)
{
    daemon.writeSetup(ONE_SCENE);
    daemon.start("unix:path=" + daemon.data.file("no-bus-here").string());
    daemon.expectEnd(1);
    endsOrderly = false;
    EXPECT_TRUE(daemon.logged("Connection Error ("));
    EXPECT_TRUE(daemon.logged("dbus_conn_init failed."));
    EXPECT_TRUE(daemon.logged("dbus_conn is NULL."));
    EXPECT_TRUE(daemon.logged("customer name NULL")) << "the last step";
    EXPECT_EQ(daemon.timesLogged("6 endWithoutBus:"), 1u);
    EXPECT_TRUE(daemon.logged("There is no bus to serve"));
}

TEST_F(Startup, DoesWithoutTheNetworkInterface)
{
    if (std::filesystem::exists("/sys/class/net/eth2.2"))
        GTEST_SKIP() << "this machine has the interface";
    start();
    EXPECT_TRUE(daemon.logged("ioctl: "));
    eventHandled(9, 5, 0);
    EXPECT_EQ(recent().size(), 1u);
}

// The first alarm comes a second after the start, the last setting later than that.
TEST_F(Startup, TicksWhileThePlatformIsSlow)
{
    platform.behave("TimeZone", Answer::asUsual().after(900ms));
    platform.behave("enableastclock", Answer::asUsual().after(900ms));
    platform.behave("customerName", Answer::asUsual().after(900ms));
    sdk.set(device(5, 0, SWITCH));
    daemon.writeSetup(ONE_SCENE);
    launch();
    ASSERT_TRUE(eventually([&] { return client.peer.nameHasOwner(APP_NAME); }));
    EXPECT_EQ(callForText("doscene", "Evening"), "Evening");
    ASSERT_TRUE(eventually([&] { return sdk.heard(switchCommand(5, 0, 99)); }));
    if (SPEED_COUNTS) {
        EXPECT_EQ(platform.answered("customerName"), 0u) << "the scene waited for the start-up";
    }
    waitUntilStarted();
    EXPECT_EQ(platform.answered("customerName"), 1u);
    eventHandled(9, 5, 0);
}

TEST_F(Startup, IgnoresAnEventThatComesBeforeItsEnd)
{
    platform.behave("customerName", Answer::asUsual().after(900ms));
    launch();
    ASSERT_TRUE(eventually([&] { return platform.asked("customerName") == 1; }));
    ASSERT_TRUE(eventually([&] { return client.peer.nameHasOwner(APP_NAME); }));
    EXPECT_EQ(eventMethod(9, 5, 0), 1);
    ASSERT_EQ(platform.answered("customerName"), 0u) << "the start was over before the event came";
    waitUntilStarted();
    eventHandled(9, 6, 0);
    EXPECT_EQ(announced(9, 5), 0u);
    EXPECT_EQ(recent().front()["sequence"].integer(), 1);
}

TEST_F(Startup, TakesItsNameOverFromAnOwnerThatAllowsIt)
{
    Peer older;
    older.join(busThread, bus.address(), nullptr);
    older.own(APP_NAME, DBUS_NAME_FLAG_ALLOW_REPLACEMENT);
    startWith(ONE_SCENE);
    EXPECT_TRUE(eventually([&] {
        const auto reply = client.call(APP, "jsongettitles", {"scenes"});
        return eventually([&] { return reply->arrived(); }, 300ms) &&
               reply->text() == R"(["Evening"])";
    }));
}

TEST_F(Startup, RunsOnUnheardWhenItsNameIsTaken)
{
    Peer older;
    older.join(busThread, bus.address(), nullptr);
    older.own(APP_NAME);
    start();
    EXPECT_EQ(platform.answered("customerName"), 1u);
    client.signal("/", EVENT_SIGNALS, "triggerAPP",
                  {uint16_t{9}, uint16_t{5}, uint16_t{0}, uint16_t{0}, ""});
    // Nothing is read from the listener's connection any more; the outbound one still works.
    EXPECT_TRUE(daemon.running());
}

TEST_F(Startup, EndsWithTheBusAlsoWhenNobodyListens)
{
    Peer older;
    older.join(busThread, bus.address(), nullptr);
    older.own(APP_NAME);
    start();
    bus.stop();
    daemon.expectEnd(1);
    endsOrderly = false;
    EXPECT_EQ(daemon.timesLogged("The bus connection is lost"), 1u);
}

TEST_F(Startup, EndsWithSuccessWhenAsked)
{
    startWith(ONE_SCENE);
    gatewayReady();
    daemon.stop();
    endsOrderly = false;
    EXPECT_EQ(daemon.storedSetup(), ONE_SCENE) << "what was stored is still there";
}

// A second life of the same daemon with nothing between: each one starts from the file.
TEST_F(Startup, EndsAtAnyMomentAndStartsAgain)
{
    daemon.writeSetup(ONE_SCENE);
    for (int round = 0; round < 3; ++round) {
        start();
        EXPECT_EQ(callForText("jsongettitles", "scenes"), R"(["Evening"])");
        daemon.stop();
    }
    endsOrderly = false;
}
