#include "platform.h"

#include <fmt/format.h>

Platform::Platform(Loop &loop, Timeline &timeline, Home &home)
    : timeline_(timeline), home_(home), peer_(loop, "com.ovrinbus.platform")
{
    peer_.serve("com.OvrinTech.platform.nvram", "get", [this, &loop](const Request &request) {
        if (muted) {
            timeline_.add({.from = "app",
                           .to = "platform",
                           .text = fmt::format("nvram {}, not answered", request.text()),
                           .words = {"nvram", request.text(), "muted"},
                           .tone = Tone::TROUBLE});
        } else if (delay.count() > 0) {
            loop.after(delay, [this, request] { answer(request); });
        } else {
            answer(request);
        }
    });
}

void Platform::answer(const Request &request)
{
    const std::string &key = request.text();
    const auto found = home_.settings.find(key);
    const bool known = found != home_.settings.end() && found->second;
    const std::string late = delay.count() > 0 ? fmt::format(" after {} ms", delay.count()) : "";
    if (known) {
        request.answer(*found->second);
        timeline_.add({.from = "app",
                       .to = "platform",
                       .text = fmt::format("nvram {} is \"{}\"{}", key, *found->second, late),
                       .words = {"nvram", key, *found->second},
                       .tone = Tone::QUIET});
    } else {
        request.refuse(fmt::format("no setting called {}", key));
        timeline_.add({.from = "app",
                       .to = "platform",
                       .text = fmt::format("nvram {} is not set{}", key, late),
                       .words = {"nvram", key, "unset"},
                       .tone = Tone::QUIET});
    }
}
