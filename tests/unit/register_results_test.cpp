// What becomes of results and handles that a provider should not give, and who holds the registers.
#include <gmock/gmock.h>

#include "public/reg/DriveRegEnyx.h"
#include "testing/LogCapture.h"
#include "testing/ProviderAdapter.h"
#include "tests/support/RecordingBoard.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

/// Gives what a provider should not.
struct Wilful : BoardOperations {
    int32_t result = 0;
    bool hasHandle = true;
    uint64_t read = 0;  ///< whatever the result
    std::string argument;

    int32_t OpenRegisters(const char* told, uint16_t, uint16_t, VexaBoardRegisters** registers) override {
        argument = told;
        if (hasHandle) *registers = RegistersHandle();
        return result;
    }
    int32_t Write32(VexaBoardRegisters*, uint32_t, uint32_t) override { return result; }
    int32_t Read32(VexaBoardRegisters*, uint32_t, uint32_t* value) override {
        *value = static_cast<uint32_t>(read);
        return result;
    }
    int32_t Read64(VexaBoardRegisters*, uint32_t, uint64_t* value) override {
        *value = read;
        return result;
    }
    int32_t OpenStream(const char* told, uint16_t, const char*, VexaBoardStream** stream) override {
        argument = told;
        if (hasHandle) *stream = StreamHandle();
        return result;
    }
    int32_t Receive(VexaBoardStream*, VexaBoardMessageHandler, void*) override { return result; }
    const char* LastError() override { return "wilful"; }
};

void Ignore(const unsigned char*, unsigned int, void*) {}

class WilfulProvider : public testing::Test {
protected:
    Wilful wilful;
    ProviderAdapter adapter{wilful, "wilful", "slot 3"};
    LogCapture log;
    CDrvRegEnyx& registers = CDrvRegEnyx::GetInstance();
    CDrvDMAEnyx stream;
    const CQelCharArray<64> name{"CUSTOM_CHAN6_DATA"};
};

}  // namespace

TEST_F(WilfulProvider, SuccessWithoutRegistersIsAFailure) {
    wilful.hasHandle = false;
    EXPECT_EQ(registers.Init(5, 474), -1);
    EXPECT_THAT(log.Texts(),
                ElementsAre("board provider wilful: the registers of bus 5, core 474 cannot be opened (0): wilful"));
    EXPECT_EQ(registers.GetHwAccelerator(5), nullptr);
    EXPECT_EQ(registers.WriteRegister(1, 2), -1);
    EXPECT_EQ(wilful.argument, "slot 3");
}

TEST_F(WilfulProvider, RegistersBesideAFailureAreNotUsed) {
    for (const auto& [result, expected] : {std::pair{7, -1}, {1, -1}, {-1, -1}, {-2, -2}}) {
        wilful.result = result;
        EXPECT_EQ(registers.Init(5, 474), expected);
        EXPECT_EQ(registers.GetHwAccelerator(5), nullptr);
        uint32_t narrow = 3;
        uint64_t wide = 4;
        EXPECT_EQ(registers.ReadRegister(1, narrow), -1);
        EXPECT_EQ(registers.ReadRegister(1, wide), -1);
    }
    registers.Destory();
    EXPECT_EQ(wilful.openRegisters, 0);
}

