// The documented bus interface is the one that is routed.

#include "bus/listener.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <regex>
#include <string>
#include <vector>

// "method com.OvrinTech.app getDat"
static std::vector<std::string> routedMembers()
{
    std::vector<std::string> members;
    for (const Route &route : routes()) {
        const bool isMethod = route.type == DBUS_MESSAGE_TYPE_METHOD_CALL;
        members.push_back(std::string(isMethod ? "method " : "signal ") + route.interface + " " +
                          route.member);
    }
    return members;
}

// Every method, and the signals of the interface that the daemon listens to.
static std::vector<std::string> documentedMembers()
{
    std::ifstream file(DOCS_FOLDER "/com.ovrinbus.app.xml");
    EXPECT_TRUE(file);
    const std::regex element("<(interface|method|signal) name=\"([^\"]+)\"");
    std::vector<std::string> members;
    std::string interface;
    for (std::string line; std::getline(file, line);) {
        std::smatch found;
        if (!std::regex_search(line, found, element))
            continue;
        if (found[1] == "interface")
            interface = found[2];
        else if (found[1] == "method" || interface == "com.OvrinTech.signal.event")
            members.push_back(found[1].str() + " " + interface + " " + found[2].str());
    }
    return members;
}

TEST(Routes, AreTheDocumentedOnes)
{
    EXPECT_THAT(documentedMembers(), testing::UnorderedElementsAreArray(routedMembers()));
}

TEST(Routes, StandOnTheReferencePage)
{
    std::ifstream file(DOCS_FOLDER "/bus.md");
    const std::string page((std::istreambuf_iterator<char>(file)), {});
    for (const Route &route : routes())
        EXPECT_NE(page.find(route.member), std::string::npos) << route.member;
}
