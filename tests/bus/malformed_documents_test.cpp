// Thousands of documents with one fault each: cut at every byte, a member of another type, nested
// too deep, a text too long. Each is answered, what it is worth is applied and nothing else, and
// the daemon serves on.
//
// How long the longest answer took is recorded with the test and printed, not checked: that is the
// machine's matter.

#include "bus/config_model.h"
#include "support/daemon_on_its_own_bus.h"

#include <algorithm>
#include <functional>
#include <iostream>
#include <jansson.h>
#include <set>

using namespace support;
using model::Model;
using model::Request;
using model::Value;

static Value valueOf(const json_t *json)
{
    if (json_is_object(json)) {
        Value object = Value::object();
        const char *name;
        json_t *member;
        json_object_foreach(const_cast<json_t *>(json), name, member)
        {
            object.add(name, valueOf(member));
        }
        return object;
    }
    if (json_is_array(json)) {
        Value array = Value::array();
        for (size_t i = 0; i < json_array_size(json); ++i)
            array.elements.push_back(valueOf(json_array_get(json, i)));
        return array;
    }
    if (json_is_string(json))
        return Value::ofText(json_string_value(json));
    return Value::ofInteger(json_integer_value(json));
}

static Value parsed(const char *text)
{
    json_t *json = json_loads(text, 0, nullptr);
    const Value value = valueOf(json);
    json_decref(json);
    return value;
}

// Everything a configuration can hold, each member with a value that it would not have by itself.
static const Value WHOLE = parsed(R"({
    "alarm":{"duration":30,"enabled":1,"siren_type":2,"trigger_duration":7},
    "cameras":[{"display":"Front door","password":"\u0160ifra","uid":"cam1"},
        {"display":"Garage","password":"word","uid":"cam2"}],
    "eventFilter":[{"uid":5},{"channel":3,"eventCode":4001},{"channel":1,"eventCode":9,"uid":6}],
    "macros":[
        {"duration":60,"duration_type":1,"enabled":1,"enabled_notifications":["pns","email","sms"],
         "icon_name":"door","invisible":1,"priority":4,"scene":"Evening","title":"Door",
         "triggers":[{"dataunit":1,"duration":9,"field":"state","op":"=","threshold":255,
             "target":{"ch":1,"dev":9,"if":2}}],
         "user_notification_message":"The \"door\" \\ is open"},
        {"duration":20,"duration_type":2,"enabled":3,"enabled_notifications":["x"],"icon_name":"m",
         "invisible":2,"priority":5,"title":"Motion","user_notification_message":"moved",
         "scene":{"ID":77,"buildinSiren":{"siren_type":3},"icon":"own.png","icon_name":"own",
             "comps":[{"target":{"ch":4,"dev":21,"if":1},"value":255},
                 {"target":{"ch":5,"dev":22,"if":1},"value":15}],
             "invisible":1,"title":"Own"},
         "triggers":[{"dataunit":2,"duration":8,"field":"motion","op":">","threshold":-20,
             "target":{"ch":3,"dev":10,"if":4}}]},
        {"duration":1,"duration_type":1,"enabled":1,"enabled_notifications":[],"icon_name":"b",
         "invisible":1,"priority":1,"title":"Bare","user_notification_message":"nothing to do"}],
    "registeredDevices":[
        {"app_id":"ios.1","disable_notifications":1,"email":"a@example.org","gateway_name":"home",
         "password":"one","platform":"ios","token":"token-1","update_ts":1700000000,
         "username":"ann","ver":"9"},
        {"app_id":"gcm.2","disable_notifications":2,"email":"b@example.org","gateway_name":"hut",
         "password":"two","platform":"gcm","token":"token-2","update_ts":1800000000,
         "username":"bob","ver":"9"}],
    "rooms":[
        {"camera":"cam1","camera_password":"secret","icon":"hall.png","icon_name":"hall",
         "extra_camera":[{"camera":"cam3","camera_password":"three"},
             {"camera":"cam4","camera_password":"four"}],
         "targets":[{"ch":1,"dev":5,"if":1},{"ch":2,"dev":6,"if":1}],"title":"Hall"},
        {"camera":"cam2","camera_password":"word","icon":"k.png","icon_name":"k",
         "extra_camera":[],"targets":[{"ch":3,"dev":7,"if":1}],"title":"K\u0151"},
        {"camera":"cam5","camera_password":"five","extra_camera":[{"camera":"cam6",
         "camera_password":"six"}],"icon":"a.png","icon_name":"attic","targets":[],
         "title":"Attic"}],
    "scenes":[
        {"ID":1,"buildinSiren":{"siren_type":4},"icon":"evening.png","icon_name":"moon",
         "comps":[{"target":{"ch":1,"dev":5,"if":1},"value":99},
             {"target":{"ch":2,"dev":6,"if":1},"value":-9223372036854775807},
             {"target":{"ch":3,"dev":7,"if":1},"value":9223372036854775807}],
         "invisible":1,"title":"Evening"},
        {"ID":2,"icon":"morning.png","icon_name":"sun",
         "comps":[{"target":{"ch":1,"dev":8,"if":1},"value":33}],
         "invisible":2,"title":"\u5916\u5730"},
        {"ID":3,"buildinSiren":{"siren_type":9},"comps":[],"icon":"siren.png","icon_name":"siren",
         "invisible":3,"title":"Siren"}],
    "schedules":[
        {"enabled":1,"end_day":2,"end_hour":3,"end_minute":4,"end_month":5,
         "home_security_alarm":6,"icon":"s.png","icon_name":"s","invisible":9,"macro":"Door",
         "repeat_type":7,"start_day":8,"start_hour":9,"start_minute":10,"start_month":11,
         "title":"Night","weekdays":127},
        {"enabled":2,"end_day":3,"end_hour":4,"end_minute":5,"end_month":6,
         "home_security_alarm":7,"icon":"t.png","icon_name":"t","invisible":9,
         "macro":{"duration":2,"duration_type":2,"enabled":2,"enabled_notifications":["own"],
             "icon_name":"o","invisible":2,"priority":2,"scene":"Evening","title":"Private",
             "user_notification_message":"scheduled"},
         "repeat_type":8,"start_day":9,"start_hour":10,"start_minute":11,"start_month":12,
         "title":"Day","weekdays":1},
        {"enabled":3,"end_day":4,"end_hour":5,"end_minute":6,"end_month":7,
         "home_security_alarm":8,"icon":"u.png","icon_name":"u","invisible":9,"repeat_type":9,
         "start_day":10,"start_hour":11,"start_minute":12,"start_month":1,"title":"Year",
         "weekdays":64}],
    "targetNames":{"5_1_1":"Lamp","6_1_2":"Fan","7_1_3":"Heater"}})");

