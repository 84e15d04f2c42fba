// Preloaded into a program: tells at its end how much of its stack each thread has used.
//
// APP_TEST_STACKS names the file. Each line is a thread's name, the most bytes that it has used,
// and the bytes that it has; of the first thread, "main", these are as many as are looked at. What
// a thread does not use keeps the pattern that is written there before its work begins.

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <pthread.h>

static constexpr uint32_t UNUSED = 0x5AFE57AC;
static constexpr size_t LOOKED_AT_OF_THE_FIRST = size_t{256} * 1024;
static constexpr size_t OF_THE_FILLING = 512;  // bytes that its own frame may have
static constexpr size_t MOST_THREADS = 256;

extern "C" void *__libc_stack_end;

struct Stack {
    void *(*body)(void *);
    void *argument;
    pthread_t thread;
    const uint32_t *low;
    const uint32_t *high;
    size_t used;  // once the thread has ended
    char name[16];
};

static Stack stacks[MOST_THREADS];
static std::atomic<size_t> count;
static pthread_key_t endOfThread;
static char report[256];

// Below its own frame, where nothing is yet.
__attribute__((noinline)) static void fill(const uint32_t *low)
{
    const uintptr_t end = reinterpret_cast<uintptr_t>(__builtin_frame_address(0)) - OF_THE_FILLING;
    for (auto at = reinterpret_cast<uintptr_t>(low); at < end; at += sizeof UNUSED)
        *reinterpret_cast<volatile uint32_t *>(at) = UNUSED;
}

static void measure(Stack &stack)
{
    const volatile uint32_t *at = stack.low;
    while (at < stack.high && *at == UNUSED)
        ++at;
    stack.used = static_cast<size_t>(stack.high - at) * sizeof *at;
    pthread_getname_np(stack.thread, stack.name, sizeof stack.name);
}

static void atItsEnd(void *stack)
{
    measure(*static_cast<Stack *>(stack));
}

static void *work(void *argument)
{
    auto *stack = static_cast<Stack *>(argument);
    void *low = nullptr;
    size_t size = 0;
    pthread_attr_t attributes;
    stack->thread = pthread_self();
    pthread_getattr_np(stack->thread, &attributes);
    pthread_attr_getstack(&attributes, &low, &size);
    pthread_attr_destroy(&attributes);
    stack->high = static_cast<uint32_t *>(low) + size / sizeof *stack->high;
    fill(static_cast<uint32_t *>(low));
    stack->low = static_cast<uint32_t *>(low);
    pthread_setspecific(endOfThread, stack);
    return stack->body(stack->argument);
}

extern "C" int pthread_create(pthread_t *thread, const pthread_attr_t *attributes,
                              void *(*body)(void *), void *argument)
{
    using Create = int(pthread_t *, const pthread_attr_t *, void *(*)(void *), void *);
    static auto *const create = reinterpret_cast<Create *>(dlsym(RTLD_NEXT, "pthread_create"));
    const size_t place = count++;
    if (place >= MOST_THREADS)
        abort();
    stacks[place].body = body;
    stacks[place].argument = argument;
    return create(thread, attributes, work, &stacks[place]);
}

__attribute__((constructor)) static void begin()
{
    const char *path = getenv("APP_TEST_STACKS");
    snprintf(report, sizeof report, "%s", path ? path : "");
    unsetenv("LD_PRELOAD");  // what the program starts is not asked
    unsetenv("APP_TEST_STACKS");
    pthread_key_create(&endOfThread, atItsEnd);
    Stack &first = stacks[count++];
    first.thread = pthread_self();
    first.high = static_cast<uint32_t *>(__libc_stack_end);
    first.low = first.high - LOOKED_AT_OF_THE_FIRST / sizeof *first.low;
    fill(first.low);
}

__attribute__((destructor)) static void tell()
{
    FILE *file = fopen(report, "we");
    if (!file)
        return;
    for (size_t i = 0; i < count; ++i) {
        Stack &stack = stacks[i];
        if (!stack.low)
            continue;  // it has not begun, or never will
        if (stack.used == 0)
            measure(stack);
        fprintf(file, "%s %zu %zu\n", i == 0 ? "main" : stack.name, stack.used,
                static_cast<size_t>(stack.high - stack.low) * sizeof *stack.low);
    }
    fclose(file);
}
