#include "main/kept_memory.h"

#include <cstdlib>  // says whether this is the GNU C library

#ifdef __GLIBC__
#include <malloc.h>
#endif

// Left alone, the C library keeps the more freed memory the larger the blocks are that were freed,
// megabytes after one huge message, and that in each of several heaps a processor. There is
// little memory here, and seldom more than one thread at work.
void limitKeptMemory()
{
#ifdef __GLIBC__
    static constexpr int KILOBYTE = 1024;
    // NOLINTBEGIN(concurrency-mt-unsafe): there are no other threads yet
    mallopt(M_MMAP_THRESHOLD, 128 * KILOBYTE);
    mallopt(M_TRIM_THRESHOLD, 32 * KILOBYTE);
    mallopt(M_TOP_PAD, 16 * KILOBYTE);
    mallopt(M_ARENA_MAX, 1);
    // NOLINTEND(concurrency-mt-unsafe): from here on there may be
#endif
}

void returnFreeMemory()
{
#ifdef __GLIBC__
    malloc_trim(0);
#endif
}
