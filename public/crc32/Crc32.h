/// CRC-32C (Castagnoli, reflected, with the customary inversion before and after): "123456789" gives 0xE3069283.
/// The four routines give the same result. `crc` is the checksum so far (0 to begin with) and the checksum after;
/// a buffer may be given piece by piece.
#pragma once

#include <cstdint>

class CCrc32 {
public:
    /// 0; -1 when `data` is null or `length` is negative (`crc` is then left alone).
    static int32_t calculate_crc32c(uint32_t& crc, const uint8_t* data, int32_t length);

    static int32_t singletable_crc32c(uint32_t& crc, const uint8_t* data, int32_t length);  ///< one byte a step
    static int32_t multitable_crc32c(uint32_t& crc, const uint8_t* data, int32_t length);   ///< four bytes a step

    /// Eight bytes a step, after `align` single bytes that bring `data` to the caller's alignment.
    static int32_t crc32c_sb8_64_bit(uint32_t& crc, const uint8_t* data, int32_t length, uint32_t align);
};
