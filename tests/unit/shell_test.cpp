// Helper programs and their command lines: what a text means to the shell, how a child starts, and
// that it ends.

#include "main/shell.h"

#include "daemon_in_process.h"
#include "support/eventually.h"
#include "support/temp_dir.h"

#include <apr_general.h>
#include <cerrno>
#include <csignal>
#include <fstream>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

using support::eventually;
using testing::ElementsAre;

class CommandLine : public testing::Test {
protected:
    void SetUp() override
    {
        apr_initialize();
        apr_pool_create(&pool, nullptr);
    }
    void TearDown() override
    {
        apr_pool_destroy(pool);
    }
    // What the shell gives a program for these words.
    std::string arguments(const std::string &words)
    {
        const std::string file = folder.file("arguments").string();
        EXPECT_EQ(runShell(("printf '%s\\n' " + words + " >" + file).c_str()), 0) << words;
        return folder.read("arguments").value_or("(nothing)");
    }

    apr_pool_t *pool = nullptr;
    support::TempDir folder;
};

TEST_F(CommandLine, LeavesAWordBareThatTheShellReadsAsItIs)
{
    for (const char *word : {"a", "Z9", "0123456789", "jemand@example.org", "_@%+=:,./-", "-rf",
                             "--help", "a=b", "0101020D", "/etc/passwd"})
        EXPECT_STREQ(shellWord(pool, word), word);
}

