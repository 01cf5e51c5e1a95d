// The buffers for messages cut by a segment's end: one for each port that is heard of, 512 in all.
#include "tests/unit/StreamFixture.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

using CarryOverBuffers = StreamFixture;

TEST_F(CarryOverBuffers, NewSessionHasAZeroedBuffer) {
    EXPECT_EQ(Reassembly().Open(Session(), LOCAL_PORT), 0);
    const uint8_t* buffer = Session().frag_buf;
    EXPECT_TRUE(std::all_of(buffer, buffer + FRAG_BUF_SIZE, [](uint8_t byte) { return byte == 0; }));
    ASSERT_EQ(log.Texts().size(), 1U);
    EXPECT_THAT(log.Texts()[0], ::testing::StartsWith(" dstPort:40001 frag_buf:0x"));
    EXPECT_EQ(log.lines[0].level, LOG_DEBUG);
    EXPECT_EQ(log.lines[0].Function(), "_InitTcpSession");
}

TEST_F(CarryOverBuffers, BufferIsKeptForThePortsNextConnection) {
    Reassembly().Open(Session(), LOCAL_PORT);
    uint8_t* buffer = Session().frag_buf;
    buffer[0] = 7;
    Session().frag_buf_offset = 3;
    EXPECT_EQ(Reassembly().Open(Session(), LOCAL_PORT), 0);
    EXPECT_EQ(FragBuf(), buffer);
    EXPECT_EQ(buffer[0], 7);
    EXPECT_EQ(uint32_t{Session().frag_buf_offset}, 0U);
    EXPECT_EQ(Reassembly().CarryOverBuffers(), 1U);
}

TEST_F(CarryOverBuffers, ResetFreesEverythingAndZeroesTheSlot) {
    const uint32_t next = Begin();
    Arrive(next, Cut(Numbered(1), 0, 10));
    Arrive(next + 100, Numbered(2));
    Arrive(next + 200, Numbered(3));
    Reassembly().Reset(Session());
    const tcp_session_t empty{};
    EXPECT_EQ(std::memcmp(&Session(), &empty, sizeof empty), 0);
    EXPECT_EQ(Reassembly().EarlySegments(), 0U);
    EXPECT_EQ(Reassembly().CarryOverBuffers(), 0U);
}

TEST_F(CarryOverBuffers, PortIsNotedForItsResetOnceHoweverOftenItIsUsed) {
    CCommonLog::GetInstance().SetLogLevel(LOG_NONE);
    for (int i = 0; i < 70'000; ++i) {
        const auto port = static_cast<uint16_t>(40000 + i % 3);
        Reassembly().Open(Session(port), port);
    }
    EXPECT_EQ(Reassembly().TouchedSessions(), 3U);
}

TEST_F(CarryOverBuffers, EveryPortThatWasTouchedIsClearedTogether) {
    for (uint32_t port = 0; port < TCP_SESSION_COUNT; port += 4095) Begin(77, static_cast<uint16_t>(port));
    EXPECT_EQ(Reassembly().TouchedSessions(), 17U);
    Reassembly().Clear();
    EXPECT_EQ(Reassembly().CarryOverBuffers(), 0U);
    EXPECT_EQ(Reassembly().TouchedSessions(), 0U);
    EXPECT_EQ(uint16_t{Session(65520).dst_port}, 0U);
    EXPECT_EQ(log.Count(LOG_WARNING, "invalide topic id[77]"), 17U);
}

/// Ports beyond what there are buffers for: 512.
class Strays : public CarryOverBuffers {
protected:
    static constexpr uint16_t FIRST_STRAY = 300;

    /// One segment without payload from each of so many ports.
    void Scan(uint32_t ports, uint32_t first = FIRST_STRAY) {
        for (uint32_t port = first; port < first + ports; ++port) Arrive(1, {}, static_cast<uint16_t>(port));
    }

    bool HasBuffer(uint32_t port) { return Session(static_cast<uint16_t>(port)).frag_buf != nullptr; }

    uint32_t Buffers() {
        uint32_t buffers = 0;
        for (uint32_t port = 0; port < TCP_SESSION_COUNT; ++port) buffers += HasBuffer(port) ? 1U : 0U;
        return buffers;
    }
};

TEST_F(Strays, SixHundredKeepNoConnectionFromItsBuffer) {
    Scan(600);
    const uint32_t next = Begin();
    EXPECT_EQ(Session().init, 1);
    Arrive(next, Join({Numbered(7), LastMessage()}));
    EXPECT_THAT(Decoded(), ElementsAre(7));
    EXPECT_EQ(state->finished.enabled_mask, FeedBit(SHFE_2PS));
    EXPECT_EQ(Buffers(), 512U);
}

TEST_F(Strays, OldestBufferThatNobodyUsesIsTakenOver) {
    Scan(512);
    EXPECT_EQ(Buffers(), 512U);
    Arrive(1, {}, FIRST_STRAY);  // its buffer stays as old as it is
    const uint8_t* oldest = Session(FIRST_STRAY).frag_buf;
    Begin();
    EXPECT_EQ(FragBuf(), oldest);
    EXPECT_FALSE(HasBuffer(FIRST_STRAY));
    EXPECT_TRUE(HasBuffer(FIRST_STRAY + 1));
    Scan(3, 2000);
    for (uint32_t port = 0; port < 4; ++port) EXPECT_FALSE(HasBuffer(FIRST_STRAY + port)) << port;
    EXPECT_TRUE(HasBuffer(FIRST_STRAY + 4));
}

