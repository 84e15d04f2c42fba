#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <sstream>

namespace support {

TempDir::TempDir()
{
    std::string pattern = (std::filesystem::temp_directory_path() / "app-test-XXXXXX").string();
    if (!mkdtemp(pattern.data()))
        ADD_FAILURE() << "no temporary folder: " << pattern;
    folder = pattern;
}

TempDir::~TempDir()
{
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
}

void TempDir::write(std::string_view name, std::string_view bytes) const
{
    std::ofstream stream(file(name), std::ios::binary | std::ios::trunc);
    stream.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    EXPECT_TRUE(stream.good()) << "cannot write " << file(name);
}

std::optional<std::string> TempDir::read(std::string_view name) const
{
    const std::ifstream stream(file(name), std::ios::binary);
    if (!stream)
        return std::nullopt;
    std::ostringstream bytes;
    bytes << stream.rdbuf();
    return bytes.str();
}

std::string storedLayout(std::string_view text)
{
    const auto length = static_cast<uint32_t>(text.size() + 1);
    std::string bytes;
    for (int shift = 0; shift < 32; shift += 8)
        bytes += static_cast<char>((length >> shift) & 0xFF);
    bytes += text;
    bytes += '\0';
    return bytes;
}

}  // namespace support
