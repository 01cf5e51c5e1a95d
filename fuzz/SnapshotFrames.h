/// A whole snapshot as the board hands it up, DMA message by DMA message: two feeds of a small exchange, each followed
/// by the acknowledgements on which a receiver notices that all is there.
#pragma once

#include <cstdint>
#include <vector>

namespace fuzz {

std::vector<std::vector<uint8_t>> SnapshotFrames();

}  // namespace fuzz
