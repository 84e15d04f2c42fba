// Stands in for the programs that deliver a message to a phone: notes under which name and with
// which arguments it was started, byte for byte.
//
// Its notes are a file in the folder that APP_TEST_HELPERS names, one write a run. It waits there
// while the folder holds a pipe called "hold", and fails while it holds a file called "fail".

#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <sys/file.h>
#include <unistd.h>

// Lengths stand before the texts, so that no text is taken for anything else.
static std::string describeRun(bool alone, int argc, char **argv)
{
    std::string record =
        std::to_string(getpid()) + (alone ? " alone " : " together ") + std::to_string(argc) + "\n";
    for (int i = 0; i < argc; ++i) {
        const std::string text = argv[i];
        record += std::to_string(text.size()) + "\n" + text + "\n";
    }
    return record;
}

int main(int argc, char **argv)
{
    const char *folder = getenv("APP_TEST_HELPERS");
    if (!folder)
        return 2;
    const std::string base = std::string(folder) + "/";
    const int notes = open((base + "runs").c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
    // Held to the end: who does not get it runs beside another.
    const bool alone = flock(notes, LOCK_EX | LOCK_NB) == 0;
    const std::string record = describeRun(alone, argc, argv);
    if (write(notes, record.data(), record.size()) != static_cast<ssize_t>(record.size()))
        return 2;
    open((base + "hold").c_str(), O_RDONLY);  // of a pipe: returns when somebody writes to it
    return access((base + "fail").c_str(), F_OK) == 0 ? 1 : 0;
}
