#include "bus/config_requests.h"

#include <algorithm>
#include <cstdio>
#include <limits>
#include <utility>

namespace model {

using Texts = std::vector<std::string>;

Random::Random(uint64_t seed, uint64_t number)
{
    const auto half = [](uint64_t value, int shift) {
        return static_cast<uint32_t>(value >> shift);
    };
    std::seed_seq sequence{half(seed, 0), half(seed, 32), half(number, 0), half(number, 32)};
    engine.seed(sequence);
}

// Not std::uniform_int_distribution, whose numbers differ from library to library. For the same
// reason no expression below draws two numbers in an order that the compiler may choose.
uint64_t Random::below(uint64_t limit)
{
    return engine() % limit;
}

// ---- Texts and numbers

static std::string repeated(const std::string &text, size_t times)
{
    std::string result;
    for (size_t i = 0; i < times; ++i)
        result += text;
    return result;
}

static const Texts &oddTexts()
{
    static const Texts TEXTS = {
        repeated("x", 125),
        repeated("x", 126),
        repeated("x", 127),
        repeated("x", 128),
        repeated("外", 42),              // 126 bytes
        repeated("外", 42) + "x",        // 127 bytes of 43 characters
        repeated("é", 63),               // 126 bytes
        repeated("é", 63) + "\xCC\x81",  // and 128
        repeated("😀", 31) + "é",         // 126 bytes, more as escapes
        "外灯",
        "Ωé",
        "😀",
        "\xF4\x8F\xBF\xBF",  // the last code point
        "\xEF\xBF\xBF",
        "\xEE\x80\x80\xED\x9F\xBF",  // around the surrogates
        "\"quoted\\\"",
        "a/b\tc\nd\re\bf\fg",
        "\x01\x1F\x7F\xC2\x80",
        "[[[[{{{{\\\"",
        repeated("[\"{", 30),
        "%s%n",
        "a",  // as "A", for those who ignore case
        " A",
        "null",
    };
    return TEXTS;
}

static std::string title(Random &random)
{
    static const Texts FEW = {"A", "B", "C"};
    const uint64_t roll = random.below(20);
    if (roll < 16)
        return random.oneOf(FEW);
    return roll < 17 ? "" : random.oneOf(oddTexts());
}

static std::string token(Random &random)
{
    static const Texts LONG = {
        repeated("t", 1022),        repeated("t", 1023),        repeated("t", 1024),
        repeated("t", 3000),        repeated("t", 1021) + "é",  // ends with the field
        repeated("t", 1022) + "é",                              // one byte longer
        repeated("t", 1020) + "外",                             // ends with the field
        repeated("t", 1021) + "外", repeated("t", 1022) + "外", repeated("t", 1020) + "😀",
        repeated("é", 512),
    };
    return random.oneIn(4) ? random.oneOf(LONG) : title(random);
}

static Value text(Random &random)
{
    static const Texts PLAIN = {"", "moon", "lamp.png", "=", "7", "pns"};
    return Value::ofText(random.oneIn(3) ? random.oneOf(oddTexts()) : random.oneOf(PLAIN));
}

static Value extreme(Random &random)
{
    using Limits = std::numeric_limits<int64_t>;
    static const std::vector<int64_t> EXTREMES = {
        Limits::max(), Limits::min(), Limits::max() - 1, Limits::min() + 1, 2147483647, 2147483648,
        -2147483648,   -2147483649,   4294967295,        4294967296,        -1,         -4294967296,
    };
    return Value::ofInteger(random.oneOf(EXTREMES));
}

static Value number(Random &random)
{
    if (random.oneIn(3))
        return extreme(random);
    return Value::ofInteger(static_cast<int64_t>(random.below(256)));
}

// One of few, or an extreme.
static Value key(Random &random)
{
    if (random.oneIn(12))
        return extreme(random);
    return Value::ofInteger(static_cast<int64_t>(random.below(2)));
}

// ---- Sound values

// How often a member is there: one in so many.
struct Density {
    uint64_t parts;    // comps, triggers, targets and whatever else can be deleted alone
    uint64_t members;  // all others
};

static void addTexts(Random &random, Value &object, const Density &density, const Texts &names)
{
    for (const std::string &name : names) {
        if (random.oneIn(density.members))
            object.add(name, text(random));
    }
}

static void addNumbers(Random &random, Value &object, const Density &density, const Texts &names)
{
    for (const std::string &name : names) {
        if (random.oneIn(density.members))
            object.add(name, number(random));
    }
}

using Maker = Value (*)(Random &random, const Density &density);

static Value some(Random &random, const Density &density, Maker make)
{
    static constexpr uint64_t MOST = 3;
    Value array = Value::array();
    for (uint64_t left = random.oneIn(8) ? 0 : 1 + random.below(MOST); left > 0; --left)
        array.elements.push_back(make(random, density));
    return array;
}

static Value target(Random &random, const Density &)
{
    Value object = Value::object();
    for (const char *name : {"dev", "if", "ch"})
        if (!random.oneIn(15))
            object.add(name, key(random));
    return object;
}

static Value comp(Random &random, const Density &density)
{
    Value object = Value::object();
    object.add("target", target(random, density));
    if (!random.oneIn(6))
        object.add("value", number(random));
    return object;
}

static Value siren(Random &random, const Density &)
{
    Value object = Value::object();
    if (!random.oneIn(4))
        object.add("siren_type", number(random));
    return object;
}

static Value scene(Random &random, const Density &density)
{
    Value object = Value::object();
    object.add("title", Value::ofText(title(random)));
    addNumbers(random, object, density, {"invisible", "ID"});
    addTexts(random, object, density, {"icon_name", "icon"});
    if (random.oneIn(density.parts))
        object.add("comps", some(random, density, comp));
    if (random.oneIn(density.parts))
        object.add("buildinSiren", siren(random, density));
    return object;
}

static Value trigger(Random &random, const Density &density)
{
    Value object = Value::object();
    object.add("target", target(random, density));
    addTexts(random, object, density, {"op", "field"});
    addNumbers(random, object, density, {"duration", "threshold", "dataunit"});
    return object;
}

static Value notification(Random &random, const Density &)
{
    return random.oneIn(8) ? Value::other("null") : text(random);
}

static Value macro(Random &random, const Density &density)
{
    Value object = Value::object();
    object.add("title", Value::ofText(title(random)));
    addNumbers(random, object, density,
               {"enabled", "invisible", "priority", "duration", "duration_type"});
    addTexts(random, object, density, {"user_notification_message", "icon_name"});
    if (random.oneIn(density.members)) {
        Value notifications = some(random, density, notification);
        for (const Value &more : some(random, density, notification).elements)
            notifications.elements.push_back(more);
        object.add("enabled_notifications", notifications);
    }
    if (random.oneIn(density.parts))
        object.add("scene",
                   random.oneIn(2) ? Value::ofText(title(random)) : scene(random, density));
    if (random.oneIn(density.parts))
        object.add("triggers", some(random, density, trigger));
    return object;
}

static Value schedule(Random &random, const Density &density)
{
    Value object = Value::object();
    object.add("title", Value::ofText(title(random)));
    addTexts(random, object, density, {"icon_name", "icon"});
    addNumbers(random, object, density,
               {"enabled", "home_security_alarm", "repeat_type", "weekdays", "start_minute",
                "start_hour", "start_day", "start_month", "end_minute", "end_hour", "end_day",
                "end_month", "invisible"});
    if (random.oneIn(density.parts))
        object.add("macro",
                   random.oneIn(2) ? Value::ofText(title(random)) : macro(random, density));
    return object;
}

static Value extraCamera(Random &random, const Density &density)
{
    Value object = Value::object();
    object.add("camera", Value::ofText(title(random)));
    addTexts(random, object, density, {"camera_password"});
    return object;
}

static Value room(Random &random, const Density &density)
{
    Value object = Value::object();
    object.add("title", Value::ofText(title(random)));
    addTexts(random, object, density, {"icon_name", "icon", "camera", "camera_password"});
    if (random.oneIn(density.parts))
        object.add("targets", some(random, density, target));
    if (random.oneIn(density.parts))
        object.add("extra_camera", some(random, density, extraCamera));
    return object;
}

static Value camera(Random &random, const Density &density)
{
    Value object = Value::object();
    object.add("uid", Value::ofText(title(random)));
    addTexts(random, object, density, {"display", "password"});
    return object;
}

static Value phone(Random &random, const Density &density)
{
    Value object = Value::object();
    object.add("token", Value::ofText(token(random)));
    addTexts(random, object, density,
             {"app_id", "email", "username", "password", "gateway_name", "platform", "ver"});
    addNumbers(random, object, density, {"update_ts", "disable_notifications"});
    return object;
}

static Value filter(Random &random, const Density &)
{
    Value object = Value::object();
    for (const char *name : {"uid", "channel", "eventCode"})
        if (random.oneIn(2))
            object.add(name, key(random));
    return object;
}

static Value names(Random &random, const Density &)
{
    Value object = Value::object();
    for (uint64_t left = random.below(4); left > 0; --left) {
        const std::string name = title(random);
        object.add(name, text(random));
    }
    return object;
}

static Value alarm(Random &random, const Density &density)
{
    Value object = Value::object();
    addNumbers(random, object, density, {"duration", "enabled", "siren_type", "trigger_duration"});
    return object;
}

struct Group {
    const char *name;
    Maker element;  // of an array
    Maker whole;    // or the object
};

static const std::vector<Group> GROUPS = {
    {"targetNames", nullptr, names},  {"cameras", camera, nullptr},
    {"macros", macro, nullptr},       {"scenes", scene, nullptr},
    {"schedules", schedule, nullptr}, {"rooms", room, nullptr},
    {"eventFilter", filter, nullptr}, {"registeredDevices", phone, nullptr},
    {"alarm", nullptr, alarm},
};

static Value groupValue(Random &random, const Density &density, const Group &group)
{
    return group.whole ? group.whole(random, density) : some(random, density, group.element);
}

static Value freshRoot(Random &random, const Density &density)
{
    Value root = Value::object();
    const bool all = random.oneIn(12);
    for (uint64_t left = all ? 0 : 1 + random.below(3); left > 0; --left) {
        const Group &group = random.oneOf(GROUPS);
        root.add(group.name, groupValue(random, density, group));
    }
    for (const Group &group : GROUPS) {
        if (all)
            root.add(group.name, groupValue(random, density, group));
    }
    return root;
}

// Leaves out elements and members; what they are looked up by stays. A name that a macro or a
// schedule refers to becomes another one, now and then.
static void thin(Random &random, Value &value)
{
    static const Texts KEYS = {"title", "target", "dev", "if", "ch", "uid", "token", "camera"};
    const bool isObject = value.is(Value::OBJECT);
    for (size_t i = value.elements.size(); i-- > 0;) {
        const bool isKey = isObject && std::count(KEYS.begin(), KEYS.end(), value.names[i]) > 0;
        const bool isName = isObject && value.elements[i].is(Value::TEXT) &&
                            (value.names[i] == "scene" || value.names[i] == "macro");
        if (isName && random.oneIn(3))
            value.elements[i] = Value::ofText(title(random));
        if (isKey || random.oneIn(2)) {
            thin(random, value.elements[i]);
            continue;
        }
        const auto at = static_cast<std::ptrdiff_t>(i);
        value.elements.erase(value.elements.begin() + at);
        if (isObject)
            value.names.erase(value.names.begin() + at);
    }
}

// The configuration, or a part of it, as a request.
static Value currentRoot(Random &random, const Value &current)
{
    Value root = Value::object();
    for (size_t i = 0; i < current.names.size(); ++i) {
        if (!current.elements[i].elements.empty())  // an empty group would answer for all
            root.add(current.names[i], current.elements[i]);
    }
    if (!random.oneIn(4))
        thin(random, root);
    return root;
}

static Value renaming(Random &random, const Value &current)
{
    static const Texts WORDS = {"macros", "scenes", "rooms", "schedules"};
    static const Texts OTHER_WORDS = {"Scenes", "cameras", "schedule", "registeredDevices", ""};
    const std::string &word = random.oneOf(random.oneIn(10) ? OTHER_WORDS : WORDS);
    std::string from = title(random);
    const Value *group = current.find(word, Value::ARRAY);
    if (group && !group->elements.empty() && !random.oneIn(4)) {
        if (const Value *known = random.oneOf(group->elements).find("title", Value::TEXT))
            from = known->text;
    }
    const std::string to = random.oneIn(3) ? random.oneOf(oddTexts()) : title(random);
    return Value::array({Value::ofText(word), Value::ofText(from), Value::ofText(to)});
}

// ---- Disorder

static Value nest(uint64_t levels, Random &random)
{
    Value value = Value::ofInteger(1);
    for (; levels > 0; --levels) {
        Value outer = random.oneIn(2) ? Value::object() : Value::array();
        if (outer.is(Value::OBJECT))
            outer.add("a", std::move(value));
        else
            outer.elements.push_back(std::move(value));
        value = std::move(outer);
    }
    return value;
}

// A value of a type that nobody asked for; every JSON library reads it.
static Value odd(Random &random)
{
    static const Texts OTHERS = {"null", "true",   "false", "1.0",    "-0.0",
                                 "1e0",  "0.5e-7", "1E+2",  "1e-400", "9223372036854775808.0"};
    switch (random.below(6)) {
    case 0:
        return number(random);
    case 1:
        return text(random);
    case 2:
        return Value::array({number(random)});
    case 3:
        return random.oneIn(2) ? Value::array() : Value::object();
    default:
        return Value::other(random.oneOf(OTHERS));
    }
}

static Value unreadable(Random &random)
{
    static const Texts TEXTS = {
        "9223372036854775808",
        "-9223372036854775809",
        "100000000000000000000",
        "1e400",
        "-1e400",
        "01",
        "+1",
        "-",
        "1.",
        ".5",
        "0x1F",
        "nul",
        "True",
        "NaN",
        "Infinity",
        R"("\ud800")",
        R"("\ud800x")",
        R"("\ud83d\u0041")",
        R"("\udc00")",
        R"("\u0000")",
        R"("\u12G4")",
        R"("\x41")",
        "\"a\tb\"",
        "\"a\nb\"",
        "\"open",
        "'A'",
        "[1,]",
        "[1 2]",
        "[",
        R"({"a":1,})",
        R"({"a" 1})",
        "{a:1}",
        R"({"a\u0000":1})",
        "/* */ 1",
        "\xEF\xBB\xBF"
        "1",
    };
    return Value::unreadable(random.oneOf(TEXTS));
}

static void disturbObject(Random &random, Value &object)
{
    for (size_t i = 0; i < object.names.size();) {
        const uint64_t roll = random.below(60);
        if (roll == 0) {
            object.elements[i] = odd(random);
        } else if (roll == 1) {
            object.names.erase(object.names.begin() + static_cast<std::ptrdiff_t>(i));
            object.elements.erase(object.elements.begin() + static_cast<std::ptrdiff_t>(i));
            continue;
        } else if (roll == 2) {  // twice: the old value last, or something else
            const Value twice = random.oneIn(2) ? object.elements[i] : odd(random);
            if (random.oneIn(2))
                object.elements[i] = odd(random);
            object.add(object.names[i], twice);
        } else if (roll == 3) {
            object.add("Title", text(random));  // known to nobody
        }
        ++i;
    }
}

static void disturbArray(Random &random, Value &array)
{
    if (random.oneIn(12)) {
        const uint64_t place = random.below(array.elements.size() + 1);
        array.elements.insert(array.elements.begin() + static_cast<std::ptrdiff_t>(place),
                              odd(random));
    }
    if (!array.elements.empty() && random.oneIn(12)) {
        const Value again = random.oneOf(array.elements);
        array.elements.push_back(again);
    }
}

static void disturb(Random &random, Value &value)
{
    if (value.is(Value::OBJECT))
        disturbObject(random, value);
    else if (value.is(Value::ARRAY))
        disturbArray(random, value);
    for (Value &element : value.elements)
        disturb(random, element);
}

// Puts the value somewhere below.
static void plant(Random &random, Value &root, Value planted)
{
    Value *place = &root;
    while (!place->elements.empty() && !random.oneIn(4))
        place = &place->elements[random.below(place->elements.size())];
    if (place->is(Value::OBJECT))
        place->add("a", std::move(planted));
    else if (place->is(Value::ARRAY))
        place->elements.push_back(std::move(planted));
    else
        *place = std::move(planted);
}

// ---- Text

class Writer {
public:
    explicit Writer(Random &writersRandom)
        : random(writersRandom), spaced(random.oneIn(3)), escaping(random.oneIn(3))
    {
    }

