// The documented bus interface is the one that is routed.

#include "bus/listener.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
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

// What stands in the quotes after `begin`, or nothing.
static std::string nameAfter(const std::string &line, const std::string &begin)
{
    const size_t start = line.find(begin);
    if (start == std::string::npos)
        return "";
    const size_t name = start + begin.size();
    return line.substr(name, line.find('"', name) - name);
}

// Every method, and the signals of the interface that the daemon listens to.
static std::vector<std::string> documentedMembers()
{
    std::ifstream file(DOCS_FOLDER "/com.ovrinbus.app.xml");
    EXPECT_TRUE(file);
    std::vector<std::string> members;
    std::string interface;
    for (std::string line; std::getline(file, line);) {
        const std::string method = nameAfter(line, "<method name=\"");
        const std::string signal = nameAfter(line, "<signal name=\"");
        const std::string next = nameAfter(line, "<interface name=\"");
        if (!next.empty())
            interface = next;
        if (!method.empty())
            members.push_back("method " + interface + " " + method);
        if (!signal.empty() && interface == "com.OvrinTech.signal.event")
            members.push_back("signal " + interface + " " + signal);
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
