/// The numbered rules that every session must keep, and the error that says one was broken.
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace simulation {

struct Invariant {
    int number;
    const char* name;
    const char* rule;
};

/// In the order of their numbers.
std::span<const Invariant> Invariants();

/// Null when there is no such number.
const Invariant* FindInvariant(int number);

/// Thrown through the library's frames, so it is no std::exception: the library must not take it for one of its own.
struct Breach {
    int invariant;
    std::string what;
};

[[noreturn]] void ThrowBreach(int invariant, const std::string& what);

/// `what` is built only when the rule is broken.
template <typename What>
void Require(bool holds, int invariant, What what) {
    if (!holds) [[unlikely]]
        ThrowBreach(invariant, what());
}

std::string Hex(uint64_t value);

}  // namespace simulation
