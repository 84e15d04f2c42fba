#include "commands.h"

#include <fmt/format.h>

#include <algorithm>

static std::vector<const Verb *> allVerbs()
{
    std::vector<const Verb *> verbs;
    for (const auto &group : {homeVerbs(), gatewayVerbs(), scriptVerbs()}) {
        for (const Verb &verb : group)
            verbs.push_back(&verb);
    }
    return verbs;
}

static const Verb *findVerb(const std::string &name)
{
    for (const Verb *verb : allVerbs()) {
        if (sameText(verb->name, name))
            return verb;
    }
    return nullptr;
}

static std::string helpText(const Words &words)
{
    if (words.size() > 1) {
        const Verb *const verb = findVerb(words[1]);
        if (!verb)
            throw UserError(fmt::format("no command called {}", words[1]));
        return fmt::format("{} {}\n    {}", verb->name, verb->usage, verb->help);
    }
    std::string text;
    for (const Verb *verb : allVerbs())
        text +=
            fmt::format("{:<44} {}\n", fmt::format("{} {}", verb->name, verb->usage), verb->help);
    text += "Names of several words stand in double quotes. Upper and lower case are the same.";
    return text;
}

void runCommand(Gateway &gateway, const std::string &line, const Done &done)
{
    try {
        const Words words = splitWords(line);
        if (words.empty()) {
            done(true, "");
            return;
        }
        if (sameText(words[0], "help")) {
            done(true, helpText(words));
            return;
        }
        const Verb *const verb = findVerb(words[0]);
        if (!verb)
            throw UserError(fmt::format("no command called {}; `help` lists them", words[0]));
        if (words.size() < verb->fewest)
            throw UserError(fmt::format("usage: {} {}", verb->name, verb->usage));
        if (verb->drives == Drives::YES)
            gateway.expectations.drive();
        verb->run(gateway, words, done);
    } catch (const std::exception &error) {
        done(false, error.what());
    }
}

std::vector<std::string> completions(Gateway &gateway, const std::string &line)
{
    std::vector<std::string> choices;
    const auto begins = [](const std::string &name, const std::string &typed) {
        return lowered(name).starts_with(lowered(typed));
    };
    if (line.find(' ') == std::string::npos) {
        for (const Verb *verb : allVerbs()) {
            if (begins(verb->name, line))
                choices.push_back(fmt::format("{} ", verb->name));
        }
        return choices;
    }
    // A name is completed from its quote on, or from the last blank.
    const size_t quote = line.find('"');
    const size_t begin = quote == std::string::npos ? line.rfind(' ') + 1 : quote;
    const std::string typed = line.substr(quote == std::string::npos ? begin : begin + 1);
    for (const Device &device : gateway.home.devices) {
        if (begins(device.name, typed))
            choices.push_back(fmt::format("{}\"{}\" ", line.substr(0, begin), device.name));
    }
    return choices;
}

void noteYou(Gateway &gateway, const std::string &to, const Words &words, const std::string &more)
{
    Words noted{"you"};
    noted.insert(noted.end(), words.begin(), words.end());
    gateway.timeline.add(
        {.from = "you", .to = to, .text = joinWords(words) + more, .words = noted});
}