// ---- Places in a document

struct Place {
    std::vector<size_t> steps;  // from the root, each an element's position
    std::string path;           // the same by name, "/scenes/0/title"
};

template <typename Document> static Document &at(Document &document, const Place &place)
{
    Document *value = &document;
    for (const size_t step : place.steps)
        value = &value->elements.at(step);
    return *value;
}

// Every place below the root, each before the one that holds it.
static std::vector<Place> places(const Value &document)
{
    std::vector<Place> result;
    const std::function<void(const Value &, const Place &)> visit = [&](const Value &value,
                                                                        const Place &place) {
        for (size_t i = 0; i < value.elements.size(); ++i) {
            const std::string name = value.is(Value::OBJECT) ? value.names[i] : std::to_string(i);
            Place part{place.steps, place.path + "/" + name};
            part.steps.push_back(i);
            visit(value.elements[i], part);
        }
        if (!place.steps.empty())
            result.push_back(place);
    };
    visit(document, {});
    return result;
}

static bool beginsWith(const std::string &text, const std::string &begin)
{
    return text.rfind(begin, 0) == 0;
}

static std::string lastName(const Place &place)
{
    return place.path.substr(place.path.rfind('/') + 1);
}

// Two places of one kind differ in their positions alone: "/scenes/#/title".
static std::string kindOf(const Place &place)
{
    std::string kind = place.path;
    if (!beginsWith(kind, "/targetNames"))
        std::replace_if(
            kind.begin(), kind.end(), [](char c) { return c >= '0' && c <= '9'; }, '#');
    return kind;
}

