#include "player.h"

#include <fmt/format.h>

#include <filesystem>
#include <fstream>
#include <utility>

Player::Player(Gateway &gateway, Show show) : gateway_(gateway), show_(std::move(show))
{
}

void Player::addLine(const std::string &line)
{
    lines_.push_back({line, ""});
    next();
}

void Player::addScript(const std::string &path)
{
    std::ifstream file(path);
    if (!file)
        throw UserError(fmt::format("cannot read {}", path));
    const std::filesystem::path place(path);
    gateway_.scriptFolder = place.parent_path();
    size_t number = 0;
    for (std::string line; std::getline(file, line);)
        lines_.push_back({line, fmt::format("{}:{}", place.filename().string(), ++number)});
    next();
}

void Player::whenIdle(std::function<void()> task)
{
    whenIdle_ = std::move(task);
    next();
}

bool Player::idle() const
{
    return !running_ && lines_.empty();
}

void Player::next()
{
    if (running_)
        return;
    if (lines_.empty()) {
        if (const auto task = std::exchange(whenIdle_, nullptr))
            task();
        return;
    }
    running_ = true;
    const Line line = std::move(lines_.front());
    lines_.pop_front();
    // From the loop, so that a long script does not become a deep stack.
    gateway_.loop.after(Millis(0), [this, line] {
        runCommand(gateway_, line.text,
                   [this, line](bool ok, const std::string &output) { done(line, ok, output); });
    });
}

// An expectation that was not met is counted and the script goes on; a command that cannot be done
// leaves the rest of the script without a meaning.
void Player::done(const Line &line, bool ok, const std::string &output)
{
    const bool expectation = output.starts_with("✓") || output.starts_with("✗");
    if (ok || expectation || line.where.empty()) {
        const bool inSummary = ok && expectation && !line.where.empty();
        if (!output.empty() && !inSummary)
            show_(ok || expectation ? output : "✗ " + output);
        if (!ok && !expectation)
            gateway_.expectations.fail(line.text);
    } else {
        show_(fmt::format("✗ {}: {}: {}", line.where, line.text, output));
        gateway_.expectations.fail(line.text);
        for (const Line &rest : lines_) {
            if (rest.text.starts_with("expect") || rest.text.starts_with("never"))
                gateway_.expectations.notReached(rest.text);
        }
        lines_.clear();
    }
    running_ = false;
    next();
}
