#include "main/equeue.h"

#include "main/log.h"
#include "main/settings.h"
#include "main/threads.h"

#include <atomic>
#include <cstdlib>

static constexpr int SLOTS = 20;

static DeviceEvent *equeue[SLOTS] LOCKING(guarded_by(equeue_mutex));
static int readIndex LOCKING(guarded_by(equeue_mutex));  // this slot has always been consumed
static int writeIndex LOCKING(guarded_by(equeue_mutex));
static bool started LOCKING(guarded_by(equeue_mutex));
static EventHandler doHandle LOCKING(guarded_by(equeue_mutex));
static std::atomic<int> producersWaiting;
static Condition changed;

DeviceEvent *callocDeviceEvent()
{
    auto *event = static_cast<DeviceEvent *>(calloc(1, sizeof(DeviceEvent)));
    if (!event)
        LOG(ERROR, "calloc fail\n");
    return event;
}

void freeDeviceEvent(DeviceEvent *event)
{
    if (!event)
        return;
    free(event->payload);
    free(event);
}

void equeue_doEvent_register(EventHandler handler)
{
    const MutexLock lock(equeue_mutex);
    doHandle = handler;
}

static bool isEmpty() LOCKING(requires_capability(equeue_mutex))
{
    return readIndex % SLOTS == writeIndex % SLOTS;
}

static bool isFull() LOCKING(requires_capability(equeue_mutex))
{
    return (writeIndex + 1) % SLOTS == readIndex;
}

static DeviceEvent *takeOldest() LOCKING(requires_capability(equeue_mutex))
{
    readIndex = (readIndex + 1) % SLOTS;
    DeviceEvent *event = equeue[readIndex];
    equeue[readIndex] = nullptr;
    return event;
}

bool equeue_pushLocked(DeviceEvent *event)
{
    if (!started || !event || app_quit != 0 || isFull())
        return false;
    writeIndex = (writeIndex + 1) % SLOTS;
    equeue[writeIndex] = event;
    return true;
}

void equeue_push(DeviceEvent *event)
{
    bool queued;
    ++producersWaiting;
    {
        const MutexLock lock(equeue_mutex);
        --producersWaiting;
        queued = equeue_pushLocked(event);
        changed.wakeAll();
    }
    if (!queued)
        freeDeviceEvent(event);
}

static void runStep()
{
    // The handler runs with the queue held: events are handled strictly one after another, and a
    // producer waits meanwhile.
    const MutexLock lock(equeue_mutex);
    if (!isEmpty()) {
        DeviceEvent *event = takeOldest();
        if (event && doHandle)
            doHandle(event);
        else
            freeDeviceEvent(event);
        // The mutex is not fair: without this, a waiting producer could wait until the ring is
        // empty.
        if (producersWaiting > 0)
            changed.wait(equeue_mutex);
    } else {
        changed.wait(equeue_mutex);
    }
}

// The worker, started once by equeue_thread_init. It waits for a push, and ends with the first one
// after app_quit has been set, or with the event in hand.
static void *equeueWorker(void *)
{
    pthread_setname_np(pthread_self(), "events");
    while (app_quit == 0)
        runStep();

    const MutexLock lock(equeue_mutex);
    while (!isEmpty())
        freeDeviceEvent(takeOldest());
    return nullptr;
}

int equeue_thread_init()
{
    const MutexLock lock(equeue_mutex);
    for (DeviceEvent *&slot : equeue)
        slot = nullptr;
    readIndex = 0;
    writeIndex = 0;
    pthread_t worker;
    started = createThread(&worker, equeueWorker, nullptr) == 0;
    return 0;
}
