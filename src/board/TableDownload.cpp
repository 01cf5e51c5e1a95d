#include "src/board/TableDownload.h"

#include <algorithm>
#include <cstring>

#include "public/log/LogLine.h"
#include "src/board/BoardTable.h"

namespace {

#define SLOT_FORMAT                                                                                               \
    "inst_id:%.16s,price_tick:%d,codec_price:%d,vol_multiple:%u,change_no:%u,update_mill_sec:%u,updatetime:%u,"   \
    "bid5_price:%d,bid5_vol:%u,bid4_price:%d,bid4_vol:%u,bid3_price:%d,bid3_vol:%u,bid2_price:%d,bid2_vol:%u,"    \
    "bid1_price:%d,bid1_vol:%u,ask5_price:%d,ask5_vol:%u,ask4_price:%d,ask4_vol:%u,ask3_price:%d,ask3_vol:%u,"    \
    "ask2_price:%d,ask2_vol:%u,ask1_price:%d,ask1_vol:%u,open_interest:%lu,turnover:%lu,volume:%u,last_price:%d," \
    "upper_limit_price:%d,lower_limit_price:%d,bid_volume=%u,bid_amount:%ld,ask_volume=%u,ask_amount:%ld"

#define SLOT_VALUES(slot)                                                                                              \
    (slot).inst_id, (slot).price_tick, (slot).codec_price, (slot).vol_multiple, (slot).change_no,                      \
        (slot).update_mill_sec, (slot).updatetime, (slot).bid5_price, (slot).bid5_vol, (slot).bid4_price,              \
        (slot).bid4_vol, (slot).bid3_price, (slot).bid3_vol, (slot).bid2_price, (slot).bid2_vol, (slot).bid1_price,    \
        (slot).bid1_vol, (slot).ask5_price, (slot).ask5_vol, (slot).ask4_price, (slot).ask4_vol, (slot).ask3_price,    \
        (slot).ask3_vol, (slot).ask2_price, (slot).ask2_vol, (slot).ask1_price, (slot).ask1_vol, (slot).open_interest, \
        (slot).turnover, (slot).volume, (slot).last_price, (slot).upper_limit_price, (slot).lower_limit_price,         \
        (slot).bid_volume, (slot).bid_amount, (slot).ask_volume, (slot).ask_amount

constexpr uint16_t CASE_SWAPPED_LEVELS = 0;
constexpr uint16_t CASE_NARROW_LIMITS = 1;
constexpr uint16_t CASE_ZEROED = 2;

int32_t Wrapped(int64_t value) { return static_cast<int32_t>(static_cast<uint32_t>(value)); }

/// Takes the limits nearer together; all arithmetic wraps at 32 bits.
void NarrowLimits(SInstTableType& slot, uint16_t exponent) {
    constexpr uint16_t INT_BITS = 31;
    if (exponent >= INT_BITS) return;  // no such power of two in an int
    const int32_t parts = int32_t{1} << exponent;
    const int32_t band = Wrapped(int64_t{slot.upper_limit_price} - slot.lower_limit_price);
    const int32_t cut = Wrapped(int64_t{band / parts} * (parts - 2));
    slot.upper_limit_price = Wrapped(int64_t{slot.upper_limit_price} - cut / 2);
    slot.lower_limit_price = Wrapped(int64_t{slot.lower_limit_price} + cut / 2);
}

void InjectFault(SInstTableType& slot, uint16_t errorCase, uint16_t limitParts) {
    switch (errorCase) {
        case CASE_SWAPPED_LEVELS: {
            const int32_t bid1 = slot.bid1_price;
            const int32_t ask5 = slot.ask5_price;
            slot.bid1_price = slot.bid2_price;
            slot.bid2_price = bid1;
            slot.ask5_price = slot.ask4_price;
            slot.ask4_price = ask5;
            break;
        }
        case CASE_NARROW_LIMITS: NarrowLimits(slot, limitParts); break;
        case CASE_ZEROED: slot.bid1_price = 0; slot.bid2_vol = 0;
    }
}

void WriteSlot(const CDrvRegEnyx& board, const reg::TableRegisters& registers, int32_t index,
               const SInstTableType& slot) {
    uint32_t words[WORDS_PER_SLOT];
    std::memcpy(words, &slot, sizeof words);
    const uint32_t first = static_cast<uint32_t>(index) * WORDS_PER_SLOT;
    for (uint32_t word = 0; word < WORDS_PER_SLOT; ++word) {
        board_table::WriteWord(board, registers, first + word, words[word]);
    }
}

}  // namespace

void WriteTable(const CDrvRegEnyx& board, const U50ConfigInfo& config, const reg::TableRegisters& registers,
                const HostTable& table) {
    constexpr const char* OPERATION = "_WriteContractTable";
    const int32_t used = std::min(table.count, table.capacity);
    if (config.debug_flag && config.error_instno < used) {
        SInstTableType& slot = table.slots[config.error_instno];
        VEXA_LOG_AS(OPERATION, LOG_DEBUG, "error_instno:%d," SLOT_FORMAT, config.error_instno, SLOT_VALUES(slot));
        VEXA_LOG_AS(OPERATION, LOG_WARNING, "debug mode error_case:%d", config.error_case);
        InjectFault(slot, config.error_case, config.error_limit_parts);
    }
    const SInstTableType empty{};
    for (int32_t index = 0; index < table.capacity; ++index) {
        if (index >= used) {
            WriteSlot(board, registers, index, empty);
            continue;
        }
        const SInstTableType& slot = table.slots[index];
        if (table.isEnabled) WriteSlot(board, registers, index, slot);
        VEXA_LOG_AS(OPERATION, LOG_DEBUG, "index:%d," SLOT_FORMAT ",high_price:%d,low_price:%d.", index,
                    SLOT_VALUES(slot), slot.high_price, slot.low_price);
    }
}
