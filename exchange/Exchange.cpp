// Owns the instruments, their books and the truth. The truth of an instrument is changed by laying its live update over
// it, so that whoever applies the updates ends with the same record; a snapshot may declare prices absent besides.
#include "exchange/Exchange.h"

#include <algorithm>
#include <cstring>

#include "exchange/InstrumentList.h"
#include "exchange/RecordLevels.h"

namespace exchange {
namespace {

constexpr uint32_t OPENING_TIME_MS = 9 * 3600 * 1000;
constexpr uint32_t DAY_MS = 24 * 3600 * 1000;
constexpr uint32_t MAX_GAP_MS = 9;  // between two updates of the whole exchange
constexpr uint32_t FIRST_CHANGE_NO = 1;
constexpr uint32_t UNLISTED_ONE_IN = 6;  // instruments of a list that changes

void TellDeal(const Book& book, LiveUpdate& update) {
    update.hasDeal = true;
    update.lastPrice = book.lastPrice;
    update.volume = book.volume;
    update.turnover = book.turnover;
    update.openInterest = book.openInterest;
    update.highPrice = book.highPrice;
    update.lowPrice = book.lowPrice;
}

void TellBook(const Book& book, LiveUpdate& update) {
    update.hasBook = true;
    std::copy_n(book.bids.price, BOOK_LEVELS, update.bidPrice);
    std::copy_n(book.bids.volume, BOOK_LEVELS, update.bidVolume);
    std::copy_n(book.asks.price, BOOK_LEVELS, update.askPrice);
    std::copy_n(book.asks.volume, BOOK_LEVELS, update.askVolume);
    update.totalBidVolume = book.bids.totalVolume;
    update.totalBidAmount = book.bids.totalAmount;
    update.totalAskVolume = book.asks.totalVolume;
    update.totalAskAmount = book.asks.totalAmount;
}

void ApplyDeal(const LiveUpdate& update, VexaShfeMdType& record) {
    record.last_px = update.lastPrice;
    record.volume = update.volume;
    record.turnover = update.turnover;
    record.open_interest = update.openInterest;
    record.high_price = update.highPrice;
    record.low_price = update.lowPrice;
}

void ApplyLevels(const LiveUpdate& update, VexaShfeMdType& record) {
    for (std::size_t i = 0; i < BOOK_LEVELS; ++i) {
        record.*RECORD_LEVELS[BIDS][i].price = update.bidPrice[i];
        record.*RECORD_LEVELS[BIDS][i].volume = update.bidVolume[i];
        record.*RECORD_LEVELS[ASKS][i].price = update.askPrice[i];
        record.*RECORD_LEVELS[ASKS][i].volume = update.askVolume[i];
    }
}

void ApplyBook(const LiveUpdate& update, VexaShfeMdType& record) {
    ApplyLevels(update, record);
    record.bid_volume = update.totalBidVolume;
    record.bid_amount = update.totalBidAmount;
    record.ask_volume = update.totalAskVolume;
    record.ask_amount = update.totalAskAmount;
}

void Apply(const LiveUpdate& update, VexaShfeMdType& record) {
    record.change_no = update.changeNo;
    record.update_time = update.updateTime;
    record.update_milli_sec = update.updateMilliSec;
    if (update.hasDeal) ApplyDeal(update, record);
    if (update.hasBook) ApplyBook(update, record);
}

VexaShfeMdType EmptyRecord(const Instrument& instrument) {
    VexaShfeMdType record{};
    record.inst_no = static_cast<uint32_t>(instrument.instNo);
    const std::size_t size = std::min(instrument.id.size(), sizeof(record.inst_id) - 1);
    std::memcpy(record.inst_id, instrument.id.data(), size);
    return record;
}

constexpr uint32_t NARROW_ONE_IN = 3;
constexpr int32_t NARROW_TICKS_MIN = 4;  // room for the widest spread
constexpr int32_t NARROW_TICKS_MAX = 8;

void NarrowLimits(std::vector<Instrument>& instruments, Random random) {
    for (Instrument& instrument : instruments) {
        const int32_t reach = random.Between(NARROW_TICKS_MIN, NARROW_TICKS_MAX) * instrument.priceTick;
        if (!random.OneIn(NARROW_ONE_IN)) continue;
        instrument.upperLimit = std::min(instrument.upperLimit, instrument.codecPrice + reach);
        instrument.lowerLimit = std::max(instrument.lowerLimit, instrument.codecPrice - reach);
    }
}

ExchangeOptions Checked(ExchangeOptions options) {
    options.shfeInstruments = std::clamp(options.shfeInstruments, 1, SHFE_INST_CAPACITY);
    options.ineInstruments = std::clamp(options.ineInstruments, 1, INE_INST_CAPACITY);
    return options;
}

}  // namespace

Exchange::Exchange(const ExchangeOptions& options)
    : m_options(Checked(options)), m_moves(options.seed, "moves"), m_timeMs(OPENING_TIME_MS) {
    OpenFeed(SHFE_2PS, m_options.shfeTopicId,
             ListInstruments(Venue::Shfe, m_options.shfeInstruments, m_options.tradingDay, m_options.seed));
    OpenFeed(INE_2PS, m_options.ineTopicId,
             ListInstruments(Venue::Ine, m_options.ineInstruments, m_options.tradingDay, m_options.seed));
}

void Exchange::OpenFeed(EMDQPDataType feed, int32_t topicId, std::vector<Instrument> instruments) {
    FeedState& opened = m_feeds[static_cast<std::size_t>(feed)];
    Random random(m_options.seed, feed == SHFE_2PS ? "shfe books" : "ine books");
    opened.topicId = topicId;
    if (m_options.hasNarrowLimits)
        NarrowLimits(instruments, Random(m_options.seed * FEED_COUNT + IndexOf(feed), "limits"));
    opened.instruments = std::move(instruments);
    opened.isListed.assign(opened.instruments.size(), true);
    opened.books.reserve(opened.instruments.size());
    opened.truth.reserve(opened.instruments.size());
    for (const Instrument& instrument : opened.instruments) {
        opened.books.push_back(OpenBook(instrument, random));
        LiveUpdate opening;
        Stamp(opening, FIRST_CHANGE_NO);
        TellDeal(opened.books.back(), opening);
        TellBook(opened.books.back(), opening);
        opened.truth.push_back(EmptyRecord(instrument));
        Apply(opening, opened.truth.back());
    }
}

const Exchange::FeedState& Exchange::StateOf(EMDQPDataType feed) const {
    const auto index = static_cast<std::size_t>(feed);
    return index < m_feeds.size() ? m_feeds[index] : m_feeds[SHFE_4PS];
}

const std::vector<Instrument>& Exchange::Instruments(EMDQPDataType feed) const { return StateOf(feed).instruments; }

const VexaShfeMdType& Exchange::Truth(EMDQPDataType feed, int32_t instNo) const {
    static const VexaShfeMdType NOTHING{};
    const std::vector<VexaShfeMdType>& truth = StateOf(feed).truth;
    const auto index = static_cast<std::size_t>(instNo);
    return index < truth.size() ? truth[index] : NOTHING;
}

// One that is not listed gives way to the next that is.
LiveUpdate Exchange::Next() {
    const int32_t shfe = m_options.shfeInstruments;
    const int32_t all = shfe + m_options.ineInstruments;
    auto chosen = static_cast<int32_t>(m_moves.Below(static_cast<uint32_t>(all)));
    const auto feedOf = [=](int32_t position) { return position < shfe ? SHFE_2PS : INE_2PS; };
    const auto instNoOf = [=](int32_t position) { return position < shfe ? position : position - shfe; };
    while (!IsListed(feedOf(chosen), instNoOf(chosen))) chosen = (chosen + 1) % all;
    return Move(feedOf(chosen), instNoOf(chosen));
}

// ---- the list -------------------------------------------------------------------------------------------------------

void Exchange::Relist(uint64_t number) {
    for (const EMDQPDataType feed : {SHFE_2PS, INE_2PS}) {
        std::vector<bool>& isListed = m_feeds[static_cast<std::size_t>(feed)].isListed;
        Random chance((m_options.seed + number) * FEED_COUNT + IndexOf(feed), FaultName(EFault::ChangingList));
        const bool isShorter = chance.OneIn(2);
        const uint32_t end = 1 + chance.Below(static_cast<uint32_t>(isListed.size()));
        for (uint32_t instNo = 1; instNo < isListed.size(); ++instNo) {
            const bool isGap = chance.OneIn(UNLISTED_ONE_IN);
            isListed[instNo] = number == 0 || (!isGap && !(isShorter && instNo >= end));
        }
    }
}

bool Exchange::IsListed(EMDQPDataType feed, int32_t instNo) const {
    const std::vector<bool>& isListed = StateOf(feed).isListed;
    const auto index = static_cast<std::size_t>(instNo);
    return index < isListed.size() && isListed[index];
}

int32_t Exchange::ListedEnd(EMDQPDataType feed) const {
    auto end = static_cast<int32_t>(StateOf(feed).isListed.size());
    while (end > 0 && !IsListed(feed, end - 1)) --end;
    return end;
}

LiveUpdate Exchange::Move(EMDQPDataType feed, int32_t instNo) {
    LiveUpdate update;
    update.feed = feed;
    update.instNo = instNo;
    const auto index = static_cast<std::size_t>(instNo);
    if (index >= StateOf(feed).instruments.size()) return update;

    FeedState& moved = m_feeds[static_cast<std::size_t>(feed)];
    const Instrument& instrument = moved.instruments[index];
    Book& book = moved.books[index];
    const uint32_t what = m_moves.Below(6);  // a third each: a trade, new quotes, both
    AdvanceTime();
    ++moved.packetNo;
    Stamp(update, moved.truth[index].change_no + 1);
    if (what < 4) {
        Trade(instrument, book, m_moves);
        TellDeal(book, update);
    }
    if (what >= 2) {
        MoveQuotes(instrument, book, m_moves);
        TellBook(book, update);
    }
    Apply(update, moved.truth[index]);
    return update;
}

void Exchange::AdvanceTime() { m_timeMs = (m_timeMs + 1 + m_moves.Below(MAX_GAP_MS)) % DAY_MS; }

void Exchange::Stamp(LiveUpdate& update, uint32_t changeNo) const {
    update.changeNo = changeNo;
    update.updateTime = m_timeMs / 1000;
    update.updateMilliSec = static_cast<uint16_t>(m_timeMs % 1000);
}

}  // namespace exchange