// Whether elements are found by what stands there, or it is never read.
static bool isKey(const Place &place)
{
    static const std::set<std::string> KEYS = {"title", "uid", "token",   "dev",
                                               "if",    "ch",  "channel", "eventCode"};
    static const std::set<std::string> NEVER_READ = {"/registeredDevices/#/ver",
                                                     "/schedules/#/invisible"};
    return KEYS.count(lastName(place)) || NEVER_READ.count(kindOf(place)) ||
           kindOf(place) == "/rooms/#/extra_camera/#/camera";
}

// ---- The faults

// One of each JSON type. A text and an object mean something where the other stands in "scene" and
// "macro".
static std::vector<Value> oneOfEachType()
{
    return {Value::ofInteger(7), Value::other("1.5"), Value::other("true"), Value::other("null"),
            Value::ofText("x"),  Value::array(),      Value::object()};
}

// The document with each of them in that place, but for the type that belongs there.
static std::vector<Value> retyped(const Value &document, const Place &place)
{
    std::vector<Value> result;
    for (const Value &other : oneOfEachType()) {
        if (other.kind != at(document, place).kind) {
            result.push_back(document);
            at(result.back(), place) = other;
        }
    }
    return result;
}

// The same elements with other values.
static Value withOtherValues(const Value &document)
{
    Value result = document;
    for (const Place &place : places(document)) {
        Value &value = at(result, place);
        if (isKey(place))
            continue;
        if (value.is(Value::TEXT))
            value.text += " once";
        else if (value.is(Value::INTEGER))
            value.integer = ~value.integer;
    }
    return result;
}

static Value with(Value document, const std::string &name, const Value &value)
{
    const auto found = std::find(document.names.begin(), document.names.end(), name);
    document.elements[static_cast<size_t>(found - document.names.begin())] = value;
    return document;
}

// A request is saved when its last group changed something, and saving waits for the disk. Most of
// the thousands do without: the last group is there and has nothing in it.
static Value unsavedSet(const Value &document)
{
    return with(document, "alarm", Value::object());
}

static Value unsavedDelete(const Value &document)
{
    return with(document, "rooms", Value::array());
}

static std::string repeated(const std::string &text, size_t times)
{
    std::string result;
    for (size_t i = 0; i < times; ++i)
        result += text;
    return result;
}

// ---- The daemon and the model beside it

class MalformedDocuments : public ConfigurableDaemon {
protected:
    void TearDown() override
    {
        RecordProperty("documents", std::to_string(documents));
        RecordProperty("longest_answer_us", std::to_string(longest.count()));
        std::cout << documents << " documents, the longest answer took " << longest.count()
                  << " us: " << longestIs << "\n";
        DaemonOnItsOwnBus::TearDown();
    }

    void startHolding(const Value &configuration)
    {
        startReady(dump(configuration));
        expected = Model(configuration);
        sdk.forgetHeard();
    }

    // The answer; `shown` is what the daemon then holds.
    int64_t send(const std::string &method, const std::string &text, const std::string &what)
    {
        const Moment before = Clock::now();
        const auto answer = client.call(APP, method, {text});
        const auto all = client.call(APP, "jsongetall", {""});
        const bool arrived = eventually([&] { return all->arrived(); }, 20s);
        EXPECT_TRUE(arrived && answer->arrived()) << "no answer to " << method << ": " << what;
        EXPECT_EQ(answer->signature(), "i") << answer->error();
        shown = all->text();
        ++documents;
        const auto took =
            std::chrono::duration_cast<std::chrono::microseconds>(answer->at() - before);
        if (arrived && took > longest) {
            longest = took;
            longestIs = method + ": " + what.substr(0, 100);
        }
        return answer->number();
    }

    void expectAsModelled(const std::string &what)
    {
        ASSERT_TRUE(shown == dump(expected.document()))
            << what << "\nexpected: " << dump(expected.document()).substr(0, 30000)
            << "\nthere is: " << shown.substr(0, 30000);
    }

