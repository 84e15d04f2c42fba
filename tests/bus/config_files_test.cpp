// The stored documents over the bus: reading them, backing them up, restoring and resetting them.

#include "support/daemon_on_its_own_bus.h"

#include <algorithm>
#include <filesystem>

using namespace support;
using testing::ElementsAre;
using testing::IsEmpty;

static constexpr const char *SWITCH_APP = "com.OvrinTech.switch.app";

static constexpr const char *SETUP = "appSetup.json";
static constexpr const char *SETUP_BAK = "appSetup.json_bak";
static constexpr const char *SETUP_BAK2 = "appSetup.json_bak2";
static constexpr const char *RESUME = "scheduleResumeScene.json";
static constexpr const char *RESUME_BAK = "scheduleResumeScene.json_bak";
static constexpr const char *RESUME_BAK2 = "scheduleResumeScene.json_bak2";

static std::string withAlarm(const std::string &alarm)
{
    return R"({"alarm":)" + alarm +
           R"(,"cameras":[],"eventFilter":[],"macros":[],"registeredDevices":[],"rooms":[],)"
           R"("scenes":[],"schedules":[],"targetNames":{}})";
}

static const std::string DEFAULT_ALARM =
    R"({"duration":3,"enabled":0,"siren_type":1,"trigger_duration":3})";
static const std::string EMPTY = withAlarm(DEFAULT_ALARM);

static constexpr const char *ONE_OF_EACH = R"({
    "alarm":{"duration":9,"enabled":0,"siren_type":2,"trigger_duration":1},
    "cameras":[{"uid":"c1"}],"eventFilter":[{"uid":5}],
    "macros":[{"title":"Door","scene":"Evening"}],"registeredDevices":[{"token":"t1"}],
    "rooms":[{"title":"Hall"}],"scenes":[{"title":"Evening"}],
    "schedules":[{"title":"Week","macro":"Door"}],"targetNames":{"5_0_1":"Lamp"}})";

static std::string sceneDocument(const std::string &title)
{
    return R"({"scenes":[{"title":")" + title + R"("}]})";
}

class ConfigFiles : public ConfigurableDaemon {
protected:
    int64_t fileMethod(const std::string &member, int32_t argument = 0)
    {
        const auto reply = client.call(SWITCH_APP, member, {argument});
        EXPECT_TRUE(eventually([&] { return reply->arrived(); })) << "no reply to " << member;
        EXPECT_EQ(reply->signature(), "i") << reply->error();
        return reply->number();
    }
    std::string getDat()
    {
        return callForText("getDat", "");
    }
    std::string all()
    {
        return callForText("jsongetall", "");
    }
    std::string scenes()
    {
        return callForText("jsongettitles", "scenes");
    }
    void write(const std::string &name, const std::string &document)
    {
        daemon.data.write(name, storedLayout(document));
    }
    // The names in the daemon's folder, sorted.
    std::vector<std::string> files() const
    {
        std::vector<std::string> names;
        for (const auto &entry : std::filesystem::directory_iterator(daemon.data.path()))
            names.push_back(entry.path().filename());
        std::sort(names.begin(), names.end());
        return names;
    }
    // Changes the configuration and does not save it: the last group has nothing to store.
    void setUnsaved(const std::string &title)
    {
        ASSERT_EQ(set(R"({"scenes":[{"title":")" + title + R"("}],"rooms":[]})"), 0);
    }
};

// ---- getDat

TEST_F(ConfigFiles, GetDatGivesTheStoredText)
{
    startReady();
    set(ONE_OF_EACH);
    EXPECT_EQ(getDat(), all());
    EXPECT_EQ(getDat(), daemon.storedSetup());
    EXPECT_EQ(callForText("getDat", "scenes"), getDat()) << "whatever the argument";
}

TEST_F(ConfigFiles, GetDatGivesWhatTheFileHoldsAndNotTheMemory)
{
    startReady(sceneDocument("Evening"));
    setUnsaved("Morning");
    EXPECT_EQ(getDat(), sceneDocument("Evening"));
    const std::string text = "{ \"scenes\" :\n [ ] }\n";
    write(SETUP, text);
    EXPECT_EQ(getDat(), text);
    EXPECT_EQ(scenes(), R"(["Evening","Morning"])");
}

TEST_F(ConfigFiles, GetDatReadsADocumentBehindAPrefixOfTwoBytes)
{
    start();
    daemon.data.write(SETUP, "\x07\x2a" + sceneDocument("Evening"));
    EXPECT_EQ(getDat(), sceneDocument("Evening"));
}

TEST_F(ConfigFiles, GetDatGoesByTheSizeOfTheFileAndNotByItsLengthField)
{
    start();
    for (const char length : {'\0', '\x01', '\x7f'}) {
        daemon.data.write(SETUP, std::string(1, length) + std::string(3, '\0') + "[1,2]");
        EXPECT_EQ(getDat(), "[1,2]");
    }
}

TEST_F(ConfigFiles, GetDatGivesATextThatIsNoJson)
{
    start();
    write(SETUP, "no JSON");
    EXPECT_EQ(getDat(), "no JSON");
    write(SETUP, "");
    EXPECT_EQ(getDat(), "") << "five bytes hold an empty text";
}

