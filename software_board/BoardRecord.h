/// How a live update changes a slot, and the record that a slot gives.
#pragma once

#include <cstdint>

#include "common/FpgaStructCommon.h"
#include "exchange/Exchange.h"
#include "interface/VexaShfeMdStruct.h"

namespace software_board {

void LayOver(const exchange::LiveUpdate& update, SInstTableType& slot);

/// Made of the board's own slot, so that whatever the host wrote wrongly shows.
VexaShfeMdType RecordOf(const SInstTableType& slot, int32_t instNo, uint32_t maxInstNo);

}  // namespace software_board
