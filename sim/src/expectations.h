// What a script expects to see, and what it saw.
//
// An expectation looks at everything seen since the last driving command, so it does not matter in
// which order several of them arrive. Each entry of the timeline meets at most one.

#pragma once

#include "loop.h"
#include "timeline.h"

#include <list>

class Expectations {
public:
    using Done = std::function<void(bool met, const std::string &text)>;

    Expectations(Loop &loop, Timeline &timeline);

    void drive();  // a driving command is about to run: expectations look from here on

    void expect(const Words &pattern, Millis within, Done done);
    void refuse(const Words &pattern, Millis within, Done done);  // met when nothing like it comes

    void fail(const std::string &step);        // a command of the script that could not be done
    void notReached(const std::string &step);  // the script ended before it

    bool empty() const;
    bool allMet() const;
    std::string summary(bool colours) const;

private:
    enum class Outcome { WAITING, MET, MISSED, NOT_REACHED };
    struct Step {
        std::string text;
        Outcome outcome = Outcome::WAITING;
        Millis elapsed{0};
    };
    struct Waiting {
        size_t step;
        Words pattern;
        bool wanted;
        size_t from;
        Loop::TimerId timer;
        Done done;
    };

    void wait(const std::string &text, const Words &pattern, Millis within, bool wanted, Done done);
    void seen(Entry &entry);
    bool meets(Waiting &waiting, Entry &entry);
    void settle(size_t step, bool met, Millis elapsed, const Done &done);

    Loop &loop_;
    Timeline &timeline_;
    size_t from_ = 1;
    SteadyClock::time_point driven_ = SteadyClock::now();
    std::vector<Step> steps_;
    std::list<Waiting> waiting_;
};

// Does an entry's list of words begin with the pattern? `*` stands for any one word.
bool matchesPattern(const Words &pattern, const Words &words);
