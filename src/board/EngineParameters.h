/// What the board's engines are told before they start.
#pragma once

#include "common/FpgaStructCommon.h"
#include "public/reg/DriveRegEnyx.h"

/// Instrument number limits, last-tick channel, repeated quotes, models; with one line in the log.
void WriteEngineParameters(const CDrvRegEnyx& board, const U50ConfigInfo& config);

/// The host no longer edits the tables; both engines start.
void StartEngines(const CDrvRegEnyx& board, int32_t channel);
