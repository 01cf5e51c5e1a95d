/// The market-data record handed to the application. C++11, self-contained.
///
/// One record is one instrument's whole state after an update: what the update did not tell stands as it was before,
/// down to what the snapshot told. The board writes the record; the library hands the same 176 bytes on and looks at
/// none of them. All values are little-endian and absolute: none is a difference to the record before.
///
/// Units. Prices are signed integers in hundredths of the exchange's price: 432150 is 4321.5. Volumes and open interest
/// are lots. Turnover and amounts are hundredths of the currency unit. Times are the exchange's local time.
///
/// What 0 and the limits mean. The exchange marks an absent value in its snapshot by the largest double. It reaches the
/// board's table, and so the record, as 0, as do a value that is no number and one that its field cannot hold: a price
/// of 0 is "none". INT32_MAX, INT32_MIN and UINT32_MAX mark nothing. A price may lie anywhere between -21474836.48 and
/// 21474836.47; one below 0 that is loaded from a snapshot comes out a hundredth nearer to 0.
///
/// The book, every price above the one to its right:
///
///     ask5 > ask4 > ask3 > ask2 > ask1  >  bid1 > bid2 > bid3 > bid4 > bid5
///
/// A level whose price and volume are 0 is empty, and so are the levels behind it; a side without an order is empty
/// from its first level on. A snapshot whose books break this order or leave the day's limits is not used; with the key
/// shield_price_check=1 it is, and the instrument is not subscribed. Trade-at-settlement instruments are not checked. A
/// live price out of bounds is an event of the board, upon which the session is rebuilt.
#pragma once

#include <cstddef>
#include <cstdint>

#pragma pack(push, 1)

struct VexaShfeMdType {
    // ---- which instrument, when ----

    /// Instrument number: the place of its slot in its feed's table, from 0 (SHFE < 16384, INE < 4096). Both exchanges
    /// count from 0, so that a number alone names nothing: use inst_id. A number holds until the next snapshot is
    /// loaded; the contract index file lists the numbers of the day.
    uint32_t inst_no;

    /// Instrument identifier such as "cu2612", "sc2612C500" or "sc2612TAS": NUL-terminated, at most 15 characters, a
    /// longer one cut. What stands behind the NUL means nothing.
    char inst_id[16];

    /// Exchange time of this state, seconds since midnight, 0 to 86399: of the update, not of the receipt. It goes back
    /// at midnight, in the middle of a night session; order an instrument's records by change_no. 0 is midnight, not
    /// "none".
    uint32_t update_time;
    uint16_t update_milli_sec;  ///< milliseconds of update_time, 0 to 999

    /// Kind of record, set by the board and neither read nor changed by the library; the software board leaves it 0.
    uint16_t type;

    /// The exchange's count of the instrument's changes. Never falls within a session. The software board sends a
    /// record for each change, so that a step of more than 1 shows updates that this channel has not had.
    uint32_t change_no;

    // ---- trades of the day ----

    int32_t last_px;        ///< price of the last trade, hundredths; 0: none is known
    uint32_t volume;        ///< lots traded in the trading day so far, cumulative; 0: none yet
    int64_t turnover;       ///< money traded in the trading day so far, hundredths, cumulative, contract size included
    int64_t open_interest;  ///< lots open now, not cumulative: may rise and fall; 0: none, or not known

    // ---- the book: five levels a side, the best first; an empty level is 0 and 0 ----

    int32_t bid1_px;    ///< best bid: the highest price that somebody buys at, hundredths; 0: no bid
    uint32_t bid1_vol;  ///< lots; 0 where the level is empty, here and below
    int32_t bid2_px;    ///< second bid, below the best, hundredths; 0: empty
    uint32_t bid2_vol;  ///< lots
    int32_t bid3_px;    ///< third bid, hundredths; 0: empty
    uint32_t bid3_vol;  ///< lots
    int32_t bid4_px;    ///< fourth bid, hundredths; 0: empty
    uint32_t bid4_vol;  ///< lots
    int32_t bid5_px;    ///< fifth bid, the lowest shown, hundredths; 0: empty
    uint32_t bid5_vol;  ///< lots
    int32_t ask1_px;    ///< best ask: the lowest price that somebody sells at, hundredths; 0: no ask
    uint32_t ask1_vol;  ///< lots
    int32_t ask2_px;    ///< second ask, above the best, hundredths; 0: empty
    uint32_t ask2_vol;  ///< lots
    int32_t ask3_px;    ///< third ask, hundredths; 0: empty
    uint32_t ask3_vol;  ///< lots
    int32_t ask4_px;    ///< fourth ask, hundredths; 0: empty
    uint32_t ask4_vol;  ///< lots
    int32_t ask5_px;    ///< fifth ask, the highest shown, hundredths; 0: empty
    uint32_t ask5_vol;  ///< lots

    // ---- all orders, those behind the fifth level too; now, not cumulative ----

    uint32_t bid_volume;  ///< lots of all bids
    int64_t bid_amount;   ///< money in all bids, hundredths; stands unaligned, so copy before taking its address
    uint32_t ask_volume;  ///< lots of all asks
    int64_t ask_amount;   ///< money in all asks, hundredths

    // ---- the day's range ----

    int32_t high_price;  ///< highest price of the trading day so far, hundredths; 0: none is known
    int32_t low_price;   ///< lowest price of the trading day so far, hundredths; 0: none is known

    // ---- from the board ----

    /// The configuration's key <feed>_max_inst_no of the record's feed, as the board was given it: 81000 for SHFE,
    /// 85000 for INE unless configured otherwise. No count, and no bound of inst_no; where the keys differ, it tells
    /// the feed.
    uint32_t max_inst_no;

    bool last_tick_flag;       ///< set by the board, by the key last_tick_channel; the software board leaves it false
    unsigned char reverse[3];  ///< reserved, zero; do not look at it
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
