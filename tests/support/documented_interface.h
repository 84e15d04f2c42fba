// The bus interface as it is documented.

#pragma once

#include <string>
#include <vector>

namespace support {

struct DocumentedMember {
    bool isMethod;  // otherwise a signal
    std::string interface;
    std::string name;
    std::string takes;  // the types of its arguments
};

// Every method, and the signals of the interface that the daemon listens to.
std::vector<DocumentedMember> documentedMembers();

}  // namespace support