TEST_F(WilfulProvider, ValueOfAReadThatFailedIsLeftAlone) {
    ASSERT_EQ(registers.Init(5, 474), 0);
    wilful.read = 0x1122'3344'5566'7788;
    for (const int32_t result : {-9, 9}) {
        wilful.result = result;
        uint32_t narrow = 3;
        uint64_t wide = 4;
        EXPECT_EQ(registers.ReadRegister(0x2032, narrow), result);
        EXPECT_EQ(registers.ReadRegister(0x2032, wide), result);
        EXPECT_EQ(narrow, 3U);
        EXPECT_EQ(wide, 4U);
        EXPECT_TRUE(registers.HasFailed());
    }
    EXPECT_EQ(log.Texts(LOG_DEBUG_EX)[0], "addr[0x2032] value[0x00000003] 32 bits, result -9");
    EXPECT_EQ(log.Texts(LOG_DEBUG_EX)[1], "addr[0x2032] value[0x0000000000000004] 64 bits, result -9");
    wilful.result = 0;
    uint32_t narrow = 3;
    EXPECT_EQ(registers.ReadRegister(0x2032, narrow), 0);
    EXPECT_EQ(narrow, 0x5566'7788U);
    EXPECT_THAT(log.Texts(),
                ElementsAre("board provider wilful: register 0x2032 does not answer (-9): wilful; failed accesses are "
                            "counted",
                            "board provider wilful: the registers answer again after 4 failed accesses"));
}

TEST_F(WilfulProvider, OpeningAnewEndsAnOutageWithoutAWord) {
    ASSERT_EQ(registers.Init(5, 474), 0);
    wilful.result = -1;
    registers.WriteRegister(1, 2);
    wilful.result = 0;
    ASSERT_EQ(registers.Init(5, 474), 0);
    EXPECT_FALSE(registers.HasFailed());
    log.lines.clear();
    EXPECT_EQ(registers.WriteRegister(1, 2), 0);
    EXPECT_THAT(log.Texts(), IsEmpty());
}

TEST_F(WilfulProvider, SuccessWithoutAStreamIsAFailure) {
    wilful.hasHandle = false;
    EXPECT_EQ(stream.Init(5, name), -1);
    EXPECT_THAT(
        log.Texts(),
        ElementsAre("board provider wilful: the stream CUSTOM_CHAN6_DATA of bus 5 cannot be opened (0): wilful"));
    EXPECT_FALSE(stream.IsOpen());
    EXPECT_EQ(stream.RecvOnce(Ignore, nullptr), -1);
    EXPECT_EQ(wilful.argument, "slot 3");
}

TEST_F(WilfulProvider, StreamBesideAFailureIsNotUsed) {
    for (const auto& [result, expected] : {std::pair{7, -1}, {1, -1}, {-1, -1}, {-2, -2}}) {
        wilful.result = result;
        EXPECT_EQ(stream.Init(5, name), expected);
        EXPECT_FALSE(stream.IsOpen());
    }
    EXPECT_EQ(wilful.openStreams, 0);
}

TEST_F(WilfulProvider, AnyPollThatIsNotNegativeSucceeds) {
    ASSERT_EQ(stream.Init(5, name), 0);
    for (const int32_t result : {0, 1, 2, 77}) {
        wilful.result = result;
        EXPECT_EQ(stream.RecvOnce(Ignore, nullptr), 0);
        EXPECT_FALSE(stream.HasFailed());
    }
}

TEST_F(WilfulProvider, FailedPollsOfEachOutageAreCountedAndToldTwice) {
    ASSERT_EQ(stream.Init(5, name), 0);
    for (const int polls : {1, 3}) {
        wilful.result = -6;
        for (int i = 0; i < polls; ++i) {
            EXPECT_EQ(stream.RecvOnce(Ignore, nullptr), -6);
            EXPECT_TRUE(stream.HasFailed());
            EXPECT_TRUE(stream.IsOpen());
        }
        wilful.result = polls - 1;  // an answer without a message, and one with
        EXPECT_EQ(stream.RecvOnce(Ignore, nullptr), 0);
        EXPECT_FALSE(stream.HasFailed());
        EXPECT_TRUE(stream.IsOpen());
    }
    EXPECT_EQ(stream.FailedPolls(), 4U);
    const std::string failed =
        "board provider wilful: the stream CUSTOM_CHAN6_DATA has failed (-6): wilful; it is polled until it answers "
        "again";
    EXPECT_THAT(
        log.Texts(),
        ElementsAre(failed, "board provider wilful: the stream CUSTOM_CHAN6_DATA answers again after 1 failed polls",
                    failed, "board provider wilful: the stream CUSTOM_CHAN6_DATA answers again after 3 failed polls"));
    EXPECT_EQ(log.Count(LOG_ERROR, failed), 2U);
    EXPECT_THAT(log.Texts(LOG_WARNING), ElementsAre(log.Texts()[1], log.Texts()[3]));
}

TEST_F(WilfulProvider, FailedStreamIsClosedOnce) {
    {
        CDrvDMAEnyx other;
        ASSERT_EQ(other.Init(5, name), 0);
        wilful.result = -1;
        EXPECT_EQ(other.RecvOnce(Ignore, nullptr), -1);
        EXPECT_EQ(other.RecvOnce(Ignore, nullptr), -1);
        wilful.result = 0;
        ASSERT_EQ(other.Init(5, name), 0);
        EXPECT_FALSE(other.HasFailed());
        EXPECT_EQ(wilful.openStreams, 1);
        wilful.result = -1;
        EXPECT_EQ(other.RecvOnce(Ignore, nullptr), -1);
    }
    EXPECT_EQ(wilful.openStreams, 0);
}

// ---- who holds the registers ----------------------------------------------------------------------------------------

namespace {

class RegisterHold : public testing::Test {
protected:
    VexaBoardRegisters* Open(uint16_t bus) const { return CDrvRegEnyx::GetInstance().GetHwAccelerator(bus); }

    RecordingBoard board;
    LogCapture log;
    CRegisterHold one;
    CRegisterHold other;
};

}  // namespace

TEST_F(RegisterHold, AreaStaysOpenUntilTheLastHoldEnds) {
    EXPECT_EQ(one.Take(3, 474), 0);
    EXPECT_EQ(other.Take(3, 475), 0);
    EXPECT_EQ(board.openRegisters, 1);
    EXPECT_EQ(board.core, 474);
    one.Release();
    one.Release();
    EXPECT_NE(Open(3), nullptr);
    other.Release();
    EXPECT_EQ(Open(3), nullptr);
    EXPECT_EQ(board.openRegisters, 0);
}

TEST_F(RegisterHold, EndsWithItsObject) {
    {
        CRegisterHold third;
        EXPECT_EQ(third.Take(3, 474), 0);
    }
    EXPECT_EQ(Open(3), nullptr);
    EXPECT_EQ(board.openRegisters, 0);
}

TEST_F(RegisterHold, OtherBusIsRefusedWhileAnotherHolds) {
    EXPECT_EQ(one.Take(3, 474), 0);
    EXPECT_EQ(other.Take(4, 474), -1);
    EXPECT_THAT(log.Texts(),
                ElementsAre("the board on bus 3 is in use by another session of this process, which works with one "
                            "board; start bus 4 in a process of its own"));
    other.Release();
    EXPECT_NE(Open(3), nullptr);
    EXPECT_EQ(other.Take(3, 474), 0);
    EXPECT_EQ(one.Take(4, 474), -1);
    EXPECT_NE(Open(3), nullptr);
}

TEST_F(RegisterHold, OnlyHolderMayChangeTheBusAndHoldsOnce) {
    EXPECT_EQ(one.Take(3, 474), 0);
    EXPECT_EQ(one.Take(4, 475), 0);
    EXPECT_EQ(board.core, 475);
    EXPECT_EQ(Open(3), nullptr);
    EXPECT_NE(Open(4), nullptr);
    one.Release();
    EXPECT_EQ(Open(4), nullptr);
    EXPECT_EQ(other.Take(3, 474), 0);
    EXPECT_EQ(one.Take(3, 474), 0);
}

TEST_F(RegisterHold, RefusedOpeningHoldsNothing) {
    board.registersResult = -5;
    EXPECT_EQ(one.Take(3, 474), -5);
    board.registersResult = 0;
    EXPECT_EQ(other.Take(4, 474), 0);
    one.Release();
    EXPECT_NE(Open(4), nullptr);
    other.Release();
    EXPECT_EQ(Open(4), nullptr);
}

TEST_F(RegisterHold, AreaThatWasClosedIsOpenedAgainByTheNext) {
    EXPECT_EQ(one.Take(3, 474), 0);
    CDrvRegEnyx::GetInstance().Destory();
    EXPECT_EQ(other.Take(4, 476), 0);
    EXPECT_EQ(board.core, 476);
    EXPECT_NE(Open(4), nullptr);
    one.Release();
    EXPECT_NE(Open(4), nullptr);
}
