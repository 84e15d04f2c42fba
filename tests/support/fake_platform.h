// The platform daemon: its nvram, whose values a test may change at any time.
//
// A key that was never set reads as an empty text, as it does on the device.

#pragma once

#include "support/answer.h"

#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace support {

struct NvramRequest {
    std::string key;
    std::string path;    // the caller's object path
    std::string sender;  // the caller's unique bus name
    Moment at;
    Moment answered;  // at its default: not yet
};

class FakePlatform {
public:
    void join(BusThread &thread, const std::string &address);
    void leave();

    void set(const std::string &key, const std::string &value);
    void behave(const std::string &key, const Answer &answer);

    std::vector<NvramRequest> requests() const;
    std::vector<std::string> askedKeys() const;
    size_t asked(const std::string &key) const;
    size_t answered(const std::string &key) const;
    void forgetRequests();

private:
    void handle(DBusMessage *message);

    Peer peer;
    mutable std::mutex mutex;  // guards what follows
    std::map<std::string, Answer> answers;
    std::vector<NvramRequest> heard;
    size_t forgotten = 0;
};

}  // namespace support
