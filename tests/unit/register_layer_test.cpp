#include "public/reg/DriveRegEnyx.h"

#include <gmock/gmock.h>

#include "public/reg/BoardProviderLoader.h"
#include "testing/LogCapture.h"
#include "tests/support/RecordingBoard.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr uint16_t BUS = 3;
constexpr uint16_t CORE = 474;

class RegisterLayer : public testing::Test {
protected:
    ~RegisterLayer() override { registers.Destory(); }

    RecordingBoard board;
    LogCapture log;
    CDrvRegEnyx& registers = CDrvRegEnyx::GetInstance();
};

class ReceiveStream : public RegisterLayer {
protected:
    static void Remember(const unsigned char* data, unsigned int length, void* user) {
        static_cast<std::vector<std::vector<uint8_t>>*>(user)->emplace_back(data, data + length);
    }

    CQelCharArray<64> name{"CUSTOM_CHAN5_DATA"};
    std::vector<std::vector<uint8_t>> received;
    CDrvDMAEnyx stream;
};

}  // namespace

TEST_F(RegisterLayer, OpensTheCoreOfTheBoardOnTheBus) {
    EXPECT_EQ(registers.Init(BUS, CORE), 0);
    EXPECT_EQ(board.bus, BUS);
    EXPECT_EQ(board.core, CORE);
    EXPECT_EQ(board.openRegisters, 1);
}

TEST_F(RegisterLayer, SecondInitClosesTheFirstArea) {
    registers.Init(BUS, CORE);
    EXPECT_EQ(registers.Init(BUS, CORE), 0);
    EXPECT_EQ(board.openRegisters, 1);
}

TEST_F(RegisterLayer, DestoryClosesOnce) {
    registers.Init(BUS, CORE);
    registers.Destory();
    registers.Destory();
    EXPECT_EQ(board.openRegisters, 0);
}

TEST_F(RegisterLayer, FailedOpenIsNegativeWithOneErrorLine) {
    board.registersResult = -7;
    EXPECT_EQ(registers.Init(BUS, CORE), -7);
    EXPECT_THAT(log.Texts(LOG_ERROR),
                ElementsAre("board provider recording: the registers of bus 3, core 474 cannot be opened (-7)"));
}

TEST_F(RegisterLayer, ResultThatIsNeitherZeroNorNegativeIsAFailure) {
    board.registersResult = 1;
    EXPECT_LT(registers.Init(BUS, CORE), 0);
}