TEST_F(ConfigFiles, GetDatGivesNoReplyWithoutAFile)
{
    start();
    const size_t from = daemon.logSize();
    callWithoutReply("getDat", {std::string()});
    EXPECT_TRUE(daemon.logged("appSetup.json not exist.\n", from));
    EXPECT_TRUE(daemon.logged("jsonStrReadFromFile return NULL\n", from));
    EXPECT_TRUE(daemon.logged("DBUS request not handled, method: getDat", from));
    EXPECT_THAT(files(), IsEmpty());
}

TEST_F(ConfigFiles, GetDatDeletesAFileOfNoBytes)
{
    start();
    daemon.data.write(SETUP, "");
    const size_t from = daemon.logSize();
    callWithoutReply("getDat", {std::string()});
    EXPECT_TRUE(daemon.logged("appSetup.json is empty.", from));
    EXPECT_TRUE(daemon.logged("jsonStrReadFromFile return NULL\n", from));
    EXPECT_THAT(files(), IsEmpty());
}

TEST_F(ConfigFiles, GetDatGivesNoReplyForAFileOfFourBytesOrLessAndLeavesIt)
{
    start();
    for (const std::string bytes : {"{", "{}", "{ }", "[[]]"}) {
        daemon.data.write(SETUP, bytes);
        const size_t from = daemon.logSize();
        callWithoutReply("getDat", {std::string()});
        EXPECT_TRUE(daemon.logged("jsonStrReadFromFile return NULL\n", from)) << bytes;
        EXPECT_EQ(daemon.data.read(SETUP), bytes);
    }
}

TEST_F(ConfigFiles, GetDatGivesNoReplyForWhatTheBusCannotCarry)
{
    start();
    write(SETUP, "{\"scenes\":\"\xff\xfe\"}");
    callWithoutReply("getDat", {std::string()});
    std::filesystem::remove(daemon.data.file(SETUP));
    std::filesystem::create_directory(daemon.data.file(SETUP));
    callWithoutReply("getDat", {std::string()});
}

TEST_F(ConfigFiles, GetDatGivesNoReplyToOtherArguments)
{
    startWith(sceneDocument("Evening"));
    callWithoutReply("getDat", {});
    callWithoutReply("getDat", {int32_t{0}});
    EXPECT_EQ(daemon.timesLogged("DBUS request not handled, method: getDat"), 2u);
}

TEST_F(ConfigFiles, GetDatWorksWhileWritesAreRefused)
{
    startWith(sceneDocument("Evening"));
    platform.set("enablelock", "1");
    EXPECT_EQ(getDat(), sceneDocument("Evening"));
}

// ---- backupConfig

TEST_F(ConfigFiles, BackupCountsNothingWithoutFiles)
{
    start();
    EXPECT_EQ(fileMethod("backupConfig"), 0);
    EXPECT_THAT(files(), IsEmpty());
    EXPECT_TRUE(daemon.logged("app_dbus_backup_config\n"));
}

TEST_F(ConfigFiles, BackupCopiesTheConfigurationFirstOnceAndThenAlsoTheBackup)
{
    startReady(sceneDocument("Evening"));
    EXPECT_EQ(fileMethod("backupConfig"), 1);
    EXPECT_THAT(files(), ElementsAre(SETUP, SETUP_BAK));
    EXPECT_EQ(daemon.data.read(SETUP_BAK), storedLayout(sceneDocument("Evening")));
    EXPECT_EQ(fileMethod("backupConfig"), 2);
    EXPECT_THAT(files(), ElementsAre(SETUP, SETUP_BAK, SETUP_BAK2));
    EXPECT_EQ(daemon.data.read(SETUP_BAK2), storedLayout(sceneDocument("Evening")));
}

TEST_F(ConfigFiles, BackupMovesTheGenerationsOn)
{
    startReady();
    std::vector<std::string> stored;
    for (const char *title : {"First", "Second", "Third"}) {
        set(sceneDocument(title));
        stored.push_back(daemon.data.read(SETUP).value_or(""));
        fileMethod("backupConfig");
    }
    EXPECT_EQ(daemon.data.read(SETUP), stored.at(2));
    EXPECT_EQ(daemon.data.read(SETUP_BAK), stored.at(2));
    EXPECT_EQ(daemon.data.read(SETUP_BAK2), stored.at(1));
}

TEST_F(ConfigFiles, BackupCopiesBothDocuments)
{
    startReady(sceneDocument("Evening"));
    daemon.data.write(RESUME, "any bytes");
    EXPECT_EQ(fileMethod("backupConfig"), 2);
    daemon.data.write(RESUME, "other bytes");
    EXPECT_EQ(fileMethod("backupConfig"), 4);
    EXPECT_THAT(files(),
                ElementsAre(SETUP, SETUP_BAK, SETUP_BAK2, RESUME, RESUME_BAK, RESUME_BAK2));
    EXPECT_EQ(daemon.data.read(RESUME_BAK), "other bytes");
    EXPECT_EQ(daemon.data.read(RESUME_BAK2), "any bytes");
}

