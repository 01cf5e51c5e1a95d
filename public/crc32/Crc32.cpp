#include "public/crc32/Crc32.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>

namespace {

constexpr uint32_t POLYNOMIAL = 0x82F63B78U;  // Castagnoli, bits reflected
constexpr std::size_t SLICES = 8;

using Tables = std::array<std::array<uint32_t, 256>, SLICES>;

// Table k advances a byte over k further zero bytes.
constexpr Tables MakeTables() {
    Tables tables{};
    uint32_t byte = 0;
    for (uint32_t& crc : tables[0]) {
        crc = byte++;
        for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ ((crc & 1U) != 0 ? POLYNOMIAL : 0);
    }
    const auto advance = [&tables](uint32_t crc) { return (crc >> 8) ^ tables[0][crc & 0xFFU]; };
    for (std::size_t slice = 1; slice < SLICES; ++slice) {
        std::transform(tables[slice - 1].begin(), tables[slice - 1].end(), tables[slice].begin(), advance);
    }
    return tables;
}

constexpr Tables TABLES = MakeTables();

bool IsUsable(const uint8_t* data, int32_t length) { return data != nullptr && length >= 0; }

uint32_t Bytes(uint32_t crc, const uint8_t* data, std::size_t length) {
    for (std::size_t i = 0; i < length; ++i) crc = (crc >> 8) ^ TABLES[0][(crc ^ data[i]) & 0xFFU];
    return crc;
}

uint32_t Load(const uint8_t* data) {
    uint32_t word{};
    std::memcpy(&word, data, sizeof word);
    return word;
}

uint32_t FourBytes(uint32_t crc, const uint8_t* data) {
    const uint32_t word = crc ^ Load(data);
    return TABLES[3][word & 0xFFU] ^ TABLES[2][(word >> 8) & 0xFFU] ^ TABLES[1][(word >> 16) & 0xFFU] ^
           TABLES[0][word >> 24];
}

uint32_t EightBytes(uint32_t crc, const uint8_t* data) {
    const uint32_t low = crc ^ Load(data);
    const uint32_t high = Load(data + 4);
    return TABLES[7][low & 0xFFU] ^ TABLES[6][(low >> 8) & 0xFFU] ^ TABLES[5][(low >> 16) & 0xFFU] ^
           TABLES[4][low >> 24] ^ TABLES[3][high & 0xFFU] ^ TABLES[2][(high >> 8) & 0xFFU] ^
           TABLES[1][(high >> 16) & 0xFFU] ^ TABLES[0][high >> 24];
}

// Eight bytes a step, then those that are left.
uint32_t AllBytes(uint32_t crc, const uint8_t* data, std::size_t length) {
    for (std::size_t steps = length / 8; steps > 0; --steps, data += 8) crc = EightBytes(crc, data);
    return Bytes(crc, data, length % 8);
}

}  // namespace

int32_t CCrc32::calculate_crc32c(uint32_t& crc, const uint8_t* data, int32_t length) {
    if (!IsUsable(data, length)) return -1;
    crc = ~AllBytes(~crc, data, static_cast<std::size_t>(length));
    return 0;
}

int32_t CCrc32::singletable_crc32c(uint32_t& crc, const uint8_t* data, int32_t length) {
    if (!IsUsable(data, length)) return -1;
    crc = ~Bytes(~crc, data, static_cast<std::size_t>(length));
    return 0;
}

int32_t CCrc32::multitable_crc32c(uint32_t& crc, const uint8_t* data, int32_t length) {
    if (!IsUsable(data, length)) return -1;
    const auto size = static_cast<std::size_t>(length);
    uint32_t state = ~crc;
    for (std::size_t steps = size / 4; steps > 0; --steps, data += 4) state = FourBytes(state, data);
    crc = ~Bytes(state, data, size % 4);
    return 0;
}

int32_t CCrc32::crc32c_sb8_64_bit(uint32_t& crc, const uint8_t* data, int32_t length, uint32_t align) {
    if (!IsUsable(data, length)) return -1;
    const auto size = static_cast<std::size_t>(length);
    const std::size_t head = std::min<std::size_t>(align, size);
    crc = ~AllBytes(Bytes(~crc, data, head), data + head, size - head);
    return 0;
}
