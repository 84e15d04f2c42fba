// What every test of the pushes stands on: a home with one phone, helpers that record what they are
// run with, and words to read it.

#pragma once

#include "support/daemon_on_its_own_bus.h"
#include "support/push_helpers.h"

namespace support {

inline constexpr const char *PUSH_MESSAGES = "com.OvrinTech.message.pushMsg";
inline constexpr const char *UUID = "ABCDEFGHIJKLMNOPQRST";
inline constexpr uint16_t REPORT = 5001;
inline constexpr uint16_t TAMPER = 4001;
inline constexpr uint16_t LOW_BATTERY = 4002;
inline constexpr uint16_t LOGGED_ONLY = 9999;
inline constexpr uint16_t PUSH_SENT = 5032;

// The phone most tests push to, as a member of the configuration.
inline const std::string ONE_PHONE =
    R"("registeredDevices":[{"token":"T","platform":"ios","app_id":"A"}])";

class Pushes : public ConfigurableDaemon {
protected:
    void SetUp() override
    {
        ConfigurableDaemon::SetUp();
        platform.set("TUTK_UUID", UUID);
        sdk.set({.uid = 5, .channels = {{.chid = 1, .functype = DOOR, .name = "Door sensor"}}});
        sdk.set({.uid = 20, .channels = {{.chid = 0, .functype = SWITCH, .name = "Light"}}});
    }
    void TearDown() override
    {
        helpers.release();  // or the daemon's output stays open
        ConfigurableDaemon::TearDown();
    }
    // The daemon finds the helpers, and no other program, by their names.
    void startHome(const std::string &setup, const std::vector<std::string> &more = {})
    {
        std::vector<std::string> settings = helpers.settings();
        settings.insert(settings.end(), more.begin(), more.end());
        startWith(setup, settings);
    }
    void startWithPhones(const std::string &phones)
    {
        startHome(R"({"registeredDevices":[)" + phones + "]}");
    }
    std::string push(const std::string &text)
    {
        return callForText("message", text, PUSH_MESSAGES);
    }
    bool eventuallyRun(size_t number)
    {
        return eventually([&] { return helpers.count() >= number; });
    }
    // What the first phone of the home has been shown, all of it: commands run in their order, so
    // what was to come before this last one has come.
    std::vector<std::string> shown()
    {
        const std::string marker = "that is all " + std::to_string(++markers);
        EXPECT_EQ(push(marker), "done");
        std::vector<std::string> texts;
        EXPECT_TRUE(eventually([&] {
            texts = helpers.texts();
            return !texts.empty() && texts.back() == marker;
        })) << "the last push was not run";
        std::erase_if(texts,
                      [](const std::string &text) { return text.rfind("that is all ", 0) == 0; });
        return texts;
    }
    // Returns when the event has been done with, its push queued.
    void eventDone(uint16_t code, uint16_t gid, uint16_t channel)
    {
        event(code, gid, channel);
        eventHandled(LOGGED_ONLY, gid, channel);
    }
    // The records of deliveries as they were announced, in order.
    std::vector<Json> deliveries() const
    {
        std::vector<Json> result;
        for (const Json &record : recent()) {
            if (record["eventCode"].integer() == PUSH_SENT)
                result.push_back(record);
        }
        return result;
    }

    PushHelpers helpers;
    int markers = 0;
};

}  // namespace support
