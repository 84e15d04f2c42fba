// How a fake answers a request.

#pragma once

#include "support/bus_thread.h"

#include <string>
#include <utility>

namespace support {

struct Answer {
    enum Kind { TEXT, NUMBER, NO_ARGUMENTS, REFUSAL, SILENCE };

    Kind kind = TEXT;
    std::string text;
    Milliseconds delay{0};

    static Answer asUsual()  // what the fake says by itself; for a slower one: asUsual().after(2s)
    {
        return {};
    }
    static Answer saying(std::string text)
    {
        return {TEXT, std::move(text)};
    }
    static Answer withANumber()  // where a text is expected
    {
        return {NUMBER, {}};
    }
    static Answer withoutArguments()
    {
        return {NO_ARGUMENTS, {}};
    }
    static Answer refusing()
    {
        return {REFUSAL, {}};
    }
    static Answer silence()
    {
        return {SILENCE, {}};
    }
    Answer after(Milliseconds wait) const
    {
        Answer slower = *this;
        slower.delay = wait;
        return slower;
    }
};

// On the bus thread: gives the answer when its delay is over, and then calls `given` (never for a
// silence).
void reply(Peer &peer, DBusMessage *request, const Answer &answer, std::function<void()> given);

}  // namespace support
