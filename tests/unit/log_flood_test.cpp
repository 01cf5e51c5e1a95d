// What a hostile network may cost in log: the disk belongs to the trading machine, too.
#include "tests/unit/SnapshotFixture.h"

namespace {

class LogFlood : public SnapshotFixture {
protected:
    void SetUp() override {
        CCommonLog::GetInstance().SetLogLevel(LOG_ERROR | LOG_WARNING | LOG_INFO | LOG_DEBUG);
        clock.step = 1'000;  // a line takes a microsecond
    }

    /// With date, time and level in front of each line.
    std::size_t BytesOfLog() const {
        constexpr std::size_t HEAD_BYTES = sizeof "2026-04-30 09:30:00.123456 [WARNING] ";
        std::size_t bytes = 0;
        for (const LogCapture::Line& line : log.lines) bytes += HEAD_BYTES + line.whole.size();
        return bytes;
    }

    static constexpr std::size_t MEGABYTE = 1'000'000;
};

TEST_F(LogFlood, ScanOfEveryPortStaysBelowAMegabyte) {
    for (uint32_t port = 0; port < 65'536; ++port) Arrive(FIRST_SEQ, Bytes(8, 7), static_cast<uint16_t>(port));
    EXPECT_EQ(Counted(ECounter::SegmentRefused), 65'536U);
    EXPECT_LT(BytesOfLog(), MEGABYTE);
}

TEST_F(LogFlood, WrongChecksumsStayBelowAMegabyte) {
    Bytes frame = Segment(FIRST_SEQ, Bytes(8, 7)).DmaMessage();
    frame.back() ^= 0x55;
    for (int i = 0; i < 100'000; ++i) Hand(frame);
    EXPECT_EQ(Counted(ECounter::ChecksumWrong), 100'000U);
    EXPECT_THAT(log.Texts(TROUBLE), ::testing::Each(::testing::StartsWith("TcpCheckSum false, ")));
    EXPECT_LT(BytesOfLog(), MEGABYTE);
}

TEST_F(LogFlood, SegmentsBeyondAGapOnManyPortsStayBelowAMegabyte) {
    constexpr uint16_t FIRST_PORT = 33'333;
    constexpr uint16_t PORTS = 60;
    uint32_t next = 0;
    for (uint16_t i = 0; i < PORTS; ++i) next = Begin(SHFE_TOPIC, static_cast<uint16_t>(FIRST_PORT + i));
    for (uint32_t segment = 1; segment <= 100; ++segment) {
        for (uint16_t i = 0; i < PORTS; ++i) {
            Arrive(next + segment * 100, Bytes(8, 7), static_cast<uint16_t>(FIRST_PORT + i));
        }
    }
    EXPECT_GT(Counted(ECounter::SegmentEarlyDropped), 1'000U);
    EXPECT_THAT(log.Texts(TROUBLE), ::testing::Contains("free the cache of packet loss."));
    EXPECT_LT(BytesOfLog(), MEGABYTE);
}

}  // namespace
