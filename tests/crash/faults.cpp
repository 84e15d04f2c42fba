#include "faults.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

namespace crash {

Faults::Faults()
{
    folder.write("plan", std::string(sizeof(FaultPlan), '\0'));
    const int file = open(folder.file("plan").c_str(), O_RDWR | O_CLOEXEC);
    plan = static_cast<FaultPlan *>(
        mmap(nullptr, sizeof(FaultPlan), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0));
    close(file);
    if (plan == MAP_FAILED)
        ADD_FAILURE() << "no memory to share";
}

Faults::~Faults()
{
    munmap(plan, sizeof(FaultPlan));
}

std::string Faults::setting() const
{
    return "APP_CRASH_FAULTS=" + folder.file("plan").string();
}

void Faults::fail(int first, int calls, int error, unsigned kinds, bool storesAHalf)
{
    end();
    plan->calls = 0;
    plan->first = first;
    plan->last = first + calls - 1;
    plan->error = error;
    plan->storesAHalf = storesAHalf;
    plan->kinds = kinds;
}

void Faults::end()
{
    plan->kinds = 0;
}

int Faults::callsUntilNow() const
{
    return plan->calls;
}

}  // namespace crash
