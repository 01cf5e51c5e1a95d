/// What each rule says, and the error that says one was broken.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "simulation/base/Rule.h"

namespace simulation {

struct Rule {
    ERule rule;
    int number;  ///< of `rule`
    const char* name;
    const char* text;
};

/// In the order in which users are told of them.
std::span<const Rule> Rules();

const Rule& FindRule(ERule rule);

/// Thrown through the library's frames, so it is no std::exception: the library must not take it for one of its own.
struct Breach {
    ERule rule;
    std::string what;
};

[[noreturn]] void ThrowBreach(ERule rule, const std::string& what);

/// `what` is built only when the rule is broken.
template <typename What>
void Require(bool holds, ERule rule, What what) {
    if (!holds) [[unlikely]]
        ThrowBreach(rule, what());
}

std::string Hex(uint64_t value);

}  // namespace simulation