    std::string write(const Value &value)
    {
        std::string result = space();
        result += bare(value);
        result += space();
        return result;
    }

private:
    std::string space()
    {
        static const Texts SPACES = {"", " ", "\t", "\n", "\r\n", "  "};
        return spaced ? random.oneOf(SPACES) : "";
    }

    std::string bare(const Value &value)
    {
        switch (value.kind) {
        case Value::INTEGER:
            return value.integer == 0 && random.oneIn(8) ? "-0" : std::to_string(value.integer);
        case Value::TEXT:
            return quoted(value.text);
        case Value::ARRAY:
            return "[" + list(value) + "]";
        case Value::OBJECT:
            return "{" + list(value) + "}";
        default:
            return value.text;
        }
    }

    std::string list(const Value &value)
    {
        std::string result = value.elements.empty() ? space() : "";
        for (size_t i = 0; i < value.elements.size(); ++i) {
            result += i > 0 ? "," : "";
            if (value.is(Value::OBJECT)) {
                result += space();
                result += quoted(value.names[i]);
                result += space();
                result += ":";
            }
            result += write(value.elements[i]);
        }
        return result;
    }

    std::string unit(uint32_t code)
    {
        char result[8];
        snprintf(result, sizeof result, random.oneIn(2) ? "\\u%04x" : "\\u%04X", code & 0xFFFFu);
        return result;
    }

