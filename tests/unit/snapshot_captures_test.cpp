#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "public/write_shot/write_shot.h"
#include "testing/TemporaryDirectory.h"
#include "tests/unit/DispatchFixture.h"

using ::testing::ElementsAre;

namespace {

class Captures : public DispatchFixture {
protected:
    void SetUp() override {
        const std::string path = m_directory.Prefix();
        ASSERT_EQ(CWriteShot::GetInstance().CreateShotBinLog(path.c_str(), 0), 0);
        ASSERT_EQ(CWriteShot::GetInstance().CreateShotPcapLog(path.c_str(), 0), 0);
        m_before = CWriteShot::GetInstance().GetBinShotCnt();
    }

    void TearDown() override {
        CWriteShot::GetInstance().CloseShotBinLog();
        CWriteShot::GetInstance().CloseShotPcapLog();
    }

    /// The file that holds the packets.
    std::string Packets() const {
        CWriteShot::GetInstance().CloseShotPcapLog();
        for (const auto& file : std::filesystem::directory_iterator(m_directory.Path())) {
            if (file.path().extension() != ".pcap") continue;
            std::ifstream in(file.path(), std::ios::binary);
            return {std::istreambuf_iterator<char>(in), {}};
        }
        return {};
    }

    uint64_t Captured() const { return CWriteShot::GetInstance().GetBinShotCnt() - m_before; }

    static constexpr const char* NO_TYPE = "invalide DMA Data Type[0]";
    static constexpr const char* EVENT =
        "channel0 receive DMA_EVENT event_data0[10] event_data1[11] event_data2[12] event_data3[13] event_data4[14] "
        "event_data5[15]";

    TemporaryDirectory m_directory;
    uint64_t m_before = 0;
};

TEST_F(Captures, HoldEveryMessageWhenSwitchedOn) {
    state->config.dma_data_flag = true;
    Begin();
    Hand(EventMessage());
    Hand(MessageOfType(DMA_TCP, 5));
    EXPECT_EQ(Captured(), 3U);
    EXPECT_THAT(log.Texts(TROUBLE), ElementsAre(NO_TYPE, EVENT));
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
    EXPECT_THAT(log.Texts(TROUBLE),
                ElementsAre(NO_TYPE, EVENT, "invalide DMA Data Type[1]", "invalide DMA Data Type[77]"));
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
    EXPECT_THAT(log.Texts(TROUBLE), ::testing::IsSupersetOf({NO_TYPE, EVENT, "inst_id [cu2612] inst_no[0]"}));
}

}  // namespace
