// A prompt whose typed text survives the lines that are printed above it.

#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <termios.h>

class LineEditor {
public:
    using Complete = std::function<std::vector<std::string>(const std::string &line)>;

    // Takes the terminal on standard input over until it is destroyed.
    explicit LineEditor(Complete complete);
    ~LineEditor();
    LineEditor(const LineEditor &) = delete;
    LineEditor &operator=(const LineEditor &) = delete;

    static bool possible();  // standard input is a terminal and we are in its foreground

    // One byte from the terminal. Gives a line when it was the last of one.
    std::optional<std::string> feed(char byte);
    bool closed() const;  // Ctrl-D on an empty line

    std::string shown() const;   // prompt and text, without newline
    static const char *wiped();  // what removes it from the terminal

private:
    void eraseCharacter();
    void eraseWord();
    void recall(int step);
    void completeWord();
    bool escaped(char byte);

    termios before_{};
    Complete complete_;
    std::string text_;
    std::string escape_;
    std::vector<std::string> history_;
    size_t position_ = 0;  // in history_; its size: the line being typed
    bool closed_ = false;
};
