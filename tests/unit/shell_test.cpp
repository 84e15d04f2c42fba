#include "main/shell.h"

#include "daemon_in_process.h"
#include "main/scope.h"
#include "support/temp_dir.h"

#include <apr_general.h>
#include <csignal>
#include <sstream>
#include <sys/wait.h>

class Shell : public testing::Test {
protected:
    void SetUp() override
    {
        apr_initialize();
        pool = createPool();
    }
    // What the command writes.
    std::string outputOf(const std::string &command)
    {
        const std::string file = folder.file("output").string();
        EXPECT_EQ(runShell((command + " > " + file).c_str()), 0) << command;
        return folder.read("output").value_or("(nothing)");
    }

    Owned<apr_pool_t> pool;
    support::TempDir folder;
};

TEST_F(Shell, TellsTheStatus)
{
    EXPECT_EQ(runShell("true"), 0);
    const int failed = runShell("exit 3");
    EXPECT_TRUE(WIFEXITED(failed));
    EXPECT_EQ(WEXITSTATUS(failed), 3);
    const int killed = runShell("kill -9 $$");
    EXPECT_TRUE(WIFSIGNALED(killed));
    EXPECT_EQ(WTERMSIG(killed), SIGKILL);
    const int unknown = runShell("no-such-program-anywhere 2>/dev/null");
    EXPECT_EQ(WEXITSTATUS(unknown), 127);
}

TEST_F(Shell, WaitsForTheEnd)
{
    const std::string file = folder.file("late").string();
    runShell(("sleep 0.05; echo done > " + file).c_str());
    EXPECT_EQ(folder.read("late"), "done\n");
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "no child is left";
}

TEST_F(Shell, IsNotStartedWithoutACommandLineThatFits)
{
    const std::string endless(8 << 20, 'x');  // more than the kernel takes
    errno = 0;
    EXPECT_EQ(runShell(endless.c_str()), -1);
    EXPECT_EQ(errno, E2BIG);
}

// A push program that waits with alarm() has to hear its SIGALRM.
TEST_F(Shell, GivesItsProgramsTheSignalsOfAFreshOne)
{
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, nullptr);
    for (const int number : {SIGALRM, SIGUSR1, SIGPIPE, SIGCHLD, SIGTERM})
        signal(number, number == SIGCHLD ? SIG_DFL : SIG_IGN);
    for (const char *set : {"SigBlk", "SigIgn"}) {
        const std::string line = outputOf(std::string("grep ") + set + " /proc/self/status");
        const unsigned long long signals = std::stoull(line.substr(line.find('\t')), nullptr, 16);
        EXPECT_EQ(signals & 0x7fffffff, 0u) << line;  // the C library uses some above these
    }
}

TEST_F(Shell, LeadsAProcessGroupOfItsOwn)
{
    std::istringstream fields(outputOf("read line </proc/self/stat; echo $line"));
    std::string pid, name, state, parent, group;
    fields >> pid >> name >> state >> parent >> group;
    EXPECT_EQ(parent, std::to_string(getpid()));
    EXPECT_EQ(group, pid);
}

TEST_F(Shell, LeavesAPlainWordBare)
{
    EXPECT_STREQ(shellWord(pool.get(), "/mnt/OvrinData/appSetup.json_bak"),
                 "/mnt/OvrinData/appSetup.json_bak");
    EXPECT_STREQ(shellWord(pool.get(), "aZ09_@%+=:,./-"), "aZ09_@%+=:,./-");
}

TEST_F(Shell, QuotesATextAlways)
{
    EXPECT_STREQ(shellText(pool.get(), "plain"), "\"plain\"");
    EXPECT_STREQ(shellText(pool.get(), "a\"b\\c`d$e"), "\"a\\\"b\\\\c\\`d\\$e\"");
    EXPECT_STREQ(shellWord(pool.get(), ""), "\"\"");
}

TEST_F(Shell, HasNoWordForNothing)
{
    EXPECT_EQ(shellWord(pool.get(), nullptr), nullptr);
    EXPECT_EQ(shellText(pool.get(), nullptr), nullptr);
}

class ShellWord : public Shell, public testing::WithParamInterface<std::string> {};

TEST_P(ShellWord, ReachesTheProgramAsItIs)
{
    EXPECT_EQ(outputOf(std::string("printf %s ") + shellWord(pool.get(), GetParam().c_str())),
              GetParam());
    EXPECT_EQ(outputOf(std::string("printf %s ") + shellText(pool.get(), GetParam().c_str())),
              GetParam());
}

INSTANTIATE_TEST_SUITE_P(Texts, ShellWord,
                         testing::Values("", "plain", "two words", "it's", "\"quoted\"", "$HOME",
                                         "${HOME}", "$(id)", "`id`", "back\\slash", "\\", "\\\"",
                                         "\\$HOME", "two\nlines", "\n", "end\n", "tab\there", "a;b",
                                         "a|b", "a&b", "a>b", "*", "?", "[a-z]", "{a,b}", "~",
                                         "~root", "#comment", "!history", "-n", "--", "a=b c=d",
                                         "\xc3\xa9\xe2\x82\xac", "\x01\x7f\x1b[0m", "\xff\xfe",
                                         "'\"'\"'", std::string(5000, '"')));
