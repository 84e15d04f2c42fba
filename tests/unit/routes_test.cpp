// The documented bus interface is the one that is routed.

#include "bus/listener.h"
#include "support/documented_interface.h"

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

static std::vector<std::string> documentedNames()
{
    std::vector<std::string> names;
    for (const support::DocumentedMember &member : support::documentedMembers())
        names.push_back((member.isMethod ? "method " : "signal ") + member.interface + " " +
                        member.name);
    return names;
}

TEST(Routes, AreTheDocumentedOnes)
{
    EXPECT_THAT(documentedNames(), testing::UnorderedElementsAreArray(routedMembers()));
}

TEST(Routes, StandOnTheReferencePage)
{
    std::ifstream file(DOCS_FOLDER "/bus.md");
    const std::string page((std::istreambuf_iterator<char>(file)), {});
    for (const Route &route : routes())
        EXPECT_NE(page.find(route.member), std::string::npos) << route.member;
}
