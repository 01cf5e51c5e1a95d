/// Which instruments a synthetic exchange lists: real product codes, ticks and multipliers, made-up prices.
#pragma once

#include <cstdint>
#include <vector>

#include "exchange/Instrument.h"

namespace exchange {

enum class Venue { Shfe, Ine };

/// Exactly `count` instruments, the first of them a future. Delivery months follow the month of `tradingDay`; the more
/// are asked for, the further the options' strikes lie from the future's price.
std::vector<Instrument> ListInstruments(Venue venue, int32_t count, int32_t tradingDay, uint64_t seed);

}  // namespace exchange
