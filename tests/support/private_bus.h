// A real dbus-daemon of the test's own.

#pragma once

#include "support/child_process.h"
#include "support/temp_dir.h"

#include <string>

namespace support {

class PrivateBus {
public:
    void start();
    void stop();  // as if the bus had crashed

    const std::string &address() const
    {
        return busAddress;
    }

private:
    TempDir folder;
    std::string busAddress;
    ChildProcess broker;
};

}  // namespace support
