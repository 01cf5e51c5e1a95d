/// Plain records shared by the library, the board and the exchange: configuration, instrument slots, DMA messages.
/// Records that the board reads or writes are packed and pinned offset by offset.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

#include "include/DateType.h"
#include "public/log/LogLevel.h"

// ---- feeds ----------------------------------------------------------------------------------------------------

/// The four feeds, everywhere in this order. The values leave the process in masks: never change them.
enum EMDQPDataType : int32_t { SHFE_2PS = 0, SHFE_4PS = 1, INE_2PS = 2, INE_4PS = 3 };

constexpr int32_t FEED_COUNT = 4;
constexpr int32_t CHANNEL_SIZE = 16;
#ifdef VEXA_SMALL_TABLES  // simulated sessions by the thousand: nine tenths of a start-up is writing unused slots
constexpr int32_t SHFE_INST_CAPACITY = 64;
constexpr int32_t INE_INST_CAPACITY = 16;
#else
constexpr int32_t SHFE_INST_CAPACITY = 16384;
constexpr int32_t INE_INST_CAPACITY = 4096;
#endif

/// One bit per feed; a set bit means enabled, or finished.
union UEnabledMask {
    uint8_t enabled_mask;
    __extension__ struct {
        uint8_t shfe2ps : 1;
        uint8_t shfe4ps : 1;
        uint8_t ine2ps : 1;
        uint8_t ine4ps : 1;
        uint8_t reserved : 4;
    };
};
static_assert(sizeof(UEnabledMask) == 1);

// ---- configuration --------------------------------------------------------------------------------------------

/// "a.b.c.d:port" of line A and line B of each feed.
struct U50MultiIpAndPort {
    CAddressType shfe2ps_ip_a;
    CAddressType shfe2ps_ip_b;
    CAddressType shfe4ps_ip_a;
    CAddressType shfe4ps_ip_b;
    CAddressType ine2ps_ip_a;
    CAddressType ine2ps_ip_b;
    CAddressType ine4ps_ip_a;
    CAddressType ine4ps_ip_b;
};

struct U50TopicID {
    int32_t shfe2ps_topic_id = 0;
    int32_t shfe4ps_topic_id = 0;
    int32_t ine2ps_topic_id = 0;
    int32_t ine4ps_topic_id = 0;
};

/// TCP source port of each feed's snapshot service.
struct U50SnapTcpPort {
    uint16_t shfe2ps_snap_port = 0;
    uint16_t shfe4ps_snap_port = 0;
    uint16_t ine2ps_snap_port = 0;
    uint16_t ine4ps_snap_port = 0;
};

struct U50MaxInstNo {
    int32_t shfe2ps_max_inst_no = 0;
    int32_t shfe4ps_max_inst_no = 0;
    int32_t ine2ps_max_inst_no = 0;
    int32_t ine4ps_max_inst_no = 0;
};

/// What one user channel subscribes to.
struct U50ChannelInfo {
    CInstrumentListType insts;  ///< instrument ids, comma-separated, or "all"
    bool options = false;       ///< options too, not futures alone
    bool recvall = false;       ///< `insts` is exactly "all"
};

/// The whole configuration of one object; read-only after loading.
struct U50ConfigInfo {
    int32_t bus_id = 0;
    int32_t channel_id = 0;  ///< 0 is the managing channel
    int32_t cpucore = -1;    ///< -1: not pinned
    UEnabledMask enabled_mask{};
    U50MultiIpAndPort multiIpAndPort;
    U50TopicID topicID;
    U50SnapTcpPort snapTcpPort;
    U50MaxInstNo maxInstNo;
    uint32_t last_tick_channel = 0;  ///< low 16 bits only
    uint32_t detect_interval = 0;
    int32_t board_id = 0;
    ELOGLEVEL log_level = LOG_NONE;
    CMACType DSTMAC;
    CIPType DSTIP;
    uint16_t DSTPORT = 0;
    CMACType SRCMAC;
    CIPType SRCIP;
    uint16_t SRCPORT = 0;
    int32_t TARGETROUTE = 0;
    bool debug_flag = false;
    uint16_t error_instno = 0;
    uint16_t error_case = 0;
    uint16_t error_limit_parts = 0;
    uint32_t dma_sleep = 0;  ///< microseconds
    bool crc_mux_check = false;
    bool repeat_quote_upload = false;
    uint32_t price_protect_event_mask = 0xFFFFFFFFU;
    U50ChannelInfo channelInfo[CHANNEL_SIZE];
    uint16_t wait_snap_timeout = 600;  ///< seconds
    uint16_t init_tcpcnt = 3;
    std::string log_path;
    bool model_sel = false;
    bool event_model_sel = false;
    bool shield_price_check = false;
    bool dma_data_flag = false;
};

// ---- state shared between the files of the library --------------------------------------------------------------

