// A real dbus-daemon of the test's own.

#pragma once

#include "support/child_process.h"
#include "support/temp_dir.h"

#include <string>

namespace support {

class PrivateBus {
public:
    void start();  // everybody of this user may do everything
    // One that users other than this one reach; the rules are elements of its configuration.
    void startAsSystemBus(const std::string &rules);
    void stop();  // as if the bus had crashed

    const std::string &address() const
    {
        return busAddress;
    }

private:
    void startWith(const std::string &configuration);

    TempDir folder;
    std::string busAddress;
    ChildProcess broker;
};

}  // namespace support
