// The SDK daemon's part: it answers for the radio, hands commands to the devices and reports back.

#pragma once

#include "home.h"
#include "peer.h"
#include "plan.h"
#include "timeline.h"

#include <map>

// Event codes of ordinary reports and of the ones that the gateway treats in its own way.
enum EventCode : uint16_t {
    EVENT_GATEWAY_READY = 100,
    EVENT_TAMPER = 4001,
    EVENT_LOW_BATTERY = 4002,
    EVENT_VALUE = 5001,
    EVENT_METER = 5002,
    EVENT_SENSOR = 5003,
};

class Sdk {
public:
    Sdk(Loop &loop, Timeline &timeline, Home &home, Plan &plan);

    void report(const DeviceEvent &event);
    void report(const Place &place, uint16_t code);  // a device tells of one of its channels
    void reportState(const Place &place);            // with its line about the state first

    bool muted = false;
    Millis delay{0};                     // before every answer
    std::map<long long, Millis> delays;  // or before the one about this device

private:
    void asked(const Request &request);
    void answer(const Request &request, const Json &control, Millis waited);
    void heard(const std::string &text);
    void carryOut(const Json &control);
    void showCommand(const Json &control);
    void showSunTime(const std::string &what, long long seconds);
    void pollAll();
    Json answerTo(const Json &control) const;

    Loop &loop_;
    Timeline &timeline_;
    Home &home_;
    Plan &plan_;
    Peer peer_;
};