TEST_F(ConfigFiles, BackupCopiesTheScheduleDocumentAlone)
{
    start();
    daemon.data.write(RESUME, "any bytes");
    EXPECT_EQ(fileMethod("backupConfig"), 1);
    EXPECT_THAT(files(), ElementsAre(RESUME, RESUME_BAK));
}

TEST_F(ConfigFiles, BackupMovesABackupOnWithoutItsDocument)
{
    start();
    write(SETUP_BAK, sceneDocument("Evening"));
    EXPECT_EQ(fileMethod("backupConfig"), 1);
    EXPECT_THAT(files(), ElementsAre(SETUP_BAK, SETUP_BAK2));
    EXPECT_EQ(daemon.data.read(SETUP_BAK), storedLayout(sceneDocument("Evening")));
    EXPECT_EQ(daemon.data.read(SETUP_BAK2), storedLayout(sceneDocument("Evening")));
}

TEST_F(ConfigFiles, BackupLeavesASecondGenerationWithoutAFirst)
{
    startReady(sceneDocument("Evening"));
    write(SETUP_BAK2, sceneDocument("Old"));
    EXPECT_EQ(fileMethod("backupConfig"), 1);
    EXPECT_EQ(daemon.data.read(SETUP_BAK2), storedLayout(sceneDocument("Old")));
    EXPECT_EQ(daemon.data.read(SETUP_BAK), storedLayout(sceneDocument("Evening")));
}

TEST_F(ConfigFiles, BackupCopiesAFileWhateverItHolds)
{
    start();
    daemon.data.write(SETUP, "no document");
    daemon.data.write(RESUME, "");
    EXPECT_EQ(fileMethod("backupConfig"), 2);
    EXPECT_EQ(daemon.data.read(SETUP_BAK), "no document");
    EXPECT_EQ(daemon.data.read(RESUME_BAK), "");
    EXPECT_EQ(daemon.data.read(RESUME), "") << "only a reader deletes an empty file";
}

TEST_F(ConfigFiles, BackupKeepsTheRightsAndTheTimeOfAFile)
{
    startReady(sceneDocument("Evening"));
    namespace fs = std::filesystem;
    const fs::perms rights = fs::perms::owner_read | fs::perms::owner_write;
    fs::permissions(daemon.data.file(SETUP), rights);
    const auto time = fs::file_time_type::clock::now() - std::chrono::hours(48);
    fs::last_write_time(daemon.data.file(SETUP), time);
    EXPECT_EQ(fileMethod("backupConfig"), 1);
    EXPECT_EQ(fs::status(daemon.data.file(SETUP_BAK)).permissions(), rights);
    EXPECT_EQ(fs::last_write_time(daemon.data.file(SETUP_BAK)),
              fs::last_write_time(daemon.data.file(SETUP)));
}

TEST_F(ConfigFiles, BackupBacksUpTheFileAndNotTheMemory)
{
    startReady(sceneDocument("Evening"));
    setUnsaved("Morning");
    const std::string before = all();
    sdk.forgetHeard();
    EXPECT_EQ(fileMethod("backupConfig"), 1);
    EXPECT_EQ(daemon.data.read(SETUP_BAK), storedLayout(sceneDocument("Evening")));
    EXPECT_EQ(all(), before);
    gatewayReady();  // announced after anything that was announced before
    EXPECT_EQ(sdk.events("jsongetall").size(), 0u);
}

TEST_F(ConfigFiles, BackupThatCannotReadItsArgumentCountsAsHandledAndDoesNothing)
{
    startWith(sceneDocument("Evening"));
    callWithoutReply("backupConfig", {}, SWITCH_APP);
    callWithoutReply("backupConfig", {std::string("0")}, SWITCH_APP);
    EXPECT_EQ(daemon.timesLogged("app_dbus_backup_config\n"), 2u);
    EXPECT_FALSE(daemon.logged("DBUS request not handled, method: backupConfig"));
    EXPECT_THAT(files(), ElementsAre(SETUP));
}

// ---- The restores

struct BackupGeneration {
    const char *name;
    const char *member;
    const char *setup;  // the backups that it restores
    const char *resume;
    const char *otherSetup;  // and those that it does not
    const char *otherResume;
};

class ConfigRestore : public ConfigFiles, public testing::WithParamInterface<BackupGeneration> {
protected:
    int64_t restore()
    {
        return fileMethod(GetParam().member);
    }
};

INSTANTIATE_TEST_SUITE_P(By, ConfigRestore,
                         testing::Values(BackupGeneration{"First", "restoreConfig", SETUP_BAK,
                                                          RESUME_BAK, SETUP_BAK2, RESUME_BAK2},
                                         BackupGeneration{"Second", "restoreConfig2", SETUP_BAK2,
                                                          RESUME_BAK2, SETUP_BAK, RESUME_BAK},
                                         // Deliberate: despite its name it restores.
                                         BackupGeneration{"BackupOvrinData", "backupOvrinData",
                                                          SETUP_BAK, RESUME_BAK, SETUP_BAK2,
                                                          RESUME_BAK2}),
                         caseName);

