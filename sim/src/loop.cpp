#include "loop.h"

#include <algorithm>
#include <cerrno>
#include <system_error>

void Loop::addSource(std::unique_ptr<BusSource> source)
{
    sources_.push_back(std::move(source));
}

void Loop::watch(int fd, Task readable)
{
    watches_[fd] = std::move(readable);
}

void Loop::unwatch(int fd)
{
    watches_.erase(fd);
}

Loop::TimerId Loop::after(Millis delay, Task task)
{
    timers_.emplace(SteadyClock::now() + delay, Timer{++lastTimer_, std::move(task)});
    return lastTimer_;
}

void Loop::cancel(TimerId id)
{
    std::erase_if(timers_, [id](const auto &timer) { return timer.second.id == id; });
}

void Loop::stepSources()
{
    for (const auto &source : sources_) {
        while (!ended_ && source->step()) {
        }
    }
}

void Loop::runTimers()
{
    const auto now = SteadyClock::now();
    while (!ended_ && !timers_.empty() && timers_.begin()->first <= now) {
        const Timer due = std::move(timers_.begin()->second);
        timers_.erase(timers_.begin());
        due.task();
    }
}

int Loop::pollTimeout() const
{
    using std::chrono::microseconds;
    int64_t wakeAt = INT64_MAX;
    const auto usec = [](SteadyClock::time_point when) {
        return std::chrono::duration_cast<microseconds>(when.time_since_epoch()).count();
    };
    if (!timers_.empty())
        wakeAt = usec(timers_.begin()->first);
    for (const auto &source : sources_) {
        if (const int64_t wanted = source->wakeAtUsec(); wanted >= 0)
            wakeAt = std::min(wakeAt, wanted);
    }
    if (wakeAt == INT64_MAX)
        return -1;
    const int64_t left = wakeAt - usec(SteadyClock::now());
    return left <= 0 ? 0 : static_cast<int>(std::min<int64_t>(left / 1000 + 1, 60'000));
}

int Loop::run()
{
    while (!ended_) {
        stepSources();
        runTimers();
        if (ended_)
            break;

        // Callbacks may have queued messages on any connection, so ask all of them only now.
        std::vector<pollfd> fds;
        for (const auto &source : sources_)
            fds.push_back(source->interest());
        for (const auto &[fd, task] : watches_)
            fds.push_back({.fd = fd, .events = POLLIN, .revents = 0});
        if (poll(fds.data(), fds.size(), pollTimeout()) < 0 && errno != EINTR)
            throw std::system_error(errno, std::generic_category(), "poll");

        for (size_t i = sources_.size(); i < fds.size() && !ended_; ++i) {
            const auto found = fds[i].revents ? watches_.find(fds[i].fd) : watches_.end();
            if (found != watches_.end()) {
                const Task task = found->second;  // it may unwatch itself
                task();
            }
        }
    }
    return status_;
}

void Loop::quit(int status)
{
    ended_ = true;
    status_ = status;
}
