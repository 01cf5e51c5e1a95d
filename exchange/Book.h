/// The moving part of one instrument: five levels a side, and the day so far.
#pragma once

#include <cstdint>

#include "common/FpgaStructCommon.h"
#include "exchange/Instrument.h"
#include "exchange/Random.h"

namespace exchange {

/// Amounts travel as binary64 in yuan. Below this many hundredths they come back as the same integer.
constexpr int64_t AMOUNT_LIMIT = int64_t{1} << 50;

/// Best level first; an empty level is 0 and has none behind it. Prices and amounts in hundredths.
struct BookSide {
    int32_t price[BOOK_LEVELS] = {};
    uint32_t volume[BOOK_LEVELS] = {};
    uint32_t totalVolume = 0;  ///< the levels shown and the orders behind them
    int64_t totalAmount = 0;
};

struct Book {
    BookSide bids;
    BookSide asks;
    int32_t bestBid = 0;  ///< where the bids begin, shown or not
    int32_t bidDepth = 0;
    int32_t askDepth = 0;
    int32_t lastPrice = 0;
    int32_t highPrice = 0;
    int32_t lowPrice = 0;
    uint32_t volume = 0;
    int64_t turnover = 0;
    int64_t openInterest = 0;
};

/// A book some time into the day. Most have all ten levels, some fewer, a few none on one side.
Book OpenBook(const Instrument& instrument, Random& random);

/// New quotes, a few ticks away at most: bids strictly falling, asks strictly rising, nothing outside the limits.
void MoveQuotes(const Instrument& instrument, Book& book, Random& random);

/// One trade at the best bid or ask; nothing where that side is empty or the day's figures are full.
void Trade(const Instrument& instrument, Book& book, Random& random);

}  // namespace exchange
