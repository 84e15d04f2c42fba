#include "main/write_ahead.h"

#include "config/scene.h"
#include "daemon_in_process.h"
#include "main/backups.h"
#include "main/config_file.h"
#include "main/locks.h"
#include "main/stored_file.h"
#include "support/temp_dir.h"

#include <algorithm>
#include <apr_general.h>
#include <cstdlib>
#include <sys/stat.h>
#include <unistd.h>

using support::storedLayout;
using testing::ElementsAre;

static const std::string OLD = R"({"scenes":[{"title":"Old"}]})";
static const std::string NEW = R"({"scenes":[{"title":"New"}]})";

// As many levels as that, and a document otherwise.
static std::string nested(int depth)
{
    return R"({"a":)" + std::string(depth - 1, '[') + std::string(depth - 1, ']') + "}";
}

class WriteAhead : public testing::Test {
protected:
    void SetUp() override
    {
        apr_initialize();
        useFolder(folder.path());
    }
    void useFolder(const std::filesystem::path &path)
    {
        setenv("APP_DATA_DIR", path.c_str(), 1);
    }
    int store(const std::string &text)
    {
        return storeDocument(appSetupPath(), text.c_str(), text.size() + 1);
    }
    std::vector<std::string> names() const
    {
        std::vector<std::string> result;
        for (const auto &entry : std::filesystem::directory_iterator(folder.path()))
            result.push_back(entry.path().filename());
        std::sort(result.begin(), result.end());
        return result;
    }
    bool loggedAt(int level, const std::string &part) const
    {
        const std::vector<LogLine> lines = logLines();
        return std::any_of(lines.begin(), lines.end(), [&](const LogLine &line) {
            return line.level == level && line.text.find(part) != std::string::npos;
        });
    }

    support::TempDir folder;
};

TEST_F(WriteAhead, LeavesNothingButTheDocument)
{
    EXPECT_EQ(store(NEW), 0);
    EXPECT_EQ(folder.read("appSetup.json"), storedLayout(NEW));
    EXPECT_THAT(names(), ElementsAre("appSetup.json"));
}

TEST_F(WriteAhead, WritesOverTheSameFile)
{
    folder.write("appSetup.json", storedLayout(OLD));
    struct stat before;
    struct stat after;
    stat(appSetupPath(), &before);
    EXPECT_EQ(store(NEW), 0);
    stat(appSetupPath(), &after);
    EXPECT_EQ(after.st_ino, before.st_ino);
    EXPECT_EQ(folder.read("appSetup.json"), storedLayout(NEW));
}

TEST_F(WriteAhead, OfAWholeDocumentIsPutInPlaceAtTheStart)
{
    folder.write("appSetup.json", storedLayout(OLD).substr(0, 10));
    folder.write("appSetup.json.new", storedLayout(NEW));
    EXPECT_EQ(appConfigInit(nullptr), 1);
    EXPECT_NE(searchScene(&scenesListHead, "New"), nullptr);
    EXPECT_EQ(folder.read("appSetup.json"), storedLayout(NEW));
    EXPECT_THAT(names(), ElementsAre("appSetup.json"));
}

TEST_F(WriteAhead, OfAWholeDocumentIsPutInPlaceAtEveryReload)
{
    for (const std::string &text : {NEW, OLD, NEW}) {
        folder.write("appSetup.json.new", storedLayout(text));
        EXPECT_EQ(appConfigParser(nullptr), 1);
        EXPECT_EQ(folder.read("appSetup.json"), storedLayout(text));
        EXPECT_THAT(names(), ElementsAre("appSetup.json"));
    }
}

TEST_F(WriteAhead, OfTheResumeDocumentIsPutInPlaceToo)
{
    folder.write("scheduleResumeScene.json", "");
    folder.write("scheduleResumeScene.json.new", storedLayout("[]"));
    appConfigParser(nullptr);
    EXPECT_EQ(folder.read("scheduleResumeScene.json"), storedLayout("[]"));
    EXPECT_THAT(names(), ElementsAre("scheduleResumeScene.json"));
}

TEST_F(WriteAhead, IsPutInPlaceBeforeTheNextDocumentIsStored)
{
    folder.write("appSetup.json", "torn");
    folder.write("appSetup.json.new", storedLayout(OLD));
    EXPECT_EQ(store(NEW), 0);
    EXPECT_EQ(logged((folder.file("appSetup.json.new").string() +
                      " was not finished and is now put in place\n")),
              1u);
    EXPECT_EQ(folder.read("appSetup.json"), storedLayout(NEW));
}

TEST_F(WriteAhead, IsPutInPlaceBeforeABackup)
{
    folder.write("appSetup.json", "torn");
    folder.write("appSetup.json.new", storedLayout(NEW));
    EXPECT_EQ(backUpDocuments(), 1);
    EXPECT_EQ(folder.read("appSetup.json_bak"), storedLayout(NEW));
}

