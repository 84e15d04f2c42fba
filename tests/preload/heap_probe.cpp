// Preloaded into a program: tells how much of its heap is in use, whenever a test asks.
//
// APP_TEST_HEAP names a file that both have mapped, three numbers of four, four and eight bytes:
// the test raises the first and wakes whoever waits for it (a futex); the answer has come when the
// second is equal to it, and is the third, in bytes.
//
// The C library's count takes locks of the allocator, so a thread asks for it, not a signal
// handler. It takes none of the program's signals.

#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <fcntl.h>
#include <linux/futex.h>
#include <malloc.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

struct HeapReport {
    uint32_t asked;
    uint32_t answered;
    uint64_t inUse;
};

static void *answer(void *mapped)
{
    auto *report = static_cast<HeapReport *>(mapped);
    uint32_t known = 0;
    for (;;) {
        while (__atomic_load_n(&report->asked, __ATOMIC_ACQUIRE) == known)
            syscall(SYS_futex, &report->asked, FUTEX_WAIT, known, nullptr, nullptr, 0);
        known = __atomic_load_n(&report->asked, __ATOMIC_ACQUIRE);
        const struct mallinfo2 now = mallinfo2();
        report->inUse = now.uordblks + now.hblkhd;
        __atomic_store_n(&report->answered, known, __ATOMIC_RELEASE);
    }
    return nullptr;
}

__attribute__((constructor)) static void startAnswering()
{
    const char *path = getenv("APP_TEST_HEAP");
    const int file = path ? open(path, O_RDWR | O_CLOEXEC) : -1;
    if (file < 0)
        return;
    void *mapped = mmap(nullptr, sizeof(HeapReport), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    close(file);
    unsetenv("LD_PRELOAD");  // what the program starts is not asked
    unsetenv("APP_TEST_HEAP");
    if (mapped == MAP_FAILED)
        return;
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, &before);
    pthread_t thread;
    if (pthread_create(&thread, nullptr, answer, mapped) == 0)
        pthread_detach(thread);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}
