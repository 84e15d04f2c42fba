// The SDK daemon: its devices, and a memory of everything that the daemon says on the bus.

#pragma once

#include "support/answer.h"
#include "support/devices.h"
#include "support/json.h"

#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace support {

// One message of the daemon, in the order of arrival.
struct Heard {
    enum Kind {
        CALL,     // a method call, which wants an answer
        COMMAND,  // a command broadcast as a signal
        KICK,     // the watchdog kick
        EVENT,    // an announcement: "recent", "MacroEvent", "jsongetall"
    };
    Kind kind;
    std::string member;
    std::string path;
    std::string sender;
    std::string signature;
    std::string text;  // the JSON
    unsigned number;   // of a kick
    Moment at;
    Moment answered;      // of a call; at its default: not yet
    size_t callsWaiting;  // calls without an answer yet when it came, itself not counted

    std::string cmd() const
    {
        return Json(text)["control"]["cmd"].text();
    }
    int64_t uid() const
    {
        return Json(text)["control"]["uid"].integer();
    }
};

class FakeSdk {
public:
    void join(BusThread &thread, const std::string &address);
    void leave();
    // Without its name nobody calls it; it hears what is broadcast all the same.
    void giveUpName();
    void takeNameBack();

    void set(const Device &device);
    void remove(int64_t uid);
    void setBasicValue(int64_t uid, int64_t chid, int64_t value);
    void setSensorValue(int64_t uid, int64_t chid, int64_t value);

    // From now on that command to that device is answered so; forgetBehaviour returns to normal.
    void behave(const std::string &cmd, int64_t uid, const Answer &answer);
    void forgetBehaviour(const std::string &cmd, int64_t uid);

    std::vector<Heard> everything() const;
    std::vector<Heard> calls(const std::string &cmd, int64_t uid) const;
    std::vector<Heard> events(const std::string &member) const;
    std::vector<Heard> kicks() const;
    // Calls and signals alike that switch something, play a sound or tell a state: all but the
    // questions.
    std::vector<Heard> commands() const;
    std::vector<std::string> commandTexts() const;

    size_t count(const std::string &text) const;  // that exact text, as a call or a signal
    bool heard(const std::string &text) const
    {
        return count(text) > 0;
    }
    size_t asked(const std::string &cmd, int64_t uid) const
    {
        return calls(cmd, uid).size();
    }
    void forgetHeard();

private:
    void handle(DBusMessage *message);
    void handleCall(DBusMessage *message);
    Answer answerTo(const std::string &cmd, int64_t uid) const;
    size_t remember(DBusMessage *message, Heard::Kind kind);
    std::vector<Heard> select(const std::function<bool(const Heard &)> &wanted) const;

    Peer peer;
    mutable std::mutex mutex;  // guards what follows
    DeviceTable devices;
    std::map<std::pair<std::string, int64_t>, Answer> behaviour;
    std::vector<Heard> memory;
    size_t forgotten = 0;
    size_t waiting = 0;
};

}  // namespace support