// As a scan of all ports would fill the log otherwise.
TEST_F(Strays, BufferIsToldWhenItIsMadeAndNotWhenItChangesHands) {
    Scan(511);
    EXPECT_EQ(log.Texts(LOG_DEBUG).size(), 511U);
    EXPECT_THAT(log.Texts(LOG_DEBUG), ::testing::Each(::testing::HasSubstr(" frag_buf:0x")));
    log.lines.clear();
    Begin(INE_TOPIC, 60777);
    EXPECT_THAT(log.Texts()[0], ::testing::StartsWith(" dstPort:60777 frag_buf:0x"));
    log.lines.clear();
    Begin();
    EXPECT_THAT(log.Texts()[0], "mdqp packet. TCP dst port: 40001");
}

TEST_F(Strays, AllPortsLeaveTheMemoryBoundedAndConnectionsInUseAlone) {
    CCommonLog::GetInstance().SetLogLevel(static_cast<ELOGLEVEL>(TROUBLE));
    const uint32_t next = Begin();  // the oldest of all
    Arrive(next, Cut(Numbered(1), 0, 13));
    const uint8_t* buffer = FragBuf();
    for (uint32_t port = 0; port < TCP_SESSION_COUNT; ++port) {
        if (port != LOCAL_PORT) Arrive(1, {}, static_cast<uint16_t>(port));
    }
    EXPECT_EQ(Buffers(), 512U);
    EXPECT_EQ(Reassembly().CarryOverBuffers(), 512U);
    EXPECT_EQ(FragBuf(), buffer);
    Arrive(next + 13, Cut(Numbered(1), 13, 40));
    EXPECT_THAT(Decoded(), ElementsAre(1));

    Arrive(Begin(INE_TOPIC, 777), LastMessage(), 777);
    EXPECT_EQ(state->finished.enabled_mask, FeedBit(INE_2PS));
    EXPECT_THAT(log.Texts(), IsEmpty());
    Reassembly().Clear();
    EXPECT_EQ(Buffers(), 0U);
}

TEST_F(Strays, OfAWrongTopicAreToldByTheirTopicAlone) {
    for (uint32_t port = FIRST_STRAY; port < FIRST_STRAY + 2000; ++port) {
        Arrive(FIRST_SEQ, FirstMessage(-1), static_cast<uint16_t>(port));
    }
    // Of so many the log keeps a part, and tells how many it does not.
    EXPECT_THAT(log.Texts(TROUBLE),
                ::testing::Each(::testing::AnyOf("invalide topic id[-1]", ::testing::EndsWith(" more like this"))));
    EXPECT_GT(log.Count(LOG_WARNING, "invalide topic id[-1]"), 199U);
    EXPECT_EQ(Counted(ECounter::SegmentRefused), 2000U);
}

TEST_F(Strays, BufferOfAFinishedConnectionIsTakenWithWhatItKept) {
    const Bytes behind = Cut(Numbered(9), 0, 20);
    Arrive(Begin(), Join({LastMessage(), behind}));
    EXPECT_EQ(Carried(), behind);
    Scan(512);
    EXPECT_EQ(FragBuf(), nullptr);
    EXPECT_EQ(Session().frag_flag, 0);
    EXPECT_EQ(uint32_t{Session().frag_buf_offset}, 0U);
    EXPECT_EQ(state->finished.enabled_mask, FeedBit(SHFE_2PS));
}

TEST_F(Strays, GivenUpAndResetConnectionsMakeRoomAgain) {
    Scan(512);
    Reassembly().Reset(Session(FIRST_STRAY + 100));
    EXPECT_EQ(Reassembly().CarryOverBuffers(), 511U);
    Begin();
    EXPECT_TRUE(HasBuffer(FIRST_STRAY));  // there was room
    Scan(1, 5000);
    EXPECT_FALSE(HasBuffer(FIRST_STRAY));
}

TEST_F(Strays, BufferIsRefusedWhenConnectionsInUseHoldThemAll) {
    for (uint32_t port = FIRST_STRAY; port < FIRST_STRAY + 512; ++port) Begin(SHFE_TOPIC, static_cast<uint16_t>(port));
    log.lines.clear();
    Begin();
    EXPECT_THAT(log.Texts(), ElementsAre("failed to allocate memcory for fragment memory."));
    EXPECT_EQ(log.lines[0].level, LOG_ERROR);
    EXPECT_EQ(Reassembly().Open(Session(), LOCAL_PORT), -1);
    EXPECT_EQ(Session().init, 0);
    EXPECT_EQ(Counted(ECounter::SegmentRefused), 1U);
    EXPECT_EQ(Buffers(), 512U);
    EXPECT_EQ(log.Count(LOG_ERROR, "failed to allocate memcory for fragment memory."), 2U);
}

}  // namespace