TEST_P(ConfigRestore, PutsItsGenerationInPlaceOfTheConfiguration)
{
    startReady(ONE_OF_EACH);
    write(GetParam().setup, sceneDocument("Backup"));
    write(GetParam().otherSetup, sceneDocument("Other"));
    EXPECT_EQ(restore(), 1);
    EXPECT_EQ(all(), R"({"alarm":)" + DEFAULT_ALARM +
                         R"(,"cameras":[],"eventFilter":[],"macros":[],"registeredDevices":[],)"
                         R"("rooms":[],"scenes":[{"ID":0,"comps":[],"icon":"","icon_name":"",)"
                         R"("invisible":0,"title":"Backup"}],"schedules":[],"targetNames":{}})")
        << "nothing of what was there before";
    EXPECT_EQ(daemon.data.read(SETUP), storedLayout(sceneDocument("Backup")))
        << "byte for byte, not written anew";
    EXPECT_EQ(daemon.data.read(GetParam().setup), storedLayout(sceneDocument("Backup")));
    EXPECT_EQ(daemon.data.read(GetParam().otherSetup), storedLayout(sceneDocument("Other")));
}

TEST_P(ConfigRestore, CopiesBothDocuments)
{
    startReady(sceneDocument("Evening"));
    write(GetParam().setup, sceneDocument("Backup"));
    daemon.data.write(GetParam().resume, "any bytes");
    daemon.data.write(GetParam().otherResume, "other bytes");
    daemon.data.write(RESUME, "present bytes");
    EXPECT_EQ(restore(), 2);
    EXPECT_EQ(scenes(), R"(["Backup"])");
    EXPECT_EQ(daemon.data.read(RESUME), "any bytes");
    EXPECT_EQ(daemon.data.read(GetParam().otherResume), "other bytes");
}

TEST_P(ConfigRestore, CopiesTheScheduleDocumentAloneAndReadsTheConfigurationAnew)
{
    startReady(sceneDocument("Evening"));
    setUnsaved("Morning");
    daemon.data.write(GetParam().resume, "any bytes");
    EXPECT_EQ(restore(), 1);
    EXPECT_EQ(daemon.data.read(RESUME), "any bytes");
    EXPECT_EQ(scenes(), R"(["Evening"])");
}

TEST_P(ConfigRestore, WithoutABackupReadsTheConfigurationAnew)
{
    startReady(sceneDocument("Evening"));
    setUnsaved("Morning");
    write(GetParam().otherSetup, sceneDocument("Other"));
    EXPECT_EQ(restore(), 0);
    EXPECT_EQ(scenes(), R"(["Evening"])");
    EXPECT_EQ(daemon.data.read(SETUP), storedLayout(sceneDocument("Evening")));
    EXPECT_THAT(files(), ElementsAre(SETUP, GetParam().otherSetup));
}

TEST_P(ConfigRestore, WithoutAnyFileEmptiesTheConfiguration)
{
    startReady(ONE_OF_EACH);
    std::filesystem::remove(daemon.data.file(SETUP));
    const size_t from = daemon.logSize();
    EXPECT_EQ(restore(), 0);
    EXPECT_TRUE(daemon.logged("appSetup.json not exist.\n", from));
    EXPECT_TRUE(daemon.logged("jsonStr == NULL\n", from));
    EXPECT_EQ(all(), EMPTY);
    EXPECT_THAT(files(), IsEmpty());
}

TEST_P(ConfigRestore, BringsBackWhatAResetRemoved)
{
    startReady(sceneDocument("Evening"));
    write(GetParam().setup, sceneDocument("Backup"));
    EXPECT_EQ(fileMethod("resetConfig"), 1);
    EXPECT_EQ(restore(), 1);
    EXPECT_EQ(scenes(), R"(["Backup"])");
    EXPECT_EQ(getDat(), sceneDocument("Backup"));
}

TEST_P(ConfigRestore, IsAnnounced)
{
    startReady(ONE_OF_EACH);
    write(GetParam().setup, sceneDocument("Backup"));
    sdk.forgetHeard();
    EXPECT_EQ(restore(), 1);
    ASSERT_TRUE(eventually([&] { return sdk.events("jsongetall").size() == 1; }));
    EXPECT_EQ(sdk.events("jsongetall").at(0).text, all());
}

TEST_P(ConfigRestore, OfADamagedBackupIsLoggedAndLeavesAnEmptyConfiguration)
{
    startReady(ONE_OF_EACH);
    const std::string damaged = sceneDocument("Backup").substr(0, 20);
    write(GetParam().setup, damaged);
    const size_t from = daemon.logSize();
    EXPECT_EQ(restore(), 1);
    EXPECT_TRUE(daemon.logged("error: on line 1: ", from));
    EXPECT_EQ(daemon.data.read(SETUP), storedLayout(damaged));
    // There was a text, so the alarm has its defaults, and a set begins with them.
    EXPECT_EQ(set(R"({"alarm":{"duration":8}})"), 1);
    EXPECT_EQ(all(),
              withAlarm(R"({"duration":8,"enabled":0,"siren_type":1,"trigger_duration":3})"));
}

