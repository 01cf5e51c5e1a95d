/// Which board it is.
#pragma once

#include <cstdint>

#include "include/DateType.h"
#include "public/reg/DriveRegEnyx.h"

/// Reads the three identity words, 0 for one that cannot be read, and writes the MAC address that they begin with as
/// text, "00:11:22:33:44:55".
void ReadIdentity(const CDrvRegEnyx& board, uint32_t (&dna)[3], CMACType& macAddress);
