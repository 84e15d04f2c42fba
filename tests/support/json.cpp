#include "support/json.h"

#include <algorithm>
#include <cstdlib>
#include <ostream>
#include <utility>

namespace support {

Json::Json(std::string_view text)
    : value(json_loadb(text.data(), text.size(), JSON_DECODE_ANY, nullptr))
{
}

Json::~Json()
{
    json_decref(value);
}

Json::Json(const Json &other) : value(json_incref(other.value))
{
}

Json &Json::operator=(Json other)
{
    std::swap(value, other.value);
    return *this;
}

Json Json::borrowed(json_t *value)
{
    Json result;
    result.value = json_incref(value);
    return result;
}

Json Json::operator[](const char *key) const
{
    return borrowed(json_object_get(value, key));
}

Json Json::at(size_t index) const
{
    return borrowed(json_array_get(value, index));
}

size_t Json::size() const
{
    return json_is_array(value) ? json_array_size(value) : json_object_size(value);
}

int64_t Json::integer() const
{
    return json_integer_value(value);
}

std::string Json::text() const
{
    const char *text = json_string_value(value);
    return text ? text : "";
}

std::vector<std::string> Json::keys() const
{
    std::vector<std::string> result;
    const char *key;
    json_t *member;
    json_object_foreach(value, key, member) result.emplace_back(key);
    std::sort(result.begin(), result.end());
    return result;
}

std::string Json::dump() const
{
    char *text =
        json_dumps(value, JSON_COMPACT | JSON_ENSURE_ASCII | JSON_SORT_KEYS | JSON_ENCODE_ANY);
    const std::string result = text ? text : "null";
    std::free(text);
    return result;
}

void PrintTo(const Json &json, std::ostream *stream)
{
    *stream << json.dump();
}

std::string quoted(const std::string &text)
{
    json_t *string = json_stringn_nocheck(text.data(), text.size());
    char *dumped = json_dumps(string, JSON_ENCODE_ANY);
    const std::string result = dumped ? dumped : "\"\"";
    free(dumped);
    json_decref(string);
    return result;
}

}  // namespace support
