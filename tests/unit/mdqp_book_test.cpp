// Price levels: where each goes, and what clears the book before it.
#include "tests/unit/MdqpFixture.h"

namespace {

using exchange::MdqpWriter;

/// The level of either side that stands in the given place, best first.
struct Level {
    int32_t price;
    uint32_t volume;
};

/// A slot that was in use before, and what a book looks like in it.
class MdqpBook : public MdqpFixture {
protected:
    MdqpBook() { Slot(7) = BEFORE; }

    /// The slot as it was but for its book.
    static std::string WithBook(const std::vector<Level>& bids, const std::vector<Level>& asks) {
        SInstTableType slot = BEFORE;
        slot.bid1_price = slot.bid2_price = slot.bid3_price = slot.bid4_price = slot.bid5_price = 0;
        slot.ask1_price = slot.ask2_price = slot.ask3_price = slot.ask4_price = slot.ask5_price = 0;
        slot.bid1_vol = slot.bid2_vol = slot.bid3_vol = slot.bid4_vol = slot.bid5_vol = 0;
        slot.ask1_vol = slot.ask2_vol = slot.ask3_vol = slot.ask4_vol = slot.ask5_vol = 0;
        const auto put = [](const std::vector<Level>& levels, std::size_t place, auto& price, auto& volume) {
            if (place >= levels.size()) return;
            price = levels[place].price;
            volume = levels[place].volume;
        };
#define PUT(side, place) put(side##s, place - 1, slot.side##place##_price, slot.side##place##_vol)
        PUT(bid, 1), PUT(bid, 2), PUT(bid, 3), PUT(bid, 4), PUT(bid, 5);
        PUT(ask, 1), PUT(ask, 2), PUT(ask, 3), PUT(ask, 4), PUT(ask, 5);
#undef PUT
        return TextOf(slot);
    }

