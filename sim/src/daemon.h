// The automation daemon as its clients know it: its name on the bus, its methods and announcements.

#pragma once

#include "home.h"
#include "loop.h"
#include "plan.h"
#include "timeline.h"

#include <sdbus-c++/sdbus-c++.h>

#include <sys/types.h>

class Daemon {
public:
    Daemon(sdbus::IConnection &connection, Loop &loop, Timeline &timeline, Home &home, Plan &plan);

    // `answered` gets the reply as text, or no reply and the reason.
    using Answered = std::function<void(std::optional<std::string> reply, const std::string &why)>;
    void call(const std::string &member, const std::string &text, Millis patience,
              Answered answered);

    // Methods that take no text: arming home security, and what gets no answer.
    void arm(bool armed, Millis patience, Answered answered);
    void tell(const std::string &member);

    bool present() const;
    void usePid(pid_t pid);  // in place of the pid the bus tells
    void keepTheMinute();    // from now on SIGUSR1 at every full minute
    bool strikeMinute();     // SIGUSR1 now; false when the daemon's pid is not known

private:
    void send(const sdbus::MethodCall &method, Millis patience, Answered &&answered);
    void announced(sdbus::Message &message);
    void ownerChanged(const std::string &owner);
    void askPid(const std::string &owner);

    Loop &loop_;
    Timeline &timeline_;
    Home &home_;
    Plan &plan_;
    std::unique_ptr<sdbus::IProxy> bus_;
    std::unique_ptr<sdbus::IProxy> app_;
    std::string owner_;
    pid_t givenPid_ = 0;
    pid_t pid_ = 0;
};
