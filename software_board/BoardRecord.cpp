#include "software_board/BoardRecord.h"

#include <cstring>

#include "exchange/RecordLevels.h"

namespace software_board {

void LayOver(const exchange::LiveUpdate& update, SInstTableType& slot) {
    slot.change_no = update.changeNo;
    slot.updatetime = update.updateTime;
    slot.update_mill_sec = update.updateMilliSec;
    if (update.hasDeal) {
        slot.last_price = update.lastPrice;
        slot.volume = update.volume;
        slot.turnover = static_cast<uint64_t>(update.turnover);
        slot.open_interest = static_cast<uint64_t>(update.openInterest);
        slot.high_price = update.highPrice;
        slot.low_price = update.lowPrice;
    }
    if (!update.hasBook) return;
    for (std::size_t i = 0; i < BOOK_LEVELS; ++i) {
        slot.*SLOT_LEVELS[BIDS][i].price = update.bidPrice[i];
        slot.*SLOT_LEVELS[BIDS][i].volume = update.bidVolume[i];
        slot.*SLOT_LEVELS[ASKS][i].price = update.askPrice[i];
        slot.*SLOT_LEVELS[ASKS][i].volume = update.askVolume[i];
    }
    slot.bid_volume = update.totalBidVolume;
    slot.bid_amount = update.totalBidAmount;
    slot.ask_volume = update.totalAskVolume;
    slot.ask_amount = update.totalAskAmount;
}

VexaShfeMdType RecordOf(const SInstTableType& slot, int32_t instNo, uint32_t maxInstNo) {
    VexaShfeMdType record{};
    record.inst_no = static_cast<uint32_t>(instNo);
    std::memcpy(record.inst_id, slot.inst_id, sizeof record.inst_id);
    record.update_time = slot.updatetime;
    record.update_milli_sec = static_cast<uint16_t>(slot.update_mill_sec);
    record.change_no = slot.change_no;
    record.last_px = slot.last_price;
    record.volume = slot.volume;
    record.turnover = static_cast<int64_t>(slot.turnover);
    record.open_interest = static_cast<int64_t>(slot.open_interest);
    for (const EBookSide side : {BIDS, ASKS}) {
        for (std::size_t i = 0; i < BOOK_LEVELS; ++i) {
            record.*RECORD_LEVELS[side][i].price = slot.*SLOT_LEVELS[side][i].price;
            record.*RECORD_LEVELS[side][i].volume = slot.*SLOT_LEVELS[side][i].volume;
        }
    }
    record.bid_volume = slot.bid_volume;
    record.bid_amount = slot.bid_amount;
    record.ask_volume = slot.ask_volume;
    record.ask_amount = slot.ask_amount;
    record.high_price = slot.high_price;
    record.low_price = slot.low_price;
    record.max_inst_no = maxInstNo;
    return record;
}

}  // namespace software_board
