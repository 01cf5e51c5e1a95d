/// One received TCP connection of the snapshot: its in-order position, the message cut by a segment's end, and the
/// segments that came early.
///
///     frag_buf        [ start of an incomplete message ......... ]   frag_buf_offset bytes, frag_flag 1
///     next_expt_seq   the sequence number that the next in-order segment carries
///     lost_buf_head   -> early segment -> early segment -> null      rising sequence numbers, lost_flag 1
#pragma once

#include <cstddef>
#include <cstdint>

constexpr uint32_t TCP_SESSION_COUNT = 65536;    ///< one for each local port
constexpr uint32_t FRAG_BUF_SIZE = 100000;       ///< bytes
constexpr uint32_t FRAG_BUF_LIMIT = 65536;       ///< a carry-over must stay below this
constexpr uint32_t LOST_BUF_LIMIT = 500;         ///< early segments kept by one connection
constexpr uint32_t EARLY_SEGMENT_BUDGET = 2000;  ///< early segments kept by all connections together
constexpr uint32_t FRAG_BUF_BUDGET = 512;        ///< carry-over buffers of all connections together
constexpr uint32_t EARLY_FRAME_CAPACITY = 1600;  ///< bytes of one early frame

#pragma pack(push, 1)

struct tcp_lost_buf_t {
    uint8_t buf[EARLY_FRAME_CAPACITY];  ///< the whole frame from its Ethernet header on
    uint32_t len;
    tcp_lost_buf_t* next;
    tcp_lost_buf_t* before;
};

struct tcp_session_t {
    uint32_t src_host;  ///< network order, as received
    uint32_t dst_host;  ///< network order, as received
    uint16_t src_port;
    uint16_t dst_port;
    tcp_lost_buf_t* lost_buf_head;
    uint8_t* frag_buf;
    uint32_t lost_buf_size;
    uint32_t frag_buf_offset;
    uint32_t next_expt_seq;
    uint32_t current_seq;  ///< sequence number of the connection's first segment
    uint8_t frag_flag;
    uint8_t lost_flag;
    uint8_t init;  ///< 1: identified and in use
    uint8_t reserved;
};

#pragma pack(pop)

static_assert(sizeof(tcp_lost_buf_t) == 1620);
static_assert(offsetof(tcp_lost_buf_t, len) == 1600);
static_assert(offsetof(tcp_lost_buf_t, next) == 1604);
static_assert(offsetof(tcp_lost_buf_t, before) == 1612);
static_assert(sizeof(tcp_session_t) == 48);
static_assert(offsetof(tcp_session_t, src_host) == 0);
static_assert(offsetof(tcp_session_t, dst_host) == 4);
static_assert(offsetof(tcp_session_t, src_port) == 8);
static_assert(offsetof(tcp_session_t, dst_port) == 10);
static_assert(offsetof(tcp_session_t, lost_buf_head) == 12);
static_assert(offsetof(tcp_session_t, frag_buf) == 20);
static_assert(offsetof(tcp_session_t, lost_buf_size) == 28);
static_assert(offsetof(tcp_session_t, frag_buf_offset) == 32);
static_assert(offsetof(tcp_session_t, next_expt_seq) == 36);
static_assert(offsetof(tcp_session_t, current_seq) == 40);
static_assert(offsetof(tcp_session_t, frag_flag) == 44);
static_assert(offsetof(tcp_session_t, lost_flag) == 45);
static_assert(offsetof(tcp_session_t, init) == 46);
static_assert(offsetof(tcp_session_t, reserved) == 47);