TEST_P(ConfigRestore, OfABackupThatIsNoObjectLeavesAnEmptyConfiguration)
{
    startReady(ONE_OF_EACH);
    write(GetParam().setup, "[" + sceneDocument("Backup") + "]");
    const size_t from = daemon.logSize();
    EXPECT_EQ(restore(), 1);
    EXPECT_TRUE(daemon.logged("error: root is not an object\n", from));
    EXPECT_EQ(all(), EMPTY);
}

TEST_P(ConfigRestore, OfABackupThatIsNestedTooDeepLeavesAnEmptyConfiguration)
{
    startReady(ONE_OF_EACH);
    write(GetParam().setup, R"({"scenes":[{"title":"Backup"}],"x":)" + std::string(64, '[') +
                                std::string(64, ']') + "}");
    EXPECT_EQ(restore(), 1);
    EXPECT_EQ(all(), EMPTY);
}

TEST_P(ConfigRestore, OfFourBytesOrLessLeavesAnEmptyConfigurationWithoutAnAlarm)
{
    startReady(ONE_OF_EACH);
    daemon.data.write(GetParam().setup, "[[]]");
    const size_t from = daemon.logSize();
    EXPECT_EQ(restore(), 1);
    EXPECT_TRUE(daemon.logged("jsonStr == NULL\n", from));
    EXPECT_EQ(daemon.data.read(SETUP), "[[]]");
    // No alarm is there until one is shown: a set begins with zeros.
    EXPECT_EQ(set(R"({"alarm":{"duration":8}})"), 1);
    EXPECT_EQ(all(),
              withAlarm(R"({"duration":8,"enabled":0,"siren_type":0,"trigger_duration":0})"));
}

TEST_P(ConfigRestore, OfFourBytesOrLessHasTheDefaultAlarmOnceItIsShown)
{
    startReady(ONE_OF_EACH);
    daemon.data.write(GetParam().setup, "{}");
    EXPECT_EQ(restore(), 1);
    EXPECT_EQ(all(), EMPTY);
    EXPECT_EQ(set(R"({"alarm":{"duration":8}})"), 1);
    EXPECT_EQ(all(),
              withAlarm(R"({"duration":8,"enabled":0,"siren_type":1,"trigger_duration":3})"));
}

TEST_P(ConfigRestore, OfAnEmptyBackupDeletesTheConfiguration)
{
    startReady(ONE_OF_EACH);
    daemon.data.write(GetParam().setup, "");
    const size_t from = daemon.logSize();
    EXPECT_EQ(restore(), 1);
    EXPECT_TRUE(daemon.logged("appSetup.json is empty.", from));
    EXPECT_EQ(all(), EMPTY);
    EXPECT_THAT(files(), ElementsAre(GetParam().setup));
}

TEST_P(ConfigRestore, TakesADocumentBehindAPrefixOfTwoBytes)
{
    startReady(ONE_OF_EACH);
    const std::string bytes = "\x07\x2a" + sceneDocument("Backup");
    daemon.data.write(GetParam().setup, bytes);
    EXPECT_EQ(restore(), 1);
    EXPECT_EQ(scenes(), R"(["Backup"])");
    EXPECT_EQ(daemon.data.read(SETUP), bytes);
    EXPECT_EQ(getDat(), sceneDocument("Backup"));
}

TEST_P(ConfigRestore, IsSavedWithTheNextChange)
{
    startReady(ONE_OF_EACH);
    write(GetParam().setup, sceneDocument("Backup"));
    EXPECT_EQ(restore(), 1);
    EXPECT_EQ(set(sceneDocument("More")), 1);
    EXPECT_EQ(daemon.storedSetup(), all());
    EXPECT_EQ(scenes(), R"(["Backup","More"])");
    restart();
    EXPECT_EQ(scenes(), R"(["Backup","More"])");
}

TEST_P(ConfigRestore, IsRepeatable)
{
    startReady(ONE_OF_EACH);
    write(GetParam().setup, sceneDocument("Backup"));
    for (int32_t argument : {0, 1, -1, INT32_MAX}) {
        EXPECT_EQ(fileMethod(GetParam().member, argument), 1);
        EXPECT_EQ(scenes(), R"(["Backup"])");
        set(sceneDocument("More"));
    }
}

TEST_P(ConfigRestore, WorksWhileWritesAreRefused)
{
    startWith(ONE_OF_EACH);
    platform.set("enablelock", "1");
    write(GetParam().setup, sceneDocument("Backup"));
    EXPECT_EQ(restore(), 1);
    EXPECT_EQ(scenes(), R"(["Backup"])");
}

