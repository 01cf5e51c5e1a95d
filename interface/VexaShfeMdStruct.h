/// The market-data record handed to the application. C++11, self-contained.
///
/// One record is one instrument's whole state after an update. The board writes it; the library hands the
/// same bytes on. Units: prices are signed integers in hundredths of the exchange's price (4321.5 is 432150), volumes
/// are lots, amounts are hundredths of the currency unit. A book level whose price and volume are 0 is empty; the
/// levels behind it are empty, too. All values are little-endian.
#pragma once

#include <cstddef>
#include <cstdint>

#pragma pack(push, 1)

struct VexaShfeMdType {
    uint32_t inst_no;           ///< instrument number: the slot in its feed's table (SHFE < 16384, INE < 4096)
    char inst_id[16];           ///< instrument identifier, NUL-terminated, at most 15 characters
    uint32_t update_time;       ///< exchange time of this state, seconds since midnight
    uint16_t update_milli_sec;  ///< milliseconds of update_time, 0 to 999
    uint16_t type;              ///< kind of record, set by the board; the software board leaves it 0
    uint32_t change_no;         ///< the exchange's count of the instrument's changes
    int32_t last_px;            ///< last price, hundredths
    uint32_t volume;            ///< traded volume of the day, lots
    int64_t turnover;           ///< turnover of the day, hundredths
    int64_t open_interest;      ///< open interest, lots
    int32_t bid1_px;            ///< best bid, hundredths
    uint32_t bid1_vol;          ///< lots
    int32_t bid2_px;            ///< second bid, hundredths
    uint32_t bid2_vol;          ///< lots
    int32_t bid3_px;            ///< third bid, hundredths
    uint32_t bid3_vol;          ///< lots
    int32_t bid4_px;            ///< fourth bid, hundredths
    uint32_t bid4_vol;          ///< lots
    int32_t bid5_px;            ///< fifth bid, hundredths
    uint32_t bid5_vol;          ///< lots
    int32_t ask1_px;            ///< best ask, hundredths
    uint32_t ask1_vol;          ///< lots
    int32_t ask2_px;            ///< second ask, hundredths
    uint32_t ask2_vol;          ///< lots
    int32_t ask3_px;            ///< third ask, hundredths
    uint32_t ask3_vol;          ///< lots
    int32_t ask4_px;            ///< fourth ask, hundredths
    uint32_t ask4_vol;          ///< lots
    int32_t ask5_px;            ///< fifth ask, hundredths
    uint32_t ask5_vol;          ///< lots
    uint32_t bid_volume;        ///< total bid volume over all orders, lots
    int64_t bid_amount;         ///< total bid amount, hundredths; stands unaligned, so copy before taking its address
    uint32_t ask_volume;        ///< total ask volume over all orders, lots
    int64_t ask_amount;         ///< total ask amount, hundredths
    int32_t high_price;         ///< highest price of the day, hundredths
    int32_t low_price;          ///< lowest price of the day, hundredths
    uint32_t max_inst_no;       ///< the feed's key *_max_inst_no, as the board was given it
    bool last_tick_flag;        ///< set by the board, by the key last_tick_channel; the software board leaves it false
    unsigned char reverse[3];   ///< reserved, zero
};

#pragma pack(pop)

// The board writes these bytes: any change of an offset is a change of the hardware format.
#define VEXA_FIELD_AT(field, offset) \
    static_assert(offsetof(VexaShfeMdType, field) == (offset), "VexaShfeMdType::" #field " has moved")
static_assert(sizeof(VexaShfeMdType) == 176, "VexaShfeMdType must be 176 bytes");
VEXA_FIELD_AT(inst_no, 0);
VEXA_FIELD_AT(inst_id, 4);
VEXA_FIELD_AT(update_time, 20);
VEXA_FIELD_AT(update_milli_sec, 24);
VEXA_FIELD_AT(type, 26);
VEXA_FIELD_AT(change_no, 28);
VEXA_FIELD_AT(last_px, 32);
VEXA_FIELD_AT(volume, 36);
VEXA_FIELD_AT(turnover, 40);
VEXA_FIELD_AT(open_interest, 48);
VEXA_FIELD_AT(bid1_px, 56);
VEXA_FIELD_AT(bid1_vol, 60);
VEXA_FIELD_AT(bid2_px, 64);
VEXA_FIELD_AT(bid2_vol, 68);
VEXA_FIELD_AT(bid3_px, 72);
VEXA_FIELD_AT(bid3_vol, 76);
VEXA_FIELD_AT(bid4_px, 80);
VEXA_FIELD_AT(bid4_vol, 84);
VEXA_FIELD_AT(bid5_px, 88);
VEXA_FIELD_AT(bid5_vol, 92);
VEXA_FIELD_AT(ask1_px, 96);
VEXA_FIELD_AT(ask1_vol, 100);
VEXA_FIELD_AT(ask2_px, 104);
VEXA_FIELD_AT(ask2_vol, 108);
VEXA_FIELD_AT(ask3_px, 112);
VEXA_FIELD_AT(ask3_vol, 116);
VEXA_FIELD_AT(ask4_px, 120);
VEXA_FIELD_AT(ask4_vol, 124);
VEXA_FIELD_AT(ask5_px, 128);
VEXA_FIELD_AT(ask5_vol, 132);
VEXA_FIELD_AT(bid_volume, 136);
VEXA_FIELD_AT(bid_amount, 140);
VEXA_FIELD_AT(ask_volume, 148);
VEXA_FIELD_AT(ask_amount, 152);
VEXA_FIELD_AT(high_price, 160);
VEXA_FIELD_AT(low_price, 164);
VEXA_FIELD_AT(max_inst_no, 168);
VEXA_FIELD_AT(last_tick_flag, 172);
VEXA_FIELD_AT(reverse, 173);
#undef VEXA_FIELD_AT