    // The request is answered and applied as the model says.
    void request(Request::Kind kind, const Value &document, const std::string &what)
    {
        static constexpr const char *METHODS[] = {"jsonsetall", "jsondel", "jsonrename"};
        const std::string text = dump(document);
        const model::Outcome outcome = expected.apply({kind, text, document});
        ASSERT_EQ(send(METHODS[kind], text, what), outcome.reply) << what;
        ASSERT_NO_FATAL_FAILURE(expectAsModelled(what));
        announcements += outcome.announces ? 1 : 0;
        ASSERT_TRUE(eventually([&] { return sdk.events("jsongetall").size() == announcements; }))
            << sdk.events("jsongetall").size() << " announcements, not " << announcements << ": "
            << what;
        sdk.forgetHeard();
        announcements = 0;
    }

    // Every beginning of the text is refused and changes nothing.
    void expectEveryCutRefused(const std::string &method, const std::string &text)
    {
        const std::string before = callForText("jsongetall", "");
        const std::string stored = daemon.data.read("appSetup.json").value_or("");
        for (size_t length = 0; length < text.size(); length += CASE_STEP) {
            const std::string what = "the first " + std::to_string(length) + " bytes";
            ASSERT_EQ(send(method, text.substr(0, length), what), 0) << what;
            ASSERT_EQ(shown, before) << what;
        }
        gatewayReady();  // announced after anything that was announced before
        EXPECT_EQ(sdk.events("jsongetall").size(), 0u);
        EXPECT_EQ(daemon.data.read("appSetup.json"), stored);
        EXPECT_EQ(send(method, text, "the whole"), 1);
        EXPECT_NE(shown, before);
    }

    size_t documentsSent() const
    {
        return documents;
    }

    Model expected;
    std::string shown;

private:
    size_t announcements = 0;
    size_t documents = 0;
    std::chrono::microseconds longest{0};
    std::string longestIs;
};

// ---- Cut

TEST_F(MalformedDocuments, ThatAreCutSetNothing)
{
    startHolding(withOtherValues(WHOLE));
    expectEveryCutRefused("jsonsetall", dump(WHOLE));
}

TEST_F(MalformedDocuments, ThatAreCutDeleteNothing)
{
    startHolding(WHOLE);
    expectEveryCutRefused("jsondel", dump(WHOLE));
}

TEST_F(MalformedDocuments, ThatAreCutRenameNothing)
{
    startHolding(WHOLE);
    expectEveryCutRefused("jsonrename",
                          R"(["scenes","\u5916\u5730",")" + std::string(100, 'x') + "\"]");
}

// ---- Of another type

// One after the other on the same configuration: each finds other values than its own there.
TEST_F(MalformedDocuments, WithAMemberOfAnotherTypeSetTheRest)
{
    const Value once = withOtherValues(WHOLE);
    startHolding(once);
    bool other = false;
    std::set<std::string> kinds;
    for (const Place &place : places(WHOLE)) {
        const Value &document = other ? once : WHOLE;
        other = !other;
        std::vector<Value> faults =
            retyped(beginsWith(place.path, "/alarm") ? document : unsavedSet(document), place);
        if (!kinds.insert(kindOf(place)).second)
            faults = {faults[documentsSent() % faults.size()]};
        for (const Value &faulty : faults)
            ASSERT_NO_FATAL_FAILURE(
                request(Request::SET, faulty, place.path + ": " + dump(at(faulty, place))));
    }
}

TEST_F(MalformedDocuments, WithAMemberOfAnotherTypeCreateTheRest)
{
    startReady();
    daemon.data.write("appSetup.json_bak", storedLayout("{}"));
    std::set<std::string> kinds;
    for (const Place &place : places(WHOLE)) {
        if (!kinds.insert(kindOf(place)).second)
            continue;
        const std::vector<Value> faults = retyped(WHOLE, place);
        const Value &faulty = faults[documentsSent() % faults.size()];
        const auto restored = client.call("com.OvrinTech.switch.app", "restoreConfig", {0});
        ASSERT_TRUE(eventually([&] { return restored->arrived(); }));
        expected = Model(Value::object());
        ASSERT_TRUE(eventually([&] { return !sdk.events("jsongetall").empty(); }));
        sdk.forgetHeard();
        ASSERT_NO_FATAL_FAILURE(
            request(Request::SET, faulty, place.path + ": " + dump(at(faulty, place))));
    }
}

