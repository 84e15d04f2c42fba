// Runs lines one after the other: the next one when the one before is done.

#pragma once

#include "commands.h"

#include <deque>

class Player {
public:
    using Show = std::function<void(const std::string &)>;

    Player(Gateway &gateway, Show show);

    void addLine(const std::string &line);      // from a prompt or a pipe
    void addScript(const std::string &path);    // throws UserError
    void whenIdle(std::function<void()> task);  // once, when every line so far has been run
    bool idle() const;

private:
    struct Line {
        std::string text;
        std::string where;  // "front_door.txt:12"; empty at a prompt
    };

    void next();
    void done(const Line &line, bool ok, const std::string &output);

    Gateway &gateway_;
    Show show_;
    std::deque<Line> lines_;
    bool running_ = false;
    std::function<void()> whenIdle_;
};
