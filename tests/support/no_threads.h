// Makes the start of threads fail.

#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <pthread.h>

namespace support {

// No thread can be started as long as this lives: none of the address space is large enough for its
// stack.
class NoThreads {
public:
    NoThreads()
    {
        pthread_getattr_default_np(&before);
        pthread_attr_t huge = before;
        pthread_attr_setstacksize(&huge, size_t{1} << (sizeof(size_t) * 8 - 18));
        EXPECT_EQ(pthread_setattr_default_np(&huge), 0);
    }
    ~NoThreads()
    {
        pthread_setattr_default_np(&before);
    }
    NoThreads(const NoThreads &) = delete;
    NoThreads &operator=(const NoThreads &) = delete;

private:
    pthread_attr_t before;
};

}  // namespace support
