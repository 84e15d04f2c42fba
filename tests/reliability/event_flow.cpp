#include "event_flow.h"

#include <algorithm>
#include <cstring>

using namespace support;

static constexpr size_t ON_THEIR_WAY = 4;
static constexpr Milliseconds LONG = 60s;

void EventFlow::join(BusThread &thread, const std::string &address)
{
    peer.join(thread, address, [this](DBusMessage *message) { hear(message); });
    peer.subscribe("type='signal',interface='com.OvrinTech.signal.eventLog',member='recent'");
}

void EventFlow::leave()
{
    peer.leave();
}

void EventFlow::begin(size_t events, Source source)
{
    peer.busThread()->run([&] {
        const std::lock_guard lock(mutex);
        next = std::move(source);
        wanted = events;
        heard = 0;
        sent.clear();
        for (size_t i = 0; i < std::min(events, ON_THEIR_WAY); ++i)
            sendNext();
    });
}

bool EventFlow::over() const
{
    const std::lock_guard lock(mutex);
    return heard == wanted;
}

void EventFlow::pour(size_t events, Source source)
{
    begin(events, std::move(source));
    const auto count = [this] {
        const std::lock_guard lock(mutex);
        return heard;
    };
    // However many they are: as long as it goes on.
    for (size_t before = count(); !over(); before = count())
        ASSERT_TRUE(eventually([&] { return over() || count() >= before + 1000; }, LONG))
            << "event " << count() << " was not announced";
}

std::vector<int64_t> EventFlow::takeDelays()
{
    const std::lock_guard lock(mutex);
    return std::exchange(delays, {});
}

// The caller holds the mutex.
void EventFlow::sendNext()
{
    const DeviceReport report = next(sent.size());
    const uint16_t flag = report.payload.empty() ? 0 : 1;
    const char *payload = report.payload.c_str();
    const Message message(
        dbus_message_new_signal("/com/OvrinTech/process/zwave", EVENT_SIGNALS, "triggerAPP"));
    dbus_message_append_args(message.get(), DBUS_TYPE_UINT16, &report.code, DBUS_TYPE_UINT16,
                             &report.uid, DBUS_TYPE_UINT16, &report.channel, DBUS_TYPE_UINT16,
                             &flag, DBUS_TYPE_STRING, &payload, DBUS_TYPE_INVALID);
    sent.push_back(Clock::now());
    peer.send(message.get());
}

// Events are handled one after another, so what is announced is the oldest on its way; a delivered
// push, which is announced too, is none.
void EventFlow::hear(DBusMessage *message)
{
    const char *text = nullptr;
    if (!dbus_message_is_signal(message, "com.OvrinTech.signal.eventLog", "recent") ||
        !dbus_message_get_args(message, nullptr, DBUS_TYPE_STRING, &text, DBUS_TYPE_INVALID) ||
        strstr(text, R"("eventCode":5032)"))
        return;
    {
        const std::lock_guard lock(mutex);
        if (heard == sent.size())
            return;  // of somebody else
        delays.push_back(
            std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - sent[heard])
                .count());
        ++heard;
        if (sent.size() < wanted)
            sendNext();
    }
    somethingChanged();
}

int64_t percentile(std::vector<int64_t> values, double share)
{
    if (values.empty())
        return 0;
    const auto index = static_cast<size_t>(share * static_cast<double>(values.size() - 1));
    std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(index),
                     values.end());
    return values[index];
}
