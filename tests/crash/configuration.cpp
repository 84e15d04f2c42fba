#include "configuration.h"

#include "support/json.h"

namespace crash {

static constexpr size_t TOKEN_LENGTH = 900;

std::string token(int element, int elements)
{
    std::string text = std::to_string(element) + "/" + std::to_string(elements) + " ";
    text.resize(TOKEN_LENGTH, 'x');
    return text;
}

std::string configuration(int number, int elements)
{
    std::string text = R"({"registeredDevices":[)";
    for (int i = 0; i < elements; ++i) {
        text += i == 0 ? "" : ",";
        text += R"({"email":")" + std::to_string(number) + R"(","token":")" + token(i, elements) +
                "\"}";
    }
    return text + "]}";
}

int numberOf(std::string_view json)
{
    const support::Json text(json);
    if (text.isNull())
        return BROKEN;
    const support::Json devices = text["registeredDevices"];
    const int elements = static_cast<int>(devices.size());
    if (elements == 0)
        return NOTHING;
    const std::string number = devices[0]["email"].text();
    for (int i = 0; i < elements; ++i) {
        const support::Json device = devices[i];
        if (device["email"].text() != number || device["token"].text() != token(i, elements))
            return BROKEN;
    }
    return std::atoi(number.c_str());
}

}  // namespace crash