// What a delete does not look at is left to one fault.
static bool countsInADelete(const Value &document, const Place &place)
{
    const Value &value = at(document, place);
    const std::string name = lastName(place);
    return isKey(place) || value.is(Value::ARRAY) || value.is(Value::OBJECT) || name == "scene" ||
           name == "macro";
}

TEST_F(MalformedDocuments, WithAMemberOfAnotherTypeDeleteTheRest)
{
    startHolding(WHOLE);
    for (const Place &place : places(WHOLE)) {
        const bool ofRooms = beginsWith(place.path, "/rooms");
        std::vector<Value> faults = retyped(WHOLE, place);
        if (!countsInADelete(WHOLE, place))
            faults.resize(1);
        for (const Value &faulty : faults) {
            const std::string what = place.path + ": " + dump(at(faulty, place));
            ASSERT_NO_FATAL_FAILURE(
                request(Request::DELETE, ofRooms ? faulty : unsavedDelete(faulty), what));
            ASSERT_NO_FATAL_FAILURE(
                request(Request::SET, unsavedSet(WHOLE), "what was there, after " + what));
        }
    }
}

TEST_F(MalformedDocuments, WithAMemberOfAnotherTypeRenameNothing)
{
    startHolding(WHOLE);
    const Value sound = parsed(R"(["scenes","Evening","Night"])");
    std::vector<Value> requests = {parsed("[]"), parsed(R"(["scenes"])"),
                                   parsed(R"(["scenes","Evening"])")};
    for (const Value &other : oneOfEachType())
        requests.push_back(other);
    for (const Place &place : places(sound)) {
        for (const Value &faulty : retyped(sound, place))
            requests.push_back(faulty);
    }
    for (const Value &faulty : requests) {
        EXPECT_EQ(send("jsonrename", dump(faulty), dump(faulty)), 0) << dump(faulty);
        ASSERT_NO_FATAL_FAILURE(expectAsModelled(dump(faulty)));
    }
}

// ---- Nested

static constexpr size_t DEEPEST = 64;
static constexpr size_t DEPTHS = 2049;

// One by one around the border, and beyond it too, but for a sanitizer or a larger step.
static size_t stepAt(size_t depth, size_t beyond = 1)
{
    return depth < 2 * DEEPEST ? 1 : std::max(beyond, CASE_STEP);
}

struct Nesting {
    const char *name;
    const char *open[2];  // of the even and of the odd levels
    const char *close[2];
    const char *innermost;
    size_t step;  // beyond twice the deepest
};

static std::string nested(const Nesting &kind, size_t levels)
{
    std::string open, close;
    for (size_t i = 0; i < levels; ++i) {
        open += kind.open[i % 2];
        close.insert(0, kind.close[i % 2]);
    }
    return open + (!open.empty() && open.back() == ':' ? "0" : kind.innermost) + close;
}

static constexpr Nesting ARRAYS = {"Arrays", {"[", "["}, {"]", "]"}, "", 1};

class MalformedDepths : public MalformedDocuments, public testing::WithParamInterface<Nesting> {};

INSTANTIATE_TEST_SUITE_P(
    Of, MalformedDepths,
    testing::Values(ARRAYS, Nesting{"ArraysOfNumbers", {"[", "["}, {"]", "]"}, "1", 31},
                    Nesting{"Objects", {"{\"a\":", "{\"a\":"}, {"}", "}"}, "0", 31},
                    Nesting{"Both", {"[", "{\"a\":"}, {"]", "}"}, "", 31}),
    caseName);