TEST_P(ConfigRestore, ThatCannotReadItsArgumentDoesNothing)
{
    startReady(sceneDocument("Evening"));
    setUnsaved("Morning");
    write(GetParam().setup, sceneDocument("Backup"));
    callWithoutReply(GetParam().member, {}, SWITCH_APP);
    callWithoutReply(GetParam().member, {std::string("0")}, SWITCH_APP);
    EXPECT_EQ(
        daemon.timesLogged(std::string("DBUS request not handled, method: ") + GetParam().member),
        2u);
    EXPECT_EQ(scenes(), R"(["Evening","Morning"])") << "not even read anew";
    EXPECT_EQ(daemon.data.read(SETUP), storedLayout(sceneDocument("Evening")));
}

// The lines of the restores, in order, without where they come from.
static std::vector<std::string> restoreLines(const std::string &log)
{
    std::vector<std::string> texts;
    for (size_t start = 0, end; (end = log.find('\n', start)) != std::string::npos;
         start = end + 1) {
        const std::string line = log.substr(start, end - start);
        const size_t text = line.find(' ', line.find(' ') + 1) + 1;
        for (const char *wanted : {"app_dbus_restore_config", "2.app_dbus_restore_config",
                                   "copy JSON_SETUP_FILE", "copy JSON_SETUP_FILE complete"}) {
            if (line.substr(text) == wanted)
                texts.emplace_back(wanted);
        }
    }
    return texts;
}

TEST_F(ConfigFiles, RestoreConfigLogsItsSteps)
{
    startReady();
    write(SETUP_BAK, sceneDocument("Backup"));
    const size_t from = daemon.logSize();
    EXPECT_EQ(fileMethod("restoreConfig"), 1);
    EXPECT_THAT(restoreLines(daemon.log(from)),
                ElementsAre("app_dbus_restore_config", "2.app_dbus_restore_config",
                            "copy JSON_SETUP_FILE", "copy JSON_SETUP_FILE complete"));
}

TEST_F(ConfigFiles, RestoreConfigLogsItsFirstStepBeforeItReadsItsArgument)
{
    startReady();
    const size_t from = daemon.logSize();
    callWithoutReply("restoreConfig", {}, SWITCH_APP);
    EXPECT_THAT(restoreLines(daemon.log(from)), ElementsAre("app_dbus_restore_config"));
}

TEST_F(ConfigFiles, BackupOvrinDataLogsNoSteps)
{
    startReady();
    write(SETUP_BAK, sceneDocument("Backup"));
    const size_t from = daemon.logSize();
    EXPECT_EQ(fileMethod("backupOvrinData"), 1);
    EXPECT_THAT(restoreLines(daemon.log(from)), IsEmpty());
    EXPECT_FALSE(daemon.logged("app_dbus_backup_config", from));
}

// ---- resetConfig

TEST_F(ConfigFiles, ResetRemovesTheDocumentsAndKeepsTheirBackups)
{
    startReady(sceneDocument("Evening"));
    daemon.data.write(RESUME, "any bytes");
    fileMethod("backupConfig");
    fileMethod("backupConfig");
    const size_t from = daemon.logSize();
    EXPECT_EQ(fileMethod("resetConfig"), 1);
    EXPECT_TRUE(daemon.logged("app config reset\n", from));
    EXPECT_THAT(files(), ElementsAre(SETUP_BAK, SETUP_BAK2, RESUME_BAK, RESUME_BAK2));
}

TEST_F(ConfigFiles, ResetAnswersOneWithoutFiles)
{
    start();
    EXPECT_EQ(fileMethod("resetConfig"), 1);
    EXPECT_THAT(files(), IsEmpty());
}

TEST_F(ConfigFiles, ResetKeepsTheMemory)
{
    startReady(ONE_OF_EACH);
    const std::string before = all();
    sdk.forgetHeard();
    EXPECT_EQ(fileMethod("resetConfig"), 1);
    EXPECT_EQ(all(), before);
    EXPECT_EQ(scenes(), R"(["Evening"])");
    callWithoutReply("getDat", {std::string()});
    gatewayReady();  // announced after anything that was announced before
    EXPECT_EQ(sdk.events("jsongetall").size(), 0u);
}

TEST_F(ConfigFiles, ResetIsUndoneByTheNextChange)
{
    startReady(ONE_OF_EACH);
    for (const auto &[member, request] :
         {std::pair{"jsonsetall", R"({"scenes":[{"title":"Morning"}]})"},
          {"jsondel", R"({"cameras":[{"uid":"c1"}]})"},
          {"jsonrename", R"(["rooms","Hall","Attic"])"}}) {
        EXPECT_EQ(fileMethod("resetConfig"), 1);
        EXPECT_THAT(files(), IsEmpty());
        EXPECT_EQ(callForNumber(member, request), 1);
        EXPECT_THAT(files(), ElementsAre(SETUP));
        EXPECT_EQ(daemon.storedSetup(), all()) << member;
    }
    EXPECT_EQ(scenes(), R"(["Evening","Morning"])");
}

TEST_F(ConfigFiles, ResetShowsAfterARestart)
{
    startReady(ONE_OF_EACH);
    EXPECT_EQ(fileMethod("resetConfig"), 1);
    restart();
    EXPECT_EQ(all(), EMPTY);
}

