// Looking, waiting and expecting.

#include "commands.h"

#include <fmt/format.h>

#include <algorithm>

static void list(Gateway &gateway, const Words &words, const Done &done)
{
    size_t width = 0;
    for (const Device &device : gateway.home.devices) {
        for (const Channel &channel : device.channels)
            width = std::max(width, channel.name.size());
    }
    std::string text = fmt::format("{:>5} {:>2}  {:<14} {:<{}} {:<14} {:<14} {}", "uid", "ch",
                                   "room", "name", width, "kind", "state", "battery");
    for (const Device &device : gateway.home.devices) {
        for (const Channel &channel : device.channels) {
            const bool wanted = words.size() < 2 || sameText(words[1], device.room) ||
                                sameText(words[1], device.name) || sameText(words[1], channel.name);
            if (!wanted)
                continue;
            const std::string power =
                device.battery <= 100 ? fmt::format("{} %", device.battery) : "mains";
            text += fmt::format("\n{:>5} {:>2}  {:<14} {:<{}} {:<14} {:<14} {}", device.uid,
                                channel.chid, device.room, channel.name, width, device.kind,
                                channel.state(), power);
        }
    }
    done(true, text);
}

static void log(Gateway &gateway, const Words &words, const Done &done)
{
    const long long wanted = words.size() > 1 ? toInteger(words[1]).value_or(0) : 20;
    if (wanted < 1)
        throw UserError("usage: log [COUNT]");
    const auto &entries = gateway.timeline.entries();
    const size_t count = std::min(entries.size(), static_cast<size_t>(wanted));
    std::string text;
    for (size_t i = entries.size() - count; i < entries.size(); ++i)
        text += fmt::format("{}{}", text.empty() ? "" : "\n", Timeline::line(entries[i], false));
    done(true, text);
}

static Millis durationOf(const std::string &text)
{
    const std::optional<Millis> duration = toDuration(text);
    if (!duration)
        throw UserError(fmt::format("{} is no duration; write 3s, 200ms or 1.5", text));
    return *duration;
}

static void wait(Gateway &gateway, const Words &words, const Done &done)
{
    gateway.loop.after(durationOf(words[1]), [done] { done(true, ""); });
}

static void say(Gateway &gateway, const Words &words, const Done &done)
{
    const std::string text = joinWords(words, 1);
    gateway.timeline.add({.from = "script", .to = "", .text = text, .words = {"say", text}});
    done(true, "");
}

static void expect(Gateway &gateway, const Words &words, const Done &done)
{
    gateway.expectations.expect({words.begin() + 2, words.end()}, durationOf(words[1]), done);
}

static void never(Gateway &gateway, const Words &words, const Done &done)
{
    gateway.expectations.refuse({words.begin() + 2, words.end()}, durationOf(words[1]), done);
}

static void quit(Gateway &gateway, const Words &, const Done &done)
{
    done(true, "");
    gateway.quit();
}

std::span<const Verb> scriptVerbs()
{
    static constexpr Verb VERBS[] = {
        {"list", "[ROOM|NAME]", "the devices and how they are", Drives::NO, 1, list},
        {"log", "[COUNT]", "the last lines of the timeline", Drives::NO, 1, log},
        {"wait", "SECONDS", "do nothing for a while", Drives::NO, 2, wait},
        {"say", "TEXT", "write a line into the timeline", Drives::NO, 2, say},
        {"expect", "WITHIN WHAT...", "wait until it has been seen since the last command",
         Drives::NO, 3, expect},
        {"never", "WITHIN WHAT...", "wait, and fail when it is seen", Drives::NO, 3, never},
        {"quit", "", "end the simulation", Drives::NO, 1, quit},
    };
    return VERBS;
}
