#include "main/secrets.h"

#include <charconv>
#include <cstring>

static constexpr std::string_view SECRETS[] = {"password", "camera_password", "token"};
static constexpr const char *SPACE = " \t\r\n";
static constexpr const char *END_OF_VALUE = " \t\r\n,]}:\"[{";

// From behind the opening quote of a text to its closing one, or to the end of all.
static char *endOfText(char *text)
{
    while (*text && *text != '"')
        text += text[0] == '\\' && text[1] ? 2 : 1;
    return text;
}

// Takes the first character of what stands in quotes, which may be written as "\u0070".
static unsigned takeCharacter(std::string_view &written)
{
    static constexpr size_t LENGTH = 6;
    unsigned code = static_cast<unsigned char>(written[0]);
    if (written.size() >= LENGTH && written[0] == '\\' && written[1] == 'u') {
        const char *end = written.data() + LENGTH;
        if (std::from_chars(written.data() + 2, end, code, 16).ptr == end) {
            written.remove_prefix(LENGTH);
            return code;
        }
    }
    written.remove_prefix(1);
    return code;
}

static bool says(std::string_view written, std::string_view plain)
{
    for (const char character : plain) {
        if (written.empty() || takeCharacter(written) != static_cast<unsigned char>(character))
            return false;
    }
    return written.empty();
}

bool isSecret(std::string_view key)
{
    for (const std::string_view secret : SECRETS) {
        if (says(key, secret))
            return true;
    }
    return false;
}

// Puts stars over the value that follows a key, the colon being there or not, and gives its end. A
// list or an object is left as it is.
static char *hideValue(char *position)
{
    position += strspn(position, SPACE);
    if (*position == ':')
        ++position;
    position += strspn(position, SPACE);
    if (*position == '[' || *position == '{')
        return position;
    char *value = *position == '"' ? position + 1 : position;
    char *end = *position == '"' ? endOfText(value) : value + strcspn(value, END_OF_VALUE);
    memset(value, '*', static_cast<size_t>(end - value));
    return *position == '"' && *end ? end + 1 : end;
}

char *withoutSecrets(const char *json)
{
    char *copy = strdup(json);
    if (!copy)
        return nullptr;
    char *position = copy;
    while ((position = strchr(position, '"'))) {
        const char *key = ++position;
        position = endOfText(position);
        const std::string_view name(key, static_cast<size_t>(position - key));
        if (*position)
            ++position;
        if (isSecret(name))
            position = hideValue(position);
    }
    return copy;
}
