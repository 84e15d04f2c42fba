// A fresh folder that goes away with the test.

#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace support {

class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir &) = delete;
    TempDir &operator=(const TempDir &) = delete;

    const std::filesystem::path &path() const
    {
        return folder;
    }
    std::filesystem::path file(std::string_view name) const
    {
        return folder / name;
    }

    void write(std::string_view name, std::string_view bytes) const;
    std::optional<std::string>
    read(std::string_view name) const;  // nothing when there is no such file

private:
    std::filesystem::path folder;
};

// The layout of a stored document: its length with the NUL, little-endian in four bytes, then the
// text and the NUL.
std::string storedLayout(std::string_view text);

}  // namespace support