TEST_F(CommandLine, QuotesAnyOtherWord)
{
    struct {
        const char *text;
        const char *word;
    } const cases[] = {
        {"", R"("")"},
        {" ", R"(" ")"},
        {"a b", R"("a b")"},
        {"a;b", R"("a;b")"},
        {"a\nb", "\"a\nb\""},
        {"~", R"("~")"},
        {"*", R"("*")"},
        {"a'b", R"("a'b")"},
        {"a&", R"("a&")"},
        {"#", R"("#")"},
        {"!", R"("!")"},
        {"玄関", R"("玄関")"},
        {"$HOME", R"("\$HOME")"},
        {"`id`", R"("\`id\`")"},
        {R"("")", R"("\"\"")"},
        {R"(\)", R"("\\")"},
    };
    for (const auto &[text, word] : cases)
        EXPECT_STREQ(shellWord(pool, text), word);
}

TEST_F(CommandLine, QuotesEveryTextAndEscapesFourCharactersOnly)
{
    EXPECT_STREQ(shellText(pool, ""), R"("")");
    EXPECT_STREQ(shellText(pool, "Door was triggered"), R"("Door was triggered")");
    EXPECT_STREQ(shellText(pool, R"(a"b\c`d$e)"), R"("a\"b\\c\`d\$e")");
    EXPECT_STREQ(shellText(pool, "!#%&'()*+,-./:;<=>?@[]^_{|}~\n\t"),
                 "\"!#%&'()*+,-./:;<=>?@[]^_{|}~\n\t\"");
}

TEST_F(CommandLine, HasNothingForNoText)
{
    EXPECT_EQ(shellWord(pool, nullptr), nullptr);
    EXPECT_EQ(shellText(pool, nullptr), nullptr);
}

TEST_F(CommandLine, GivesTheProgramTheTextItself)
{
    const std::string everyByte = [] {
        std::string bytes;
        for (int byte = 1; byte < 256; ++byte)
            bytes += static_cast<char>(byte);
        return bytes;
    }();
    for (const std::string &text :
         {everyByte, std::string("$(echo no)"), std::string("`echo no`"), std::string("; echo no;"),
          std::string("\"; echo no; \""), std::string("\\"), std::string("\\\n"),
          std::string("\\\\\""), std::string("\n\n"), std::string("$"), std::string("${PATH}"),
          std::string("$$"), std::string("'\"'\"'"), std::string("🚪🔑"), std::string(20'000, '"'),
          std::string(20'000, '\\')}) {
        EXPECT_EQ(arguments(shellWord(pool, text.c_str())), text + "\n");
        EXPECT_EQ(arguments(shellText(pool, text.c_str())), text + "\n");
    }
    EXPECT_EQ(arguments(shellWord(pool, "")), "\n") << "an empty word is a word";
}

TEST_F(CommandLine, EachByteAloneIsOneWord)
{
    std::string words;
    std::string expected;
    for (int byte = 1; byte < 256; ++byte) {
        const std::string text(1, static_cast<char>(byte));
        words += std::string(shellWord(pool, text.c_str())) + " ";
        expected += text + "\n";
    }
    EXPECT_EQ(arguments(words), expected);
}

class Helper : public testing::Test {
protected:
    std::string quoted(const char *file) const
    {
        return "'" + folder.file(file).string() + "'";
    }
    std::string read(const char *file) const
    {
        return folder.read(file).value_or("");
    }

    support::TempDir folder;
};

TEST_F(Helper, TellsItsStatus)
{
    EXPECT_EQ(runShell("exit 0"), 0);
    EXPECT_EQ(runShell("exit 3"), 3 << 8);
    EXPECT_EQ(runShell("no-such-program-anywhere 2>&-"), 127 << 8);
    const int killed = runShell("kill -9 $$");
    EXPECT_TRUE(WIFSIGNALED(killed) && WTERMSIG(killed) == SIGKILL) << killed;
    EXPECT_THAT(logLines(), testing::IsEmpty());
}

TEST_F(Helper, IsWaitedFor)
{
    EXPECT_EQ(runShell(("sleep 0.2; echo done >" + quoted("end")).c_str()), 0);
    EXPECT_EQ(read("end"), "done\n");
}

TEST_F(Helper, ThatCannotBeStartedIsLogged)
{
    if (support::emulated())
        GTEST_SKIP() << "an emulated program and its child share no memory: the error stays there";
    const std::string tooLong = "true " + std::string(8'000'000, 'x');
    errno = 0;
    EXPECT_EQ(runShell(tooLong.c_str()), -1);
    EXPECT_EQ(errno, E2BIG);
    const std::vector<LogLine> lines = logLines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].level, 6);
    EXPECT_EQ(lines[0].function, "runShell");
    EXPECT_EQ(lines[0].text, std::string("true: ") + strerror(E2BIG) + "\n")
        << "and not what may be a secret";
}

// As a thread of the daemon starts it: with everything blocked, and something ignored.
TEST_F(Helper, StartsWithTheSignalsOfAFreshProgram)
{
    std::thread([&] {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, nullptr);
        signal(SIGPIPE, SIG_IGN);
        signal(SIGALRM, SIG_IGN);
        EXPECT_EQ(runShell(("sed -n 's/^SigBlk:.//p' /proc/self/status >" + quoted("blocked") +
                            "; sed -n 's/^SigIgn:.//p' /proc/self/status >" + quoted("ignored"))
                               .c_str()),
                  0);
        signal(SIGPIPE, SIG_DFL);
        signal(SIGALRM, SIG_DFL);
    }).join();
    ASSERT_NE(read("ignored"), "");
    // Two signals that the C library keeps to itself it has ignored in every child.
    EXPECT_EQ(std::stoull(read("blocked"), nullptr, 16), 0u);
    EXPECT_EQ(std::stoull(read("ignored"), nullptr, 16) & 0x7FFFFFFF, 0u);
}

TEST_F(Helper, LeadsAProcessGroupOfItsOwn)
{
    EXPECT_EQ(runShell(("echo $$ >" + quoted("shell") + "; cut -d' ' -f5 /proc/self/stat >" +
                        quoted("group"))
                           .c_str()),
              0);
    EXPECT_NE(read("shell"), "");
    EXPECT_EQ(read("group"), read("shell"));
    EXPECT_NE(read("group"), std::to_string(getpgrp()) + "\n");
}

static bool runs(pid_t pid)
{
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    std::string line;
    std::getline(stat, line);
    const size_t state = line.rfind(')');
    return state != std::string::npos && line.at(state + 2) != 'Z';
}

TEST(HelperTime, IsFiveMinutes)
{
    EXPECT_EQ(LONGEST_RUN.tv_sec, 300);
}

TEST_F(Helper, ThatNeverEndsIsEndedWithAllThatItStarted)
{
    const std::string command =
        "sleep 1000 & echo $! >" + quoted("child") + "; trap '' TERM; sleep 1000";
    const auto begin = std::chrono::steady_clock::now();
    const int status = runShell(command.c_str(), {0, 300'000'000});
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(300));
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << status;
    EXPECT_THAT(logLines(),
                ElementsAre(LogLine{6, "runShell", "sleep has not ended and is killed\n"}));
    const pid_t child = std::stoi(read("child"));
    EXPECT_TRUE(eventually([&] { return !runs(child); }));
}

TEST_F(Helper, ThatEndsInTimeLeavesWhatItStartedAlone)
{
    EXPECT_EQ(runShell(("sleep 1000 >&- 2>&- & echo $! >" + quoted("child")).c_str(), {10, 0}), 0);
    const pid_t child = std::stoi(read("child"));
    EXPECT_TRUE(runs(child));
    kill(child, SIGKILL);
}
