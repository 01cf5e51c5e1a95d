/// Bits of an event's words, read a second time: what the rules hold the library against shares nothing with it.
#pragma once

#include <cstdint>

namespace simulation {

constexpr uint32_t LOST_BITS = 0x80808080U;         ///< of word 0
constexpr uint32_t TIME_OUT_BITS = 0x40404040U;     ///< of word 0
constexpr uint32_t PRICE_ERROR_BITS = 0x0F0F0F0FU;  ///< of word 1
constexpr uint32_t MEMORY_READY_BIT = 0x01U;        ///< of word 2
constexpr uint32_t LOST_COUNT_BITS = 0x0FU;         ///< of word 3
constexpr uint32_t LINE_GROUPS = 4;                 ///< each has a byte of words 0 and 1
constexpr uint32_t LINE_GROUP_BITS = 8;

}  // namespace simulation
