/// A slot in which no two fields hold the same value, and the text of a whole slot, by which two are compared.
#pragma once

#include <algorithm>
#include <cstring>
#include <sstream>
#include <string>

#include "common/FpgaStructCommon.h"

/// Values from `start` on, rising by one from field to field in the order of the record.
inline SInstTableType FilledSlot(const char* id, uint32_t start) {
    uint32_t words[sizeof(SInstTableType) / 4];
    for (uint32_t& word : words) word = start++;
    SInstTableType slot;
    std::memcpy(&slot, words, sizeof slot);
    std::memset(slot.inst_id, 0, sizeof slot.inst_id);
    std::memcpy(slot.inst_id, id, std::min(std::strlen(id), sizeof slot.inst_id));
    return slot;
}

/// One field a line, so that what differs can be read off a failed comparison.
inline std::string TextOf(const SInstTableType& slot) {
    std::ostringstream text;
#define FIELD(name) text << #name " " << +slot.name << "\n"
#define LEVEL(name) text << #name " " << +slot.name##_price << " x " << +slot.name##_vol << "\n"
    FIELD(config), FIELD(price_tick), FIELD(codec_price), FIELD(vol_multiple), FIELD(change_no), FIELD(update_mill_sec);
    FIELD(updatetime), LEVEL(bid5), LEVEL(bid4), LEVEL(bid3), LEVEL(bid2), LEVEL(bid1);
    LEVEL(ask5), LEVEL(ask4), LEVEL(ask3), LEVEL(ask2), LEVEL(ask1);
    FIELD(open_interest), FIELD(turnover), FIELD(volume), FIELD(last_price);
    text << "inst_id '" << std::string(slot.inst_id, sizeof slot.inst_id) << "'\n";
    FIELD(upper_limit_price), FIELD(lower_limit_price), FIELD(bid_volume), FIELD(bid_amount), FIELD(ask_volume);
    FIELD(ask_amount), FIELD(high_price), FIELD(low_price);
    for (const int32_t word : slot.reserved) text << "reserved " << word << "\n";
#undef LEVEL
#undef FIELD
    return text.str();
}
