#include "support/push_helpers.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>

namespace support {

static constexpr const char *PROGRAMS[] = {"ios_push", "gcm_push", "mail", "intruder"};

PushHelpers::PushHelpers()
{
    for (const char *program : PROGRAMS)
        std::filesystem::create_symlink(RECORDING_HELPER, folder.file(program));
}

PushHelpers::~PushHelpers()
{
    release();
    if (pipe >= 0)
        close(pipe);
}

std::vector<std::string> PushHelpers::settings() const
{
    return {"PATH=" + folder.path().string(), "APP_TEST_HELPERS=" + folder.path().string()};
}

static std::string readText(std::istream &stream)
{
    size_t length = 0;
    stream >> length;
    stream.get();
    std::string text(length, '\0');
    stream.read(text.data(), static_cast<std::streamsize>(length));
    stream.get();
    return text;
}

std::vector<HelperRun> PushHelpers::runs() const
{
    std::istringstream stream(folder.read("runs").value_or(""));
    std::vector<HelperRun> result;
    HelperRun run;
    std::string company;
    size_t words = 0;
    while (stream >> run.pid >> company >> words) {
        run.alone = company == "alone";
        run.program = readText(stream);
        run.arguments.clear();
        for (size_t i = 1; i < words; ++i)
            run.arguments.push_back(readText(stream));
        result.push_back(run);
    }
    return result;
}

std::vector<std::vector<std::string>> PushHelpers::commands() const
{
    std::vector<std::vector<std::string>> result;
    for (const HelperRun &run : runs()) {
        std::vector<std::string> words{run.program};
        words.insert(words.end(), run.arguments.begin(), run.arguments.end());
        result.push_back(words);
    }
    return result;
}

std::vector<std::string> PushHelpers::texts() const
{
    std::vector<std::string> result;
    for (const HelperRun &run : runs())
        result.push_back(run.arguments.empty() ? "" : run.arguments.back());
    return result;
}

void PushHelpers::hold()
{
    ASSERT_EQ(mkfifo(folder.file("hold").c_str(), 0600), 0) << strerror(errno);
}

// A pipe with a writer holds nobody up; it keeps its writer, for a helper may be on its way to it.
void PushHelpers::release()
{
    if (!std::filesystem::exists(folder.file("hold")))
        return;
    std::filesystem::rename(folder.file("hold"), folder.file("released"));
    if (pipe >= 0)
        close(pipe);
    pipe = open(folder.file("released").c_str(), O_RDWR | O_CLOEXEC);
    EXPECT_GE(pipe, 0) << strerror(errno);
}

void PushHelpers::fail()
{
    folder.write("fail", "");
}

void PushHelpers::remove(const std::string &program)
{
    std::filesystem::remove(folder.file(program));
}

}  // namespace support
