// Which programs a program starts, and those in turn, whoever they are: noted by each of them as it
// begins.

#pragma once

#include "support/temp_dir.h"

#include <ios>
#include <string>
#include <vector>

namespace support {

class StartedPrograms {
public:
    // For the environment of the program.
    std::vector<std::string> settings() const;

    // What each was started as, itself first, since the last time this was asked; in order.
    std::vector<std::string> take();

private:
    TempDir folder;
    std::streamoff taken = 0;  // bytes of the notes
};

}  // namespace support
