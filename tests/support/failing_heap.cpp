#include "support/failing_heap.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <thread>

namespace support {

std::vector<std::string> FailingHeap::settings() const
{
    return {
        "LD_PRELOAD=" FAILING_HEAP,
        "APP_TEST_FAILING_HEAP=" + fault.path(),
    };
}

void FailingHeap::failAllocation(int64_t n)
{
    __atomic_store_n(&fault->untilFailure, n, __ATOMIC_RELEASE);
}

bool FailingHeap::hasFailed() const
{
    return __atomic_load_n(&fault->untilFailure, __ATOMIC_ACQUIRE) == 0;
}

bool FailingHeap::stop()
{
    return __atomic_exchange_n(&fault->untilFailure, 0, __ATOMIC_ACQ_REL) > 0;
}

static std::string hexadecimal(uint64_t number)
{
    std::ostringstream text;
    text << "0x" << std::hex << number;
    return text.str();
}

std::string FailingHeap::place() const
{
    return hexadecimal(fault->failedAt) + " of " + (*fault->failedIn ? fault->failedIn : "app");
}

void FailingHeap::watch()
{
    while (__atomic_exchange_n(&fault->inTable, 1, __ATOMIC_ACQUIRE))
        std::this_thread::yield();
    std::fill(std::begin(fault->blocks), std::end(fault->blocks), HeapFault::Block{});
    __atomic_store_n(&fault->inTable, 0, __ATOMIC_RELEASE);
    __atomic_store_n(&fault->watching, 1, __ATOMIC_RELEASE);
}

void FailingHeap::endWatch()
{
    __atomic_store_n(&fault->watching, 0, __ATOMIC_RELEASE);
}

std::vector<std::string> FailingHeap::kept() const
{
    std::vector<std::string> places;
    for (const HeapFault::Block &block : fault->blocks) {
        if (__atomic_load_n(&block.address, __ATOMIC_ACQUIRE) > 1)
            places.push_back(hexadecimal(__atomic_load_n(&block.caller, __ATOMIC_ACQUIRE)));
    }
    std::sort(places.begin(), places.end());
    return places;
}

}  // namespace support