TEST_F(ConfigFiles, ResetRemovesWhatAnInterruptedWriteLeft)
{
    startReady(sceneDocument("Evening"));
    write(std::string(SETUP) + ".new", sceneDocument("Interrupted"));
    write(std::string(RESUME) + ".new", "{}");
    EXPECT_EQ(fileMethod("resetConfig"), 1);
    EXPECT_THAT(files(), IsEmpty());
    restart();
    EXPECT_EQ(all(), EMPTY);
}

TEST_F(ConfigFiles, ResetThatCannotReadItsArgumentDoesNothing)
{
    startWith(sceneDocument("Evening"));
    callWithoutReply("resetConfig", {}, SWITCH_APP);
    callWithoutReply("resetConfig", {std::string("1")}, SWITCH_APP);
    EXPECT_EQ(daemon.timesLogged("DBUS request not handled, method: resetConfig"), 2u);
    EXPECT_THAT(files(), ElementsAre(SETUP));
}

TEST_F(ConfigFiles, TheMethodsOfTheFilesBelongToTheirInterfaces)
{
    startWith(sceneDocument("Evening"));
    for (const char *member :
         {"resetConfig", "backupConfig", "restoreConfig", "restoreConfig2", "backupOvrinData"})
        callWithoutReply(member, {int32_t{0}}, APP);
    callWithoutReply("getDat", {std::string()}, SWITCH_APP);
    for (const char *member : {"sendDat", "setDat", "app_dbus_sendDat"}) {
        callWithoutReply(member, {sceneDocument("Sent")}, APP);
        callWithoutReply(member, {sceneDocument("Sent")}, SWITCH_APP);
    }
    EXPECT_THAT(files(), ElementsAre(SETUP));
    EXPECT_EQ(scenes(), R"(["Evening"])");
}

// ---- Saving

TEST_F(ConfigFiles, WhatIsCreatedIsForItsOwnerAlone)
{
    using std::filesystem::perms;
    start();
    gatewayReady();
    EXPECT_EQ(set(R"({"scenes":[{"title":"A"}]})"), 1);
    for (int generation = 1; generation <= 2; ++generation)
        EXPECT_EQ(fileMethod("backupConfig"), generation);
    EXPECT_EQ(files().size(), 3u);
    for (const auto &entry : std::filesystem::directory_iterator(daemon.data.path()))
        EXPECT_EQ(entry.status().permissions(), perms::owner_read | perms::owner_write)
            << entry.path();
}

TEST_F(ConfigFiles, EveryChangeLeavesOneFile)
{
    startReady();
    set(ONE_OF_EACH);
    EXPECT_THAT(files(), ElementsAre(SETUP));
    EXPECT_EQ(daemon.data.read(SETUP), storedLayout(all()));
    fileMethod("backupConfig");
    fileMethod("restoreConfig");
    EXPECT_THAT(files(), ElementsAre(SETUP, SETUP_BAK));
}

TEST_F(ConfigFiles, AShorterConfigurationLeavesNothingOfALongerOne)
{
    startReady(sceneDocument(std::string(100, 'x')));
    EXPECT_EQ(set(sceneDocument(std::string(126, 'y'))), 1);
    EXPECT_EQ(callForNumber("jsondel", sceneDocument(std::string(126, 'y'))), 1);
    EXPECT_EQ(callForNumber("jsondel", sceneDocument(std::string(100, 'x'))), 1);
    EXPECT_EQ(daemon.data.read(SETUP), storedLayout(EMPTY));
}

TEST_F(ConfigFiles, AChangeThatCannotBeStoredStaysInMemoryAndIsStoredWithTheNext)
{
    startReady(sceneDocument("Evening"));
    std::filesystem::remove_all(daemon.data.path());
    const size_t from = daemon.logSize();
    EXPECT_EQ(set(sceneDocument("Morning")), 1) << "the answer does not tell";
    EXPECT_TRUE(daemon.logged("No such file or directory", from));
    EXPECT_EQ(scenes(), R"(["Evening","Morning"])");
    EXPECT_EQ(fileMethod("backupConfig"), 0);
    EXPECT_EQ(fileMethod("resetConfig"), 1);

    std::filesystem::create_directory(daemon.data.path());
    EXPECT_EQ(set(sceneDocument("Noon")), 1);
    EXPECT_EQ(daemon.storedSetup(), all());
    EXPECT_EQ(scenes(), R"(["Evening","Morning","Noon"])");
}

TEST_F(ConfigFiles, NothingIsWrittenOverWithoutACopy)
{
    startReady(sceneDocument("Evening"));
    const std::string copy = std::string(SETUP) + ".new";
    std::filesystem::create_directory(daemon.data.file(copy));
    const size_t from = daemon.logSize();
    EXPECT_EQ(set(sceneDocument("Morning")), 1);
    EXPECT_TRUE(daemon.logged("appSetup.json cannot be stored: ", from));
    EXPECT_EQ(getDat(), sceneDocument("Evening"));
    EXPECT_EQ(scenes(), R"(["Evening","Morning"])");

    std::filesystem::remove(daemon.data.file(copy));
    EXPECT_EQ(set(sceneDocument("Noon")), 1);
    EXPECT_EQ(daemon.storedSetup(), all());
    EXPECT_THAT(files(), ElementsAre(SETUP));
}

