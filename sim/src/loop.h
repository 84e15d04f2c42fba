// The one thread of the simulator: everything that happens, happens in a callback of this loop.
//
// That is why nothing in this program locks. A callback must not wait; what takes time is a timer
// or an asynchronous call.

#pragma once

#include "text.h"

#include <poll.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <vector>

// A bus connection, as the loop sees it.
class BusSource {
public:
    virtual ~BusSource() = default;
    virtual bool step() = 0;                 // handles one message; false when there was none
    virtual pollfd interest() const = 0;     // what to wait for
    virtual int64_t wakeAtUsec() const = 0;  // on the monotonic clock; -1 never, 0 now
};

class Loop {
public:
    using Task = std::function<void()>;
    using TimerId = uint64_t;

    void addSource(std::unique_ptr<BusSource> source);
    void watch(int fd, Task readable);
    void unwatch(int fd);

    TimerId after(Millis delay, Task task);
    void cancel(TimerId id);

    int run();  // until quit(); gives quit's status
    void quit(int status);

private:
    struct Timer {
        TimerId id;
        Task task;
    };

    void stepSources();
    void runTimers();
    int pollTimeout() const;

    std::vector<std::unique_ptr<BusSource>> sources_;
    std::map<int, Task> watches_;
    std::multimap<SteadyClock::time_point, Timer> timers_;
    TimerId lastTimer_ = 0;
    bool ended_ = false;
    int status_ = 0;
};
