// What the daemon's log looks like to whoever keeps it: a terminal, a supervisor, another library.

#include "support/daemon_on_its_own_bus.h"

#include <fcntl.h>
#include <filesystem>
#include <pty.h>
#include <sstream>
#include <unistd.h>

using namespace support;
using testing::Contains;
using testing::Each;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::Not;

// Started by itself: DaemonProcess takes off what is looked at here.
class LogLines : public DaemonOnItsOwnBus {
protected:
    std::vector<std::string> settings(const std::string &level) const
    {
        return {"DBUS_SYSTEM_BUS_ADDRESS=" + bus.address(),
                "APP_DATA_DIR=" + data.path().string(),
                "OVRIN_LOG_LEVEL=" + level,
                "ASAN_OPTIONS=verify_asan_link_order=0",
                "TSAN_OPTIONS=suppressions=",
                "LC_ALL=C"};
    }
    void waitForTheName()
    {
        ASSERT_TRUE(eventually([&] { return client.peer.nameHasOwner(APP_NAME); }, 30s))
            << program.output();
    }
    // Lines of every level: a request that nobody accepts is one of 5, no configuration one of 6.
    void say()
    {
        waitForTheName();
        client.call(APP, "nobody", {"knows"});
        callForText("jsongettitles", "scenes");
    }
    static std::vector<std::string> linesOf(const std::string &text)
    {
        std::vector<std::string> lines;
        std::istringstream stream(text);
        for (std::string line; std::getline(stream, line);)
            lines.push_back(line);
        return lines;
    }
    static std::vector<std::string> linesWith(const std::string &what, const std::string &text)
    {
        std::vector<std::string> lines = linesOf(text);
        std::erase_if(lines, [&](const auto &line) { return line.find(what) == line.npos; });
        return lines;
    }

    static std::string folderOfTheOtherLibrary()
    {
        if (!emulated())
            return OTHER_OVRINLOG;
        return std::filesystem::path(daemonProgram()).parent_path() / "tests/other_ovrinlog";
    }

    TempDir data;
    ChildProcess program;
};

TEST_F(LogLines, TellASupervisorHowGraveTheyAre)
{
    program.start({daemonProgram()}, settings("2"));
    say();
    const std::string log = program.output();
    EXPECT_THAT(linesWith(" appConfigParser:", log),
                Contains(MatchesRegex("<3>6 appConfigParser:[0-9]+ jsonStr == NULL")));
    EXPECT_THAT(linesWith("not handled", log), Each(MatchesRegex("<4>5 filter_func:[0-9]+ .*")));
    EXPECT_THAT(linesWith("not handled", log), Not(IsEmpty()));
    EXPECT_THAT(linesWith("appSetup.json not exist", log),
                Each(MatchesRegex("<6>4 jsonStrReadFromFile:[0-9]+ .*")));
    EXPECT_THAT(linesWith("mainPid: ", log), Each(MatchesRegex("<7>3 main:[0-9]+ mainPid: .*")));
    EXPECT_THAT(linesWith("mainPid: ", log), Not(IsEmpty()));
    EXPECT_THAT(linesWith("enter filter_func", log), Each(MatchesRegex("<7>2 filter_func:.*")));
    EXPECT_THAT(linesWith("enter filter_func", log), Not(IsEmpty()));
    for (const std::string &line : linesOf(log)) {
        EXPECT_THAT(line, Not(MatchesRegex("[2-6] .*"))) << "a line without its level";
    }
}

// The output's end of a terminal that a test reads.
class Terminal {
public:
    Terminal()
    {
        int slave = -1;
        char path[128] = "";
        if (openpty(&master, &slave, path, nullptr, nullptr) != 0) {
            ADD_FAILURE() << "no terminal";
            return;
        }
        name = path;
        close(slave);
        fcntl(master, F_SETFL, O_NONBLOCK);
    }
    ~Terminal()
    {
        close(master);
    }
    Terminal(const Terminal &) = delete;
    Terminal &operator=(const Terminal &) = delete;

    const std::string &shown()
    {
        char buffer[4096];
        for (ssize_t got; (got = read(master, buffer, sizeof buffer)) > 0;)
            text.append(buffer, static_cast<size_t>(got));
        return text;
    }

    std::string name;

private:
    int master = -1;
    std::string text;
};

TEST_F(LogLines, AreBareOnATerminal)
{
    Terminal terminal;
    program.start({"/bin/sh", "-c", R"(exec "$0" 2>"$1")", daemonProgram(), terminal.name},
                  settings("5"));
    say();
    EXPECT_TRUE(eventually([&] {
        return terminal.shown().find("5 filter_func:") != std::string::npos;
    })) << terminal.shown();
    EXPECT_THAT(linesWith("appConfigParser", terminal.shown()),
                Contains(MatchesRegex("6 appConfigParser:[0-9]+ jsonStr == NULL\r")));
    EXPECT_THAT(terminal.shown(), Not(HasSubstr("<")));
}

TEST_F(LogLines, GoToTheLibraryThatIsLoadedInItsPlace)
{
    std::vector<std::string> all = settings("6");
    all.push_back("LD_LIBRARY_PATH=" + folderOfTheOtherLibrary());
    all.push_back("APP_TEST_LOG_FILE=" + data.file("log").string());
    program.start({daemonProgram()}, all);
    say();
    const std::string log = data.read("log").value_or("");
    EXPECT_THAT(linesWith("jsonStr == NULL", log),
                Contains(MatchesRegex("6[|]appConfigParser[|][0-9]+[|]app[|]jsonStr == NULL")));
    EXPECT_THAT(linesWith("mainPid", log), Contains(MatchesRegex("3[|]main[|][0-9]+[|]app[|].*")));
    EXPECT_THAT(linesWith("not handled", log),
                Contains(MatchesRegex("5[|]filter_func[|][0-9]+[|]app[|].*")));
    EXPECT_THAT(program.output(), Not(HasSubstr("appConfigParser")));
}
