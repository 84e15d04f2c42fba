// Device events in a steady flow: always so many on their way that the daemon never waits for one
// and its queue drops none.

#pragma once

#include "support/daemon_on_its_own_bus.h"

#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

struct DeviceReport {
    uint16_t code;
    uint16_t uid;
    uint16_t channel = 0;
    std::string payload = {};
};

class EventFlow {
public:
    // What the n-th event is. The daemon has to announce each: no filter, and the SDK daemon
    // answers.
    using Source = std::function<DeviceReport(size_t n)>;

    void join(support::BusThread &thread, const std::string &address);
    void leave();

    void begin(size_t events, Source source);
    bool over() const;  // all of them have been announced
    // Begins, and waits for the end.
    void pour(size_t events, Source source);

    // From sending an event to hearing its announcement, in microseconds, since the last call.
    std::vector<int64_t> takeDelays();

private:
    void hear(DBusMessage *message);
    void sendNext();

    support::Peer peer;
    mutable std::mutex mutex;  // guards what follows
    Source next;
    size_t wanted = 0;
    std::vector<support::Moment> sent;  // one for each event
    size_t heard = 0;
    std::vector<int64_t> delays;
};

// The value that the given share of all, 0 to 1, does not exceed.
int64_t percentile(std::vector<int64_t> values, double share);
