// What the gateway's other daemons and its clients do.

#include "commands.h"

#include <fmt/format.h>

#include <algorithm>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <sstream>

static constexpr Millis PRESENCE_PATIENCE{10'000};
static constexpr Millis READY_AGAIN{300};
static constexpr Millis READY_PATIENCE{20'000};  // longer than the longest start
static constexpr Millis LOAD_PATIENCE{20'000};
static constexpr Millis CALL_PATIENCE{10'000};

// Goes on with `then` when the daemon is on the bus, or gives up at `deadline`.
static void whenPresent(Gateway &gateway, SteadyClock::time_point deadline, const Done &done,
                        std::function<void()> then)
{
    if (gateway.daemon.present()) {
        then();
    } else if (SteadyClock::now() >= deadline) {
        done(false, "nobody owns com.ovrinbus.app: the daemon is not running");
    } else {
        gateway.loop.after(Millis(50), [&gateway, deadline, done, then = std::move(then)] {
            whenPresent(gateway, deadline, done, then);
        });
    }
}

static bool isAnnounced(Gateway &gateway, const Words &pattern, size_t from)
{
    return std::ranges::any_of(gateway.timeline.entries(), [&](const Entry &entry) {
        return entry.number >= from && matchesPattern(pattern, entry.words);
    });
}

// The daemon is on the bus some time before it takes events, and drops those that come meanwhile.
static void tellUntilHeard(Gateway &gateway, SteadyClock::time_point deadline, Millis pause,
                           const Done &done)
{
    const size_t from = gateway.timeline.next();
    static constexpr auto ALL = static_cast<uint16_t>(Home::ALL_DEVICES);
    gateway.sdk.report({.code = EVENT_GATEWAY_READY,
                        .gid = ALL,
                        .channel = 0,
                        .payload = "",
                        .hasPayload = false});
    gateway.loop.after(pause, [&gateway, deadline, pause, done, from] {
        if (isAnnounced(gateway, {"signal", "recent", gateway.home.nameOf(ALL)}, from))
            done(true, "");
        else if (SteadyClock::now() >= deadline)
            done(true,
                 "the daemon has not announced it: is the SDK daemon silent, or a filter set?");
        else
            tellUntilHeard(gateway, deadline, 2 * pause, done);
    });
}

static void ready(Gateway &gateway, const Words &words, const Done &done)
{
    whenPresent(gateway, SteadyClock::now() + PRESENCE_PATIENCE, done, [&gateway, words, done] {
        noteYou(gateway, "radio", words);
        tellUntilHeard(gateway, SteadyClock::now() + READY_PATIENCE, READY_AGAIN, done);
    });
}

static std::string settingText(const std::string &key, const std::optional<std::string> &value)
{
    return value ? fmt::format("{} is \"{}\"", key, *value) : fmt::format("{} is not set", key);
}

static void nvram(Gateway &gateway, const Words &words, const Done &done)
{
    auto &settings = gateway.home.settings;
    if (words.size() == 1) {
        std::string text;
        for (const auto &[key, value] : settings)
            text += fmt::format("{}{}", text.empty() ? "" : "\n", settingText(key, value));
        done(true, text);
    } else if (words.size() == 3 && sameText(words[1], "unset")) {
        settings.erase(words[2]);
        done(true, settingText(words[2], std::nullopt));
    } else if (words.size() == 3) {
        settings[words[1]] = words[2];
        done(true, settingText(words[1], words[2]));
    } else if (words.size() == 2) {
        const auto found = settings.find(words[1]);
        done(true, settingText(words[1], found == settings.end() ? std::nullopt : found->second));
    } else {
        throw UserError("usage: nvram [KEY [VALUE]] | nvram unset KEY");
    }
}

// Delays are milliseconds unless a unit says otherwise.
static Millis delayOf(const std::string &text)
{
    const std::optional<Millis> delay = toDuration(toNumber(text) ? text + "ms" : text);
    if (!delay)
        throw UserError(fmt::format("{} is no delay in milliseconds", text));
    return *delay;
}

// mute, unmute and delay are the same for every peer that answers.
static bool controlAnswers(const Words &words, bool &muted, Millis &delay)
{
    if (words.size() == 2 && sameText(words[1], "mute"))
        muted = true;
    else if (words.size() == 2 && sameText(words[1], "unmute"))
        muted = false;
    else if (words.size() == 3 && sameText(words[1], "delay"))
        delay = delayOf(words[2]);
    else
        return false;
    return true;
}

static void sdk(Gateway &gateway, const Words &words, const Done &done)
{
    if (words.size() == 4 && sameText(words[1], "delay"))
        gateway.sdk.delays[gateway.home.findDevice(words[3]).uid] = delayOf(words[2]);
    else if (!controlAnswers(words, gateway.sdk.muted, gateway.sdk.delay))
        throw UserError("usage: sdk mute | unmute | delay MS [NAME]");
    noteYou(gateway, "sdk", words);
    done(true, "");
}

static void platform(Gateway &gateway, const Words &words, const Done &done)
{
    if (!controlAnswers(words, gateway.platform.muted, gateway.platform.delay))
        throw UserError("usage: platform mute | unmute | delay MS");
    noteYou(gateway, "platform", words);
    done(true, "");
}

static void radio(Gateway &gateway, const Words &words, const Done &done)
{
    if (words.size() != 3 || !sameText(words[1], "delay"))
        throw UserError("usage: radio delay MS");
    gateway.home.radioDelay = delayOf(words[2]);
    noteYou(gateway, "radio", words);
    done(true, "");
}

static void minute(Gateway &gateway, const Words &, const Done &done)
{
    const bool struck = gateway.daemon.strikeMinute();
    done(struck, struck ? "" : "the daemon's process is not known");
}

static std::string readFile(const Gateway &gateway, const std::string &name)
{
    namespace fs = std::filesystem;
    const fs::path places[] = {fs::path(gateway.scriptFolder) / name, fs::path(name),
                               fs::path(gateway.home.path).parent_path() / name};
    for (const fs::path &place : places) {
        std::ifstream file(place);
        if (fs::is_regular_file(place) && file) {
            std::ostringstream text;
            text << file.rdbuf();
            return text.str();
        }
    }
    throw UserError(fmt::format("cannot read {}", name));
}

// The daemon does not answer a write before it knows that the gateway is ready, or while it is
// locked. So ask again, each time with more patience, until the answer comes.
static void sendConfiguration(Gateway &gateway, const std::string &text,
                              SteadyClock::time_point deadline, Millis patience, const Done &done)
{
    whenPresent(gateway, deadline, done, [&gateway, text, deadline, patience, done] {
        noteYou(gateway, "app", {"jsonsetall"}, fmt::format(", {} bytes", text.size()));
        gateway.daemon.call(
            "jsonsetall", text, patience,
            [&gateway, text, deadline, patience, done](const std::optional<std::string> &reply,
                                                       const std::string &why) {
                if (reply) {
                    gateway.timeline.add({.from = "app",
                                          .to = "you",
                                          .text = fmt::format("jsonsetall answers {}", *reply),
                                          .words = {"reply", "jsonsetall", *reply}});
                    // 0: it was read, but nothing in it was new.
                    done(true, "");
                } else if (SteadyClock::now() >= deadline) {
                    done(false,
                         fmt::format("the daemon never answered ({}); did you say `ready`? is "
                                     "\"enablelock\" 1?",
                                     why));
                } else {
                    gateway.loop.after(Millis(100), [&gateway, text, deadline, patience, done] {
                        sendConfiguration(gateway, text, deadline, patience + Millis(500), done);
                    });
                }
            });
    });
}

static void load(Gateway &gateway, const Words &words, const Done &done)
{
    const std::string text = readFile(gateway, words[1]);
    try {
        const Json document = Json::parse(text);
        gateway.plan.learn(document);
        sendConfiguration(gateway, document.dump(), SteadyClock::now() + LOAD_PATIENCE,
                          Millis(1000), done);
    } catch (const Json::exception &error) {
        throw UserError(fmt::format("{}: {}", words[1], error.what()));
    }
}

static Daemon::Answered showAnswer(Gateway &gateway, const std::string &member, const Done &done)
{
    return
        [&gateway, member, done](const std::optional<std::string> &reply, const std::string &why) {
            const std::string shown = reply ? fmt::format("{} answers {}", member, *reply)
                                            : fmt::format("{} is not answered: {}", member, why);
            gateway.timeline.add({.from = "app",
                                  .to = "you",
                                  .text = shown,
                                  .words = {"reply", member, reply.value_or("none")},
                                  .tone = reply ? Tone::PLAIN : Tone::TROUBLE});
            done(reply.has_value(), reply ? *reply : why);
        };
}

static void callAndShow(Gateway &gateway, const std::string &member, const std::string &text,
                        const Done &done)
{
    gateway.daemon.call(member, text, CALL_PATIENCE, showAnswer(gateway, member, done));
}

static void scene(Gateway &gateway, const Words &words, const Done &done)
{
    noteYou(gateway, "app", {"doscene", words[1]});
    gateway.plan.sceneRan(words[1]);
    callAndShow(gateway, "doscene", words[1], done);
}

static void callMember(Gateway &gateway, const Words &words, const Done &done)
{
    const std::string text = words.size() > 2 ? words[2] : "";
    noteYou(gateway, "app", {words[1], text});
    if (words[1] == "doscene")
        gateway.plan.sceneRan(text);
    callAndShow(gateway, words[1], text, done);
}

static void armOrDisarm(Gateway &gateway, bool armed, const Done &done)
{
    noteYou(gateway, "app", {"setHomeScene", armed ? "1" : "0"});
    gateway.daemon.arm(armed, CALL_PATIENCE, showAnswer(gateway, "setHomeScene", done));
}

static void arm(Gateway &gateway, const Words &, const Done &done)
{
    armOrDisarm(gateway, true, done);
}

static void disarm(Gateway &gateway, const Words &, const Done &done)
{
    armOrDisarm(gateway, false, done);
}

// The sun clock on or off, and its times at once in place of the next minute.
static void sun(Gateway &gateway, const Words &words, const Done &done)
{
    const bool on = sameText(words[1], "on");
    if (!on && !sameText(words[1], "off"))
        throw UserError("usage: sun on | off");
    noteYou(gateway, "app", {"enableastclock", on ? "1" : "0"});
    const auto then = [&gateway, done](bool ok, const std::string &output) {
        if (ok)
            gateway.daemon.tell("setastclock_lon");
        done(ok, output);
    };
    callAndShow(gateway, "enableastclock", on ? "1" : "0", then);
}

// A clock time of a schedule: {PREFIX_hour, PREFIX_minute}.
static void putClock(Json &schedule, const std::string &prefix, time_t moment)
{
    tm local{};
    localtime_r(&moment, &local);
    schedule[prefix + "_hour"] = local.tm_hour;
    schedule[prefix + "_minute"] = local.tm_min;
}

// Moves a schedule so that it starts, or ends, this minute, and strikes the minute.
static void schedule(Gateway &gateway, const Words &words, const Done &done)
{
    static constexpr time_t MINUTE = 60;
    static constexpr time_t TOO_LATE = 57;  // the minute must not end in between
    const bool starts = sameText(words.back(), "starts");
    if (words.size() != 3 || (!starts && !sameText(words.back(), "ends")))
        throw UserError("usage: schedule TITLE starts | ends");
    const time_t now = time(nullptr);
    if (now % MINUTE >= TOO_LATE) {
        gateway.loop.after(Millis(1000),
                           [&gateway, words, done] { schedule(gateway, words, done); });
        return;
    }
    Json moved = {{"title", words[1]}, {"enabled", 1}, {"weekdays", 127}};
    putClock(moved, "start", starts ? now : now - MINUTE);
    putClock(moved, "end", starts ? now + MINUTE : now);
    const Json document = {{"schedules", Json::array({moved})}};
    noteYou(gateway, "app", {"schedule", words[1], words[2]});
    callAndShow(gateway, "jsonsetall", document.dump(), [&gateway, done](bool ok, const auto &why) {
        if (ok)
            gateway.daemon.strikeMinute();
        done(ok, why);
    });
}

std::span<const Verb> gatewayVerbs()
{
    static constexpr Verb VERBS[] = {
        {"ready", "", "tell the daemon that the gateway is ready (event 100)", Drives::YES, 1,
         ready},
        {"load", "FILE", "give the daemon a configuration", Drives::YES, 2, load},
        {"scene", "NAME", "have the daemon run a scene", Drives::YES, 2, scene},
        {"call", "MEMBER [TEXT]", "call any method of the daemon that takes one text", Drives::YES,
         2, callMember},
        {"nvram", "[KEY [VALUE]] | unset KEY", "see, set or remove settings", Drives::NO, 1, nvram},
        {"sdk", "mute|unmute|delay MS [NAME]",
         "how the SDK daemon answers, or answers for one device", Drives::NO, 2, sdk},
        {"platform", "mute|unmute|delay MS", "how the platform daemon answers", Drives::NO, 2,
         platform},
        {"radio", "delay MS", "how long a device takes to do what it is told", Drives::NO, 2,
         radio},
        {"arm", "", "arm home security", Drives::YES, 1, arm},
        {"disarm", "", "disarm home security", Drives::YES, 1, disarm},
        {"schedule", "TITLE starts|ends", "move a schedule to this minute", Drives::YES, 3,
         schedule},
        {"sun", "on|off", "the sun clock, with its times at once", Drives::YES, 2, sun},
        {"minute", "", "send the daemon its SIGUSR1 now", Drives::YES, 1, minute},
    };
    return VERBS;
}
