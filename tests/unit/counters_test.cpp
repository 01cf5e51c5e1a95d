#include "src/Counters.h"

#include <gtest/gtest.h>

TEST(Counters, AreToldWithTheirNamesInOrderAndOnlyWhenOneMoved) {
    CCounters counters;
    char text[1024] = "before";
    EXPECT_FALSE(counters.TakeNews(text));
    EXPECT_STREQ(text, "before");
    for (uint32_t counter = 0; counter < 21; ++counter) counters.Set(static_cast<ECounter>(counter), 100 + counter);
    counters.Set(ECounter::SegmentOtherHost, 0);
    counters.Add(ECounter::PriceCheckFailed);
    EXPECT_EQ(counters[ECounter::PriceCheckFailed], 117U);
    EXPECT_TRUE(counters.TakeNews(text));
    EXPECT_STREQ(text,
                 " message_too_long=100 frame_malformed=101 frame_foreign=102 checksum_wrong=103 segment_repeated=105"
                 " segment_early_dropped=106 segment_refused=107 payload_not_mdqp=108 carry_over_given_up=109"
                 " field_malformed=110 field_unknown=111 inst_no_out_of_range=112 message_of_no_feed=113"
                 " reset_by_peer=114 early_overflow=115 price_check_failed=117 event_loss=117"
                 " update_undeliverable=118 poll_failed=119 register_failed=120");
    EXPECT_FALSE(counters.TakeNews(text));
}

TEST(Counters, OneThatMovesIsNews) {
    CCounters counters;
    char text[64];
    counters.Add(ECounter::SegmentOtherHost);
    EXPECT_TRUE(counters.TakeNews(text));
    EXPECT_STREQ(text, " segment_other_host=1");
}

TEST(Counters, AreCutToTheRoomThereIs) {
    CCounters counters;
    counters.Set(ECounter::MessageTooLong, 7);
    counters.Set(ECounter::FrameMalformed, 8);
    counters.Set(ECounter::FrameForeign, 9);
    struct {
        char text[24];
        char behind;
    } room{{}, 'b'};
    EXPECT_TRUE(counters.TakeNews(room.text));
    EXPECT_STREQ(room.text, " message_too_long=7 fra");
    EXPECT_EQ(room.behind, 'b');
}
