#include "line_editor.h"

#include <algorithm>

#include <unistd.h>

static constexpr char CTRL_D = 4;
static constexpr char BACKSPACE = 8;
static constexpr char CTRL_U = 21;
static constexpr char CTRL_W = 23;
static constexpr char ESCAPE = 27;
static constexpr char DELETE = 127;

bool LineEditor::possible()
{
    // Touching the terminal from the background would stop this process.
    return isatty(STDIN_FILENO) && isatty(STDOUT_FILENO) && tcgetpgrp(STDIN_FILENO) == getpgrp();
}

LineEditor::LineEditor(Complete complete) : complete_(std::move(complete))
{
    tcgetattr(STDIN_FILENO, &before_);
    termios raw = before_;
    raw.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
    tcsetattr(STDIN_FILENO, TCSANOW, &raw);
}

LineEditor::~LineEditor()
{
    tcsetattr(STDIN_FILENO, TCSANOW, &before_);
}

bool LineEditor::closed() const
{
    return closed_;
}

std::string LineEditor::shown() const
{
    return "home> " + text_;
}

const char *LineEditor::wiped()
{
    return "\r\033[K";
}

void LineEditor::eraseCharacter()
{
    // The bytes that continue a UTF-8 character are 10xxxxxx.
    while (!text_.empty() && (static_cast<unsigned char>(text_.back()) & 0xC0) == 0x80)
        text_.pop_back();
    if (!text_.empty())
        text_.pop_back();
}

void LineEditor::eraseWord()
{
    while (!text_.empty() && text_.back() == ' ')
        text_.pop_back();
    while (!text_.empty() && text_.back() != ' ')
        text_.pop_back();
}

void LineEditor::recall(int step)
{
    if ((step < 0 && position_ == 0) || (step > 0 && position_ >= history_.size()))
        return;
    position_ = step < 0 ? position_ - 1 : position_ + 1;
    text_ = position_ < history_.size() ? history_[position_] : "";
}

void LineEditor::completeWord()
{
    const std::vector<std::string> choices = complete_(text_);
    if (choices.empty())
        return;
    std::string common = choices.front();
    for (const std::string &choice : choices) {
        const auto [mine, theirs] =
            std::mismatch(common.begin(), common.end(), choice.begin(), choice.end());
        common.erase(mine, common.end());
    }
    if (common.size() > text_.size())
        text_ = common;
}

// Arrow keys come as ESC [ A; other sequences are swallowed.
bool LineEditor::escaped(char byte)
{
    if (escape_.empty() && byte != ESCAPE)
        return false;
    escape_ += byte;
    if (escape_.size() == 2 && byte != '[' && byte != 'O')
        escape_.clear();
    if (escape_.size() > 2 && byte >= '@' && byte <= '~') {
        if (byte == 'A')
            recall(-1);
        else if (byte == 'B')
            recall(1);
        escape_.clear();
    }
    return true;
}

std::optional<std::string> LineEditor::feed(char byte)
{
    if (escaped(byte))
        return std::nullopt;
    switch (byte) {
    case '\n':
    case '\r': {
        std::string line = std::move(text_);
        text_.clear();
        if (!line.empty() && (history_.empty() || history_.back() != line))
            history_.push_back(line);
        position_ = history_.size();
        return line;
    }
    case BACKSPACE:
    case DELETE:
        eraseCharacter();
        break;
    case CTRL_D:
        closed_ = text_.empty();
        break;
    case CTRL_U:
        text_.clear();
        break;
    case CTRL_W:
        eraseWord();
        break;
    case '\t':
        completeWord();
        break;
    default:
        if (static_cast<unsigned char>(byte) >= ' ')
            text_ += byte;
    }
    return std::nullopt;
}
