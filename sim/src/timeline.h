// What happened on the bus and in the home, one entry each, in the order it was seen.
//
// An entry is a line for people and a list of words for scripts: `expect` compares words.

#pragma once

#include "text.h"

#include <nlohmann/json.hpp>

#include <deque>
#include <functional>
#include <string>

enum class Tone { PLAIN, QUIET, EVENT, COMMAND, STATE, ANNOUNCEMENT, TROUBLE };

struct Entry {
    std::string from;
    std::string to;  // may be empty: it happened inside `from`
    std::string text;
    Words words;  // a word may list alternatives: "on|255"
    Tone tone = Tone::PLAIN;

    SteadyClock::time_point at{};  // filled by add()
    WallClock::time_point clock{};
    size_t number = 0;
    bool taken = false;  // an expectation was met by it
};

class Timeline {
public:
    using Listener = std::function<void(Entry &)>;

    void add(Entry entry);
    void listen(Listener listener);

    std::deque<Entry> &entries();  // the newest few thousand, oldest first
    size_t next() const;           // the number the next entry will have

    static std::string line(const Entry &entry, bool colours);
    static nlohmann::json toJson(const Entry &entry);

private:
    std::deque<Entry> entries_;
    std::vector<Listener> listeners_;
    size_t next_ = 1;
};