TEST_P(MalformedDepths, BeyondSixtyFourLevelsSetNothing)
{
    startHolding(WHOLE);
    for (size_t depth = 2; depth <= DEPTHS; depth += stepAt(depth, GetParam().step)) {
        const std::string what = std::to_string(depth) + " levels";
        const std::string alarm = R"("alarm":{"duration":)" + std::to_string(depth) + "}";
        const bool sound = depth <= DEEPEST;
        const size_t from = daemon.logSize();
        ASSERT_EQ(send("jsonsetall",
                       "{" + alarm + R"(,"deep":)" + nested(GetParam(), depth - 1) + "}", what),
                  sound ? 1 : 0)
            << what;
        ASSERT_EQ(daemon.logged("error: on line 1: ", from), !sound) << what;
        if (sound)
            expected.apply({Request::SET, "", parsed(("{" + alarm + "}").c_str())});
        ASSERT_NO_FATAL_FAILURE(expectAsModelled(what));
    }
}

TEST_F(MalformedDocuments, BeyondSixtyFourLevelsDeleteNothing)
{
    Value names = Value::object();
    for (size_t depth = 1; depth <= 2 * DEEPEST; ++depth)
        names.add("n" + std::to_string(depth), Value::ofText("name"));
    Value configuration = Value::object();
    configuration.add("targetNames", names);
    startHolding(configuration);
    for (size_t depth = 2; depth <= DEPTHS; depth += stepAt(depth)) {
        const std::string what = std::to_string(depth) + " levels";
        const std::string group = R"("targetNames":{"n)" + std::to_string(depth) + R"(":0})";
        const bool sound = depth <= DEEPEST;
        ASSERT_EQ(
            send("jsondel", "{" + group + R"(,"deep":)" + nested(ARRAYS, depth - 1) + "}", what),
            sound ? 1 : 0)
            << what;
        if (sound)
            expected.apply({Request::DELETE, "", parsed(("{" + group + "}").c_str())});
        ASSERT_NO_FATAL_FAILURE(expectAsModelled(what));
    }
}

TEST_F(MalformedDocuments, BeyondSixtyFourLevelsRenameNothing)
{
    startHolding(WHOLE);
    for (size_t depth = 2; depth <= DEPTHS; depth += stepAt(depth)) {
        const std::string what = std::to_string(depth) + " levels";
        const size_t from = daemon.logSize();
        ASSERT_EQ(send("jsonrename",
                       R"(["scenes",)" + nested(ARRAYS, depth - 1) + R"(,"Evening","Night"])",
                       what),
                  0)
            << what;
        ASSERT_EQ(daemon.logged("error: on line 1: ", from), depth > DEEPEST) << what;
        ASSERT_NO_FATAL_FAILURE(expectAsModelled(what));
    }
}

TEST_F(MalformedDocuments, ThatOpenAndNeverCloseChangeNothing)
{
    startHolding(WHOLE);
    for (size_t depth = 1; depth <= DEPTHS; depth = depth < 2 * DEEPEST ? depth + 1 : depth * 2) {
        for (const std::string &text : {repeated("[", depth), repeated("{\"scenes\":[", depth),
                                        R"({"alarm":{"duration":1},"x":)" + repeated("[", depth)}) {
            for (const char *method : {"jsonsetall", "jsondel", "jsonrename"})
                ASSERT_EQ(send(method, text, text), 0) << method << text;
            ASSERT_NO_FATAL_FAILURE(expectAsModelled(text));
        }
    }
}

TEST_F(MalformedDocuments, AreNotDeepForWhatStandsInTheirTexts)
{
    startHolding(WHOLE);
    for (const std::string &text :
         {std::string(100, '['), std::string(100, '{'), repeated("\"[", 50), repeated("\\[", 50),
          repeated("\\\"{", 40), "\\" + std::string(100, '['), std::string(100, ']') + "[\\"}) {
        Value scene = Value::object();
        scene.add("title", Value::ofText("Evening"));
        scene.add("icon", Value::ofText(text));
        Value document = Value::object();
        document.add(text, Value::ofText(text));
        document.add("scenes", Value::array({scene}));
        ASSERT_NO_FATAL_FAILURE(request(Request::SET, document, text));
    }
}

