// Programs that compute a second time, and in another way, what the daemon computes:
// tests/oracles/, in Python with its standard library alone.

#pragma once

#include <string>
#include <vector>

namespace support {

// What the program prints, line by line; the test fails when it cannot be run or fails itself.
// Words that a shell would not take as they are must not be among the arguments.
std::vector<std::string> askOracle(const std::string &program,
                                   const std::vector<std::string> &arguments = {});

}  // namespace support
