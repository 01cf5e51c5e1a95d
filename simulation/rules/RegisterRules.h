/// Which registers there are, and how each may be accessed.
#pragma once

#include <cstdint>
#include <vector>

namespace simulation {

enum class EAccess : uint8_t { Write = 1, Read32 = 2, Read64 = 4 };

class RegisterRules {
public:
    RegisterRules();

    /// Breaks where the map has no such register or not this access to it.
    void Check(EAccess access, uint32_t index) const;

private:
    void Allow(EAccess access, uint32_t index);
    void AllowFeeds();

    std::vector<uint8_t> m_allowed;
};

}  // namespace simulation