TEST_F(WriteAhead, NeverComesAfterARestore)
{
    folder.write("appSetup.json", "torn");
    folder.write("appSetup.json.new", storedLayout(NEW));
    folder.write("appSetup.json_bak", storedLayout(OLD));
    EXPECT_EQ(restoreDocuments(nullptr, FIRST_BACKUP), 1);
    EXPECT_NE(searchScene(&scenesListHead, "Old"), nullptr);
    EXPECT_EQ(folder.read("appSetup.json"), storedLayout(OLD));
    EXPECT_THAT(names(), ElementsAre("appSetup.json", "appSetup.json_bak"));
}

TEST_F(WriteAhead, GoesWithAReset)
{
    for (const char *name : {"appSetup.json", "appSetup.json.new", "scheduleResumeScene.json",
                             "scheduleResumeScene.json.new"})
        folder.write(name, storedLayout(OLD));
    resetDocuments();
    EXPECT_THAT(names(), ElementsAre());
}

TEST_F(WriteAhead, MayNestAsDeepAsADocument)
{
    folder.write("appSetup.json.new", storedLayout(nested(64)));
    appConfigParser(nullptr);
    EXPECT_EQ(folder.read("appSetup.json"), storedLayout(nested(64)));
}

struct TornCase {
    const char *name;
    std::string bytes;
};

class TornWriteAhead : public WriteAhead, public testing::WithParamInterface<TornCase> {};

TEST_P(TornWriteAhead, IsRemovedAndTheDocumentStays)
{
    for (const std::string document : {"appSetup.json", "scheduleResumeScene.json"}) {
        folder.write(document, storedLayout(OLD));
        folder.write(document + ".new", GetParam().bytes);
    }
    EXPECT_EQ(appConfigParser(nullptr), 1);
    EXPECT_NE(searchScene(&scenesListHead, "Old"), nullptr);
    EXPECT_EQ(folder.read("appSetup.json"), storedLayout(OLD));
    EXPECT_EQ(folder.read("scheduleResumeScene.json"), storedLayout(OLD));
    EXPECT_THAT(names(), ElementsAre("appSetup.json", "scheduleResumeScene.json"));
    EXPECT_EQ(logged(folder.file("appSetup.json.new").string() + " is not whole and is removed\n"),
              1u);
}

static std::string zeroesFrom(size_t start)
{
    std::string bytes = storedLayout(NEW);
    return bytes.replace(start, std::string::npos, bytes.size() - start, '\0');
}

INSTANTIATE_TEST_SUITE_P(Cases, TornWriteAhead,
                         testing::Values(TornCase{"Empty", ""}, TornCase{"OfThreeBytes", "abc"},
                                         TornCase{"OfALengthOfNothing", std::string(4, '\0')},
                                         TornCase{"OfALengthOnly", storedLayout(NEW).substr(0, 4)},
                                         TornCase{"WithoutItsEnd", storedLayout(NEW).substr(0, 20)},
                                         TornCase{"WithoutItsNul",
                                                  storedLayout(NEW).substr(0, NEW.size() + 4)},
                                         TornCase{"WithAByteTooMany", storedLayout(NEW) + 'x'},
                                         TornCase{"OfZeroes", zeroesFrom(0)},
                                         TornCase{"OfZeroesAfterItsLength", zeroesFrom(4)},
                                         TornCase{"OfZeroesAtItsEnd", zeroesFrom(20)},
                                         TornCase{"OfNoJson", storedLayout("{\"scenes\":")},
                                         TornCase{"NestedTooDeep", storedLayout(nested(65))},
                                         TornCase{"BehindAPrefixOfTwoBytes", "ab" + NEW}),
                         [](const auto &torn) { return std::string(torn.param.name); });

TEST_F(WriteAhead, ThatCannotBeExaminedStaysUntilItCan)
{
    folder.write("appSetup.json", "torn");
    folder.write("appSetup.json.new", storedLayout(OLD));
    failAllocation(1);
    appConfigParser(nullptr);
    EXPECT_EQ(folder.read("appSetup.json.new"), storedLayout(OLD));
    EXPECT_EQ(appConfigParser(nullptr), 1);
    EXPECT_NE(searchScene(&scenesListHead, "Old"), nullptr);
}

TEST_F(WriteAhead, ThatCannotBeExaminedIsNotWrittenOver)
{
    folder.write("appSetup.json", "torn");
    folder.write("appSetup.json.new", storedLayout(OLD));
    failAllocation(1);
    EXPECT_EQ(store(NEW), -1);
    EXPECT_EQ(folder.read("appSetup.json.new"), storedLayout(OLD));
    EXPECT_TRUE(loggedAt(6, "cannot be stored"));
    EXPECT_EQ(store(NEW), 0);
    EXPECT_EQ(folder.read("appSetup.json"), storedLayout(NEW));
}

TEST_F(WriteAhead, TellsWhyADocumentCannotBeStored)
{
    std::filesystem::remove(folder.path());
    EXPECT_EQ(store(NEW), -1);
    EXPECT_EQ(
        logged(std::string(appSetupPath()) + " cannot be stored: No such file or directory\n"), 1u);
}

using UnfinishedCopies = WriteAhead;

