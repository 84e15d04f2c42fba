#include "support/child_process.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <string_view>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

extern char **environ;

namespace support {

static constexpr int PIPE_SIZE = 1 << 20;     // so that a busy reader does not slow the writer down
static constexpr int LOOK_FOR_OUTPUT = 1000;  // milliseconds

static std::string nameOf(const std::string &setting)
{
    return setting.substr(0, setting.find('='));
}

static std::vector<std::string> environmentWith(const std::vector<std::string> &settings)
{
    std::vector<std::string> result;
    for (char **entry = environ; *entry; ++entry) {
        const std::string name = nameOf(*entry);
        const auto replaced = [&](const std::string &setting) { return nameOf(setting) == name; };
        if (std::none_of(settings.begin(), settings.end(), replaced))
            result.emplace_back(*entry);
    }
    for (auto setting = settings.begin(); setting != settings.end(); ++setting) {
        const auto sameName = [&](const std::string &other) {
            return nameOf(other) == nameOf(*setting);
        };
        if (setting->find('=') != std::string::npos &&
            std::none_of(settings.begin(), setting, sameName))
            result.push_back(*setting);
    }
    return result;
}

static std::vector<char *> pointersTo(std::vector<std::string> &texts)
{
    std::vector<char *> pointers;
    for (std::string &text : texts)
        pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

// Runs between fork and exec in a program with threads: nothing here may allocate or lock.
[[noreturn]] static void becomeProgram(char *const *arguments, char *const *environment,
                                       int outputEnd, pid_t parent)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent)
        _exit(126);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    const int nothing = open("/dev/null", O_RDONLY);
    dup2(nothing, STDIN_FILENO);
    dup2(outputEnd, STDOUT_FILENO);
    dup2(outputEnd, STDERR_FILENO);
    execve(arguments[0], arguments, environment);
    _exit(127);
}

ChildProcess::~ChildProcess()
{
    if (running())
        signal(SIGKILL);
    reap(true);
    if (reader.joinable())
        reader.join();
}

void ChildProcess::start(const std::vector<std::string> &command,
                         const std::vector<std::string> &settings)
{
    ASSERT_FALSE(running()) << command.front() << " runs already";
    if (reader.joinable())
        reader.join();
    {
        const std::lock_guard lock(outputMutex);
        collected.clear();
        unread.clear();
        lineBegins = true;
        outputEnded = false;
    }
    status.reset();

    std::vector<std::string> words = command;
    std::vector<std::string> environment = environmentWith(settings);
    const std::vector<char *> arguments = pointersTo(words);
    const std::vector<char *> variables = pointersTo(environment);
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0) << strerror(errno);
    fcntl(ends[0], F_SETPIPE_SZ, PIPE_SIZE);
    fcntl(ends[0], F_SETFL, O_NONBLOCK);

    const pid_t parent = getpid();
    child = fork();
    if (child == 0)
        becomeProgram(arguments.data(), variables.data(), ends[1], parent);
    close(ends[1]);
    {
        const std::lock_guard lock(outputMutex);
        outputEnd = ends[0];
    }
    reader = std::thread([this] { collect(); });
    ASSERT_GT(child, 0) << strerror(errno);
}

static constexpr size_t LEVEL_SIZE = 3;  // of "<n>"

// The text begins with a level, or is so short that it may yet.
static bool mayBeLevel(std::string_view text)
{
    static constexpr std::string_view SHAPE = "<0>";
    for (size_t i = 0; i < std::min(text.size(), LEVEL_SIZE); ++i) {
        const bool fits = i == 1 ? text[i] >= '0' && text[i] <= '7' : text[i] == SHAPE[i];
        if (!fits)
            return false;
    }
    return true;
}

void ChildProcess::take(const char *bytes, size_t count) const
{
    if (!withoutLevels) {
        collected.append(bytes, count);
        return;
    }
    unread.append(bytes, count);
    std::string_view rest = unread;
    while (!rest.empty()) {
        if (lineBegins && mayBeLevel(rest)) {
            if (rest.size() < LEVEL_SIZE)
                break;
            rest.remove_prefix(LEVEL_SIZE);
            lineBegins = false;
        }
        const size_t end = rest.find('\n');
        const size_t length = end == rest.npos ? rest.size() : end + 1;
        collected.append(rest.substr(0, length));
        lineBegins = end != rest.npos;
        rest.remove_prefix(length);
    }
    unread.erase(0, unread.size() - rest.size());
}

// Takes over what lies in the pipe. True when something was there; the caller holds outputMutex.
bool ChildProcess::drain() const
{
    const size_t before = collected.size();
    char buffer[65536];
    while (outputEnd >= 0 && !outputEnded) {
        const ssize_t got = read(outputEnd, buffer, sizeof buffer);
        if (got > 0) {
            take(buffer, static_cast<size_t>(got));
        } else if (got == 0) {
            outputEnded = true;
            collected += unread;
            unread.clear();
            break;
        } else if (errno != EINTR) {
            break;
        }
    }
    return collected.size() > before;
}

// The reader keeps the pipe from filling up and tells those who wait; whoever looks drains it
// himself.
void ChildProcess::collect()
{
    pollfd wait{outputEnd, POLLIN, 0};
    for (bool ended = false; !ended; somethingChanged()) {
        poll(&wait, 1, LOOK_FOR_OUTPUT);
        const std::lock_guard lock(outputMutex);
        drain();
        ended = outputEnded;
        if (ended) {
            close(outputEnd);
            outputEnd = -1;
        }
    }
}

void ChildProcess::reap(bool wait)
{
    int ended = 0;
    if (child > 0 && !status && waitpid(child, &ended, wait ? 0 : WNOHANG) == child)
        status = ended;
}

bool ChildProcess::running()
{
    reap(false);
    return child > 0 && !status;
}

void ChildProcess::signal(int number) const
{
    if (child > 0 && !status)
        kill(child, number);
}

std::optional<int> ChildProcess::waitForEnd(Milliseconds limit)
{
    eventually([this] { return !running(); }, limit);
    if (status && reader.joinable())
        reader.join();  // everything it wrote is here
    return status;
}

std::string ChildProcess::output(size_t from) const
{
    const std::lock_guard lock(outputMutex);
    drain();
    return from < collected.size() ? collected.substr(from) : std::string();
}

size_t ChildProcess::outputSize() const
{
    const std::lock_guard lock(outputMutex);
    drain();
    return collected.size();
}

bool ChildProcess::outputHolds(const std::string &text, size_t from) const
{
    const std::lock_guard lock(outputMutex);
    drain();
    return collected.find(text, from) != std::string::npos;
}

std::string describeEnd(int status)
{
    if (WIFEXITED(status))
        return "exit status " + std::to_string(WEXITSTATUS(status));
    const int number = WTERMSIG(status);
    return "killed by signal " + std::to_string(number) + " (" + strsignal(number) + ")";
}

}  // namespace support
