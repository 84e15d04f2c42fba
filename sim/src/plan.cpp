#include "plan.h"

#include <algorithm>

static constexpr long long GAP_STEP = 505;
static constexpr long long WAIT_STEP = 512;
static constexpr Millis DEFAULT_GAP{200};
static constexpr Millis STEP_UNIT{100};
static constexpr Millis FORGOTTEN_AFTER{30'000};  // a command that never came no longer counts

static long long integerIn(const Json &object, const char *key)
{
    const auto found = object.find(key);
    return found != object.end() && found->is_number_integer() ? found->get<long long>() : 0;
}

static std::string textIn(const Json &object, const char *key)
{
    const auto found = object.find(key);
    return found != object.end() && found->is_string() ? found->get<std::string>() : "";
}

Plan::Plan(Home &home) : home_(home)
{
}

void Plan::learn(const Json &configuration)
{
    const auto merge = [&](const char *group, std::map<std::string, Json> &into) {
        const auto list = configuration.find(group);
        if (list == configuration.end() || !list->is_array())
            return;
        for (const Json &element : *list) {
            if (element.is_object())
                into[textIn(element, "title")] = element;
        }
    };
    if (!configuration.is_object())
        return;
    merge("scenes", scenes_);
    merge("macros", macros_);
}

std::vector<Plan::Step> Plan::stepsOf(const Json &scene)
{
    std::vector<Step> steps;
    const auto comps = scene.find("comps");
    if (comps == scene.end() || !comps->is_array())
        return steps;
    for (const Json &comp : *comps) {
        if (!comp.is_object())
            break;
        const auto target = comp.find("target");
        if (target != comp.end() && target->is_object())
            steps.push_back(
                {integerIn(*target, "dev"), integerIn(*target, "ch"), integerIn(comp, "value")});
    }
    return steps;
}

std::vector<Plan::Planned> Plan::schedule(const std::vector<Step> &steps,
                                          SteadyClock::time_point start)
{
    // A gap outlives its scene until nothing has been due for a while.
    if (start > lastPlanned_ + gap_ + Millis(1000))
        gap_ = DEFAULT_GAP;
    std::vector<Planned> commands;
    Millis due{0};
    for (const Step &step : steps) {
        if (step.dev == GAP_STEP) {
            gap_ = DEFAULT_GAP;
            if (step.value > 0 && step.value < 100)
                gap_ = step.value * STEP_UNIT;
        } else if (step.dev == WAIT_STEP) {
            due += step.value * STEP_UNIT;
        } else {
            due += gap_;
            commands.push_back({.step = step, .due = due});
        }
    }
    lastPlanned_ = std::max(lastPlanned_, start + due);
    return commands;
}

void Plan::startRun(const std::string &scene, const std::vector<Step> &steps, bool anyValue)
{
    const auto now = SteadyClock::now();
    runs_.push_back({.scene = scene,
                     .macro = "",
                     .resume = false,
                     .started = true,
                     .anyValue = anyValue,
                     .start = now,
                     .commands = schedule(steps, now)});
}

void Plan::awaitResume(const std::string &macro, const std::string &scene, const Json &settings,
                       std::vector<Step> steps)
{
    std::erase_if(runs_, [&](const Run &run) { return run.resume && run.macro == macro; });
    const long long duration = integerIn(settings, "duration");
    if (duration <= 0)
        return;  // the devices stay as the scene sets them

    for (Step &step : steps) {
        const Place place = home_.place(step.dev, step.ch);
        if (!place.channel)
            continue;
        switch (integerIn(settings, "duration_type")) {
        case 0:
            step.value = place.channel->current();
            break;
        case 1:
            step.value = 0;
            break;
        case 2:
            step.value = 99;
            break;
        }
    }
    Run run{.scene = scene,
            .macro = macro,
            .resume = true,
            .started = false,
            .anyValue = false,
            .start = SteadyClock::now() + std::chrono::seconds(duration),
            .commands = {}};
    for (const Step &step : steps)
        run.commands.push_back({.step = step, .due = Millis(0)});
    runs_.push_back(std::move(run));
}

// A threshold of -1 asks for the sensor's own value on the scene's targets.
static bool takesSensorValue(const Json &macro)
{
    const auto triggers = macro.find("triggers");
    return triggers != macro.end() && triggers->is_array() && !triggers->empty() &&
           triggers->front().is_object() && integerIn(triggers->front(), "threshold") == -1;
}

void Plan::macroRan(const std::string &macro, const std::string &scene)
{
    dropOld();
    const auto settings = macros_.find(macro);
    Json own;
    if (settings != macros_.end() && settings->second.contains("scene"))
        own = settings->second["scene"];
    if (!own.is_object()) {
        const auto found = scenes_.find(scene);
        if (found == scenes_.end())
            return;
        own = found->second;
    }
    const std::vector<Step> steps = stepsOf(own);
    if (settings != macros_.end())
        awaitResume(macro, scene, settings->second, steps);
    startRun(scene, steps, settings != macros_.end() && takesSensorValue(settings->second));
}

void Plan::sceneRan(const std::string &scene)
{
    dropOld();
    const auto found = scenes_.find(scene);
    if (found != scenes_.end())
        startRun(scene, stepsOf(found->second), false);
}

Plan::Planned *Plan::match(Run &run, const Command &command, SteadyClock::time_point now)
{
    for (Planned &planned : run.commands) {
        const bool same = !planned.claimed && planned.step.dev == command.uid;
        const bool sameChannel = !command.chid || *command.chid == planned.step.ch;
        const bool sameValue =
            run.anyValue || !command.value || *command.value == planned.step.value;
        // The scene was announced on another connection, so it may seem to start a little late.
        const bool early = run.started && now < run.start + planned.due - Millis(150);
        if (same && sameChannel && sameValue && !early)
            return &planned;
    }
    return nullptr;
}

std::optional<Plan::Due> Plan::claim(const Command &command)
{
    const auto now = SteadyClock::now();
    dropOld();

    Run *owner = nullptr;
    Planned *found = nullptr;
    for (const bool resume : {false, true}) {
        for (Run &run : runs_) {
            if (!found && run.resume == resume && (found = match(run, command, now)))
                owner = &run;
        }
    }
    if (!found)
        return std::nullopt;

    if (!owner->started) {
        // It began when the control duration was over, unless the macro was triggered again
        // meanwhile: then only its first command tells.
        std::vector<Step> steps;
        for (const Planned &planned : owner->commands)
            steps.push_back(planned.step);
        const size_t position = static_cast<size_t>(found - owner->commands.data());
        const long long sent = std::count_if(
            steps.begin(), steps.begin() + static_cast<long>(position),
            [](const Step &step) { return step.dev != GAP_STEP && step.dev != WAIT_STEP; });
        owner->commands = schedule(steps, std::min(owner->start, now));
        found = &owner->commands[static_cast<size_t>(sent)];
        const auto late = now - owner->start - found->due;
        if (late < Millis(-100) || late > Millis(1500))
            owner->start = now - found->due;
        owner->started = true;
    }
    found->claimed = true;
    return Due{.planned = found->due,
               .passed = std::chrono::duration_cast<Millis>(now - owner->start),
               .resume = owner->resume,
               .scene = owner->scene};
}

void Plan::dropOld()
{
    const auto now = SteadyClock::now();
    std::erase_if(runs_, [&](const Run &run) {
        const bool all = std::all_of(run.commands.begin(), run.commands.end(),
                                     [](const Planned &planned) { return planned.claimed; });
        const Millis last = run.commands.empty() ? Millis(0) : run.commands.back().due;
        return run.started && (all || now > run.start + last + FORGOTTEN_AFTER);
    });
}
