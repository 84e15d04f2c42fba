#include "bus/config_value.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <utility>

namespace model {

Value Value::ofInteger(int64_t integer)
{
    Value value;
    value.kind = INTEGER;
    value.integer = integer;
    return value;
}

Value Value::ofText(std::string text)
{
    Value value;
    value.kind = TEXT;
    value.text = std::move(text);
    return value;
}

Value Value::array(std::vector<Value> elements)
{
    Value value;
    value.kind = ARRAY;
    value.elements = std::move(elements);
    return value;
}

Value Value::object()
{
    Value value;
    value.kind = OBJECT;
    return value;
}

Value Value::other(std::string text)
{
    Value value;
    value.text = std::move(text);
    return value;
}

Value Value::unreadable(std::string text)
{
    Value value = other(std::move(text));
    value.kind = UNREADABLE;
    return value;
}

void Value::add(std::string name, Value value)
{
    names.push_back(std::move(name));
    elements.push_back(std::move(value));
}

const Value *Value::find(const std::string &name, Kind wanted) const
{
    for (size_t i = names.size(); i-- > 0;) {
        if (names[i] == name)
            return elements[i].is(wanted) ? &elements[i] : nullptr;
    }
    return nullptr;
}

std::vector<std::string> Value::uniqueNames() const
{
    std::vector<std::string> result;
    for (const std::string &name : names) {
        if (std::find(result.begin(), result.end(), name) == result.end())
            result.push_back(name);
    }
    return result;
}

int depth(const Value &value)
{
    if (!value.is(Value::ARRAY) && !value.is(Value::OBJECT))
        return 0;
    int deepest = 0;
    for (const Value &element : value.elements)
        deepest = std::max(deepest, depth(element));
    return deepest + 1;
}

bool holdsUnreadable(const Value &value)
{
    return value.is(Value::UNREADABLE) ||
           std::any_of(value.elements.begin(), value.elements.end(), holdsUnreadable);
}

std::vector<uint32_t> codePoints(const std::string &text)
{
    std::vector<uint32_t> result;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x80)
            result.push_back(byte);
        else if (byte >= 0xF0)
            result.push_back(byte & 0x07u);
        else if (byte >= 0xE0)
            result.push_back(byte & 0x0Fu);
        else if (byte >= 0xC0)
            result.push_back(byte & 0x1Fu);
        else
            result.back() = result.back() << 6 | (byte & 0x3Fu);
    }
    return result;
}

static std::string escaped(uint32_t unit)
{
    char text[8];
    snprintf(text, sizeof text, "\\u%04X", unit & 0xFFFFu);
    return text;
}

static std::string escapedAscii(char c)
{
    static const std::string ESCAPED = "\"\\\b\f\n\r\t", LETTERS = "\"\\bfnrt";
    const size_t at = ESCAPED.find(c);
    if (at != std::string::npos)
        return {'\\', LETTERS[at]};
    return c < 0x20 ? escaped(static_cast<uint32_t>(c)) : std::string(1, c);
}

static std::string dumpText(const std::string &text)
{
    static const std::string PLAIN = "xt0123456789 abcdefghijklmnopqrsuvwyz_-./=ABC";
    if (text.find_first_not_of(PLAIN) == std::string::npos)  // most are, and many are long
        return "\"" + text + "\"";
    std::string result = "\"";
    for (const uint32_t code : codePoints(text)) {
        if (code < 0x80)
            result += escapedAscii(static_cast<char>(code));
        else if (code < 0x10000)
            result += escaped(code);
        else
            result += escaped(0xD800 + ((code - 0x10000) >> 10)) +
                      escaped(0xDC00 + ((code - 0x10000) & 0x3FF));
    }
    return result + "\"";
}

static std::string dumpObject(const Value &value)
{
    std::map<std::string, const Value *> members;  // sorted by their bytes
    for (size_t i = 0; i < value.names.size(); ++i)
        members[value.names[i]] = &value.elements[i];
    std::string result;
    for (const auto &[name, member] : members)
        result += (result.empty() ? "" : ",") + dumpText(name) + ":" + dump(*member);
    return "{" + result + "}";
}

static std::string dumpArray(const Value &value)
{
    std::string result;
    for (const Value &element : value.elements)
        result += (result.empty() ? "" : ",") + dump(element);
    return "[" + result + "]";
}

std::string dump(const Value &value)
{
    switch (value.kind) {
    case Value::INTEGER:
        return std::to_string(value.integer);
    case Value::TEXT:
        return dumpText(value.text);
    case Value::ARRAY:
        return dumpArray(value);
    case Value::OBJECT:
        return dumpObject(value);
    default:
        return value.text;
    }
}

}  // namespace model
