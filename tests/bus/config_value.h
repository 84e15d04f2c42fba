// A JSON value as a request spells it: members in their order, a name as often as it was written,
// numbers that fit nowhere. Plain containers, and nothing of the library that the daemon reads
// with.

#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace model {

struct Value {
    enum Kind {
        INTEGER,
        TEXT,
        ARRAY,
        OBJECT,
        OTHER,       // null, true, false, a real: nothing in a configuration has such a type
        UNREADABLE,  // no JSON, or a number that fits nowhere: the text around it is refused whole
    };

    Kind kind = OTHER;
    int64_t integer = 0;
    std::string text = "null";       // UTF-8; what OTHER and UNREADABLE look like in the request
    std::vector<Value> elements;     // of an array and of an object
    std::vector<std::string> names;  // of an object: elements[i] is called names[i]

    static Value ofInteger(int64_t integer);
    static Value ofText(std::string text);
    static Value array(std::vector<Value> elements = {});
    static Value object();
    static Value other(std::string text);
    static Value unreadable(std::string text);

    bool is(Kind wanted) const
    {
        return kind == wanted;
    }
    void add(std::string name, Value value);
    // The member of that name and kind, or null. Of members of one name the last one counts.
    const Value *find(const std::string &name, Kind wanted) const;
    // The names, each once, where it was written first.
    std::vector<std::string> uniqueNames() const;
};

// How many arrays and objects stand inside each other.
int depth(const Value &value);
bool holdsUnreadable(const Value &value);

// Compact, ASCII only, names sorted: as the daemon writes.
std::string dump(const Value &value);

// The UTF-8 text's code points.
std::vector<uint32_t> codePoints(const std::string &text);

}  // namespace model