/// One past the highest instrument number seen, per feed.
struct U50InstCount {
    uint64_t shfe_inst_cnt_2ps = 0;
    uint64_t shfe_inst_cnt_4ps = 0;
    uint64_t ine_inst_cnt_2ps = 0;
    uint64_t ine_inst_cnt_4ps = 0;
};

/// The host's port of each feed's snapshot connection; 0 while unknown and after the feed has finished.
struct U50DstPort {
    uint16_t port_shfe_2ps = 0;
    uint16_t port_shfe_4ps = 0;
    uint16_t port_ine_2ps = 0;
    uint16_t port_ine_4ps = 0;
};

struct U50MdPktCnt {
    uint64_t shfe_2ps_pkts = 0;
    uint64_t en_2ps_pkts = 0;
    uint64_t shfe_4ps_pkts = 0;
    uint64_t en_4ps_pkts = 0;
    uint64_t shfe_event_pkts = 0;
};

enum EUserDataType : int32_t { CALL_BACK = 0, BUFF_FETCH = 1 };

/// What every DMA handler of the live phase is given.
struct U50UserData {
    EUserDataType userDataType = CALL_BACK;
    void* lpMdApi = nullptr;   ///< the session object
    void* lpMdData = nullptr;  ///< the application's record in the polling form
    bool isQuote = false;      ///< a record was delivered in this step
};

// ---- board formats ----------------------------------------------------------------------------------------------

#pragma pack(push, 1)

/// One instrument slot, the same 64 words in host memory and on the board. Prices in hundredths.
struct SInstTableType {
    uint32_t config;  ///< SLOT_IN_USE, SLOT_TAS, and one subscription bit per channel
    int32_t price_tick;
    int32_t codec_price;
    uint32_t vol_multiple;
    uint32_t change_no;
    uint32_t update_mill_sec;
    uint32_t updatetime;
    int32_t bid5_price;
    uint32_t bid5_vol;
    int32_t bid4_price;
    uint32_t bid4_vol;
    int32_t bid3_price;
    uint32_t bid3_vol;
    int32_t bid2_price;
    uint32_t bid2_vol;
    int32_t bid1_price;
    uint32_t bid1_vol;
    int32_t ask5_price;
    uint32_t ask5_vol;
    int32_t ask4_price;
    uint32_t ask4_vol;
    int32_t ask3_price;
    uint32_t ask3_vol;
    int32_t ask2_price;
    uint32_t ask2_vol;
    int32_t ask1_price;
    uint32_t ask1_vol;
    uint64_t open_interest;
    uint64_t turnover;
    uint32_t volume;
    int32_t last_price;
    char inst_id[16];
    int32_t upper_limit_price;
    int32_t lower_limit_price;
    uint32_t bid_volume;
    int64_t bid_amount;
    uint32_t ask_volume;
    int64_t ask_amount;
    int32_t high_price;
    int32_t low_price;
    int32_t reserved[17];
};

/// One level of a slot's book, and where the slot keeps it.
struct SlotLevel {
    const char* name;
    int32_t SInstTableType::*price;
    uint32_t SInstTableType::*volume;
};

constexpr int32_t BOOK_LEVELS = 5;
enum EBookSide : std::size_t { BIDS = 0, ASKS = 1 };
using SlotSide = std::array<SlotLevel, BOOK_LEVELS>;  ///< the best one first

inline constexpr std::array<SlotSide, 2> SLOT_LEVELS{
    {{{{"bid1", &SInstTableType::bid1_price, &SInstTableType::bid1_vol},
       {"bid2", &SInstTableType::bid2_price, &SInstTableType::bid2_vol},
       {"bid3", &SInstTableType::bid3_price, &SInstTableType::bid3_vol},
       {"bid4", &SInstTableType::bid4_price, &SInstTableType::bid4_vol},
       {"bid5", &SInstTableType::bid5_price, &SInstTableType::bid5_vol}}},
     {{{"ask1", &SInstTableType::ask1_price, &SInstTableType::ask1_vol},
       {"ask2", &SInstTableType::ask2_price, &SInstTableType::ask2_vol},
       {"ask3", &SInstTableType::ask3_price, &SInstTableType::ask3_vol},
       {"ask4", &SInstTableType::ask4_price, &SInstTableType::ask4_vol},
       {"ask5", &SInstTableType::ask5_price, &SInstTableType::ask5_vol}}}}};

/// The head of every DMA message; an event is nothing but this record.
struct U50Event {
    uint32_t dma_type;  ///< EDmaMsgType
    uint32_t dma_len;   ///< as given by the board; not relied upon
    uint32_t event_data0;
    uint32_t event_data1;
    uint32_t event_data2;
    uint32_t event_data3;
    uint32_t event_data4;
    uint32_t event_data5;
};

#pragma pack(pop)

