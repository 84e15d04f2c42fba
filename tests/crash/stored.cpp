#include "stored.h"

#include "support/temp_dir.h"

#include <fstream>
#include <functional>
#include <map>
#include <sstream>

namespace crash {

const std::array<const char *, STORED_FILES> FILE_NAMES = {
    "appSetup.json",
    "appSetup.json_bak",
    "appSetup.json_bak2",
    "scheduleResumeScene.json",
    "scheduleResumeScene.json_bak",
    "scheduleResumeScene.json_bak2",
};

static constexpr const char *WORDS[] = {"save",    "resume",   "backup",
                                        "restore", "restore2", "reset"};  // by Operation::Kind

void PrintTo(const Stored &stored, std::ostream *out)
{
    *out << "{";
    for (size_t i = 0; i < STORED_FILES; ++i) {
        if (stored[i] != NOTHING)
            *out << " " << FILE_NAMES[i] << ":"
                 << (stored[i] == BROKEN ? "broken" : std::to_string(stored[i]));
    }
    *out << " }";
}

static int numberInFile(const std::filesystem::path &path)
{
    std::ifstream stream(path, std::ios::binary);
    if (!stream)
        return NOTHING;
    std::ostringstream buffer;
    buffer << stream.rdbuf();
    const std::string bytes = buffer.str();
    // Most files are looked at again and again.
    static std::map<std::pair<size_t, size_t>, int> known;
    const auto [entry, isNew] =
        known.try_emplace({bytes.size(), std::hash<std::string>()(bytes)}, BROKEN);
    if (isNew && bytes.size() >= 5) {
        const std::string text = bytes.substr(4, bytes.size() - 5);
        if (support::storedLayout(text) == bytes)
            entry->second = numberOf(text);
    }
    return entry->second;
}

Stored storedIn(const std::filesystem::path &folder)
{
    Stored stored;
    for (size_t i = 0; i < STORED_FILES; ++i)
        stored[i] = numberInFile(folder / FILE_NAMES[i]);
    return stored;
}

std::string Operation::word() const
{
    const std::string word = WORDS[kind];
    if (kind != SAVE && kind != SAVE_RESUME)
        return word;
    return word + ":" + std::to_string(number) + ":" + std::to_string(elements);
}

// The copies that an operation makes, in order; what is not there is not copied.
struct Copy {
    StoredFile from, to;
};

static std::vector<Copy> copiesOf(Operation::Kind kind)
{
    switch (kind) {
    case Operation::BACKUP:
        return {{SETUP_BAK, SETUP_BAK2},
                {SETUP, SETUP_BAK},
                {RESUME_BAK, RESUME_BAK2},
                {RESUME, RESUME_BAK}};
    case Operation::RESTORE:
        return {{SETUP_BAK, SETUP}, {RESUME_BAK, RESUME}};
    case Operation::RESTORE2:
        return {{SETUP_BAK2, SETUP}, {RESUME_BAK2, RESUME}};
    default:
        return {};
    }
}

std::vector<Stored> statesOf(const Operation &operation, const Stored &before)
{
    std::vector<Stored> states{before};
    const auto put = [&](StoredFile file, int number) {
        Stored next = states.back();
        next[file] = number;
        states.push_back(next);
    };
    if (operation.kind == Operation::SAVE)
        put(SETUP, operation.number);
    if (operation.kind == Operation::SAVE_RESUME)
        put(RESUME, operation.number);
    for (const Copy &copy : copiesOf(operation.kind)) {
        if (states.back()[copy.from] != NOTHING)
            put(copy.to, states.back()[copy.from]);
    }
    if (operation.kind == Operation::RESET) {
        put(SETUP, NOTHING);
        put(RESUME, NOTHING);
    }
    return states;
}

}  // namespace crash