// ---- What an interrupted write left, at the start and whenever the configuration is read anew

struct InterruptedWrite {
    const char *name;
    std::string copy;  // the bytes
    bool whole;
};

class ConfigInterrupted : public ConfigFiles, public testing::WithParamInterface<InterruptedWrite> {
protected:
    void leaveCopies()
    {
        daemon.data.write(std::string(SETUP) + ".new", GetParam().copy);
        daemon.data.write(std::string(RESUME) + ".new", GetParam().copy);
    }
    void expectFinished()
    {
        EXPECT_THAT(files(), ElementsAre(SETUP, RESUME));
        EXPECT_EQ(scenes(), GetParam().whole ? R"(["New"])" : R"(["Old"])");
        EXPECT_EQ(daemon.data.read(SETUP),
                  GetParam().whole ? GetParam().copy : storedLayout(sceneDocument("Old")));
        EXPECT_EQ(daemon.data.read(RESUME), GetParam().whole ? GetParam().copy : "present bytes");
    }
};

static std::string cutBy(size_t bytes)
{
    const std::string whole = storedLayout(sceneDocument("New"));
    return whole.substr(0, whole.size() - bytes);
}

INSTANTIATE_TEST_SUITE_P(
    With, ConfigInterrupted,
    testing::Values(InterruptedWrite{"AWholeCopy", cutBy(0), true},
                    InterruptedWrite{"AnEmptyCopy", "", false},
                    InterruptedWrite{"ACopyOfItsLengthAlone",
                                     cutBy(sceneDocument("New").size() + 1), false},
                    InterruptedWrite{"ACopyWithoutItsLastByte", cutBy(1), false},
                    InterruptedWrite{"ACopyWithAByteMore", cutBy(0) + '\0', false},
                    InterruptedWrite{"ACopyThatIsNoJson", storedLayout("{\"scenes\":"), false},
                    InterruptedWrite{"ACopyOfZeros", std::string(40, '\0'), false}),
    caseName);

TEST_P(ConfigInterrupted, IsFinishedOrUndoneAtTheStart)
{
    daemon.writeSetup(sceneDocument("Old"));
    daemon.data.write(RESUME, "present bytes");
    leaveCopies();
    start();
    expectFinished();
}

TEST_P(ConfigInterrupted, IsFinishedOrUndoneWhenTheConfigurationIsReadAnew)
{
    startReady(sceneDocument("Old"));
    daemon.data.write(RESUME, "present bytes");
    leaveCopies();
    EXPECT_EQ(fileMethod("restoreConfig"), 0);
    expectFinished();
}

TEST_P(ConfigInterrupted, IsFinishedOrUndoneBeforeABackup)
{
    startReady(sceneDocument("Old"));
    daemon.data.write(RESUME, "present bytes");
    leaveCopies();
    EXPECT_EQ(fileMethod("backupConfig"), 2);
    EXPECT_THAT(files(), ElementsAre(SETUP, SETUP_BAK, RESUME, RESUME_BAK));
    EXPECT_EQ(daemon.data.read(SETUP_BAK), daemon.data.read(SETUP));
    EXPECT_EQ(daemon.data.read(RESUME_BAK), GetParam().whole ? GetParam().copy : "present bytes");
}

TEST_P(ConfigInterrupted, NeverComesAfterARestore)
{
    startReady(sceneDocument("Old"));
    write(SETUP_BAK, sceneDocument("Backup"));
    write(RESUME_BAK, "{}");
    leaveCopies();
    EXPECT_EQ(fileMethod("restoreConfig"), 2);
    EXPECT_EQ(scenes(), R"(["Backup"])");
    EXPECT_EQ(daemon.data.read(RESUME), storedLayout("{}"));
    EXPECT_THAT(files(), ElementsAre(SETUP, SETUP_BAK, RESUME, RESUME_BAK));
    restart();
    EXPECT_EQ(scenes(), R"(["Backup"])");
}

TEST_P(ConfigInterrupted, NeverComesAfterAChange)
{
    startReady(sceneDocument("Old"));
    daemon.data.write(std::string(SETUP) + ".new", GetParam().copy);
    EXPECT_EQ(set(sceneDocument("Changed")), 1);
    EXPECT_THAT(files(), ElementsAre(SETUP));
    restart();
    EXPECT_EQ(scenes(), R"(["Old","Changed"])");
}

TEST_F(ConfigFiles, AWholeCopyIsTheConfigurationWhenThatIsGoneOrDamaged)
{
    for (const std::string damaged : {"", "\x10", "{\"sce"}) {
        if (damaged.empty())
            std::filesystem::remove(daemon.data.file(SETUP));
        else
            daemon.data.write(SETUP, damaged);
        write(std::string(SETUP) + ".new", sceneDocument("New"));
        start();
        EXPECT_EQ(scenes(), R"(["New"])");
        EXPECT_EQ(daemon.data.read(SETUP), storedLayout(sceneDocument("New")));
        daemon.stop();
    }
    start();
}