// Bits of an event. One byte for each group of lines; the groups are treated alike.
constexpr uint32_t EVENT_GROUP = 0xFFU;               ///< one of the four
constexpr uint32_t EVENT_LOST = 0x80808080U;          ///< of event_data0: packets were lost
constexpr uint32_t EVENT_TIME_OUT = 0x40404040U;      ///< of event_data0: nothing came for a while
constexpr uint32_t EVENT_PRICE_ERROR = 0x0F0F0F0FU;   ///< of event_data1
constexpr uint32_t EVENT_MEMORY_READY = 0x00000001U;  ///< of event_data2
constexpr uint32_t EVENT_LOST_3 = 0x0000000FU;        ///< of event_data3: packets were lost

enum EDmaMsgType : uint32_t { DMA_EVENT = 0, DMA_UDP = 1, DMA_TCP = 2 };

constexpr uint32_t SLOT_IN_USE = 0x80000000U;  ///< wanted by at least one channel
constexpr uint32_t SLOT_TAS = 0x40000000U;     ///< trade-at-settlement instrument
constexpr uint32_t WORDS_PER_SLOT = 64;
constexpr uint32_t DMA_UDP_RECORD_OFFSET = 8;    ///< a DMA_UDP message: type, length, record
constexpr uint32_t DMA_TCP_FRAME_OFFSET = 12;    ///< a DMA_TCP message: type, length, one more word, frame
constexpr uint32_t DMA_MESSAGE_CAPACITY = 2048;  ///< no message is longer
constexpr uint32_t DMA_READABLE_BYTES = 192;     ///< readable behind every message pointer, whatever its length

#define SLOT_FIELD_AT(field, offset) static_assert(offsetof(SInstTableType, field) == (offset))
static_assert(sizeof(SInstTableType) == WORDS_PER_SLOT * sizeof(uint32_t));
SLOT_FIELD_AT(config, 0);
SLOT_FIELD_AT(price_tick, 4);
SLOT_FIELD_AT(codec_price, 8);
SLOT_FIELD_AT(vol_multiple, 12);
SLOT_FIELD_AT(change_no, 16);
SLOT_FIELD_AT(update_mill_sec, 20);
SLOT_FIELD_AT(updatetime, 24);
SLOT_FIELD_AT(bid5_price, 28);
SLOT_FIELD_AT(bid5_vol, 32);
SLOT_FIELD_AT(bid4_price, 36);
SLOT_FIELD_AT(bid4_vol, 40);
SLOT_FIELD_AT(bid3_price, 44);
SLOT_FIELD_AT(bid3_vol, 48);
SLOT_FIELD_AT(bid2_price, 52);
SLOT_FIELD_AT(bid2_vol, 56);
SLOT_FIELD_AT(bid1_price, 60);
SLOT_FIELD_AT(bid1_vol, 64);
SLOT_FIELD_AT(ask5_price, 68);
SLOT_FIELD_AT(ask5_vol, 72);
SLOT_FIELD_AT(ask4_price, 76);
SLOT_FIELD_AT(ask4_vol, 80);
SLOT_FIELD_AT(ask3_price, 84);
SLOT_FIELD_AT(ask3_vol, 88);
SLOT_FIELD_AT(ask2_price, 92);
SLOT_FIELD_AT(ask2_vol, 96);
SLOT_FIELD_AT(ask1_price, 100);
SLOT_FIELD_AT(ask1_vol, 104);
SLOT_FIELD_AT(open_interest, 108);
SLOT_FIELD_AT(turnover, 116);
SLOT_FIELD_AT(volume, 124);
SLOT_FIELD_AT(last_price, 128);
SLOT_FIELD_AT(inst_id, 132);
SLOT_FIELD_AT(upper_limit_price, 148);
SLOT_FIELD_AT(lower_limit_price, 152);
SLOT_FIELD_AT(bid_volume, 156);
SLOT_FIELD_AT(bid_amount, 160);
SLOT_FIELD_AT(ask_volume, 168);
SLOT_FIELD_AT(ask_amount, 172);
SLOT_FIELD_AT(high_price, 180);
SLOT_FIELD_AT(low_price, 184);
SLOT_FIELD_AT(reserved, 188);
#undef SLOT_FIELD_AT

#define EVENT_FIELD_AT(field, offset) static_assert(offsetof(U50Event, field) == (offset))
static_assert(sizeof(U50Event) == 32);
EVENT_FIELD_AT(dma_type, 0);
EVENT_FIELD_AT(dma_len, 4);
EVENT_FIELD_AT(event_data0, 8);
EVENT_FIELD_AT(event_data1, 12);
EVENT_FIELD_AT(event_data2, 16);
EVENT_FIELD_AT(event_data3, 20);
EVENT_FIELD_AT(event_data4, 24);
EVENT_FIELD_AT(event_data5, 28);
#undef EVENT_FIELD_AT

/// The host's copy of the four tables, 10 MiB; a slot's index is its instrument number.
struct U50InstTable {
    SInstTableType shfe2psInstTable[SHFE_INST_CAPACITY];
    SInstTableType shfe4psInstTable[SHFE_INST_CAPACITY];
    SInstTableType ine2psInstTable[INE_INST_CAPACITY];
    SInstTableType ine4psInstTable[INE_INST_CAPACITY];
};
