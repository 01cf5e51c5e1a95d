/// Is a loaded snapshot sane? Every quoted price within its limits, the ten book prices strictly falling. One thread,
/// once per completed snapshot, off the live path.
///
/// Invariant: an instrument that fails is logged and remembered even where the verdict is shielded.
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "src/snapshot/InstrumentStore.h"

namespace price_check {

/// 0; -1: a price outside its limits; -2: not falling. From the highest ask to the lowest bid.
int32_t CheckPrice(const std::vector<int>& prices, int32_t upper, int32_t lower);

/// The same of one slot; what fails joins `failed`. 0 where `isShielded`.
int32_t CheckInstrument(const SInstTableType& slot, int32_t instNo, bool isShielded, std::set<std::string>& failed);

/// The same of every instrument, number by number, up to the first that fails.
int32_t CheckAll(CInstrumentStore& store, bool isShielded, std::set<std::string>& failed);

}  // namespace price_check
