#include "timeline.h"

#include <fmt/format.h>

static constexpr size_t KEPT_ENTRIES = 5000;

void Timeline::add(Entry entry)
{
    entry.at = SteadyClock::now();
    entry.clock = WallClock::now();
    entry.number = next_++;
    entries_.push_back(std::move(entry));
    if (entries_.size() > KEPT_ENTRIES)
        entries_.pop_front();

    // Listeners add nothing themselves, so all of them see the same order.
    Entry &added = entries_.back();
    for (const Listener &listener : listeners_)
        listener(added);
}

void Timeline::listen(Listener listener)
{
    listeners_.push_back(std::move(listener));
}

std::deque<Entry> &Timeline::entries()
{
    return entries_;
}

size_t Timeline::next() const
{
    return next_;
}

static const char *colourOf(Tone tone)
{
    switch (tone) {
    case Tone::QUIET:
        return "\033[2m";
    case Tone::EVENT:
        return "\033[33m";
    case Tone::COMMAND:
        return "\033[36m";
    case Tone::STATE:
        return "\033[1;32m";
    case Tone::ANNOUNCEMENT:
        return "\033[35m";
    case Tone::TROUBLE:
        return "\033[31m";
    default:
        return "";
    }
}

std::string Timeline::line(const Entry &entry, bool colours)
{
    const std::string clock = clockText(entry.clock);
    const std::string who = entry.to.empty() ? fmt::format("{:<8}   {:<8}", entry.from, "")
                                             : fmt::format("{:<8} → {:<8}", entry.from, entry.to);
    if (!colours)
        return fmt::format("{}  {}  {}", clock, who, entry.text);
    return fmt::format("\033[2m{}\033[0m  {}  {}{}\033[0m", clock, who, colourOf(entry.tone),
                       entry.text);
}

nlohmann::json Timeline::toJson(const Entry &entry)
{
    const auto sinceEpoch = entry.clock.time_since_epoch();
    return {
        {"number", entry.number},
        {"clock", clockText(entry.clock)},
        {"time_ms", std::chrono::duration_cast<Millis>(sinceEpoch).count()},
        {"from", entry.from},
        {"to", entry.to},
        {"what", entry.words},
        {"text", entry.text},
    };
}
