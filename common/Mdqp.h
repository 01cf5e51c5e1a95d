/// Wire records of the exchange's snapshot messages. Packed, little-endian, read without conversion; doubles are
/// binary64, and DBL_MAX means that a value is absent.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace mdqp {
constexpr uint8_t FLAG_LAST = 0x01;  ///< the last message of a feed's snapshot
constexpr uint8_t FLAG_MORE = 0x11;  ///< every other message
constexpr uint8_t TYPE_SNAPSHOT = '2';

constexpr uint16_t FIELD_INST_INFO = 0x0101;
constexpr uint16_t FIELD_DEAL_INFO = 0x0102;
constexpr uint16_t FIELD_PRICE_DETAIL = 0x0103;
constexpr uint16_t FIELD_ORDER_STATISTICS = 0x0104;
constexpr uint16_t FIELD_SNAP = 0x1001;
constexpr uint16_t FIELD_PACKET_NO = 0x1004;
}  // namespace mdqp

#pragma pack(push, 1)

struct mdqp_t {
    uint8_t flag;
    uint8_t type_id;
    uint16_t length;  ///< bytes behind this header
    uint32_t request_id;
};

struct field_t {
    uint16_t field_id;
    uint16_t field_size;  ///< bytes behind this header
};

struct snap_t {
    int16_t topic_id;
    int32_t snap_no;
};

struct packet_no_t {
    int32_t packet_no;
};

struct inst_info_t {
    char inst_id[31];
    char underlying_inst_id[31];
    char product_class;
    double strike_price;
    char options_type;
    int32_t volume_multiple;
    double underlying_multiple;
    int32_t is_trading;
    char currency_id[4];
    double price_tick;
    double codec_price;
    int32_t inst_no;
};

struct deal_info_t {
    int32_t inst_no;
    double last_price;
    int32_t volume;
    double turnover;
    double open_interest;
    double highest_price;
    double lowest_price;
    double open_price;
    double close_price;
    double settlement_price;
    double upper_limit_price;
    double lower_limit_price;
    double pre_settlement_price;
    double pre_close_price;
    double pre_open_interest;
    double pre_delta;
    double curr_delta;
    char action_day[9];
    char update_time[9];
    int32_t update_mill_sec;
    int32_t change_no;
};

struct price_detail_t {
    int32_t inst_no;
    char direction;  ///< '0' bid, '1' ask
    double price;
    int32_t volume;
};

struct order_statistics_info_t {
    int32_t inst_no;
    int32_t bid_volume;
    double bid_amount;
    int32_t ask_volume;
    double ask_amount;
};

#pragma pack(pop)

#define WIRE_FIELD_AT(record, field, offset) static_assert(offsetof(record, field) == (offset))
static_assert(sizeof(mdqp_t) == 8 && sizeof(field_t) == 4 && sizeof(snap_t) == 6 && sizeof(packet_no_t) == 4);
WIRE_FIELD_AT(mdqp_t, flag, 0);
WIRE_FIELD_AT(mdqp_t, type_id, 1);
WIRE_FIELD_AT(mdqp_t, length, 2);
WIRE_FIELD_AT(mdqp_t, request_id, 4);
WIRE_FIELD_AT(field_t, field_id, 0);
WIRE_FIELD_AT(field_t, field_size, 2);
WIRE_FIELD_AT(snap_t, topic_id, 0);
WIRE_FIELD_AT(snap_t, snap_no, 2);
WIRE_FIELD_AT(packet_no_t, packet_no, 0);
static_assert(sizeof(inst_info_t) == 112);
WIRE_FIELD_AT(inst_info_t, inst_id, 0);
WIRE_FIELD_AT(inst_info_t, underlying_inst_id, 31);
WIRE_FIELD_AT(inst_info_t, product_class, 62);
WIRE_FIELD_AT(inst_info_t, strike_price, 63);
WIRE_FIELD_AT(inst_info_t, options_type, 71);
WIRE_FIELD_AT(inst_info_t, volume_multiple, 72);
WIRE_FIELD_AT(inst_info_t, underlying_multiple, 76);
WIRE_FIELD_AT(inst_info_t, is_trading, 84);
WIRE_FIELD_AT(inst_info_t, currency_id, 88);
WIRE_FIELD_AT(inst_info_t, price_tick, 92);
WIRE_FIELD_AT(inst_info_t, codec_price, 100);
WIRE_FIELD_AT(inst_info_t, inst_no, 108);
static_assert(sizeof(deal_info_t) == 154);
WIRE_FIELD_AT(deal_info_t, inst_no, 0);
WIRE_FIELD_AT(deal_info_t, last_price, 4);
WIRE_FIELD_AT(deal_info_t, volume, 12);
WIRE_FIELD_AT(deal_info_t, turnover, 16);
WIRE_FIELD_AT(deal_info_t, open_interest, 24);
WIRE_FIELD_AT(deal_info_t, highest_price, 32);
WIRE_FIELD_AT(deal_info_t, lowest_price, 40);
WIRE_FIELD_AT(deal_info_t, open_price, 48);
WIRE_FIELD_AT(deal_info_t, close_price, 56);
WIRE_FIELD_AT(deal_info_t, settlement_price, 64);
WIRE_FIELD_AT(deal_info_t, upper_limit_price, 72);
WIRE_FIELD_AT(deal_info_t, lower_limit_price, 80);
WIRE_FIELD_AT(deal_info_t, pre_settlement_price, 88);
WIRE_FIELD_AT(deal_info_t, pre_close_price, 96);
WIRE_FIELD_AT(deal_info_t, pre_open_interest, 104);
WIRE_FIELD_AT(deal_info_t, pre_delta, 112);
WIRE_FIELD_AT(deal_info_t, curr_delta, 120);
WIRE_FIELD_AT(deal_info_t, action_day, 128);
WIRE_FIELD_AT(deal_info_t, update_time, 137);
WIRE_FIELD_AT(deal_info_t, update_mill_sec, 146);
WIRE_FIELD_AT(deal_info_t, change_no, 150);
static_assert(sizeof(price_detail_t) == 17);
WIRE_FIELD_AT(price_detail_t, inst_no, 0);
WIRE_FIELD_AT(price_detail_t, direction, 4);
WIRE_FIELD_AT(price_detail_t, price, 5);
WIRE_FIELD_AT(price_detail_t, volume, 13);
static_assert(sizeof(order_statistics_info_t) == 28);
WIRE_FIELD_AT(order_statistics_info_t, inst_no, 0);
WIRE_FIELD_AT(order_statistics_info_t, bid_volume, 4);
WIRE_FIELD_AT(order_statistics_info_t, bid_amount, 8);
WIRE_FIELD_AT(order_statistics_info_t, ask_volume, 16);
WIRE_FIELD_AT(order_statistics_info_t, ask_amount, 20);
#undef WIRE_FIELD_AT

/// The whole message's size, by its header, which may lie at any offset.
inline uint32_t MdqpBytes(const uint8_t* message) {
    uint16_t length = 0;
    std::memcpy(&length, message + offsetof(mdqp_t, length), sizeof length);
    return static_cast<uint32_t>(sizeof(mdqp_t)) + length;
}
