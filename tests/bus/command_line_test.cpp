// What the daemon's program says without starting.

#include "support/daemon_process.h"

#include <gmock/gmock.h>
#include <sys/wait.h>

using namespace support;
using testing::HasSubstr;
using testing::MatchesRegex;

class CommandLine : public testing::Test {
protected:
    int run(const std::vector<std::string> &arguments)
    {
        std::vector<std::string> command = {daemonProgram()};
        command.insert(command.end(), arguments.begin(), arguments.end());
        program.start(command, {"DBUS_SYSTEM_BUS_ADDRESS=unix:path=/nonexistent"});
        const std::optional<int> status = program.waitForEnd(5s);
        EXPECT_TRUE(status && WIFEXITED(*status));
        return status ? WEXITSTATUS(*status) : -1;
    }

    ChildProcess program;
};

TEST_F(CommandLine, ExplainsItself)
{
    EXPECT_EQ(run({"--help"}), 0);
    for (const char *word : {"Usage: app", "APP_DATA_DIR", "DBUS_SYSTEM_BUS_ADDRESS",
                             "OVRIN_LOG_LEVEL", "appSetup.json", "SIGTERM", "SIGUSR1", "--version"})
        EXPECT_THAT(program.output(), HasSubstr(word));
}

TEST_F(CommandLine, NamesItsVersion)
{
    EXPECT_EQ(run({"--version"}), 0);
    EXPECT_THAT(program.output(), MatchesRegex("app [0-9]+[.][0-9]+[.][0-9]+\n"));
}

TEST_F(CommandLine, RefusesWhatItDoesNotKnow)
{
    for (const std::vector<std::string> &arguments :
         std::vector<std::vector<std::string>>{{"--verbose"}, {"start"}, {""}, {"--help", "me"}}) {
        EXPECT_EQ(run(arguments), 2);
        EXPECT_THAT(program.output(), HasSubstr("unknown argument '" + arguments.back() + "'"));
        EXPECT_THAT(program.output(), HasSubstr("Usage: app"));
    }
}
