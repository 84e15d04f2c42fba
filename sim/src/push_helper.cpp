// Stands in for the programs that deliver a message to a phone. Which one it is, its name tells.
//
// It never fails and never takes long: the daemon runs it through the shell and waits for it.

#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <sdbus-c++/sdbus-c++.h>

#include <chrono>
#include <cstdlib>
#include <string>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

static void record(const char *path, const std::vector<std::string> &argv)
{
    using namespace std::chrono;
    const auto now = duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
    const nlohmann::json entry = {
        {"time_ms", now},
        {"program", argv.front()},
        {"args", std::vector<std::string>(argv.begin() + 1, argv.end())},
    };
    const std::string line =
        entry.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
    // One write to the end of the file: lines of helpers that run at once do not mix.
    const int file = open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    if (file < 0 || write(file, line.data(), line.size()) < 0)
        fmt::print(stderr, "{}: cannot write {}\n", argv.front(), path);
    if (file >= 0)
        close(file);
}

static void show(const std::vector<std::string> &argv)
{
    static const std::string name = "com.ovrinbus.sim";
    const auto connection = sdbus::createSystemBusConnection();
    const auto simulator = sdbus::createProxy(*connection, name, "/com/ovrinbus/sim");
    simulator->callMethod("Helper")
        .onInterface("com.ovrinbus.sim.control")
        .withTimeout(std::chrono::seconds(1))
        .withArguments(argv);
}

int main(int argc, char **argv)
try {
    std::vector<std::string> words(argv, argv + argc);
    if (words.empty())
        return 0;
    words.front().erase(0, words.front().rfind('/') + 1);
    if (words.size() == 2 && words[1] == "--help") {
        fmt::print(
            "{} ARGUMENTS...\n"
            "Records its arguments as a line of JSON in the file that HOME_SIM_PUSH_LOG names,\n"
            "and shows them on the timeline of home-sim when that runs on the system bus.\n",
            words.front());
        return 0;
    }
    if (const char *const path = std::getenv("HOME_SIM_PUSH_LOG"))
        record(path, words);
    show(words);
    return 0;
} catch (const std::exception &) {
    return 0;  // as a rule nobody plays the home: there is nothing to show it on
}
