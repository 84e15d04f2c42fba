// What has to be stored: a plain model of the six files, by the numbers of the configurations that
// they hold, and of what each operation makes of them.

#pragma once

#include "configuration.h"

#include <array>
#include <filesystem>
#include <iosfwd>
#include <string>
#include <vector>

namespace crash {

enum StoredFile { SETUP, SETUP_BAK, SETUP_BAK2, RESUME, RESUME_BAK, RESUME_BAK2, STORED_FILES };

extern const std::array<const char *, STORED_FILES> FILE_NAMES;

struct Stored : std::array<int, STORED_FILES> {};
void PrintTo(const Stored &stored, std::ostream *out);

// What lies in the folder: BROKEN also when a length field is wrong.
Stored storedIn(const std::filesystem::path &folder);

struct Operation {
    enum Kind { SAVE, SAVE_RESUME, BACKUP, RESTORE, RESTORE2, RESET };

    Kind kind;
    int number = 0;  // of the configuration to save
    int elements = 0;

    std::string word() const;  // as the worker takes it: "save:3:20"
};

// What is stored before the operation, after each of its steps, and so at its end.
std::vector<Stored> statesOf(const Operation &operation, const Stored &before);

}  // namespace crash
