#include "console.h"

#include <cstdio>
#include <utility>

#include <unistd.h>

Console::Console(Loop &loop) : loop_(loop), colours_(isatty(STDOUT_FILENO))
{
}

void Console::print(const std::string &text)
{
    if (editor_)
        std::fputs(LineEditor::wiped(), stdout);
    std::fputs(text.c_str(), stdout);
    if (!text.ends_with('\n'))
        std::fputc('\n', stdout);
    if (editor_)
        std::fputs(editor_->shown().c_str(), stdout);
    std::fflush(stdout);
}

bool Console::colours() const
{
    return colours_;
}

bool Console::interactive() const
{
    return editor_ != nullptr;
}

void Console::read(OnLine onLine, OnEnd onEnd, LineEditor::Complete complete)
{
    onLine_ = std::move(onLine);
    onEnd_ = std::move(onEnd);
    if (LineEditor::possible()) {
        print("`help` lists the commands, Tab completes, Ctrl-D ends.");
        editor_ = std::make_unique<LineEditor>(std::move(complete));
        std::fputs(editor_->shown().c_str(), stdout);
        std::fflush(stdout);
    } else if (isatty(STDIN_FILENO)) {
        return;  // in the background of a terminal: reading would stop this process
    }
    loop_.watch(STDIN_FILENO, [this] { readable(); });
}

void Console::close()
{
    if (editor_)
        std::fputs("\n", stdout);
    editor_.reset();
    loop_.unwatch(STDIN_FILENO);
}

void Console::take(char byte)
{
    if (editor_) {
        const std::optional<std::string> line = editor_->feed(byte);
        std::fputs((LineEditor::wiped() + editor_->shown()).c_str(), stdout);
        std::fflush(stdout);
        if (line) {
            if (!line->empty())
                print("> " + *line);
            onLine_(*line);
        }
    } else if (byte == '\n') {
        onLine_(std::exchange(pending_, ""));
    } else {
        pending_ += byte;
    }
}

void Console::readable()
{
    char bytes[4096];
    const ssize_t count = ::read(STDIN_FILENO, bytes, sizeof bytes);
    for (ssize_t i = 0; i < count; ++i)
        take(bytes[i]);
    if (count > 0 && !(editor_ && editor_->closed()))
        return;
    if (!pending_.empty())
        onLine_(std::exchange(pending_, ""));
    loop_.unwatch(STDIN_FILENO);
    onEnd_();
}
