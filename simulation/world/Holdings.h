/// What the library and the process hold at a moment: the same at every return to the same state.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace simulation {

struct Holdings {
    int64_t blocks = 0;  ///< of memory, allocated by the library
    int64_t mappedBytes = 0;
    std::size_t descriptors = 0;
    int32_t handles = 0;  ///< register areas and streams

    static Holdings Now();
    bool operator==(const Holdings&) const = default;
    std::string Text() const;
};

/// Throws a breach of ERule::Holdings where anything differs.
void RequireSame(const Holdings& before, const Holdings& now);

}  // namespace simulation
