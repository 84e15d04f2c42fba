// Standard input and output: the timeline above, the prompt below it.

#pragma once

#include "line_editor.h"
#include "loop.h"

#include <memory>

class Console {
public:
    explicit Console(Loop &loop);

    void print(const std::string &text);
    bool colours() const;

    using OnLine = std::function<void(const std::string &line)>;
    using OnEnd = std::function<void()>;
    void read(OnLine onLine, OnEnd onEnd, LineEditor::Complete complete);
    bool interactive() const;  // somebody sits at the prompt
    void close();              // gives the terminal back

private:
    void readable();
    void take(char byte);

    Loop &loop_;
    bool colours_;
    std::unique_ptr<LineEditor> editor_;
    std::string pending_;
    OnLine onLine_;
    OnEnd onEnd_;
};
