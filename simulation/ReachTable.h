/// Which cells of the reach must be met, and why the others cannot be.
#pragma once

#include <string>

#include "simulation/base/Reach.h"

namespace simulation {

/// The cells that `sessions` sessions should have met five times in two thousand and did not, one a line; empty when
/// there is none. A cell is due once at the least.
std::string Holes(const Reach& reach, uint64_t sessions);

/// Why the other cells of each row stay empty, one kind of row a line.
std::string WhatCannotBe();

}  // namespace simulation