    std::string escape(uint32_t code)
    {
        static const std::string SHORT = "\"\\/\b\f\n\r\t", LETTERS = "\"\\/bfnrt";
        const size_t at = code < 0x80 ? SHORT.find(static_cast<char>(code)) : std::string::npos;
        if (at != std::string::npos && !random.oneIn(4))
            return {'\\', LETTERS[at]};
        if (code < 0x10000)
            return unit(code);
        const std::string high = unit(0xD800 + ((code - 0x10000) >> 10));
        return high + unit(0xDC00 + ((code - 0x10000) & 0x3FF));
    }

    std::string quoted(const std::string &text)
    {
        std::string result = "\"";
        for (size_t i = 0; i < text.size();) {
            size_t next = i + 1;
            while (next < text.size() && (static_cast<unsigned char>(text[next]) & 0xC0) == 0x80)
                ++next;
            const std::string character = text.substr(i, next - i);
            const uint32_t code = codePoints(character)[0];
            const bool mustEscape = code < 0x20 || code == '"' || code == '\\';
            result += mustEscape || (escaping && random.oneIn(3)) ? escape(code) : character;
            i = next;
        }
        return result + "\"";
    }

    Random &random;
    const bool spaced, escaping;
};

// A text that holds no whole JSON value, or more than one.
static std::string broken(Random &random, const std::string &whole)
{
    static const Texts TAILS = {"}", "]", ",", "{}", "x", "\"", "//"};
    if (random.oneIn(4))
        return random.oneOf(Texts{"", " ", "x", "\xEF\xBB\xBF{}", "{", "}", "[", "\"", "{\"a\"}"});
    if (random.oneIn(2))
        return whole + random.oneOf(TAILS);
    const size_t lastBracket = whole.find_last_of("]}");
    size_t size = random.below(lastBracket + 1);
    while ((static_cast<unsigned char>(whole[size]) & 0xC0) == 0x80)
        --size;  // the bus takes whole characters alone
    return whole.substr(0, size);
}

Request randomRequest(Random &random, const Value &current)
{
    static constexpr Density OF_SET = {2, 2}, OF_DELETE = {2, 10};
    static constexpr uint64_t LEVELS = 64;

    Request request;
    const uint64_t kind = random.below(20);
    if (kind < 10) {
        request.kind = Request::SET;
        request.value = random.oneIn(12) ? currentRoot(random, current) : freshRoot(random, OF_SET);
    } else if (kind < 17) {
        request.kind = Request::DELETE;
        request.value =
            random.oneIn(3) ? currentRoot(random, current) : freshRoot(random, OF_DELETE);
    } else {
        request.kind = Request::RENAME;
        request.value = renaming(random, current);
    }
    if (random.oneIn(2))
        disturb(random, request.value);
    if (random.oneIn(30))
        plant(random, request.value, nest(LEVELS - 8 + random.below(12), random));
    if (random.oneIn(40))
        request.value = random.oneIn(2) ? Value::array({request.value}) : odd(random);
    if (random.oneIn(30))
        plant(random, request.value, unreadable(random));
    request.text = Writer(random).write(request.value);
    if (random.oneIn(40) && request.text.find_last_of("]}") != std::string::npos) {
        request.text = broken(random, request.text);
        request.value = Value::unreadable(request.text);
    }
    return request;
}

}  // namespace model
