#include "support/documented_interface.h"

#include <gtest/gtest.h>

#include <fstream>

namespace support {

static constexpr const char *LISTENED_TO = "com.OvrinTech.signal.event";

// What stands in the quotes after `begin`, or nothing.
static std::string quotedAfter(const std::string &line, const std::string &begin)
{
    const size_t start = line.find(begin);
    if (start == std::string::npos)
        return "";
    const size_t name = start + begin.size();
    return line.substr(name, line.find('"', name) - name);
}

std::vector<DocumentedMember> documentedMembers()
{
    std::ifstream file(DOCS_FOLDER "/com.ovrinbus.app.xml");
    EXPECT_TRUE(file);
    std::vector<DocumentedMember> members;
    std::string interface;
    bool isTaken = false;
    for (std::string line; std::getline(file, line);) {
        const std::string next = quotedAfter(line, "<interface name=\"");
        const std::string method = quotedAfter(line, "<method name=\"");
        const std::string signal = quotedAfter(line, "<signal name=\"");
        if (!next.empty())
            interface = next;
        if (!method.empty() || !signal.empty()) {
            isTaken = !method.empty() || interface == LISTENED_TO;
            if (isTaken)
                members.push_back({!method.empty(), interface, method + signal, ""});
        }
        if (isTaken && line.find("<arg ") != std::string::npos &&
            line.find("direction=\"out\"") == std::string::npos)
            members.back().takes += quotedAfter(line, "type=\"");
    }
    return members;
}

}  // namespace support
