/// Instrument identifiers.
#pragma once

#include <cstring>
#include <string_view>

#include "common/FpgaStructCommon.h"

/// A slot's; the slot need not end it.
inline std::string_view InstId(const SInstTableType& slot) {
    return {slot.inst_id, strnlen(slot.inst_id, sizeof slot.inst_id)};
}

/// Trade-at-settlement instruments are priced as differences: no price limit applies to them.
inline bool IsTas(std::string_view id) { return id.find("TAS") != std::string_view::npos; }
