// Moves one instrument's quotes and figures by a few ticks at a time. Plain arithmetic on hundredths; every draw is a
// statement of its own, so that its order does not depend on the compiler.
#include "exchange/Book.h"

#include <algorithm>

namespace exchange {
namespace {

constexpr int32_t MAX_MOVE_TICKS = 2;
constexpr int32_t MAX_SPREAD_TICKS = 3;
constexpr uint32_t MAX_LEVEL_VOLUME = 200;
constexpr uint32_t MAX_HIDDEN_VOLUME = 1000;
constexpr uint32_t MAX_TRADE_VOLUME = 50;
constexpr int32_t MAX_OPENING_VOLUME = 50000;
constexpr uint32_t MAX_DAY_VOLUME = 2000000000;  // travels as a signed word

int64_t Amount(const Instrument& instrument, int32_t price, uint32_t volume) {
    return int64_t{price} * volume * instrument.volumeMultiple;
}

bool IsWithinLimits(const Instrument& instrument, int32_t price) {
    return price >= instrument.lowerLimit && price <= instrument.upperLimit;
}

void AddOrders(const Instrument& instrument, BookSide& side, int32_t price, uint32_t volume) {
    side.totalVolume += volume;
    side.totalAmount += Amount(instrument, price, volume);
}

/// `step` is a tick towards the worse prices. Orders behind the fifth level count in the totals alone.
BookSide Quote(const Instrument& instrument, int32_t best, int32_t step, int32_t depth, Random& random) {
    BookSide side;
    int32_t price = best;
    for (int32_t level = 0; level < depth && IsWithinLimits(instrument, price); ++level) {
        side.price[level] = price;
        side.volume[level] = 1 + random.Below(MAX_LEVEL_VOLUME);
        AddOrders(instrument, side, price, side.volume[level]);
        price += random.OneIn(4) ? 2 * step : step;
    }
    if (depth == BOOK_LEVELS && IsWithinLimits(instrument, price)) {
        AddOrders(instrument, side, price, random.Below(MAX_HIDDEN_VOLUME));
    }
    return side;
}

/// The first instrument's book is always full, so that even the smallest exchange has one.
int32_t Depth(const Instrument& instrument, Random& random) {
    const bool isThin = random.OneIn(8);
    const int32_t thinDepth = random.Between(0, BOOK_LEVELS);
    return isThin && instrument.instNo != 0 ? thinDepth : BOOK_LEVELS;
}

}  // namespace

Book OpenBook(const Instrument& instrument, Random& random) {
    const int32_t tick = instrument.priceTick;
    Book book;
    book.bidDepth = Depth(instrument, random);
    book.askDepth = Depth(instrument, random);
    book.bestBid = instrument.codecPrice;
    book.lastPrice = instrument.codecPrice;
    book.highPrice = std::min(instrument.codecPrice + random.Between(0, 9) * tick, instrument.upperLimit);
    book.lowPrice = std::max(instrument.codecPrice - random.Between(0, 9) * tick, instrument.lowerLimit);
    book.volume = static_cast<uint32_t>(random.Between(1, MAX_OPENING_VOLUME));
    book.turnover = Amount(instrument, instrument.codecPrice, book.volume);
    book.openInterest = random.Between(100, 2 * MAX_OPENING_VOLUME);
    MoveQuotes(instrument, book, random);
    return book;
}

void MoveQuotes(const Instrument& instrument, Book& book, Random& random) {
    const int32_t tick = instrument.priceTick;
    const int32_t spread = random.Between(1, MAX_SPREAD_TICKS) * tick;
    const int32_t moved = book.bestBid + random.Between(-MAX_MOVE_TICKS, MAX_MOVE_TICKS) * tick;
    book.bestBid = std::clamp(moved, instrument.lowerLimit, instrument.upperLimit - spread);
    book.bids = Quote(instrument, book.bestBid, -tick, book.bidDepth, random);
    book.asks = Quote(instrument, book.bestBid + spread, tick, book.askDepth, random);
}

void Trade(const Instrument& instrument, Book& book, Random& random) {
    const int32_t price = random.OneIn(2) ? book.bids.price[0] : book.asks.price[0];
    const uint32_t volume = 1 + random.Below(MAX_TRADE_VOLUME);
    const int64_t turnover = book.turnover + Amount(instrument, price, volume);
    const int32_t opened = random.Between(-20, 20);
    if (price == 0 || turnover >= AMOUNT_LIMIT || book.volume >= MAX_DAY_VOLUME) return;
    book.lastPrice = price;
    book.highPrice = std::max(book.highPrice, price);
    book.lowPrice = std::min(book.lowPrice, price);
    book.volume += volume;
    book.turnover = turnover;
    book.openInterest = std::max<int64_t>(book.openInterest + opened, 0);
}

}  // namespace exchange
