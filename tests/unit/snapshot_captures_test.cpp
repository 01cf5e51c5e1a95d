#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "public/write_shot/write_shot.h"
#include "tests/unit/DispatchFixture.h"

namespace {

class Captures : public DispatchFixture {
protected:
    void SetUp() override {
        m_directory = std::filesystem::path(::testing::TempDir()) /
                      (std::string("captures_") + ::testing::UnitTest::GetInstance()->current_test_info()->name());
        std::filesystem::remove_all(m_directory);
        std::filesystem::create_directories(m_directory);
        const std::string path = m_directory.string() + "/";
        ASSERT_EQ(CWriteShot::GetInstance().CreateShotBinLog(path.c_str(), 0), 0);
        ASSERT_EQ(CWriteShot::GetInstance().CreateShotPcapLog(path.c_str(), 0), 0);
        m_before = CWriteShot::GetInstance().GetBinShotCnt();
    }

    void TearDown() override {
        CWriteShot::GetInstance().CloseShotBinLog();
        CWriteShot::GetInstance().CloseShotPcapLog();
        std::filesystem::remove_all(m_directory);
    }

    /// The file that holds the packets.
    std::string Packets() const {
        CWriteShot::GetInstance().CloseShotPcapLog();
        for (const auto& file : std::filesystem::directory_iterator(m_directory)) {
            if (file.path().extension() != ".pcap") continue;
            std::ifstream in(file.path(), std::ios::binary);
            return {std::istreambuf_iterator<char>(in), {}};
        }
        return {};
    }

    uint64_t Captured() const { return CWriteShot::GetInstance().GetBinShotCnt() - m_before; }

    std::filesystem::path m_directory;
    uint64_t m_before = 0;
};

TEST_F(Captures, HoldEveryMessageWhenSwitchedOn) {
    state->config.dma_data_flag = true;
    Begin();
    Hand(EventMessage());
    Hand(MessageOfType(DMA_TCP, 5));
    EXPECT_EQ(Captured(), 3U);
}

TEST_F(Captures, OfPacketsHoldSegmentsAlone) {
    state->config.dma_data_flag = true;
    const Bytes segment = Segment(FIRST_SEQ, FirstMessage(SHFE_TOPIC)).DmaMessage();
    Hand(EventMessage());
    Hand(segment);
    Hand(MessageOfType(DMA_UDP, DMA_READABLE_BYTES));
    Hand(MessageOfType(77, 300));
    EXPECT_EQ(Captured(), 4U);
    const std::string packets = Packets();
    ASSERT_EQ(packets.size(), 24 + 16 + (segment.size() - 12));  // heads of the file and of its one packet
    EXPECT_EQ(packets.substr(24 + 16), std::string(segment.begin() + 12, segment.end()));
}

TEST_F(Captures, HoldNothingWhenSwitchedOff) {
    Begin();
    EXPECT_EQ(Captured(), 0U);
}

TEST_F(Captures, LeaveOutWhatIsTooLong) {
    state->config.dma_data_flag = true;
    Hand(MessageOfType(DMA_TCP, DMA_MESSAGE_CAPACITY + 1));
    EXPECT_EQ(Captured(), 0U);
}

TEST_F(Captures, AreCountedWhereThePriceCheckThrowsASnapshotAway) {
    state->config.dma_data_flag = true;
    state->config.enabled_mask.enabled_mask = 1;
    Arrive(Begin(), Book(101, 100));
    Hand(EventMessage());
    OneMoreSegment();
    ASSERT_EQ(Captured(), 4U);
    EXPECT_TRUE(log.Has(LOG_WARNING, "price check is error, shot cnt is " + std::to_string(m_before + 4) + "."));
}

}  // namespace
