#include "config/secrets.h"

#include "config/record.h"

#include <cstring>
#include <string_view>

static constexpr std::string_view SECRETS[] = {"password", "camera_password", "token"};
static constexpr const char *SPACE = " \t\r\n";

// From behind the opening quote of a text to its closing one, or to the end of all.
static char *endOfText(char *text)
{
    while (*text && *text != '"')
        text += text[0] == '\\' && text[1] ? 2 : 1;
    return text;
}

static bool isSecret(std::string_view key)
{
    for (const std::string_view secret : SECRETS) {
        if (key == secret)
            return true;
    }
    return false;
}

// The text that is the value of a member, from behind its opening quote; null when it is none.
static char *valueBehindKey(char *position)
{
    position += strspn(position, SPACE);
    if (*position != ':')
        return nullptr;
    ++position;
    position += strspn(position, SPACE);
    return *position == '"' ? position + 1 : nullptr;
}

char *withoutSecrets(const char *json)
{
    char *copy = copyText(json);
    if (!copy)
        return nullptr;
    char *position = copy;
    while ((position = strchr(position, '"'))) {
        const char *key = ++position;
        position = endOfText(position);
        const std::string_view name(key, static_cast<size_t>(position - key));
        if (*position)
            ++position;
        char *value = isSecret(name) ? valueBehindKey(position) : nullptr;
        if (!value)
            continue;
        position = endOfText(value);
        memset(value, '*', static_cast<size_t>(position - value));
        if (*position)
            ++position;
    }
    return copy;
}
