// The snapshot of a feed as MDQP messages. An instrument's fields never part: a receiver clears a book at the first
// price level behind any other field, and at the start of each message.
#include <algorithm>
#include <cfloat>
#include <cstdio>
#include <cstring>
#include <string>

#include "exchange/Exchange.h"
#include "exchange/MdqpWriter.h"

namespace exchange {
namespace {

constexpr uint32_t MANY_INSTRUMENTS = 12;  // a message of them is several segments long

double Yuan(int64_t hundredths) { return static_cast<double>(hundredths) / 100.0; }

template <std::size_t N>
void CopyText(char (&field)[N], const std::string& text) {
    std::memcpy(field, text.data(), std::min(text.size(), N - 1));
}

/// "cu2612C70000" is product, delivery month, call or put, strike.
void DescribeOption(const Instrument& instrument, inst_info_t& record) {
    const std::size_t contract = instrument.product.size() + 4;
    record.product_class = '2';
    record.options_type = instrument.id[contract] == 'C' ? '1' : '2';
    record.strike_price = std::stod(instrument.id.substr(contract + 1));
    CopyText(record.underlying_inst_id, instrument.id.substr(0, contract));
}

inst_info_t InfoOf(const Instrument& instrument) {
    inst_info_t record{};
    CopyText(record.inst_id, instrument.id);
    CopyText(record.underlying_inst_id, instrument.product);
    record.product_class = '1';
    if (instrument.kind == InstrumentKind::Option) DescribeOption(instrument, record);
    record.volume_multiple = instrument.volumeMultiple;
    record.underlying_multiple = 1.0;
    record.is_trading = 1;
    CopyText(record.currency_id, "CNY");
    record.price_tick = Yuan(instrument.priceTick);
    record.codec_price = Yuan(instrument.codecPrice);
    record.inst_no = instrument.instNo;
    return record;
}

void StampDeal(const VexaShfeMdType& truth, int32_t tradingDay, deal_info_t& record) {
    char text[16];
    std::snprintf(text, sizeof(text), "%08d", tradingDay);
    CopyText(record.action_day, text);
    const uint32_t time = truth.update_time;
    std::snprintf(text, sizeof(text), "%02u:%02u:%02u", time / 3600 % 24, time / 60 % 60, time % 60);
    CopyText(record.update_time, text);
    record.update_mill_sec = truth.update_milli_sec;
    record.change_no = static_cast<int32_t>(truth.change_no);
}

deal_info_t DealOf(const Instrument& instrument, const VexaShfeMdType& truth, int32_t tradingDay) {
    deal_info_t record{};
    record.inst_no = instrument.instNo;
    record.last_price = Yuan(truth.last_px);
    record.volume = static_cast<int32_t>(truth.volume);
    record.turnover = Yuan(truth.turnover);
    record.open_interest = static_cast<double>(truth.open_interest);
    record.highest_price = Yuan(truth.high_price);
    record.lowest_price = Yuan(truth.low_price);
    record.open_price = Yuan(instrument.codecPrice);
    record.close_price = DBL_MAX;  // the day has not ended
    record.settlement_price = DBL_MAX;
    record.upper_limit_price = Yuan(instrument.upperLimit);
    record.lower_limit_price = Yuan(instrument.lowerLimit);
    record.pre_settlement_price = Yuan(instrument.codecPrice);
    record.pre_close_price = Yuan(instrument.codecPrice);
    record.pre_open_interest = record.open_interest;
    record.pre_delta = DBL_MAX;
    record.curr_delta = DBL_MAX;
    StampDeal(truth, tradingDay, record);
    return record;
}

order_statistics_info_t StatisticsOf(int32_t instNo, const Book& book) {
    order_statistics_info_t record{};
    record.inst_no = instNo;
    record.bid_volume = static_cast<int32_t>(book.bids.totalVolume);
    record.bid_amount = Yuan(book.bids.totalAmount);
    record.ask_volume = static_cast<int32_t>(book.asks.totalVolume);
    record.ask_amount = Yuan(book.asks.totalAmount);
    return record;
}

void WriteSide(MdqpWriter& writer, int32_t instNo, char direction, const BookSide& side) {
    for (int32_t level = 0; level < BOOK_LEVELS && side.price[level] != 0; ++level) {
        writer.PriceDetail(instNo, direction, Yuan(side.price[level]), static_cast<int32_t>(side.volume[level]));
    }
}

void WriteBook(MdqpWriter& writer, int32_t instNo, Book book, bool isCrossed) {
    if (isCrossed) std::swap(book.bids.price[0], book.asks.price[0]);
    WriteSide(writer, instNo, '0', book.bids);
    WriteSide(writer, instNo, '1', book.asks);
    writer.OrderStatistics(StatisticsOf(instNo, book));
}

/// Most messages hold one or two instruments; a few many.
std::size_t InstrumentsInMessage(Random& random) {
    return random.OneIn(16) ? 3 + random.Below(MANY_INSTRUMENTS - 2) : 1 + random.Below(2);
}

constexpr std::size_t NO_INSTRUMENT = SIZE_MAX;

/// A future with orders on both sides. The first instrument is one, so there always is one.
std::size_t FutureToCross(const std::vector<Instrument>& instruments, const std::vector<Book>& books, Random& random) {
    const std::size_t start = random.Below(static_cast<uint32_t>(instruments.size()));
    for (std::size_t i = 0; i < instruments.size(); ++i) {
        const std::size_t index = (start + i) % instruments.size();
        const Book& book = books[index];
        const bool isQuoted = book.bids.price[0] != 0 && book.asks.price[0] != 0;
        if (instruments[index].kind == InstrumentKind::Future && isQuoted) return index;
    }
    return NO_INSTRUMENT;
}

}  // namespace

std::vector<std::vector<uint8_t>> Exchange::SnapshotMessages(EMDQPDataType feed, bool isBookCrossed) {
    std::vector<std::vector<uint8_t>> messages;
    if (FeedOf(feed).instruments.empty()) return messages;

    Feed& told = m_feeds[static_cast<std::size_t>(feed)];
    Random random(m_options.seed + static_cast<uint64_t>(++told.snapNo), feed == SHFE_2PS ? "shfe snap" : "ine snap");
    const std::size_t crossed = isBookCrossed ? FutureToCross(told.instruments, told.books, random) : NO_INSTRUMENT;
    std::size_t next = 0;
    const auto writeInstruments = [&](MdqpWriter& writer, std::size_t count) {
        for (; count > 0 && next < told.instruments.size(); --count, ++next) {
            const Instrument& instrument = told.instruments[next];
            writer.InstInfo(InfoOf(instrument));
            writer.DealInfo(DealOf(instrument, told.truth[next], m_options.tradingDay));
            WriteBook(writer, instrument.instNo, told.books[next], next == crossed);
        }
        messages.push_back(writer.Bytes());
    };

    MdqpWriter first(mdqp::FLAG_MORE);
    first.Snap(static_cast<int16_t>(told.topicId), told.snapNo).PacketNo(told.packetNo);
    writeInstruments(first, 1);
    while (told.instruments.size() - next > MANY_INSTRUMENTS) {
        MdqpWriter writer(mdqp::FLAG_MORE);
        writeInstruments(writer, InstrumentsInMessage(random));
    }
    MdqpWriter last(mdqp::FLAG_LAST);
    writeInstruments(last, MANY_INSTRUMENTS);
    return messages;
}

}  // namespace exchange