TEST_F(UnfinishedCopies, GoAtTheNextLoad)
{
    folder.write("appSetup.json", storedLayout(OLD));
    for (const char *name :
         {"appSetup.json.copy", "appSetup.json_bak.copy", "appSetup.json_bak2.copy",
          "scheduleResumeScene.json.copy", "scheduleResumeScene.json_bak.copy",
          "scheduleResumeScene.json_bak2.copy"})
        folder.write(name, storedLayout(NEW));
    EXPECT_EQ(appConfigParser(nullptr), 1);
    EXPECT_NE(searchScene(&scenesListHead, "Old"), nullptr);
    EXPECT_THAT(names(), ElementsAre("appSetup.json"));
}

// Finds the helper programs of this test in place of the shell's own.
class FailingCopies : public WriteAhead {
protected:
    void useInsteadOfCp(const std::string &script)
    {
        programs.write("cp", "#!/bin/sh\n" + script);
        std::filesystem::permissions(programs.file("cp"), std::filesystem::perms::owner_all);
        setenv("PATH", (programs.path().string() + ":" + getenv("PATH")).c_str(), 1);
    }

    support::TempDir programs;
};

TEST_F(FailingCopies, LeaveEveryGenerationAsItWas)
{
    folder.write("appSetup.json", storedLayout(NEW));
    folder.write("appSetup.json_bak", storedLayout(OLD));
    folder.write("appSetup.json_bak2", storedLayout("[]"));
    for (const char *script :
         {"exit 1", "exit 0", "kill -9 $$", "case $3 in *bak2*) exit 1;; esac; exec /bin/cp \"$@\"",
          "case $3 in *bak.*) exit 1;; esac; exec /bin/cp \"$@\"",
          "case $3 in *bak.*) printf half > \"$3\"; exit 1;; esac; "
          "exec /bin/cp \"$@\""}) {
        forgetLog();
        useInsteadOfCp(script);
        EXPECT_EQ(backUpDocuments(), 2) << "how the copies went is not counted";
        EXPECT_EQ(folder.read("appSetup.json"), storedLayout(NEW)) << script;
        EXPECT_EQ(folder.read("appSetup.json_bak"), storedLayout(OLD)) << script;
        EXPECT_EQ(folder.read("appSetup.json_bak2"), storedLayout("[]")) << script;
        EXPECT_EQ(names().size(), 3u) << script;
        EXPECT_TRUE(loggedAt(6, "cannot be copied to")) << script;
    }
}

TEST_F(FailingCopies, LeaveWhatWasToBeReplacedByARestore)
{
    folder.write("appSetup.json", storedLayout(NEW));
    folder.write("appSetup.json_bak", storedLayout(OLD));
    useInsteadOfCp("printf half > \"$3\"; exit 1");
    EXPECT_EQ(restoreDocuments(nullptr, FIRST_BACKUP), 1);
    EXPECT_EQ(folder.read("appSetup.json"), storedLayout(NEW));
    EXPECT_NE(searchScene(&scenesListHead, "New"), nullptr);
    EXPECT_TRUE(loggedAt(6, "cannot be copied to"));
}

TEST_F(FailingCopies, DoNotTakeWhatIsLeftOverForTheCopy)
{
    folder.write("appSetup.json", storedLayout(NEW));
    folder.write("appSetup.json_bak.copy", storedLayout(OLD));  // of the same size
    useInsteadOfCp("exit 1");
    EXPECT_EQ(backUpDocuments(), 1);
    EXPECT_THAT(names(), ElementsAre("appSetup.json"));
}

TEST_F(FailingCopies, CountWhenAllArrivedButItsOwner)
{
    folder.write("appSetup.json", storedLayout(NEW));
    useInsteadOfCp("/bin/cp \"$@\"; exit 1");
    EXPECT_EQ(backUpDocuments(), 1);
    EXPECT_EQ(folder.read("appSetup.json_bak"), storedLayout(NEW));
}

class OddFolder : public WriteAhead, public testing::WithParamInterface<const char *> {};

TEST_P(OddFolder, IsBackedUpAndRestored)
{
    const std::filesystem::path odd = folder.file(GetParam());
    std::filesystem::create_directory(odd);
    useFolder(odd);
    ASSERT_EQ(store(OLD), 0);
    EXPECT_EQ(backUpDocuments(), 1);
    ASSERT_EQ(store(NEW), 0);
    EXPECT_EQ(backUpDocuments(), 2);
    EXPECT_EQ(restoreDocuments(nullptr, SECOND_BACKUP), 1);
    EXPECT_NE(searchScene(&scenesListHead, "Old"), nullptr);
    EXPECT_THAT(names(), ElementsAre(GetParam()));
}

INSTANTIATE_TEST_SUITE_P(Names, OddFolder,
                         testing::Values("with space", "with'quote", "with\"quotes\"", "$HOME",
                                         "$(touch ..)", "`id`", "new\nline", "back\\slash", "a;b",
                                         "a&b", "a*b?[c]", "~", "#", "!", "\xc3\xa9", "-n"));
