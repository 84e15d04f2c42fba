#include "text.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <charconv>

Words splitWords(std::string_view line)
{
    Words words;
    std::string word;
    char quote = '\0';     // the one that is open
    bool started = false;  // tells "" (an empty word) from no word
    for (const char c : line) {
        if (quote ? c == quote : c == '"' || (c == '\'' && !started)) {
            quote = quote ? '\0' : c;
            started = true;
        } else if (!quote && c == '#' && !started) {
            break;
        } else if (!quote && std::isspace(static_cast<unsigned char>(c))) {
            if (started)
                words.push_back(std::move(word));
            word.clear();
            started = false;
        } else {
            word += c;
            started = true;
        }
    }
    if (quote)
        throw UserError(fmt::format("a {} is never closed", quote));
    if (started)
        words.push_back(std::move(word));
    return words;
}

std::string joinWords(const Words &words, size_t from)
{
    std::string line;
    for (size_t i = from; i < words.size(); ++i) {
        const std::string &word = words[i];
        const bool plain = !word.empty() && word.find_first_of(" \"'#") == std::string::npos;
        const char *const quote = plain ? "" : word.find('"') == std::string::npos ? "\"" : "'";
        line += fmt::format("{}{}{}{}", i > from ? " " : "", quote, word, quote);
    }
    return line;
}

std::string lowered(std::string_view text)
{
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return result;
}

bool sameText(std::string_view left, std::string_view right)
{
    return lowered(left) == lowered(right);
}

std::optional<long long> toInteger(std::string_view text)
{
    long long value = 0;
    const char *end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc() || stop != end || text.empty())
        return std::nullopt;
    return value;
}

std::optional<double> toNumber(std::string_view text)
{
    double value = 0;
    const char *end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc() || stop != end || text.empty())
        return std::nullopt;
    return value;
}

std::optional<Millis> toDuration(std::string_view text)
{
    double unit = 1000;
    if (text.ends_with("ms")) {
        unit = 1;
        text.remove_suffix(2);
    } else if (text.ends_with("s")) {
        text.remove_suffix(1);
    }
    const std::optional<double> number = toNumber(text);
    const double longest = 24.0 * 3600 * 1000;
    if (!number || !(*number >= 0) || *number * unit > longest)
        return std::nullopt;
    return Millis(static_cast<long long>(*number * unit));
}

std::string clockText(WallClock::time_point when)
{
    const auto ms = std::chrono::duration_cast<Millis>(when.time_since_epoch()).count() % 1000;
    return fmt::format("{:%H:%M:%S}.{:03}", fmt::localtime(WallClock::to_time_t(when)), ms);
}

std::string dateText(WallClock::time_point when)
{
    return fmt::format("{:%Y-%m-%d %H:%M:%S}", fmt::localtime(WallClock::to_time_t(when)));
}
