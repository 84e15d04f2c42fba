// Preloaded into a program: one of its allocations finds no memory, whichever a test asks for, and
// what the program keeps of others is noted.
//
// APP_TEST_FAILING_HEAP names a file that holds a HeapFault, which both have mapped. The test
// writes how many allocations there are until the one that fails, whoever asks for it: the program,
// one of its libraries or the C library. It is counted down, and what follows the failure succeeds
// again.
//
// While the test watches, each block that the program itself allocates is noted until it is freed.
// The libraries' are not: some keep a few for the next time, and how many is theirs to choose.

#include "support/heap_fault.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <link.h>
#include <sched.h>
#include <sys/mman.h>
#include <unistd.h>

using support::HeapFault;

// The code of the program or of a library.
struct Code {
    uintptr_t base;
    uintptr_t begin;
    uintptr_t end;
    bool isProgram;
    char name[HeapFault::NAME_SIZE];
};

static constexpr size_t MOST_OBJECTS = 64;
static constexpr uint64_t NONE = 0;
static constexpr uint64_t FORGOTTEN = 1;

static HeapFault *fault;
static Code objects[MOST_OBJECTS];
static size_t objectCount;

// What the C library offers beside the names that are replaced here.
extern "C" {
void *__libc_malloc(size_t size);
void *__libc_calloc(size_t count, size_t size);
void *__libc_realloc(void *memory, size_t size);
void __libc_free(void *memory);
}

static const Code *codeOf(const void *caller)
{
    const auto address = reinterpret_cast<uintptr_t>(caller);
    for (size_t i = 0; i < objectCount; ++i) {
        if (address >= objects[i].begin && address < objects[i].end)
            return &objects[i];
    }
    return nullptr;
}

static uint64_t offsetOf(const Code &code, const void *caller)
{
    return reinterpret_cast<uintptr_t>(caller) - code.base;
}

static void notePlace(const void *caller)
{
    const Code *code = codeOf(caller);
    fault->failedAt = code ? offsetOf(*code, caller) : 0;
    memset(fault->failedIn, 0, sizeof fault->failedIn);
    if (code)
        memcpy(fault->failedIn, code->name, sizeof fault->failedIn - 1);
}

static bool fails(const void *caller)
{
    if (!fault)
        return false;
    int64_t left = __atomic_load_n(&fault->untilFailure, __ATOMIC_ACQUIRE);
    do {
        if (left <= 0)
            return false;
        if (left == 1)
            notePlace(caller);  // before the test sees that it has happened
    } while (!__atomic_compare_exchange_n(&fault->untilFailure, &left, left - 1, false,
                                          __ATOMIC_ACQ_REL, __ATOMIC_ACQUIRE));
    if (left != 1)
        return false;
    errno = ENOMEM;
    return true;
}

class TableLock {
public:
    TableLock()
    {
        while (__atomic_exchange_n(&fault->inTable, 1, __ATOMIC_ACQUIRE))
            sched_yield();
    }
    ~TableLock()
    {
        __atomic_store_n(&fault->inTable, 0, __ATOMIC_RELEASE);
    }
    TableLock(const TableLock &) = delete;
    TableLock &operator=(const TableLock &) = delete;
};

// From the slot of an address on, the first one that holds `wanted` or nothing at all.
static HeapFault::Block *findSlot(const void *memory,
                                  bool (*wanted)(uint64_t here, uint64_t address))
{
    static constexpr uint64_t SPREAD = 0x9E3779B97F4A7C15;
    const uint64_t address = reinterpret_cast<uintptr_t>(memory);
    const size_t first = address * SPREAD >> 48;
    static_assert(HeapFault::MOST_BLOCKS == 1 << 16);
    for (size_t i = 0; i < HeapFault::MOST_BLOCKS; ++i) {
        HeapFault::Block &block = fault->blocks[(first + i) % HeapFault::MOST_BLOCKS];
        if (block.address == NONE || wanted(block.address, address))
            return &block;
    }
    return nullptr;
}

static void *note(void *memory, const void *caller)
{
    if (!fault || !memory || !__atomic_load_n(&fault->watching, __ATOMIC_ACQUIRE))
        return memory;
    const Code *code = codeOf(caller);
    if (!code || !code->isProgram)
        return memory;
    const TableLock lock;
    HeapFault::Block *slot =
        findSlot(memory, [](uint64_t here, uint64_t) { return here == FORGOTTEN; });
    if (slot)
        *slot = {reinterpret_cast<uintptr_t>(memory), offsetOf(*code, caller)};
    return memory;
}

// So that a search does not run over slots that only have been used: those before a slot that never
// was are like it again.
static void tidyBefore(size_t slot)
{
    static constexpr size_t COUNT = HeapFault::MOST_BLOCKS;
    if (fault->blocks[(slot + 1) % COUNT].address != NONE)
        return;
    for (; fault->blocks[slot].address == FORGOTTEN; slot = (slot + COUNT - 1) % COUNT)
        fault->blocks[slot].address = NONE;
}

static void forget(void *memory)
{
    if (!fault || !memory)
        return;
    const TableLock lock;
    HeapFault::Block *slot =
        findSlot(memory, [](uint64_t here, uint64_t address) { return here == address; });
    if (!slot || slot->address == NONE)
        return;
    slot->address = FORGOTTEN;
    tidyBefore(static_cast<size_t>(slot - fault->blocks));
}

extern "C" {

void *malloc(size_t size) noexcept
{
    const void *caller = __builtin_return_address(0);
    return fails(caller) ? nullptr : note(__libc_malloc(size), caller);
}

void *calloc(size_t count, size_t size) noexcept
{
    const void *caller = __builtin_return_address(0);
    return fails(caller) ? nullptr : note(__libc_calloc(count, size), caller);
}

void *realloc(void *memory, size_t size) noexcept
{
    const void *caller = __builtin_return_address(0);
    if (fails(caller))
        return nullptr;
    forget(memory);
    return note(__libc_realloc(memory, size), caller);
}

void free(void *memory) noexcept
{
    forget(memory);
    __libc_free(memory);
}

}  // extern "C"

static int noteObject(dl_phdr_info *object, size_t, void *) noexcept
{
    const char *slash = strrchr(object->dlpi_name, '/');
    const char *name = slash ? slash + 1 : object->dlpi_name;
    for (int i = 0; i < object->dlpi_phnum && objectCount < MOST_OBJECTS; ++i) {
        const ElfW(Phdr) &segment = object->dlpi_phdr[i];
        if (segment.p_type != PT_LOAD || !(segment.p_flags & PF_X))
            continue;
        Code &code = objects[objectCount++];
        code.base = object->dlpi_addr;
        code.begin = object->dlpi_addr + segment.p_vaddr;
        code.end = code.begin + segment.p_memsz;
        code.isProgram = !*object->dlpi_name;
        memcpy(code.name, name, std::min(strlen(name), sizeof code.name - 1));
    }
    return 0;
}

__attribute__((constructor)) static void getReadyToFail()
{
    const char *path = getenv("APP_TEST_FAILING_HEAP");
    const int file = path ? open(path, O_RDWR | O_CLOEXEC) : -1;
    if (file < 0)
        return;
    dl_iterate_phdr(noteObject, nullptr);
    void *mapped = mmap(nullptr, sizeof(HeapFault), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    close(file);
    unsetenv("LD_PRELOAD");  // what the program starts finds memory
    unsetenv("APP_TEST_FAILING_HEAP");
    if (mapped != MAP_FAILED)
        fault = static_cast<HeapFault *>(mapped);
}
