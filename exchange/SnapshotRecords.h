/// The wire records that a snapshot holds of one instrument.
#pragma once

#include <cstdint>

#include "common/Mdqp.h"
#include "exchange/Book.h"
#include "exchange/Instrument.h"
#include "interface/VexaShfeMdStruct.h"

namespace exchange {

inline double Yuan(int64_t hundredths) { return static_cast<double>(hundredths) / 100.0; }

inst_info_t InfoOf(const Instrument& instrument);
deal_info_t DealOf(const Instrument& instrument, const VexaShfeMdType& truth, int32_t tradingDay);
order_statistics_info_t StatisticsOf(int32_t instNo, const Book& book);

/// The largest double in whatever receivers do not keep, and in prices of the day that the truth has none of.
void DeclareAbsent(const VexaShfeMdType& truth, deal_info_t& record);

}  // namespace exchange
