// The log file of whole sessions, every line in order. The expected lines lie beside the tests in tests/data.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "public/log/CommonLog.h"
#include "tests/session/LiteralWorld.h"

using testing::ElementsAreArray;

namespace literal {
namespace {

std::vector<std::string> Expected(const std::string& name) {
    std::ifstream file(std::string(TEST_DATA) + "/" + name);
    EXPECT_TRUE(file.is_open()) << name;
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);) lines.push_back(line);
    return lines;
}

std::vector<std::string> Behind(const std::vector<std::string>& lines, std::size_t count) {
    return {lines.begin() + static_cast<std::ptrdiff_t>(std::min(count, lines.size())), lines.end()};
}

class LiteralLog : public testing::TestWithParam<int> {
protected:
    std::string Name(const std::string& what) const {
        return what + "_at_level_" + std::to_string(GetParam()) + ".txt";
    }
    World world{GetParam()};
};

// At level 1 nothing but the sections in which everything is told, and what comes before the level is known.
INSTANTIATE_TEST_SUITE_P(AtLevel, LiteralLog, testing::Values(15, 1), testing::PrintToStringParamName());

TEST_P(LiteralLog, OfAStart) {
    ASSERT_EQ(world.Start(), 0);
    EXPECT_THAT(world.LogLines(), ElementsAreArray(Expected(Name("start"))));
}

TEST_P(LiteralLog, OfALossAndItsRebuild) {
    ASSERT_EQ(world.Start(), 0);
    const std::size_t before = world.LogLines().size();
    // A time-out, at 10:31 of the last update.
    for (uint32_t feed = 0; feed < 4; ++feed) world.board.answers[0x2040 + feed] = 1777545060 - feed;
    world.board.messages.push_back(Event({0x40, 0x20, 3, 4, 5, 6}));
    ASSERT_EQ(world.api->VexaRecv(), 0);
    ASSERT_EQ(world.api->VexaRecv(), 0);
    EXPECT_THAT(Behind(world.LogLines(), before), ElementsAreArray(Expected(Name("loss"))));
}

TEST_P(LiteralLog, LevelIsTheConfiguredOneAfterAStart) {
    ASSERT_EQ(world.Start(), 0);
    const CCommonLog& log = CCommonLog::GetInstance();
    EXPECT_TRUE(log.IsEnabled(LOG_ERROR));
    EXPECT_EQ(log.IsEnabled(LOG_WARNING), GetParam() == 15);
    EXPECT_EQ(log.IsEnabled(LOG_DEBUG), GetParam() == 15);
    EXPECT_FALSE(log.IsEnabled(LOG_DEBUG_EX));
}

TEST(LiteralLogFile, EndsWithWhatWasDroppedAndRefused) {
    World world(15);
    ASSERT_EQ(world.Start(), 0);
    world.board.messages.push_back(Event({0x80, 0, 0, 0, 0, 0}));
    ASSERT_EQ(world.api->VexaRecv(), 0);
    const std::size_t before = world.LogLines().size();
    world.api->VexaStop();
    ASSERT_EQ(world.api->VexaRecv(), -1);
    ASSERT_EQ(world.api->VexaRecv(), -1);
    // The segment that came after the last feed was complete, and the loss.
    EXPECT_THAT(Behind(world.LogLines(), before),
                testing::ElementsAre("[INFO] [_TellCounters]dropped, refused or begun again: segment_refused=1 "
                                     "event_loss=1"));
}

TEST(LiteralLogFile, LiesInTheDirectoryOfTheConfigurationAndIsAllThatIsWritten) {
    World world(15);
    ASSERT_EQ(world.Start(), 0);
    EXPECT_THAT(world.LogFiles(), testing::ElementsAre(".shfe_20260429_pm", "vexa_shfe_md_20260429.log"));
}

}  // namespace
}  // namespace literal
