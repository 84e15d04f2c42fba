// home-sim: everything around the automation daemon, on one bus.

#include "console.h"
#include "control.h"
#include "player.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>

#include <sys/signalfd.h>
#include <unistd.h>

namespace {

constexpr int EXIT_INTERRUPTED = 130;  // a script that was not played to its end

struct Options {
    std::string home;
    std::string bus;
    std::string script;
    std::string readyFile;
    int readyFd = -1;
    int daemonPid = 0;
    int radioDelay = -1;
    bool once = false;
    bool quiet = false;
    bool noMinute = false;
};

// The signals that end the program, as something the loop can wait for.
class EndSignals {
public:
    EndSignals(Loop &loop, int status)
    {
        sigset_t set;
        sigemptyset(&set);
        sigaddset(&set, SIGINT);
        sigaddset(&set, SIGTERM);
        pthread_sigmask(SIG_BLOCK, &set, nullptr);
        fd_ = signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK);
        loop.watch(fd_, [this, &loop, status] {
            signalfd_siginfo info{};
            if (read(fd_, &info, sizeof info) == sizeof info)
                loop.quit(status);
        });
    }
    ~EndSignals()
    {
        close(fd_);
    }
    EndSignals(const EndSignals &) = delete;
    EndSignals &operator=(const EndSignals &) = delete;

private:
    int fd_ = -1;
};

// Tells whoever started this program that its names are owned; the file goes when the program ends.
class ReadyNote {
public:
    explicit ReadyNote(const Options &options) : file_(options.readyFile)
    {
        if (!file_.empty() && !(std::ofstream(file_) << "ready\n"))
            throw UserError(fmt::format("cannot write {}", file_));
        if (options.readyFd >= 0 && write(options.readyFd, "ready\n", 6) != 6)
            throw UserError(fmt::format("cannot write to file descriptor {}", options.readyFd));
    }
    ~ReadyNote()
    {
        if (!file_.empty())
            unlink(file_.c_str());
    }
    ReadyNote(const ReadyNote &) = delete;
    ReadyNote &operator=(const ReadyNote &) = delete;

private:
    std::string file_;
};

}  // namespace

static void addOptions(CLI::App &app, Options &options)
{
    app.add_option("--home", options.home, "JSON file that describes the home")->required();
    app.add_option("--bus", options.bus,
                   "bus address; else DBUS_SYSTEM_BUS_ADDRESS, else the system bus");
    app.add_option("--script", options.script, "run the commands of this file first");
    app.add_flag("--once", options.once,
                 "then print a summary and end; 0 when every expectation was met");
    app.add_flag("--quiet", options.quiet, "do not print the timeline");
    app.add_option("--ready-file", options.readyFile, "file to write when the bus names are owned");
    app.add_option("--ready-fd", options.readyFd, "file descriptor to tell then");
    app.add_option("--daemon-pid", options.daemonPid,
                   "process to send the minute to; else the bus tells");
    app.add_option("--radio-delay", options.radioDelay,
                   "milliseconds a device takes to do what it is told");
    app.add_flag("--no-minute", options.noMinute, "do not send SIGUSR1 at every full minute");
    app.footer("Commands are read from standard input; `help` lists them.");
}

static void endOnce(Loop &loop, Console &console, const Expectations &expectations)
{
    console.print("\n" + expectations.summary(console.colours()));
    loop.quit(expectations.allMet() ? 0 : 1);
}

static void readCommands(const Options &options, Loop &loop, Console &console, Gateway &gateway,
                         Player &player)
{
    console.read([&player](const std::string &line) { player.addLine(line); },
                 [&, once = options.once] {
                     if (once)
                         player.whenIdle([&] { endOnce(loop, console, gateway.expectations); });
                     else if (console.interactive())
                         loop.quit(0);
                     // The end of a pipe or file is no reason to leave: the bus still asks.
                 },
                 [&gateway](const std::string &line) { return completions(gateway, line); });
}

static int simulate(const Options &options)
{
    if (!options.bus.empty())
        // NOLINTNEXTLINE(concurrency-mt-unsafe): no thread was started yet
        setenv("DBUS_SYSTEM_BUS_ADDRESS", options.bus.c_str(), 1);
    std::signal(SIGPIPE, SIG_IGN);

    Loop loop;
    const EndSignals endSignals(loop, options.once ? EXIT_INTERRUPTED : 0);
    Console console(loop);
    Timeline timeline;
    if (!options.quiet) {
        timeline.listen(
            [&](const Entry &entry) { console.print(Timeline::line(entry, console.colours())); });
    }

    Home home = Home::load(options.home);
    if (options.radioDelay >= 0)
        home.radioDelay = Millis(options.radioDelay);
    Plan plan(home);
    Expectations expectations(loop, timeline);
    const auto connection = openControlBus(loop);
    Control control(*connection);
    Platform platform(loop, timeline, home);
    Sdk sdk(loop, timeline, home, plan);
    Daemon daemon(*connection, loop, timeline, home, plan);
    Gateway gateway{.loop = loop,
                    .timeline = timeline,
                    .home = home,
                    .plan = plan,
                    .platform = platform,
                    .sdk = sdk,
                    .daemon = daemon,
                    .expectations = expectations,
                    // A moment later, so that a `quit` over the bus still gets its answer.
                    .quit = [&loop] { loop.after(Millis(20), [&loop] { loop.quit(0); }); },
                    .scriptFolder = ""};
    control.serve(gateway);

    daemon.usePid(options.daemonPid);
    if (!options.noMinute)
        daemon.keepTheMinute();
    const ReadyNote note(options);
    timeline.add(
        {.from = "sim",
         .to = "",
         .text = fmt::format("plays {}, {} devices; ready", home.name, home.devices.size()),
         .words = {"ready"},
         .tone = Tone::QUIET});

    Player player(gateway, [&console](const std::string &text) { console.print(text); });
    const auto goOn = [&] { readCommands(options, loop, console, gateway, player); };
    if (options.script.empty()) {
        goOn();
    } else {
        player.addScript(options.script);
        player.whenIdle([&] {
            if (options.once) {
                endOnce(loop, console, expectations);
            } else {
                if (!expectations.empty())
                    console.print("\n" + expectations.summary(console.colours()));
                goOn();
            }
        });
    }

    const int status = loop.run();
    console.close();
    return status;
}

int main(int argc, char **argv)
try {
    Options options;
    CLI::App app("Plays a home's gateway around the automation daemon: settings, radio, devices.");
    addOptions(app, options);
    CLI11_PARSE(app, argc, argv);
    return simulate(options);
} catch (const std::exception &error) {
    std::fprintf(stderr, "home-sim: %s\n", error.what());
    return 2;
}
