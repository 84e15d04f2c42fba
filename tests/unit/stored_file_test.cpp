#include "main/stored_file.h"

#include "config/alarm.h"
#include "config/document.h"
#include "config/scene.h"
#include "daemon_in_process.h"
#include "main/config_file.h"
#include "main/locks.h"
#include "support/temp_dir.h"

#include <cstring>
#include <filesystem>
#include <gmock/gmock.h>
#include <sys/stat.h>

using support::storedLayout;

class StoredFile : public testing::Test {
protected:
    void SetUp() override
    {
        setenv("APP_DATA_DIR", folder.path().c_str(), 1);
    }
    std::string readBack()
    {
        char *text = jsonStrReadFromFile(appSetupPath());
        const std::string result = text ? text : "(null)";
        free(text);
        return result;
    }

    support::TempDir folder;
};

TEST_F(StoredFile, LiesInTheFolderOfTheEnvironment)
{
    EXPECT_EQ(appSetupPath(), (folder.path() / "appSetup.json").string());
    EXPECT_EQ(scheduleResumePath(), (folder.path() / "scheduleResumeScene.json").string());
}

TEST_F(StoredFile, BeginsWithItsLengthInFourBytes)
{
    const std::string text(300, 'x');
    ASSERT_EQ(bufWriteToFile(appSetupPath(), text.c_str(), text.size() + 1), 0);
    EXPECT_EQ(*folder.read("appSetup.json"), std::string("\x2D\x01\0\0", 4) + text + '\0');
}

TEST_F(StoredFile, ReadsBackWhatWasWritten)
{
    for (const std::string text : {"{}", "{\"a\":1}", "x", ""}) {
        ASSERT_EQ(bufWriteToFile(appSetupPath(), text.c_str(), text.size() + 1), 0);
        EXPECT_EQ(readBack(), text);
    }
}

TEST_F(StoredFile, SetsTheConfigurationsTime)
{
    EXPECT_EQ(configTime(), 0);
    bufWriteToFile(appSetupPath(), "{}", 3);
    EXPECT_NEAR(static_cast<double>(configTime()), static_cast<double>(time(nullptr)), 5.0);
}

TEST_F(StoredFile, CannotBeWrittenWithoutItsFolder)
{
    EXPECT_EQ(bufWriteToFile("/nowhere/appSetup.json", "{}", 3), -1);
    EXPECT_EQ(configTime(), 0);
}

TEST_F(StoredFile, SaysThatAFullDiskStoresNothing)
{
    const std::string text(299, 'x');
    EXPECT_EQ(bufWriteToFile("/dev/full", text.c_str(), 300), 0);
    EXPECT_EQ(logLines(), (std::vector<LogLine>{
                              {3, "bufWriteToFile", "fwrite fail writeSize: 0, size: 300\n"}}));
}

TEST_F(StoredFile, StaysAsItWasWithoutMemory)
{
    folder.write("appSetup.json", storedLayout("{}"));
    failAllocation(1);
    EXPECT_EQ(bufWriteToFile(appSetupPath(), "[]", 3), -1);
    EXPECT_EQ(*folder.read("appSetup.json"), storedLayout("{}"));
    failAllocation(1);
    EXPECT_EQ(readBack(), "(null)");
}

TEST_F(StoredFile, GivesNothingWhenItIsMissing)
{
    EXPECT_EQ(readBack(), "(null)");
    EXPECT_EQ(logLines(), (std::vector<LogLine>{{4, "jsonStrReadFromFile",
                                                 std::string(appSetupPath()) + " not exist.\n"}}));
}

TEST_F(StoredFile, IsDeletedWhenItIsEmpty)
{
    folder.write("appSetup.json", "");
    EXPECT_EQ(readBack(), "(null)");
    EXPECT_EQ(logLines(), (std::vector<LogLine>{{4, "jsonStrReadFromFile",
                                                 std::string(appSetupPath()) + " is empty."}}));
    EXPECT_FALSE(folder.read("appSetup.json").has_value());
}

TEST_F(StoredFile, GivesNothingUpToFourBytesAndStays)
{
    for (size_t size = 1; size <= 4; ++size) {
        folder.write("appSetup.json", std::string(size, '{'));
        EXPECT_EQ(readBack(), "(null)") << size;
        EXPECT_TRUE(folder.read("appSetup.json").has_value());
    }
    EXPECT_TRUE(logLines().empty());
}

TEST_F(StoredFile, MayBeginWithTwoBytesOfAnyKind)
{
    folder.write("appSetup.json", "ab{\"a\":1}");
    EXPECT_EQ(readBack(), "{\"a\":1}");
}

TEST_F(StoredFile, IsRuledByItsSizeNotByItsLengthField)
{
    folder.write("appSetup.json", std::string("\xFF\0\0\0", 4) + "{\"a\":1}");
    EXPECT_EQ(readBack(), "{\"a\":1}");
}

TEST_F(StoredFile, IsLoadedIntoTheLists)
{
    folder.write("appSetup.json", storedLayout(R"({"scenes":[{"title":"Evening"}]})"));
    EXPECT_EQ(appConfigInit(nullptr), 1);
    EXPECT_NE(searchScene(&scenesListHead, "Evening"), nullptr);
}

TEST_F(StoredFile, ThatIsMissingLeavesEmptyListsAndNoAlarm)
{
    parseAll(R"({"scenes":[{"title":"Evening"}], "alarm":{"enabled":1}})");
    EXPECT_EQ(appConfigParser(nullptr), -1);
    EXPECT_TRUE(listEmpty(&scenesListHead));
    EXPECT_EQ(ovrinAlarm, nullptr);
    EXPECT_EQ(logged("jsonStr == NULL\n"), 1u);
}

TEST_F(StoredFile, ThatIsNoJsonLeavesEmptyListsAndTheDefaultAlarm)
{
    folder.write("appSetup.json", storedLayout("{\"scenes\":"));
    EXPECT_EQ(appConfigParser(nullptr), 0);
    EXPECT_TRUE(listEmpty(&scenesListHead));
    ASSERT_NE(ovrinAlarm, nullptr);
    EXPECT_EQ(ovrinAlarm->duration, 3);
    EXPECT_EQ(ovrinAlarm->enabled, 0);
    EXPECT_EQ(ovrinAlarm->siren_type, 1);
    EXPECT_EQ(ovrinAlarm->trigger_duration, 3);
}

TEST_F(StoredFile, SavedAndLoadedIsTheSameConfiguration)
{
    parseAll(
        R"({"scenes":[{"title":"Evening","comps":[{"target":{"dev":5,"ch":1},"value":99}]}]})");
    const std::string before = takeText(getAllAppConfig());
    ASSERT_EQ(saveJsonToFlash(), 0);
    EXPECT_EQ(*folder.read("appSetup.json"), storedLayout(before));
    appConfigParser(nullptr);
    EXPECT_EQ(takeText(getAllAppConfig()), before);
}

// Its size is more than addresses of 32 bits hold, and half of it would look small.
TEST_F(StoredFile, GivesNothingWhenItIsAbsurdlyLarge)
{
    folder.write("appSetup.json", storedLayout("{}"));
    std::filesystem::resize_file(folder.file("appSetup.json"), (uintmax_t{1} << 32) + 2);
    forgetLog();
    EXPECT_EQ(readBack(), "(null)");
    const LogLine said = {6, "jsonStrReadFromFile",
                          appSetupPath() + std::string(" is too large\n")};
    EXPECT_THAT(logLines(), testing::Contains(said));
    EXPECT_TRUE(std::filesystem::exists(folder.file("appSetup.json")));
}
