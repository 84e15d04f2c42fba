// The queue and the memory of what was handled are the process's: each test is run in one of its
// own.

#include "main/equeue.h"

#include "daemon_in_process.h"
#include "main/settings.h"

#include <filesystem>
#include <fstream>
#include <mutex>
#include <thread>
#include <unistd.h>

using support::eventually;
using support::somethingChanged;

// Never destroyed: the worker runs on while the process ends.
static std::mutex &handledMutex = *new std::mutex;
static std::vector<int> &handled = *new std::vector<int>;

static int remember(DeviceEvent *event)
{
    {
        const std::lock_guard lock(handledMutex);
        handled.push_back(event->gid);
    }
    freeDeviceEvent(event);
    somethingChanged();
    return 0;
}

static std::vector<int> handledSoFar()
{
    const std::lock_guard lock(handledMutex);
    return handled;
}

static DeviceEvent *eventOf(int gid)
{
    DeviceEvent *event = callocDeviceEvent();
    event->gid = static_cast<uint16_t>(gid);
    event->hasPayload = 1;
    event->payload = strdup("payload");
    return event;
}

static std::vector<int> numbers(int first, int last)
{
    std::vector<int> result;
    for (int i = first; i <= last; ++i)
        result.push_back(i);
    return result;
}

// The worker is woken by a push, be it of nothing.
static void wakeWorker()
{
    equeue_push(nullptr);
}

static int fill(int from)
{
    const MutexLock workerWaits(equeue_mutex);
    for (int i = 0;; ++i) {
        DeviceEvent *event = eventOf(from + i);
        if (!equeue_pushLocked(event)) {
            freeDeviceEvent(event);
            return i;
        }
    }
}

TEST(EventQueue, IgnoresAndFreesWhatIsPushedBeforeItStarts)
{
    equeue_doEvent_register(remember);
    EXPECT_EQ(fill(1), 0);
    equeue_push(eventOf(1));  // the leak checker looks at it
    equeue_thread_init();
    equeue_push(eventOf(2));
    ASSERT_TRUE(eventually([] { return !handledSoFar().empty(); }));
    EXPECT_EQ(handledSoFar(), numbers(2, 2));
}

TEST(EventQueue, Holds19WaitingEventsInOrderAndDropsThe20thWhereverTheRingStands)
{
    equeue_doEvent_register(remember);
    equeue_thread_init();
    size_t total = 0;
    for (int offset = 0; offset < 20; ++offset) {
        ASSERT_EQ(fill(100 * offset), 19);
        wakeWorker();
        ASSERT_TRUE(eventually([&] { return handledSoFar().size() == total + 19; }));
        const std::vector<int> seen = handledSoFar();
        EXPECT_EQ(std::vector<int>(seen.end() - 19, seen.end()),
                  numbers(100 * offset, 100 * offset + 18));
        equeue_push(eventOf(9999));  // moves the ring by one more slot
        total += 20;
        ASSERT_TRUE(eventually([&] { return handledSoFar().size() == total; }));
    }
}

TEST(EventQueue, TakesEventsOutWhenNobodyHandlesThem)
{
    equeue_thread_init();
    for (int round = 0; round < 3; ++round) {
        int free = 0;
        ASSERT_TRUE(eventually([&] {
            free += fill(1);
            wakeWorker();
            return free >= 19;
        }));
    }
    equeue_doEvent_register(remember);
    ASSERT_TRUE(eventually([] {
        equeue_push(eventOf(77));
        const std::vector<int> seen = handledSoFar();
        return !seen.empty() && seen.back() == 77;
    }));
}

static size_t threadsOfThisProcess()
{
    const std::filesystem::directory_iterator threads("/proc/self/task");
    return static_cast<size_t>(std::distance(begin(threads), end(threads)));
}

static int detachAndRemember(DeviceEvent *event)
{
    pthread_detach(pthread_self());
    return remember(event);
}

TEST(EventQueue, IsDrainedUnhandledWhenTheProcessEnds)
{
    equeue_doEvent_register(detachAndRemember);
    equeue_thread_init();
    equeue_push(eventOf(1));
    ASSERT_TRUE(eventually([] { return handledSoFar().size() == 1; }));
    const size_t threads = threadsOfThisProcess();
    {
        const MutexLock workerWaits(equeue_mutex);
        for (int i = 0; i < 3; ++i)
            EXPECT_TRUE(equeue_pushLocked(eventOf(2)));
        app_quit = 1;
        DeviceEvent *refused = eventOf(3);
        EXPECT_FALSE(equeue_pushLocked(refused));
        freeDeviceEvent(refused);
    }
    wakeWorker();
    ASSERT_TRUE(eventually([&] { return threadsOfThisProcess() == threads - 1; }));
    EXPECT_EQ(handledSoFar(), numbers(1, 1));
    app_quit = 0;
    EXPECT_EQ(fill(1), 19);
    app_quit = 1;
}

// While an event is handled its producer waits, and no longer: it is let in before the next event.
static std::atomic<int> releases;
static std::atomic<int> begun;

static int waitForRelease(DeviceEvent *event)
{
    const int mine = ++begun;
    for (int i = 0; mine == 1 && i < 15; ++i)  // the queue is held while an event is handled
        equeue_pushLocked(eventOf(i));
    somethingChanged();
    while (releases < mine)
        std::this_thread::yield();
    freeDeviceEvent(event);
    return 0;
}

static bool sleeps(pid_t tid)
{
    std::ifstream file("/proc/self/task/" + std::to_string(tid) + "/stat");
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    const size_t end = text.rfind(')');
    return end != std::string::npos && text.compare(end, 3, ") S") == 0;
}

TEST(EventQueue, ThrottlesAProducerAndLetsItInAfterTheEventInHand)
{
    equeue_doEvent_register(waitForRelease);
    equeue_thread_init();
    equeue_push(eventOf(0));
    for (int round = 1; round <= 10; ++round) {
        ASSERT_TRUE(eventually([&] { return begun == round; }));
        std::atomic<pid_t> tid{0};
        std::atomic<bool> pushed{false};
        std::jthread producer([&] {
            DeviceEvent *event = eventOf(99);
            tid = gettid();
            equeue_push(event);
            pushed = true;
            somethingChanged();
        });
        // Only the queue's mutex can make it sleep there.
        const bool waits = eventually([&] { return tid != 0 && sleeps(tid); });
        EXPECT_TRUE(waits);
        EXPECT_FALSE(pushed);
        releases = round;
        EXPECT_TRUE(eventually([&] { return pushed.load(); })) << round;
        EXPECT_LE(begun, round + 1);
        if (HasFailure()) {
            releases = 1000;
            return;
        }
    }
    releases = 1000;
}
