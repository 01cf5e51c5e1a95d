// What the live phase tells of events and which registers it asks then; the captures of each start.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "public/log/CommonLog.h"
#include "tests/session/LiteralWorld.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace literal {
namespace {

using Lines = std::vector<std::string>;

constexpr int TROUBLES = 3;

// ---- events ---------------------------------------------------------------------------------------------------------

/// An event of the managing channel: what is told and which registers are read.
struct EventCase {
    std::vector<uint32_t> words;
    Lines texts;  ///< behind the line of the event itself
    std::vector<Access> accesses;
    bool isLoss;
};

const std::vector<Access> DUMP{R(0x2030), R(0x2031), R(0x2032), R(0x12015), R(0x1201B), R(0x22015), R(0x2201B)};
const std::vector<Access> TIMES{R64(0x2040, 1777544820), R64(0x2041, 7), R64(0x2042), R64(0x2043, 9)};

const std::vector<EventCase> EVENTS{
    {{0, 0, 0, 0, 5, 6}, {}, {}, false},
    {{0x00800000, 0, 0, 0, 0, 0},
     {"[WARNING] [_CheckLostUdpPktHandler]received lost pkt event, event_data0=00800000"},
     DUMP,
     true},
    {{0x00004080, 1, 0, 1, 0, 0},
     {"[WARNING] [_CheckLostUdpPktHandler]received lost pkt event, event_data0=00004080"},
     DUMP,
     true},
    {{0x40000000, 0x08000000, 0, 1, 0, 0},
     {"[WARNING] [_CheckLostUdpPktHandler]received px error event, event_data1=08000000"},
     DUMP,
     true},
    {{0, 0xF0F0F0F0, 0, 0xFFFFFFF0, 0, 0}, {}, {}, false},
    {{0x3F3F3F3F, 0, 0, 8, 0, 0},
     {"[WARNING] [_CheckLostUdpPktHandler]received lost pkt event, event_data3=00000008"},
     DUMP,
     true},
    {{0x00400000, 0, 0, 15, 0, 0},
     {"[INFO] [_CheckLostUdpPktHandler]received pkt timeout event, ignore. event_data0=00400000 "
      "last_update_time[1777544820,7,0,9] ts[10,27]"},
     TIMES,
     false}};

std::vector<Access> Both(std::vector<Access> first, const std::vector<Access>& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

class LiteralEvents : public testing::Test {
protected:
    void SetUp() override {
        CDrvRegEnyx::GetInstance().Init(3, 474);
        CCommonLog::GetInstance().SetLogPath((world.directory.Path().string() + "/").c_str());
        CCommonLog::GetInstance().SetLogLevel(7);
        world.api->m_u50ConfigInfo.log_level = static_cast<ELOGLEVEL>(7);
        world.api->m_u50UserData.lpMdApi = world.api.get();
        world.board.answers = {{0x2040, 1777544820}, {0x2041, 7}, {0x2043, 9}};  // 10:27
    }
    void Give(const std::vector<uint32_t>& words) {
        Bytes message = Event(words);
        message.resize(192);
        TestableApi::_MdHandler(message.data(), 32, &world.api->m_u50UserData);
    }
    void ExpectTold(const EventCase& event);

    World world{TROUBLES};
};

void LiteralEvents::ExpectTold(const EventCase& event) {
    world.api->m_isAllInitFinished = world.api->m_isHBM2InitFinished = true;
    world.Forget();
    const std::size_t before = world.LogLines().size();
    Give(event.words);
    std::string head = "[WARNING] [_MdHandler]channel0 got DMA_EVENT";
    for (std::size_t i = 0; i < 6; ++i) {
        head += " event_data" + std::to_string(i) + "[" + std::to_string(event.words[i]) + "]";
    }
    Lines expected{head};
    expected.insert(expected.end(), event.texts.begin(), event.texts.end());
    Lines lines;
    for (const std::string& line : world.LogLines()) {
        if (line.rfind("[TRACE]", 0) != 0) lines.push_back(line);
    }
    EXPECT_EQ(Lines(lines.end() - static_cast<std::ptrdiff_t>(std::min(lines.size(), expected.size())), lines.end()),
              expected);
    EXPECT_EQ(world.LogLines().size() - before, expected.size() + (event.isLoss ? DUMP.size() : 0));
    EXPECT_EQ(world.board.accesses, event.accesses) << head;
    EXPECT_EQ(world.api->m_isAllInitFinished, !event.isLoss) << head;
    EXPECT_EQ(world.api->m_isHBM2InitFinished, !event.isLoss) << head;
}

TEST_F(LiteralEvents, AreToldAndAskTheBoardByTheirKind) {
    for (const EventCase& event : EVENTS) ExpectTold(event);
}

TEST_F(LiteralEvents, TimeOutOfAMinuteWithTradingIsALoss) {
    world.board.answers[0x2042] = 1777545060;  // 10:31
    world.api->m_isAllInitFinished = world.api->m_isHBM2InitFinished = true;
    Give({0x40, 0, 0, 0, 0, 0});
    EXPECT_EQ(world.board.accesses,
              Both({R64(0x2040, 1777544820), R64(0x2041, 7), R64(0x2042, 1777545060), R64(0x2043, 9)}, DUMP));
    EXPECT_FALSE(world.api->m_isAllInitFinished);
}

TEST_F(LiteralEvents, MemoryThatBecomesReadyIsToldOnce) {
    Give({0x80, 0, 3, 0, 0, 0});
    EXPECT_THAT(world.LogLines(),
                ElementsAre("[WARNING] [_MdHandler]channel0 got DMA_EVENT event_data0[128] event_data1[0] "
                            "event_data2[3] event_data3[0] event_data4[0] event_data5[0]",
                            "[INFO] [_MdHandler]received HBM2 init event, event_data2=00000003"));
    EXPECT_THAT(world.board.accesses, IsEmpty());
    EXPECT_TRUE(world.api->m_isHBM2InitFinished);
}

TEST_F(LiteralEvents, OtherChannelsTellThemTwiceAndDoNothing) {
    world.api->m_u50ConfigInfo.channel_id = 4;
    world.api->m_isAllInitFinished = true;
    Give({0x80, 12, 1, 14, 15, 16});
    EXPECT_THAT(world.LogLines(),
                ElementsAre("[WARNING] [_MdHandler]channel4 got DMA_EVENT event_data0[128] event_data1[12] "
                            "event_data2[1] event_data3[14] event_data4[15] event_data5[16]",
                            "[WARNING] [_MdHandler]channel4 receive DMA_EVENT event_data0[128] event_data1[12] "
                            "event_data2[1]"));
    EXPECT_THAT(world.board.accesses, IsEmpty());
    EXPECT_TRUE(world.api->m_isAllInitFinished);
    EXPECT_FALSE(world.api->m_isHBM2InitFinished);
}

TEST_F(LiteralEvents, UpdatesThatNobodyTakesAreTold) {
    Bytes update = Update(5);
    update.resize(192);
    TestableApi::_MdHandler(update.data(), 184, nullptr);
    TestableApi::_MdHandler(update.data(), 184, &world.api->m_u50UserData);
    world.api->m_u50UserData.userDataType = static_cast<EUserDataType>(1);
    TestableApi::_MdHandler(update.data(), 184, &world.api->m_u50UserData);
    EXPECT_THAT(world.LogLines(),
                ElementsAre("[ERROR] [_MdHandler]user_data is nullptr", "[ERROR] [_MdHandler]refMdSpi is nullptr",
                            "[ERROR] [_MdHandler]lpMdData is nullptr"));
    EXPECT_FALSE(world.api->m_u50UserData.isQuote);
}

// ---- captures -------------------------------------------------------------------------------------------------------

class LiteralCaptures : public testing::Test {
protected:
    /// Sizes of the files with this ending, in the order of their names.
    std::vector<std::uintmax_t> Sizes(const std::string& ending) const {
        std::vector<std::uintmax_t> sizes;
        for (const std::string& name : world.LogFiles()) {
            const std::filesystem::path path = world.directory.Path() / name;
            if (path.extension() == ending) sizes.push_back(std::filesystem::file_size(path));
        }
        return sizes;
    }
    World world{TROUBLES, {"dma_data_flag=1"}};
};

TEST_F(LiteralCaptures, AreBegunAnewByEachStartAndHoldItsSnapshot) {
    std::uintmax_t bin = 16;
    std::uintmax_t pcap = 24;
    for (const Bytes& message : world.snapshot) {
        bin += 16 + message.size();
        pcap += 16 + message.size() - 12;
    }
    EXPECT_THAT(Sizes(".bin"), IsEmpty());
    ASSERT_EQ(world.Start(), 0);
    EXPECT_THAT(Sizes(".bin"), ElementsAre(bin));
    EXPECT_THAT(Sizes(".pcap"), ElementsAre(pcap));
    // A loss: the rebuild's snapshot goes into files of its own.
    world.board.messages.push_back(Event({0x80, 0, 0, 0, 0, 0}));
    ASSERT_EQ(world.api->VexaRecv(), 0);
    ASSERT_EQ(world.api->VexaRecv(), 0);
    EXPECT_THAT(Sizes(".bin"), ElementsAre(bin, bin));
    EXPECT_THAT(Sizes(".pcap"), ElementsAre(pcap, pcap));
}

TEST_F(LiteralCaptures, CarryTheirChannelAndTime) {
    ASSERT_EQ(world.Start(), 0);
    std::vector<std::string> names = world.LogFiles();
    ASSERT_EQ(names.size(), 4U);
    EXPECT_THAT(names[1], testing::MatchesRegex("vexa_shfe_md_20260429\\.log"));
    EXPECT_THAT(names[2], testing::MatchesRegex("vexa_shfe_md_chan0_20260429_2200[0-9][0-9]_[0-9]+\\.bin"));
    EXPECT_THAT(names[3], testing::MatchesRegex("vexa_shfe_md_chan0_20260429_2200[0-9][0-9]_[0-9]+\\.pcap"));
}

TEST(LiteralCapturesOff, WithoutTheSwitchThereIsNone) {
    World world(TROUBLES);
    ASSERT_EQ(world.Start(), 0);
    EXPECT_THAT(world.LogFiles(), ElementsAre(".shfe_20260429_pm", "vexa_shfe_md_20260429.log"));
}

}  // namespace
}  // namespace literal
