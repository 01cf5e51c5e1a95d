#include "tools/BoardText.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "software_board/MappedMemory.h"

using software_board::SharedBoard;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

class BoardText : public testing::Test {
protected:
    BoardText() {
        board->ringLines = 16384;
        board->instruments = {600, 600, 200, 200};
        board->memory.registers.phase = 4;
        board->memory.statistics.delivered = 1234567;
        board->memory.statistics.overruns = 89;
        for (const int channel : {0, 1, 2, 5}) board->memory.channels[channel].holder = 77;
    }
    std::string Line(std::size_t columns, double rate = 1999.6) { return BoardLine(*board, rate, columns); }
    std::string Status() {
        testing::internal::CaptureStdout();
        PrintStatus(*board, 3);
        return testing::internal::GetCapturedStdout();
    }
    software_board::MappedMemory<SharedBoard> board;
};

TEST_F(BoardText, LineTellsAllWhereThereIsRoom) {
    EXPECT_EQ(Line(std::string::npos),
              "live      600+200 instruments  2000 updates/s  channels 0-2 5  delivered 1234567  dropped 89");
    EXPECT_EQ(Line(92), Line(std::string::npos));
}

TEST_F(BoardText, LineIsShortenedToTheTerminal) {
    EXPECT_EQ(Line(91), "live  2000/s  channels 0-2 5  delivered 1234567  dropped 89");
    EXPECT_EQ(Line(59), "live  2000/s  channels 0-2 5  delivered 1234567  dropped 89");
    EXPECT_EQ(Line(58), "live  2.0k/s  4 channels  1.2M delivered  89 dropped");
    EXPECT_EQ(Line(20), "live  2.0k/s  4 chan");
}

TEST_F(BoardText, LongestLineFitsSixtyColumnsWhole) {
    board->memory.registers.phase = 2;
    board->memory.statistics.delivered = 999'999'999'999;
    board->memory.statistics.overruns = UINT64_MAX;
    for (auto& channel : board->memory.channels) channel.holder = 1;
    EXPECT_EQ(Line(59, 999'499), "snapshot  999k/s  16 channels  1.0T delivered  18E dropped");
    for (int channel = 1; channel < CHANNEL_SIZE; channel += 2) board->memory.channels[channel].holder = 0;
    EXPECT_EQ(Line(79), "snapshot  2.0k/s  8 channels  1.0T delivered  18E dropped");
}

TEST_F(BoardText, ChannelsNobodyHoldsAreNone) {
    for (auto& channel : board->memory.channels) channel.holder = 0;
    EXPECT_THAT(Line(80), HasSubstr("  channels none  "));
}

TEST_F(BoardText, RateIsBelievedUpToABound) {
    EXPECT_THAT(Line(200, 1e300), HasSubstr("  1000000000000000 updates/s  "));
    EXPECT_THAT(Line(200, -5), HasSubstr("  0 updates/s  "));
}

TEST_F(BoardText, StatusTellsWhatWasRefused) {
    board->memory.statistics.refusedSnapshotOpens = 3;
    board->memory.statistics.refusedEngineStarts = 12;
    board->memory.statistics.refusedTableWrites = 70;
    EXPECT_THAT(Status(), HasSubstr("\nrefused    3 snapshot openings and 12 engine starts without a bring-up, "
                                    "70 table writes\n"));
}

TEST_F(BoardText, StatusOfARingWithoutLinesIsTold) {
    board->ringLines = 0;
    board->memory.channels[5].written = 12;
    EXPECT_THAT(Status(), HasSubstr("\n5        77       100.0% "));
}

TEST_F(BoardText, WhatATerminalWouldObeyIsNotPrinted) { EXPECT_EQ(Printable("fault \x1b[2J\n\x7f~"), "fault ?[2J??~"); }

}  // namespace
