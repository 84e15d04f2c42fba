#include "support/usage.h"

#include <algorithm>
#include <gtest/gtest.h>

#include <climits>
#include <filesystem>
#include <fstream>
#include <linux/futex.h>
#include <sstream>
#include <sys/syscall.h>
#include <unistd.h>

namespace support {

static std::string folderOf(pid_t process)
{
    return "/proc/" + std::to_string(process);
}

static size_t entriesOf(const std::string &path)
{
    size_t count = 0;
    std::error_code gone;
    for (const auto &entry : std::filesystem::directory_iterator(path, gone)) {
        (void)entry;
        ++count;
    }
    return count;
}

size_t threadsOf(pid_t process)
{
    return entriesOf(folderOf(process) + "/task");
}

size_t descriptorsOf(pid_t process)
{
    return entriesOf(folderOf(process) + "/fd");
}

int64_t privateKilobytesOf(pid_t process)
{
    static constexpr uint64_t END_OF_32_BITS = uint64_t{1} << 32;
    std::ifstream file(folderOf(process) + "/smaps");
    int64_t sum = 0;
    bool counts = false;
    for (std::string line; std::getline(file, line);) {
        unsigned long long end;
        long long kilobytes;
        char rights[5] = "";
        if (sscanf(line.c_str(), "%*x-%llx %4s", &end, rights) == 2)
            counts = !emulated() || end <= END_OF_32_BITS;
        else if (counts && sscanf(line.c_str(), "Anonymous: %lld kB", &kilobytes) == 1)
            sum += kilobytes;
    }
    EXPECT_GT(sum, 0) << "the memory of " << process << " cannot be read";
    return sum;
}

static bool isZombie(const std::string &child)
{
    std::ifstream file("/proc/" + child + "/stat");
    std::string line;
    std::getline(file, line);
    const size_t name = line.rfind(')');  // a name may hold anything
    return name != std::string::npos && line.compare(name, 4, ") Z ") == 0;
}

size_t zombiesOf(pid_t process)
{
    size_t count = 0;
    std::error_code gone;
    for (const auto &task :
         std::filesystem::directory_iterator(folderOf(process) + "/task", gone)) {
        std::ifstream children(task.path() / "children");
        for (std::string child; children >> child;)
            count += isZombie(child) ? 1 : 0;
    }
    return count;
}

// More at once than are kept, and each too large to be kept itself.
void emptyMessageCache(Client &client)
{
    static constexpr int MESSAGES = 30;
    const std::string text(20'000, 'x');
    const char *word = text.c_str();
    client.peer.busThread()->run([&] {
        for (int i = 0; i < MESSAGES; ++i) {
            const Message message(dbus_message_new_method_call(
                "com.ovrinbus.app", "/", "com.OvrinTech.app", "jsongettitles"));
            dbus_message_set_no_reply(message.get(), TRUE);  // the bus counts who waits for one
            dbus_message_append_args(message.get(), DBUS_TYPE_STRING, &word, DBUS_TYPE_INVALID);
            client.peer.send(message.get());
        }
    });
}

std::vector<std::string> HeapProbe::settings() const
{
    if (!SPEED_COUNTS)
        return {};
    return {
        "LD_PRELOAD=" HEAP_PROBE,
        "APP_TEST_HEAP=" + report.path(),
        "GLIBC_TUNABLES=glibc.malloc.tcache_count=0",
    };
}

int64_t HeapProbe::bytesInUse()
{
    if (!SPEED_COUNTS || !report.get())
        return 0;
    const uint32_t question = __atomic_add_fetch(&report->asked, 1, __ATOMIC_RELEASE);
    syscall(SYS_futex, &report->asked, FUTEX_WAKE, INT_MAX, nullptr, nullptr, 0);
    const auto answered = [&] {
        return __atomic_load_n(&report->answered, __ATOMIC_ACQUIRE) == question;
    };
    EXPECT_TRUE(eventually(answered)) << "the heap cannot be looked into";
    return static_cast<int64_t>(report->inUse);
}

std::vector<std::string> StackProbe::settings() const
{
    std::vector<std::string> settings = {"APP_TEST_STACKS=" + folder.file("stacks").string()};
    if (!emulated())  // the emulator preloads what is made for the device
        settings.emplace_back("LD_PRELOAD=" STACK_PROBE);
    return settings;
}

std::vector<StackProbe::Stack> StackProbe::stacks() const
{
    std::vector<Stack> all;
    std::ifstream file(folder.file("stacks"));
    for (Stack stack; file >> stack.thread >> stack.used >> stack.size;)
        all.push_back(stack);
    return all;
}

int64_t HeapProbe::leastInUse(const std::function<void()> &between)
{
    static constexpr int LOOKS = 5;
    int64_t least = INT64_MAX;
    for (int look = 0; look < LOOKS; ++look) {
        between();
        least = std::min(least, bytesInUse());
    }
    return least;
}

}  // namespace support
