#include "exchange/SnapshotRecords.h"

#include <algorithm>
#include <cfloat>
#include <cstdio>
#include <cstring>
#include <string>

namespace exchange {
namespace {

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

double YuanOrAbsent(int32_t hundredths) { return hundredths == 0 ? DBL_MAX : Yuan(hundredths); }

}  // namespace

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

void DeclareAbsent(const VexaShfeMdType& truth, deal_info_t& record) {
    record.open_price = DBL_MAX;
    record.pre_settlement_price = DBL_MAX;
    record.pre_close_price = DBL_MAX;
    record.pre_open_interest = DBL_MAX;
    record.last_price = YuanOrAbsent(truth.last_px);
    record.highest_price = YuanOrAbsent(truth.high_price);
    record.lowest_price = YuanOrAbsent(truth.low_price);
}

}  // namespace exchange
