// The simulator's own place on the bus, where tests and the push helpers reach it.

#pragma once

#include "commands.h"

#include <sdbus-c++/sdbus-c++.h>

class Control {
public:
    explicit Control(sdbus::IConnection &connection);

    void serve(Gateway &gateway);  // Run, Helper and Seen, from now on

private:
    sdbus::IConnection &connection_;
    std::unique_ptr<sdbus::IObject> object_;
};

std::unique_ptr<sdbus::IConnection> openControlBus(Loop &loop);
