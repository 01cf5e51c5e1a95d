// The names of the faults, in one table: parsing and the help text both walk it.
#include "exchange/Faults.h"

#include <algorithm>
#include <array>

namespace exchange {
namespace {

struct NamedFault {
    std::string_view name;
    bool Faults::*member;
};

constexpr std::array<NamedFault, 7> NAMED_FAULTS{{
    {"reorder", &Faults::reorder},
    {"duplicate", &Faults::duplicate},
    {"corrupt", &Faults::corrupt},
    {"reset", &Faults::reset},
    {"stall", &Faults::stall},
    {"crossed-book", &Faults::crossedBook},
    {"lost-packet", &Faults::lostPacket},
}};

constexpr std::string_view ALL_OF_THEM = "all";

bool SetFault(std::string_view name, Faults& faults) {
    bool isKnown = false;
    for (const NamedFault& fault : NAMED_FAULTS) {
        if (name != fault.name && name != ALL_OF_THEM) continue;
        faults.*fault.member = true;
        isKnown = true;
    }
    return isKnown;
}

}  // namespace

bool ParseFaults(std::string_view names, Faults& faults, std::string& error) {
    Faults parsed;
    while (!names.empty()) {
        const std::size_t end = std::min(names.find(','), names.size());
        const std::string_view name = names.substr(0, end);
        if (!SetFault(name, parsed)) {
            error = "unknown fault \"" + std::string(name) + "\"; known are " + FaultNames() + ", or all";
            return false;
        }
        names.remove_prefix(std::min(end + 1, names.size()));
    }
    faults = parsed;
    return true;
}

std::string FaultNames() {
    std::string names;
    for (const NamedFault& fault : NAMED_FAULTS) {
        if (!names.empty()) names += ", ";
        names += fault.name;
    }
    return names;
}

}  // namespace exchange
