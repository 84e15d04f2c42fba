#include "support/oracle.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <sstream>

namespace support {

std::vector<std::string> askOracle(const std::string &program,
                                   const std::vector<std::string> &arguments)
{
    std::string command = "exec python3 -I '" ORACLE_FOLDER "/" + program + "'";
    for (const std::string &argument : arguments)
        command += " " + argument;
    FILE *output = popen(command.c_str(), "r");
    if (!output) {
        ADD_FAILURE() << "cannot run " << command;
        return {};
    }
    std::string text;
    char buffer[65536];
    for (size_t got; (got = fread(buffer, 1, sizeof buffer, output)) > 0;)
        text.append(buffer, got);
    EXPECT_EQ(pclose(output), 0) << command;

    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

}  // namespace support