    inline static const SInstTableType BEFORE = FilledSlot("cu2612", 1000);
};

TEST_F(MdqpBook, FirstLevelClearsTheBookAndTheNextDoesNot) {
    Parse(Padded(MdqpWriter().PriceDetail(7, '0', 100.5, 3).PriceDetail(7, '1', 100.6, 4)));
    EXPECT_EQ(TextOf(Slot(7)), WithBook({{10050, 3}}, {{10060, 4}}));
}

TEST_F(MdqpBook, FirstLevelOfEveryMessageClearsTheBook) {
    const uint8_t zeros[8] = {};  // no field, so that the level is the message's last
    Parse(MdqpWriter().PriceDetail(7, '0', 100.5, 3).RawBytes(zeros, sizeof zeros));
    Parse(MdqpWriter().PriceDetail(7, '1', 100.6, 4).RawBytes(zeros, sizeof zeros));
    EXPECT_EQ(TextOf(Slot(7)), WithBook({}, {{10060, 4}}));
}

TEST_F(MdqpBook, LevelBehindAnyOtherFieldClearsTheBookAgain) {
    const std::vector<uint8_t> zeros(200);
    for (const uint16_t id : std::initializer_list<uint16_t>{0x0031, 0x0032, 0x0101, 0x0102, 0x0104, 0x1001, 0x1002,
                                                             0x1003, 0x1004, 0x0BAD, 0x0003, 0x0113, 0x2005, 0xFFFF}) {
        Slot(7) = BEFORE;
        Parse(
            Padded(MdqpWriter().PriceDetail(7, '0', 100.5, 3).Field(id, zeros.data(), 200).PriceDetail(7, '1', 9, 4)));
        EXPECT_EQ(TextOf(Slot(7)), WithBook({}, {{900, 4}})) << id;
    }
}

TEST_F(MdqpBook, LevelBehindALevelOfAnotherInstrumentClearsNothing) {
    Slot(8) = BEFORE;
    Parse(Padded(MdqpWriter().PriceDetail(8, '1', 100.6, 4).PriceDetail(7, '0', 100.5, 3)));
    SInstTableType expected = BEFORE;
    expected.bid1_price = 10050;
    expected.bid1_vol = 3;
    EXPECT_EQ(TextOf(Slot(7)), TextOf(expected));
    EXPECT_EQ(TextOf(Slot(8)), WithBook({}, {{10060, 4}}));
}

TEST_F(MdqpBook, LevelBehindARefusedLevelClearsNothing) {
    Parse(Padded(MdqpWriter().PriceDetail(7, '0', 100.5, 3).PriceDetail(16384, '0', 1, 1).PriceDetail(7, '1', 9, 4)));
    EXPECT_EQ(TextOf(Slot(7)), WithBook({{10050, 3}}, {{900, 4}}));
}

TEST_F(MdqpBook, LevelsThatArriveBestFirstFillTheirSides) {
    MdqpWriter message;
    message.PriceDetail(7, '0', 100.5, 1).PriceDetail(7, '0', 100.4, 2).PriceDetail(7, '0', 100.3, 3);
    message.PriceDetail(7, '1', 100.6, 4).PriceDetail(7, '1', 100.7, 5).PriceDetail(7, '1', 100.8, 6);
    Parse(Padded(message));
    EXPECT_EQ(TextOf(Slot(7)), WithBook({{10050, 1}, {10040, 2}, {10030, 3}}, {{10060, 4}, {10070, 5}, {10080, 6}}));
}

TEST_F(MdqpBook, LevelEqualToAHeldOneOverwritesIt) {
    MdqpWriter message;
    message.PriceDetail(7, '0', 100.5, 1).PriceDetail(7, '0', 100.4, 2).PriceDetail(7, '0', 100.4, 7);
    message.PriceDetail(7, '1', 100.6, 3).PriceDetail(7, '1', 100.7, 4).PriceDetail(7, '1', 100.7, 8);
    Parse(Padded(message.PriceDetail(7, '0', 100.5, 9).PriceDetail(7, '1', 100.6, 10)));
    EXPECT_EQ(TextOf(Slot(7)), WithBook({{10050, 9}, {10040, 7}}, {{10060, 10}, {10070, 8}}));
}

TEST_F(MdqpBook, SixthLevelOverwritesTheFifth) {
    MdqpWriter message;
    for (int i = 0; i < 6; ++i) message.PriceDetail(7, '1', 100 + i, i).PriceDetail(7, '0', 90 - i, 10 + i);
    Parse(Padded(message));
    EXPECT_EQ(TextOf(Slot(7)), WithBook({{9000, 10}, {8900, 11}, {8800, 12}, {8700, 13}, {8500, 15}},
                                        {{10000, 0}, {10100, 1}, {10200, 2}, {10300, 3}, {10500, 5}}));
}

TEST_F(MdqpBook, LevelOfAnUnknownDirectionClearsAsTheFirstAndIsIgnoredOtherwise) {
    for (const char direction : {'2', '/', '\0'}) {
        Slot(7) = BEFORE;
        Parse(Padded(MdqpWriter().PriceDetail(7, direction, 100, 1)));
        EXPECT_EQ(TextOf(Slot(7)), WithBook({}, {}));
        Parse(Padded(MdqpWriter().PriceDetail(7, '0', 100.5, 3).PriceDetail(7, direction, 100, 1)));
        EXPECT_EQ(TextOf(Slot(7)), WithBook({{10050, 3}}, {}));
    }
}

TEST_F(MdqpBook, LargestDoubleIsALevelOfPriceZero) {
    Parse(Padded(MdqpWriter().PriceDetail(7, '0', DBL_MAX, 3).PriceDetail(7, '1', DBL_MAX, 4)));
    EXPECT_EQ(TextOf(Slot(7)), WithBook({{0, 3}}, {{0, 4}}));
}

TEST_F(MdqpBook, LevelsOfAllShortSequencesEqualASecondImplementation) {
    constexpr int SYMBOLS = 4;
    constexpr int LENGTH = 6;
    for (int code = 0; code < 4096; ++code) {
        MdqpWriter message;
        std::vector<Level> bids(5);
        std::vector<Level> asks(5);
        int rest = code;
        for (int i = 1; i <= LENGTH; ++i, rest /= SYMBOLS) {
            const int price = rest % SYMBOLS;  // hundredths
            message.PriceDetail(7, '0', price / 100.0, i).PriceDetail(7, '1', price / 100.0, 10 * i);
            std::size_t level = 0;
            while (level < 4 && bids[level].price > 0 && bids[level].price > price) ++level;
            bids[level] = {price, static_cast<uint32_t>(i)};
            level = 0;
            while (level < 4 && asks[level].price > 0 && asks[level].price < price) ++level;
            asks[level] = {price, static_cast<uint32_t>(10 * i)};
        }
        Parse(Padded(message));
        ASSERT_EQ(TextOf(Slot(7)), WithBook(bids, asks)) << code;
    }
}

}  // namespace
