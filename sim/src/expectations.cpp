#include "expectations.h"

#include <fmt/format.h>

#include <algorithm>

static bool matchesWord(const std::string &wanted, std::string_view alternatives)
{
    if (wanted == "*" || sameText(wanted, alternatives))
        return true;
    while (!alternatives.empty()) {
        const size_t bar = alternatives.find('|');
        if (sameText(wanted, alternatives.substr(0, bar)))
            return true;
        alternatives.remove_prefix(bar == std::string_view::npos ? alternatives.size() : bar + 1);
    }
    return false;
}

bool matchesPattern(const Words &pattern, const Words &words)
{
    return pattern.size() <= words.size() &&
           std::equal(pattern.begin(), pattern.end(), words.begin(), matchesWord);
}

Expectations::Expectations(Loop &loop, Timeline &timeline) : loop_(loop), timeline_(timeline)
{
    timeline.listen([this](Entry &entry) { seen(entry); });
}

void Expectations::drive()
{
    from_ = timeline_.next();
    driven_ = SteadyClock::now();
}

void Expectations::expect(const Words &pattern, Millis within, Done done)
{
    wait("expect " + joinWords(pattern), pattern, within, true, std::move(done));
}

void Expectations::refuse(const Words &pattern, Millis within, Done done)
{
    wait("never " + joinWords(pattern), pattern, within, false, std::move(done));
}

void Expectations::wait(const std::string &text, const Words &pattern, Millis within, bool wanted,
                        Done done)
{
    steps_.push_back({.text = text});
    const size_t step = steps_.size() - 1;
    Waiting waiting{.step = step,
                    .pattern = pattern,
                    .wanted = wanted,
                    .from = from_,
                    .timer = 0,
                    .done = std::move(done)};
    for (Entry &entry : timeline_.entries()) {
        if (meets(waiting, entry))
            return;
    }
    waiting.timer = loop_.after(within, [this, step] {
        const auto late = std::find_if(waiting_.begin(), waiting_.end(),
                                       [step](const Waiting &one) { return one.step == step; });
        const Waiting over = std::move(*late);
        waiting_.erase(late);
        settle(step, !over.wanted, std::chrono::duration_cast<Millis>(SteadyClock::now() - driven_),
               over.done);
    });
    waiting_.push_back(std::move(waiting));
}

bool Expectations::meets(Waiting &waiting, Entry &entry)
{
    if (entry.number < waiting.from || entry.taken || !matchesPattern(waiting.pattern, entry.words))
        return false;
    entry.taken = waiting.wanted;
    settle(waiting.step, waiting.wanted, std::chrono::duration_cast<Millis>(entry.at - driven_),
           waiting.done);
    return true;
}

void Expectations::seen(Entry &entry)
{
    for (auto one = waiting_.begin(); one != waiting_.end();) {
        if (meets(*one, entry)) {
            loop_.cancel(one->timer);
            one = waiting_.erase(one);
        } else {
            ++one;
        }
    }
}

void Expectations::settle(size_t step, bool met, Millis elapsed, const Done &done)
{
    steps_[step].outcome = met ? Outcome::MET : Outcome::MISSED;
    steps_[step].elapsed = elapsed;
    const std::string text =
        fmt::format("{} {}, {} ms", met ? "✓" : "✗", steps_[step].text, elapsed.count());
    // Not from here: what follows may add to the timeline, whose listeners are still being told.
    loop_.after(Millis(0), [done, met, text] { done(met, text); });
}

void Expectations::fail(const std::string &step)
{
    steps_.push_back({.text = step, .outcome = Outcome::MISSED});
}

void Expectations::notReached(const std::string &step)
{
    steps_.push_back({.text = step, .outcome = Outcome::NOT_REACHED});
}

bool Expectations::empty() const
{
    return steps_.empty();
}

bool Expectations::allMet() const
{
    return std::all_of(steps_.begin(), steps_.end(),
                       [](const Step &step) { return step.outcome == Outcome::MET; });
}

std::string Expectations::summary(bool colours) const
{
    size_t width = 0;
    for (const Step &step : steps_)
        width = std::max(width, step.text.size());
    std::string text;
    for (const Step &step : steps_) {
        const bool met = step.outcome == Outcome::MET;
        const std::string_view mark = met ? "✓" : step.outcome == Outcome::NOT_REACHED ? "-" : "✗";
        const std::string shown =
            colours ? fmt::format("\033[{}m{}\033[0m", met ? 32 : 31, mark) : std::string(mark);
        const std::string when = step.outcome == Outcome::NOT_REACHED
                                     ? "not reached"
                                     : fmt::format("{} ms", step.elapsed.count());
        text += fmt::format("  {} {:<{}}  {:>11}\n", shown, step.text, width, when);
    }
    const auto met = std::count_if(steps_.begin(), steps_.end(),
                                   [](const Step &step) { return step.outcome == Outcome::MET; });
    return text + fmt::format("{} of {} expected steps seen", met, steps_.size());
}
