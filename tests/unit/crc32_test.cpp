#include <gtest/gtest.h>

#include <utility>
#include <vector>

#include "public/crc32/Crc32.h"

namespace {

const uint8_t* Bytes(const char* text) { return reinterpret_cast<const uint8_t*>(text); }

/// Bit by bit, from the polynomial alone.
uint32_t Plain(const std::vector<uint8_t>& data) {
    uint32_t crc = 0xFFFFFFFFU;
    for (const uint8_t byte : data) {
        crc ^= byte;
        for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ ((crc & 1U) != 0 ? 0x82F63B78U : 0U);
    }
    return ~crc;
}

TEST(Crc32, CheckValueIsTheCustomaryOne) {
    uint32_t crc = 0;
    ASSERT_EQ(CCrc32::calculate_crc32c(crc, Bytes("123456789"), 9), 0);
    EXPECT_EQ(crc, 0xE3069283U);
}

TEST(Crc32, AllRoutinesAgreeAtEveryLengthAndAlignment) {
    std::vector<uint8_t> data;
    for (int length = 0; length < 80; ++length) {
        const uint32_t expected = Plain(data);
        uint32_t crc = 0;
        const uint8_t* const bytes = data.empty() ? Bytes("") : data.data();
        EXPECT_EQ(CCrc32::calculate_crc32c(crc, bytes, length), 0);
        EXPECT_EQ(crc, expected);
        crc = 0;
        EXPECT_EQ(CCrc32::singletable_crc32c(crc, bytes, length), 0);
        EXPECT_EQ(crc, expected);
        crc = 0;
        EXPECT_EQ(CCrc32::multitable_crc32c(crc, bytes, length), 0);
        EXPECT_EQ(crc, expected);
        for (const uint32_t align : {0U, 1U, 7U, 100U}) {
            crc = 0;
            EXPECT_EQ(CCrc32::crc32c_sb8_64_bit(crc, bytes, length, align), 0);
            EXPECT_EQ(crc, expected);
        }
        data.push_back(static_cast<uint8_t>(length * 37 + 11));
    }
}

TEST(Crc32, BufferMayBeGivenPieceByPiece) {
    uint32_t crc = 0;
    CCrc32::calculate_crc32c(crc, Bytes("1234"), 4);
    CCrc32::calculate_crc32c(crc, Bytes("56789"), 5);
    EXPECT_EQ(crc, 0xE3069283U);
}

TEST(Crc32, NullOrNegativeLengthIsRefusedAndLeavesTheChecksum) {
    uint32_t crc = 5;
    for (const auto& [data, length] : {std::pair(Bytes("x"), -1), {nullptr, 1}, {nullptr, 0}}) {
        EXPECT_EQ(CCrc32::calculate_crc32c(crc, data, length), -1);
        EXPECT_EQ(CCrc32::singletable_crc32c(crc, data, length), -1);
        EXPECT_EQ(CCrc32::multitable_crc32c(crc, data, length), -1);
        EXPECT_EQ(CCrc32::crc32c_sb8_64_bit(crc, data, length, 3), -1);
        EXPECT_EQ(crc, 5U);
    }
}

}  // namespace
