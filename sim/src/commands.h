// The control surface: one line of words in, a line or a table for people out.
//
// The prompt, scripts and the bus all come here.

#pragma once

#include "daemon.h"
#include "expectations.h"
#include "home.h"
#include "loop.h"
#include "plan.h"
#include "platform.h"
#include "sdk.h"
#include "timeline.h"

// Everything around the daemon.
struct Gateway {
    Loop &loop;
    Timeline &timeline;
    Home &home;
    Plan &plan;
    Platform &platform;
    Sdk &sdk;
    Daemon &daemon;
    Expectations &expectations;
    std::function<void()> quit;
    std::string scriptFolder;  // files named in a script are looked for beside it first
};

using Done = std::function<void(bool ok, const std::string &output)>;

enum class Drives { NO, YES };  // expectations count from the last command that drives the home

struct Verb {
    const char *name;
    const char *usage;
    const char *help;
    Drives drives;
    size_t fewest;  // words, the verb included
    void (*run)(Gateway &gateway, const Words &words, const Done &done);
};

std::span<const Verb> homeVerbs();     // what people and the weather do to the home
std::span<const Verb> gatewayVerbs();  // what the gateway's other daemons do
std::span<const Verb> scriptVerbs();   // looking, waiting, expecting

// Runs one line; `done` is called once, perhaps later. An empty line is done at once.
void runCommand(Gateway &gateway, const std::string &line, const Done &done);

std::vector<std::string> completions(Gateway &gateway, const std::string &line);

// What the user did, for the timeline; `more` is for people only.
void noteYou(Gateway &gateway, const std::string &to, const Words &words,
             const std::string &more = "");
