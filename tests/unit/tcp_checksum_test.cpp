#include "src/snapshot/SnapshotFrame.h"
#include "tests/unit/SnapshotTest.h"

namespace {

uint16_t CheckSum(Bytes bytes) { return snapshot_frame::Checksum(bytes.data(), static_cast<int32_t>(bytes.size())); }

/// In the order in which two bytes lie in memory, whatever the machine.
uint16_t InMemory(uint8_t first, uint8_t second) {
    const uint8_t bytes[] = {first, second};
    return snapshot_frame::Raw<uint16_t>(bytes);
}

TEST(TcpCheckSum, NothingSumsToAllOnes) { EXPECT_EQ(CheckSum({}), 0xFFFF); }

TEST(TcpCheckSum, WordsAreAddedAndComplemented) {
    EXPECT_EQ(CheckSum({1, 2, 3, 4}), static_cast<uint16_t>(~InMemory(4, 6)));
}

TEST(TcpCheckSum, CarryIsAddedAgain) {
    EXPECT_EQ(CheckSum({0xFF, 0xFF, 1, 0}), static_cast<uint16_t>(~InMemory(1, 0)));
}

TEST(TcpCheckSum, OddLastByteIsTheFirstOfAZeroPaddedWord) { EXPECT_EQ(CheckSum({1, 2, 7}), CheckSum({1, 2, 7, 0})); }

}  // namespace
