// The platform daemon's part: the gateway's settings ("nvram"), asked for one by one.

#pragma once

#include "home.h"
#include "peer.h"
#include "timeline.h"

class Platform {
public:
    Platform(Loop &loop, Timeline &timeline, Home &home);

    bool muted = false;
    Millis delay{0};

private:
    void answer(const Request &request);

    Timeline &timeline_;
    Home &home_;
    Peer peer_;
};
