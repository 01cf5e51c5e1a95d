/// The contract index file as it must be: one line for each slot, of what the tables hold.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "common/FpgaStructCommon.h"

namespace simulation {

/// "/.shfe_20260430_am" at that wall time, which is local time.
std::string IndexName(int64_t wallNanoseconds);

std::string IndexText(const std::vector<SInstTableType>& shfe, const std::vector<SInstTableType>& ine);

}  // namespace simulation
