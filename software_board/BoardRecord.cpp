#include "software_board/BoardRecord.h"

#include <cstring>

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
    slot.bid1_price = update.bidPrice[0];
    slot.bid2_price = update.bidPrice[1];
    slot.bid3_price = update.bidPrice[2];
    slot.bid4_price = update.bidPrice[3];
    slot.bid5_price = update.bidPrice[4];
    slot.bid1_vol = update.bidVolume[0];
    slot.bid2_vol = update.bidVolume[1];
    slot.bid3_vol = update.bidVolume[2];
    slot.bid4_vol = update.bidVolume[3];
    slot.bid5_vol = update.bidVolume[4];
    slot.ask1_price = update.askPrice[0];
    slot.ask2_price = update.askPrice[1];
    slot.ask3_price = update.askPrice[2];
    slot.ask4_price = update.askPrice[3];
    slot.ask5_price = update.askPrice[4];
    slot.ask1_vol = update.askVolume[0];
    slot.ask2_vol = update.askVolume[1];
    slot.ask3_vol = update.askVolume[2];
    slot.ask4_vol = update.askVolume[3];
    slot.ask5_vol = update.askVolume[4];
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
    record.bid1_px = slot.bid1_price;
    record.bid1_vol = slot.bid1_vol;
    record.bid2_px = slot.bid2_price;
    record.bid2_vol = slot.bid2_vol;
    record.bid3_px = slot.bid3_price;
    record.bid3_vol = slot.bid3_vol;
    record.bid4_px = slot.bid4_price;
    record.bid4_vol = slot.bid4_vol;
    record.bid5_px = slot.bid5_price;
    record.bid5_vol = slot.bid5_vol;
    record.ask1_px = slot.ask1_price;
    record.ask1_vol = slot.ask1_vol;
    record.ask2_px = slot.ask2_price;
    record.ask2_vol = slot.ask2_vol;
    record.ask3_px = slot.ask3_price;
    record.ask3_vol = slot.ask3_vol;
    record.ask4_px = slot.ask4_price;
    record.ask4_vol = slot.ask4_vol;
    record.ask5_px = slot.ask5_price;
    record.ask5_vol = slot.ask5_vol;
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
