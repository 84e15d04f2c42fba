// What the configuration must be after each request, told in plain containers.
//
// Written from the rules alone and without the daemon's code, so that the two can disagree. Slow
// and simple on purpose: a list is a vector, a record is its members by name, a look-up is a walk.

#pragma once

#include "bus/config_value.h"

#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace model {

struct Request {
    enum Kind { SET, DELETE, RENAME };
    Kind kind = SET;
    std::string text;  // as it goes over the bus
    Value value;       // what the text says
};

// What the daemon answers, and whether it then broadcasts the whole configuration.
struct Outcome {
    int reply = 0;
    bool announces = false;
};

// The members of a record that have no rule of their own.
struct Fields {
    std::map<std::string, std::string> texts;
    std::map<std::string, int64_t> numbers;
};

struct Target {
    int64_t dev = 0;
    int64_t if_ = 0;
    int64_t ch = 0;
    bool operator==(const Target &) const = default;
};

struct Comp {
    Target target;
    int64_t value = 0;
};

struct Scene {
    Scene();
    Fields fields;
    std::vector<Comp> comps;
    std::optional<int64_t> siren;
};

struct Trigger {
    Trigger();
    Fields fields;
    Target target;
};

struct Macro {
    Macro();
    Fields fields;
    std::optional<std::string> notifications[3];
    std::string sceneName;
    std::optional<Scene> scene;  // its own
    std::vector<Trigger> triggers;
};

struct Schedule {
    Schedule();
    Fields fields;
    std::string macroName;
    std::vector<Macro> macros;  // its own
};

struct ExtraCamera {
    ExtraCamera();
    Fields fields;
};

struct Room {
    Room();
    Fields fields;
    std::vector<Target> targets;
    std::vector<ExtraCamera> extraCameras;
};

struct Camera {
    Camera();
    Fields fields;
};

struct Phone {
    Phone();
    Fields fields;
    std::string token;
};

struct Filter {
    int64_t uid = -1;
    int64_t channel = -1;
    int64_t eventCode = -1;
};

class Model {
public:
    // A daemon that starts with that stored document, or with none.
    explicit Model(std::optional<Value> storedDocument = std::nullopt);

    Outcome apply(const Request &request);
    // What a restart leaves: what was stored last, read again.
    void restart();

    // The whole configuration. Showing it makes an alarm when there was none.
    Value document();
    // What was stored last, "" when nothing was.
    const std::string &storedText() const
    {
        return storedAsText;
    }

private:
    void start();
    int set(const Value &root);
    int remove(const Value &root);
    int rename(const Value &root);

    std::vector<std::pair<std::string, std::string>> targetNames;
    std::vector<Camera> cameras;
    std::vector<Macro> macros;
    std::vector<Scene> scenes;
    std::vector<Schedule> schedules;
    std::vector<Room> rooms;
    std::vector<Filter> filters;
    std::vector<Phone> phones;
    std::optional<Fields> alarm;

    std::optional<Value> stored;
    std::string storedAsText;
};

}  // namespace model
