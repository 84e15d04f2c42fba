#include "json_mutator.h"

#include "main/scope.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <random>
#include <string>
#include <vector>

extern "C" size_t LLVMFuzzerMutate(uint8_t *data, size_t size, size_t limit);

using Random = std::minstd_rand;

static size_t choose(Random &random, size_t count)
{
    return random() % count;
}

// Where a value stands: a member of an object or an element of an array.
struct Place {
    json_t *parent;
    std::string key;
    size_t index;

    json_t *value() const
    {
        return json_is_object(parent) ? json_object_get(parent, key.c_str())
                                      : json_array_get(parent, index);
    }
    void put(json_t *taken) const
    {
        if (json_is_object(parent))
            json_object_set_new(parent, key.c_str(), taken);
        else
            json_array_set_new(parent, index, taken);
    }
    void remove() const
    {
        if (json_is_object(parent))
            json_object_del(parent, key.c_str());
        else
            json_array_remove(parent, index);
    }
};

static void collectPlaces(json_t *value, std::vector<Place> &places)
{
    const char *key;
    json_t *member;
    size_t i;
    json_object_foreach(value, key, member)
    {
        places.push_back({value, key, 0});
        collectPlaces(member, places);
    }
    json_array_foreach(value, i, member)
    {
        places.push_back({value, {}, i});
        collectPlaces(member, places);
    }
}

// A text whose length is at one of the limits of the fields, of one byte a character or of two.
static json_t *limitText(Random &random)
{
    static constexpr size_t LENGTHS[] = {0, 1, 125, 126, 127, 128, 1022, 1023, 1024, 1025};
    const size_t length = LENGTHS[choose(random, std::size(LENGTHS))];
    std::string text(length % 2, 'a');
    const bool wide = choose(random, 2);
    while (text.size() < length)
        text += wide ? "\xC3\xA4" : "bb";
    return json_string(text.c_str());
}

static json_t *plainValue(Random &random)
{
    static constexpr json_int_t INTEGERS[] = {0,   1,       -1,        2,         127,     255,
                                              256, INT_MAX, LLONG_MAX, LLONG_MIN, INT_MIN, 65536};
    switch (choose(random, 8)) {
    case 0:
        return json_null();
    case 1:
        return json_boolean(choose(random, 2));
    case 2:
        return json_real(1.5);
    case 3:
        return json_object();
    case 4:
        return json_array();
    case 5:
        return limitText(random);
    default:
        return json_integer(INTEGERS[choose(random, std::size(INTEGERS))]);
    }
}

// Adds what stands at `from` to the object or array `to`, under its own name or at the end.
static void addTo(json_t *to, const Place &from)
{
    json_t *copy = json_deep_copy(from.value());
    if (json_is_array(to))
        json_array_append_new(to, copy);
    else if (!from.key.empty())
        json_object_set_new(to, from.key.c_str(), copy);
    else
        json_decref(copy);
}

static json_t *wrapped(const json_t *value, bool inArray)
{
    json_t *outer = inArray ? json_array() : json_object();
    if (inArray)
        json_array_append_new(outer, json_deep_copy(value));
    else
        json_object_set_new(outer, "title", json_deep_copy(value));
    return outer;
}

// One change at `place`; `source` is where material comes from, of this document or of another.
static void change(Random &random, const Place &place, const Place &source)
{
    switch (choose(random, 7)) {
    case 0:
        place.remove();
        break;
    case 1:
        place.put(plainValue(random));
        break;
    case 2:
        addTo(place.parent, source);
        break;
    case 3:
        addTo(place.parent, place);  // an element twice
        break;
    case 4:
        if (json_is_object(place.value()) || json_is_array(place.value()))
            addTo(place.value(), source);
        else
            place.put(limitText(random));
        break;
    case 5:
        place.put(wrapped(place.value(), choose(random, 2)));
        break;
    default:
        place.put(json_deep_copy(source.value()));
    }
}

static Owned<json_t> parse(const uint8_t *data, size_t size)
{
    static constexpr auto MOST_BRACKETS = 1000;  // beyond, a document lives by its bytes
    if (std::count(data, data + size, '[') + std::count(data, data + size, '{') > MOST_BRACKETS)
        return nullptr;
    return Owned<json_t>(json_loadb(reinterpret_cast<const char *>(data), size, 0, nullptr));
}

static std::string changed(json_t *root, json_t *material, Random &random)
{
    std::vector<Place> places;
    std::vector<Place> sources;
    for (size_t changes = 1 + choose(random, 3); changes > 0; --changes) {
        places.clear();  // the last change has moved them
        sources.clear();
        collectPlaces(root, places);
        collectPlaces(material, sources);
        if (places.empty() || sources.empty())
            break;
        change(random, places[choose(random, places.size())],
               sources[choose(random, sources.size())]);
    }
    const Owned<char> text(json_dumps(root, JSON_COMPACT));
    return text ? text.get() : "";
}

// A member twice, which no JSON value in memory can have.
static std::string twice(const std::string &text, const std::string &other)
{
    if (text.size() < 3 || other.size() < 3 || text[0] != '{' || other[0] != '{')
        return text;
    return text.substr(0, text.size() - 1) + "," + other.substr(1);
}

size_t mutateJson(uint8_t *data, size_t size, size_t limit, size_t begin, size_t end, unsigned seed)
{
    Random random(seed);
    const Owned<json_t> root = choose(random, 4) ? parse(data + begin, end - begin) : nullptr;
    if (!root)
        return LLVMFuzzerMutate(data, size, limit);
    const std::string before(reinterpret_cast<const char *>(data) + begin, end - begin);
    std::string text = changed(root.get(), root.get(), random);
    if (choose(random, 16) == 0)
        text = twice(before, text);
    const size_t following = size - end;
    if (text.empty() || begin + text.size() + following > limit)
        return LLVMFuzzerMutate(data, size, limit);
    memmove(data + begin + text.size(), data + end, following);
    memcpy(data + begin, text.data(), text.size());
    return begin + text.size() + following;
}

size_t crossJson(const uint8_t *data, size_t size, const uint8_t *other, size_t otherSize,
                 uint8_t *out, size_t limit, unsigned seed)
{
    Random random(seed);
    const Owned<json_t> root = parse(data, size);
    const Owned<json_t> material = parse(other, otherSize);
    if (!root || !material)
        return 0;
    const std::string text = changed(root.get(), material.get(), random);
    if (text.size() > limit)
        return 0;
    memcpy(out, text.data(), text.size());
    return text.size();
}