TEST_F(MalformedDocuments, AreAsDeepAsTheyAreWhateverStandsInTheirTexts)
{
    startHolding(WHOLE);
    for (const std::string &text : {std::string(100, ']'), repeated("}", 100), repeated("]\"", 50),
                                    repeated("\\]", 50), std::string("\\"), std::string("\"")}) {
        const std::string word = dump(Value::ofText(text));
        EXPECT_EQ(send("jsonsetall",
                       R"({"alarm":{"duration":1},"text":)" + word + "," + word + ":" +
                           nested(ARRAYS, DEEPEST) + "}",
                       text),
                  0);
        ASSERT_NO_FATAL_FAILURE(expectAsModelled(text));
    }
}

TEST_F(MalformedDocuments, MayHoldAnyNumberOfArraysSideBySide)
{
    startHolding(WHOLE);
    const std::string deep = nested(ARRAYS, DEEPEST - 2);
    EXPECT_EQ(send("jsonsetall",
                   R"({"alarm":{"duration":1},"x":[)" + repeated(deep + ",", 100) + deep + "]}",
                   "side by side"),
              1);
    expected.apply({Request::SET, "", parsed(R"({"alarm":{"duration":1}})")});
    expectAsModelled("side by side");
}

// ---- Long

// The document with a text of each kind, and the name of a member of "targetNames", grown to that
// length.
static std::vector<std::pair<std::string, Value>> grown(const Value &document, size_t length)
{
    std::vector<std::pair<std::string, Value>> result;
    const Value text = Value::ofText(std::string(length, 'x'));
    std::set<std::string> kinds;
    for (const Place &place : places(document)) {
        if (at(document, place).is(Value::TEXT) && kinds.insert(kindOf(place)).second) {
            result.emplace_back(place.path, document);
            at(result.back().second, place) = text;
        }
    }
    Value names = Value::object();
    names.add("5_1_1", Value::ofText("Lamp"));
    names.add(text.text, Value::ofText("long"));
    names.add("6_1_2", Value::ofText("Fan"));
    result.emplace_back("a name of targetNames", with(document, "targetNames", names));
    return result;
}

class MalformedTexts : public MalformedDocuments, public testing::WithParamInterface<size_t> {};

INSTANTIATE_TEST_SUITE_P(Of, MalformedTexts,
                         testing::Values(size_t{126}, size_t{127}, size_t{1023}, size_t{1024},
                                         size_t{1} << 20),
                         [](const auto &length) { return std::to_string(length.param) + "Bytes"; });

TEST_P(MalformedTexts, AreStoredUpToTheirBound)
{
    startHolding(WHOLE);
    for (const auto &[path, document] : grown(WHOLE, GetParam()))
        ASSERT_NO_FATAL_FAILURE(request(Request::SET, document, path));
}

TEST_P(MalformedTexts, DeleteWhatIsNamedSo)
{
    startHolding(WHOLE);
    for (const auto &[path, document] : grown(WHOLE, GetParam())) {
        const bool ofRooms = beginsWith(path, "/rooms");
        ASSERT_NO_FATAL_FAILURE(request(Request::SET, unsavedSet(document), path));
        ASSERT_NO_FATAL_FAILURE(
            request(Request::DELETE, ofRooms ? document : unsavedDelete(document), path));
        ASSERT_NO_FATAL_FAILURE(request(Request::SET, unsavedSet(WHOLE), "what was there"));
    }
}

TEST_P(MalformedTexts, AreTitlesUpToTheirBound)
{
    startHolding(WHOLE);
    const Value text = Value::ofText(std::string(GetParam(), 'x'));
    const Value evening = Value::ofText("Evening"), night = Value::ofText("Night");
    for (const char *group : {"macros", "scenes", "rooms", "schedules"}) {
        const Value word = Value::ofText(group);
        const Value *title =
            WHOLE.find(group, Value::ARRAY)->elements.at(0).find("title", Value::TEXT);
        ASSERT_NO_FATAL_FAILURE(request(Request::RENAME, Value::array({word, text, night}), group));
        ASSERT_NO_FATAL_FAILURE(
            request(Request::RENAME, Value::array({word, *title, text}), group));
        ASSERT_NO_FATAL_FAILURE(request(Request::RENAME, Value::array({word, text, night}), group));
    }
    ASSERT_NO_FATAL_FAILURE(
        request(Request::RENAME, Value::array({text, evening, night}), "the group"));
}
