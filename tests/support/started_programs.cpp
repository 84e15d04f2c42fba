#include "support/started_programs.h"

#include <fstream>

namespace support {

static constexpr const char *NOTES = "started";

std::vector<std::string> StartedPrograms::settings() const
{
    return {
        "LD_PRELOAD=" STARTED_PROGRAMS,
        "APP_TEST_STARTED=" + folder.file(NOTES).string(),
    };
}

std::vector<std::string> StartedPrograms::take()
{
    std::ifstream notes(folder.file(NOTES), std::ios::binary);
    notes.seekg(taken);
    std::vector<std::string> names;
    for (std::string name; std::getline(notes, name, '\0');) {
        taken += static_cast<std::streamoff>(name.size() + 1);
        names.push_back(name);
    }
    return names;
}

}  // namespace support
