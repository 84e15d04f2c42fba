// Each target's start: what main does before it reads a configuration.

#include "main/json_memory.h"
#include "main/locks.h"

// The JSON library allocates by the hundred. Noting each one's stack and keeping long what was
// freed would halve the speed, and what an input frees is freed within little memory.
extern "C" const char *__asan_default_options()
{
    return "malloc_context_size=2:quarantine_size_mb=1:thread_local_quarantine_size_kb=64";
}

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    watchJsonMemory();
    appPthreadMutexInit();
    return 0;
}
