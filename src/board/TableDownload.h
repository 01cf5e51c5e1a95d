/// Host slots -> board table, word by word, the unused slots cleared; before it, on request, a fault for tests of the
/// price check and the recovery. Once per completed snapshot.
#pragma once

#include <cstdint>

#include "common/FpgaStructCommon.h"
#include "common/RegisterMap.h"
#include "public/reg/DriveRegEnyx.h"

struct HostTable {
    SInstTableType* slots;  ///< `capacity` of them
    int32_t count;          ///< in use, from the first on; more than `capacity` counts as that
    int32_t capacity;
    bool isEnabled;  ///< slots in use are written too
};

/// Exactly `capacity` slots are walked. Needs the write registers alone.
void WriteTable(const CDrvRegEnyx& board, const U50ConfigInfo& config, const reg::TableRegisters& registers,
                const HostTable& table);
