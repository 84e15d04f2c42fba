#include "support/fake_platform.h"

#include <algorithm>
#include <cstring>

namespace support {

static constexpr const char *NAME = "com.ovrinbus.platform";
static constexpr const char *INTERFACE = "com.OvrinTech.platform.nvram";

void FakePlatform::join(BusThread &thread, const std::string &address)
{
    peer.join(thread, address, [this](DBusMessage *message) { handle(message); });
    peer.own(NAME);
}

void FakePlatform::leave()
{
    peer.leave();
}

void FakePlatform::set(const std::string &key, const std::string &value)
{
    behave(key, Answer::saying(value));
}

void FakePlatform::behave(const std::string &key, const Answer &answer)
{
    const std::lock_guard lock(mutex);
    answers[key] = answer;
}

std::vector<NvramRequest> FakePlatform::requests() const
{
    const std::lock_guard lock(mutex);
    return heard;
}

std::vector<std::string> FakePlatform::askedKeys() const
{
    std::vector<std::string> keys;
    for (const NvramRequest &request : requests())
        keys.push_back(request.key);
    return keys;
}

size_t FakePlatform::asked(const std::string &key) const
{
    const std::lock_guard lock(mutex);
    return static_cast<size_t>(
        std::count_if(heard.begin(), heard.end(),
                      [&](const NvramRequest &request) { return request.key == key; }));
}

size_t FakePlatform::answered(const std::string &key) const
{
    const std::lock_guard lock(mutex);
    return static_cast<size_t>(
        std::count_if(heard.begin(), heard.end(), [&](const NvramRequest &request) {
            return request.key == key && request.answered != Moment();
        }));
}

void FakePlatform::forgetRequests()
{
    const std::lock_guard lock(mutex);
    forgotten += heard.size();
    heard.clear();
}

void FakePlatform::handle(DBusMessage *message)
{
    if (!dbus_message_is_method_call(message, INTERFACE, "get"))
        return;
    const char *key = nullptr;
    if (!dbus_message_get_args(message, nullptr, DBUS_TYPE_STRING, &key, DBUS_TYPE_INVALID))
        return;

    Answer answer;
    size_t number;
    {
        const std::lock_guard lock(mutex);
        const auto set = answers.find(key);
        if (set != answers.end())
            answer = set->second;
        number = forgotten + heard.size();
        heard.push_back({key,
                         dbus_message_get_path(message),
                         dbus_message_get_sender(message),
                         Clock::now(),
                         {}});
    }
    reply(peer, message, answer, [this, number] {
        {
            const std::lock_guard lock(mutex);
            if (number >= forgotten)
                heard[number - forgotten].answered = Clock::now();
        }
        somethingChanged();
    });
    somethingChanged();
}

}  // namespace support
