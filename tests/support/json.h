// A JSON value to look into: what is missing reads as null, 0 or "".

#pragma once

#include <jansson.h>

#include <concepts>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace support {

class Json {
public:
    Json() = default;
    explicit Json(std::string_view text);  // null when the text is no JSON
    ~Json();
    Json(const Json &other);
    Json &operator=(Json other);

    Json operator[](const char *key) const;
    template <std::integral Index> Json operator[](Index index) const
    {
        return at(static_cast<size_t>(index));
    }

    bool isNull() const
    {
        return !value;
    }
    bool isArray() const
    {
        return json_is_array(value);
    }
    size_t size() const;  // of an array or an object
    int64_t integer() const;
    std::string text() const;
    std::vector<std::string> keys() const;  // sorted
    std::string dump() const;               // compact, ASCII only, keys sorted: as on the wire

    bool operator==(const Json &other) const
    {
        return dump() == other.dump();
    }

private:
    static Json borrowed(json_t *value);
    Json at(size_t index) const;

    json_t *value = nullptr;
};

void PrintTo(const Json &json, std::ostream *stream);

// A text as JSON writes it, with its quotes; bytes that are no UTF-8 stay as they are.
std::string quoted(const std::string &text);

}  // namespace support