TEST_F(RegisterLayer, AccessesReachTheBoardInOrder) {
    registers.Init(BUS, CORE);
    board.answers = {{2, 0xFFFF'FFFF'8888'7777}};
    uint32_t narrow = 0;
    uint64_t wide = 0;
    EXPECT_EQ(registers.WriteRegister(1, 0xABCD), 0);
    EXPECT_EQ(registers.ReadRegister(2, narrow), 0);
    EXPECT_EQ(registers.ReadRegister(2, wide), 0);
    EXPECT_THAT(board.accesses, ElementsAre(W(1, 0xABCD), R(2, 0x8888'7777), R64(2, 0xFFFF'FFFF'8888'7777)));
    EXPECT_EQ(narrow, 0x8888'7777U);
    EXPECT_EQ(wide, 0xFFFF'FFFF'8888'7777U);
}

TEST_F(RegisterLayer, AccessBeforeInitFailsAndLeavesTheValueAlone) {
    registers.Destory();
    uint32_t narrow = 5;
    uint64_t wide = 6;
    EXPECT_LT(registers.WriteRegister(1, 2), 0);
    EXPECT_LT(registers.ReadRegister(1, narrow), 0);
    EXPECT_LT(registers.ReadRegister(1, wide), 0);
    EXPECT_EQ(narrow, 5U);
    EXPECT_EQ(wide, 6U);
    EXPECT_THAT(board.accesses, IsEmpty());
}

TEST_F(RegisterLayer, AccessAfterDestoryFails) {
    registers.Init(BUS, CORE);
    registers.Destory();
    EXPECT_LT(registers.WriteRegister(1, 2), 0);
    EXPECT_THAT(board.accesses, IsEmpty());
}

TEST_F(RegisterLayer, EveryAccessIsTracedAtTheHighestLevel) {
    registers.Init(BUS, CORE);
    board.answers = {{0x22, 0x33}};
    uint32_t narrow = 0;
    uint64_t wide = 0;
    registers.WriteRegister(0x11, 0xFF);
    registers.ReadRegister(0x22, narrow);
    registers.ReadRegister(0x22, wide);
    EXPECT_THAT(log.Texts(LOG_DEBUG_EX),
                ElementsAre("addr[0x0011] value[0x000000ff]", "addr[0x0022] value[0x00000033] 32 bits, result 0",
                            "addr[0x0022] value[0x0000000000000033] 64 bits, result 0"));
}

TEST_F(RegisterLayer, FailingAccessesAreCountedAndToldTwice) {
    registers.Init(BUS, CORE);
    CCommonLog::GetInstance().SetLogLevel(LOG_ERROR | LOG_WARNING);
    board.accessResult = -5;
    board.lastError = "the card is gone";
    uint32_t narrow = 5;
    uint64_t wide = 6;
    const uint64_t before = registers.FailedAccesses();
    EXPECT_EQ(registers.ReadRegister(0x2032, narrow), -5);
    EXPECT_EQ(registers.WriteRegister(0x10, 1), -5);
    EXPECT_EQ(registers.ReadRegister(0x1207, wide), -5);
    EXPECT_TRUE(registers.HasFailed());
    EXPECT_EQ(narrow, 5U);
    EXPECT_EQ(wide, 6U);
    board.accessResult = 0;
    EXPECT_EQ(registers.WriteRegister(0x10, 1), 0);
    EXPECT_EQ(registers.WriteRegister(0x10, 1), 0);
    EXPECT_FALSE(registers.HasFailed());
    EXPECT_EQ(registers.FailedAccesses() - before, 3U);
    EXPECT_THAT(log.Texts(), ElementsAre("board provider recording: register 0x2032 does not answer (-5): the card is "
                                         "gone; failed accesses are counted",
                                         "board provider recording: the registers answer again after 3 failed "
                                         "accesses"));
    EXPECT_THAT(log.Texts(LOG_ERROR), ElementsAre(log.Texts()[0]));
    EXPECT_THAT(log.Texts(LOG_WARNING), ElementsAre(log.Texts()[1]));
}

TEST_F(RegisterLayer, SecondOutageCountsItsOwn) {
    registers.Init(BUS, CORE);
    for (int outage = 0; outage < 2; ++outage) {
        board.accessResult = -1;
        registers.WriteRegister(0x10, 1);
        registers.WriteRegister(0x10, 1);
        board.accessResult = 0;
        registers.WriteRegister(0x10, 1);
    }
    EXPECT_EQ(log.Count(LOG_WARNING, "board provider recording: the registers answer again after 2 failed accesses"),
              2U);
}

TEST_F(RegisterLayer, AcceleratorIsTheProvidersHandleOfTheOpenBus) {
    EXPECT_EQ(registers.GetHwAccelerator(BUS), nullptr);
    registers.Init(BUS, CORE);
    EXPECT_EQ(registers.GetHwAccelerator(BUS), board.RegistersHandle());
    EXPECT_EQ(registers.GetHwAccelerator(4), nullptr);
    registers.Destory();
    EXPECT_EQ(registers.GetHwAccelerator(BUS), nullptr);
}

TEST_F(RegisterLayer, NothingIsTracedBelowTheHighestLevel) {
    CCommonLog::GetInstance().SetLogLevel(LOG_ALL & ~LOG_DEBUG_EX);
    registers.Init(BUS, CORE);
    registers.WriteRegister(1, 2);
    EXPECT_THAT(log.lines, IsEmpty());
}

TEST_F(ReceiveStream, OpensByName) {
    EXPECT_EQ(stream.Init(BUS, name), 0);
    EXPECT_EQ(board.streamName, "CUSTOM_CHAN5_DATA");
}

TEST_F(ReceiveStream, SecondInitClosesTheFirstStream) {
    stream.Init(BUS, name);
    stream.Init(BUS, name);
    EXPECT_EQ(board.openStreams, 1);
}

TEST_F(ReceiveStream, EndOfTheObjectClosesTheStream) {
    {
        CDrvDMAEnyx other;
        other.Init(BUS, name);
        EXPECT_EQ(board.openStreams, 1);
    }
    EXPECT_EQ(board.openStreams, 0);
}

TEST_F(ReceiveStream, FailedOpenIsNegativeWithOneErrorLine) {
    board.streamResult = -2;
    EXPECT_EQ(stream.Init(BUS, name), -2);
    EXPECT_THAT(log.Texts(LOG_ERROR),
                ElementsAre("board provider recording: the stream CUSTOM_CHAN5_DATA of bus 3 cannot be opened (-2)"));
}

TEST_F(ReceiveStream, FailedReopenLeavesNoStreamOpen) {
    stream.Init(BUS, name);
    board.streamResult = -2;
    stream.Init(BUS, name);
    EXPECT_EQ(board.openStreams, 0);
    EXPECT_LT(stream.RecvOnce(Remember, &received), 0);
    EXPECT_EQ(board.polls, 0U);
}

TEST_F(ReceiveStream, OnePollTakesOneMessage) {
    stream.Init(BUS, name);
    board.messages = {{1, 2, 3}, {4}};
    EXPECT_EQ(stream.RecvOnce(Remember, &received), 0);
    EXPECT_THAT(received, ElementsAre(std::vector<uint8_t>{1, 2, 3}));
    EXPECT_EQ(board.polls, 1U);
}

TEST_F(ReceiveStream, EmptyPollSucceeds) {
    stream.Init(BUS, name);
    EXPECT_EQ(stream.RecvOnce(Remember, &received), 0);
    EXPECT_THAT(received, IsEmpty());
}

// An application may receive again out of its callback.
TEST_F(ReceiveStream, OutageThatBeginsAndEndsInsideAHandlerKeepsTheStream) {
    struct Nested {
        static void Poll(const unsigned char*, unsigned int, void* user) {
            auto* self = static_cast<Nested*>(user);
            ++self->handled;
            self->inner.push_back(self->stream.RecvOnce(Poll, user));
        }
        CDrvDMAEnyx& stream;
        int handled = 0;
        std::vector<int32_t> inner{};
    } nested{stream};
    stream.Init(BUS, name);
    board.messages = {{1}};
    board.onPoll = [](RecordingBoard& self) { self.pollResult = self.polls == 2 ? -4 : 0; };
    EXPECT_EQ(stream.RecvOnce(Nested::Poll, &nested), 0);
    EXPECT_TRUE(stream.HasFailed() && stream.IsOpen());
    board.messages = {{2}};
    EXPECT_EQ(stream.RecvOnce(Nested::Poll, &nested), 0);
    EXPECT_FALSE(stream.HasFailed());
    EXPECT_TRUE(stream.IsOpen());
    EXPECT_EQ(nested.handled, 2);
    EXPECT_THAT(nested.inner, ElementsAre(-4, 0));
    EXPECT_EQ(stream.RecvOnce(Nested::Poll, &nested), 0);
    EXPECT_EQ(board.polls, 5U);
    EXPECT_EQ(log.Texts().size(), 2U);
}

TEST_F(ReceiveStream, PollBeforeInitFails) { EXPECT_LT(stream.RecvOnce(Remember, &received), 0); }
