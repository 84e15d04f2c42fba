#include "daemon.h"

#include <fmt/format.h>

#include <csignal>

static constexpr char APP_NAME[] = "com.ovrinbus.app";
static constexpr char APP_INTERFACE[] = "com.OvrinTech.app";
static constexpr char BUS_NAME[] = "org.freedesktop.DBus";

Daemon::Daemon(sdbus::IConnection &connection, Loop &loop, Timeline &timeline, Home &home,
               Plan &plan)
    : loop_(loop), timeline_(timeline), home_(home), plan_(plan),
      bus_(sdbus::createProxy(connection, BUS_NAME, "/org/freedesktop/DBus")),
      app_(sdbus::createProxy(connection, APP_NAME, "/com/OvrinTech/app"))
{
    connection.addMatch(
        "type='signal',interface='com.OvrinTech.signal.eventLog'",
        [this](sdbus::Message &message) { announced(message); }, sdbus::floating_slot);
    connection.addMatch(
        fmt::format("type='signal',interface='{0}',member='NameOwnerChanged',arg0='{1}'", BUS_NAME,
                    APP_NAME),
        [this](sdbus::Message &message) {
            std::string name, before, after;
            message >> name >> before >> after;
            ownerChanged(after);
        },
        sdbus::floating_slot);

    auto who = bus_->createMethodCall(BUS_NAME, "GetNameOwner");
    who << APP_NAME;
    bus_->callMethod(who, [this](sdbus::MethodReply &reply, const sdbus::Error *error) {
        std::string owner;
        if (!error && owner_.empty()) {
            reply >> owner;
            ownerChanged(owner);
        }
    });
}

void Daemon::ownerChanged(const std::string &owner)
{
    owner_ = owner;
    pid_ = 0;
    timeline_.add({.from = "bus",
                   .to = "",
                   .text = owner.empty() ? "the daemon has left"
                                         : fmt::format("the daemon is here, {}", owner),
                   .words = {"daemon", owner.empty() ? "left" : "here"},
                   .tone = Tone::QUIET});
    if (!owner.empty())
        askPid(owner);
}

void Daemon::askPid(const std::string &owner)
{
    auto ask = bus_->createMethodCall(BUS_NAME, "GetConnectionUnixProcessID");
    ask << owner;
    bus_->callMethod(ask, [this, owner](sdbus::MethodReply &reply, const sdbus::Error *error) {
        uint32_t pid = 0;
        if (error || owner != owner_)
            return;
        reply >> pid;
        pid_ = static_cast<pid_t>(pid);
    });
}

bool Daemon::present() const
{
    return !owner_.empty();
}

void Daemon::usePid(pid_t pid)
{
    givenPid_ = pid;
}

bool Daemon::strikeMinute()
{
    const pid_t pid = givenPid_ > 0 ? givenPid_ : pid_;
    if (pid <= 0 || kill(pid, SIGUSR1) != 0)
        return false;
    timeline_.add({.from = "platform",
                   .to = "app",
                   .text = fmt::format("SIGUSR1 to {}", pid),
                   .words = {"minute"},
                   .tone = Tone::QUIET});
    return true;
}

void Daemon::keepTheMinute()
{
    using namespace std::chrono;
    const auto now = WallClock::now().time_since_epoch();
    const Millis left = duration_cast<Millis>(minutes(1) - now % minutes(1)) + Millis(1);
    loop_.after(left, [this] {
        strikeMinute();
        keepTheMinute();
    });
}

// The reply's only argument, as text.
static std::string argumentText(sdbus::MethodReply &reply)
{
    std::string type, contents;
    reply.peekType(type, contents);
    std::string text;
    int32_t number = 0;
    uint32_t count = 0;
    switch (type.empty() ? '\0' : type.front()) {
    case 's':
        reply >> text;
        return text;
    case 'i':
        reply >> number;
        return std::to_string(number);
    case 'u':
        reply >> count;
        return std::to_string(count);
    default:
        return "";
    }
}

void Daemon::call(const std::string &member, const std::string &text, Millis patience,
                  Answered answered)
{
    auto method = app_->createMethodCall(APP_INTERFACE, member);
    method << text;
    send(method, patience, std::move(answered));
}

void Daemon::arm(bool armed, Millis patience, Answered answered)
{
    auto method = app_->createMethodCall("com.OvrinTech.switch.app", "setHomeScene");
    method << int32_t{armed};
    send(method, patience, std::move(answered));
}

void Daemon::tell(const std::string &member)
{
    auto method = app_->createMethodCall(APP_INTERFACE, member);
    method.dontExpectReply();
    app_->callMethod(method);
}

void Daemon::send(const sdbus::MethodCall &method, Millis patience, Answered &&answered)
{
    const uint64_t usec = static_cast<uint64_t>(patience.count()) * 1000;
    app_->callMethod(
        method,
        [answered = std::move(answered)](sdbus::MethodReply &reply, const sdbus::Error *error) {
            if (error)
                answered(std::nullopt, error->getMessage());
            else
                answered(argumentText(reply), "");
        },
        usec);
}

static std::string describeRecent(const Json &document, Home &home, std::string &name)
{
    const auto log = document.find("eventLog");
    if (log == document.end() || !log->is_array() || log->empty() || !log->front().is_object())
        return "recent, empty";
    const Json &newest = log->front();
    const auto number = [&](const char *key) {
        const auto found = newest.find(key);
        return found != newest.end() && found->is_number_integer() ? found->get<long long>() : 0LL;
    };
    name = home.nameOf(number("uid"), number("channelID"));
    return fmt::format("recent: event {} {}, sequence {}", number("eventCode"), name,
                       number("sequence"));
}

void Daemon::announced(sdbus::Message &message)
{
    const std::string member = message.getMemberName();
    std::string type, contents, text;
    message.peekType(type, contents);
    if (type != "s") {
        timeline_.add({.from = "app",
                       .to = "all",
                       .text = fmt::format("{} carries no text", member),
                       .words = {"bad", member},
                       .tone = Tone::TROUBLE});
        return;
    }
    message >> text;
    const Json document = Json::parse(text, nullptr, false);
    Entry entry{.from = "app",
                .to = "all",
                .text = member,
                .words = {"signal", member},
                .tone = Tone::ANNOUNCEMENT};

    if (document.is_discarded() || !document.is_object()) {
        entry.text += fmt::format(", not a JSON object: {}", text);
        entry.tone = Tone::TROUBLE;
    } else if (member == "recent") {
        std::string name;
        entry.text = describeRecent(document, home_, name);
        if (!name.empty())
            entry.words.push_back(name);
    } else if (member == "MacroEvent" && document.value("EventMacro", Json()).is_object()) {
        const Json &event = document["EventMacro"];
        const auto memberText = [&](const char *key) {
            const auto found = event.find(key);
            return found != event.end() && found->is_string() ? found->get<std::string>() : "";
        };
        const std::string macro = memberText("name");
        const std::string scene = memberText("scene");
        entry.text = fmt::format("MacroEvent: {} runs scene {}", macro, scene);
        entry.words.insert(entry.words.end(), {macro, scene});
        plan_.macroRan(macro, scene);
    } else if (member == "jsongetall") {
        entry.text = fmt::format("jsongetall: the whole configuration, {} bytes", text.size());
        plan_.learn(document);
    }
    timeline_.add(std::move(entry));
}
