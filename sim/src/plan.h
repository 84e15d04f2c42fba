// When each command of a running scene was planned, worked out from the configuration.
//
// The n-th command is due n gaps after its scene started. A step on device 505 sets the gap, one on
// device 512 waits. A macro with a control duration runs its scene a second time, with the values
// that put the devices back. What the configuration does not tell has no planned time.

#pragma once

#include "home.h"

#include <list>
#include <map>

class Plan {
public:
    explicit Plan(Home &home);

    void learn(const Json &configuration);  // merges scenes and macros by their titles
    void macroRan(const std::string &macro, const std::string &scene);
    void sceneRan(const std::string &scene);

    struct Command {
        long long uid = 0;
        std::optional<long long> chid;  // some commands name no channel
        std::optional<long long> value;
    };
    struct Due {
        Millis planned;  // after the scene's start
        Millis passed;   // since then
        bool resume;
        std::string scene;
    };
    std::optional<Due> claim(const Command &command);

private:
    struct Step {
        long long dev = 0;
        long long ch = 0;
        long long value = 0;
    };
    struct Planned {
        Step step;
        Millis due;
        bool claimed = false;
    };
    struct Run {
        std::string scene;
        std::string macro;
        bool resume = false;
        bool started = false;   // a resume starts when its macro's control duration is over
        bool anyValue = false;  // the triggering sensor's value stands in for the scene's own
        SteadyClock::time_point start;
        std::vector<Planned> commands;
    };

    static std::vector<Step> stepsOf(const Json &scene);
    std::vector<Planned> schedule(const std::vector<Step> &steps, SteadyClock::time_point start);
    static Planned *match(Run &run, const Command &command, SteadyClock::time_point now);
    void startRun(const std::string &scene, const std::vector<Step> &steps, bool anyValue);
    void awaitResume(const std::string &macro, const std::string &scene, const Json &settings,
                     std::vector<Step> steps);
    void dropOld();

    Home &home_;
    std::map<std::string, Json> scenes_;
    std::map<std::string, Json> macros_;
    std::list<Run> runs_;
    Millis gap_{200};
    SteadyClock::time_point lastPlanned_{};
};
