/// What the board must know of the snapshot sessions and the multicast groups: addresses and ports, from the
/// configuration's texts. Each function writes its registers in the one order that the board expects.
#pragma once

#include <cstdint>

#include "common/FpgaStructCommon.h"
#include "common/RegisterMap.h"
#include "public/reg/DriveRegEnyx.h"

/// MAC and IP addresses and ports of both ends of each snapshot session.
void ProgramSessions(const CDrvRegEnyx& board, const U50ConfigInfo& config);

/// Both lines of each feed; zeros where the feed is not enabled.
void ProgramGroups(const CDrvRegEnyx& board, const U50ConfigInfo& config);

/// One line. -1, with a line in the log, for an address that is not "a.b.c.d:port".
int32_t ProgramGroup(const CDrvRegEnyx& board, const reg::GroupRegisters& registers, const CAddressType& address,
                     bool isEnabled);
