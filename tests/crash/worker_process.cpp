#include "worker_process.h"

#include "support/daemon_process.h"

#include <gtest/gtest.h>

#include <csignal>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <thread>

using namespace support;

namespace crash {

static constexpr const char *ANSWER = "done\n";

static std::string workerProgram()
{
    if (!emulated())
        return CRASH_WORKER;
    return std::filesystem::path(daemonProgram()).parent_path() / "emulated_crash_worker";
}

void Worker::start(const std::filesystem::path &folder, const std::vector<Operation> &operations,
                   const std::vector<std::string> &settings)
{
    std::vector<std::string> command{workerProgram()};
    for (const Operation &operation : operations)
        command.push_back(operation.word());
    std::vector<std::string> all{"APP_DATA_DIR=" + folder.string(), "OVRIN_LOG_LEVEL=7",
                                 "LC_ALL=C"};
    all.insert(all.end(), settings.begin(), settings.end());
    process.start(command, all);
}

size_t Worker::answers() const
{
    const std::string output = process.output();
    size_t count = 0;
    for (size_t at = output.find(ANSWER); at != std::string::npos; at = output.find(ANSWER, at + 1))
        ++count;
    return count;
}

int Worker::memory() const
{
    const std::string output = process.output();
    const size_t begin = output.rfind("\n{");
    return begin == std::string::npos ? BROKEN : numberOf(output.substr(begin));
}

void Worker::expectEnd()
{
    const std::optional<int> status = process.waitForEnd(60s);
    ASSERT_TRUE(status) << "the worker does not end";
    EXPECT_EQ(*status, 0) << describeEnd(*status) << "\n" << process.output();
}

void Worker::kill()
{
    process.signal(SIGKILL);
    while (process.running())  // at once, before an orphan gets any further
        std::this_thread::yield();
}

std::vector<std::string> recorderSettings(const std::vector<std::string> &more)
{
    std::vector<std::string> settings{"LD_PRELOAD=" CRASH_RECORDER};
    settings.insert(settings.end(), more.begin(), more.end());
    return settings;
}

void adoptOrphans()
{
    prctl(PR_SET_CHILD_SUBREAPER, 1);
}

int waitForOrphans()
{
    int orphans = 0;
    while (waitpid(-1, nullptr, 0) > 0)
        ++orphans;
    return orphans;
}

}  // namespace crash
