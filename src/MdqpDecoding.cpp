// One complete MDQP message -> instrument slots, counts, packet number, end of the feed. Runs on the receiving thread.
// In: `length` + 8 readable bytes; out: m_u50InstTable, m_u50InstCount, m_finishedMask and the board's registers.
// Invariant: a record is read only where all of it lies inside its message, and stored only where its slot exists.
#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstring>
#include <limits>

#include "common/Feed.h"
#include "public/log/LogLine.h"
#include "src/VexaShfeMdApiImpl.h"

bool CVexaShfeMdApiImpl::shfe_cnt_80_flag = true;
bool CVexaShfeMdApiImpl::ine_cnt_80_flag = true;

namespace {

// ---- numbers ------------------------------------------------------------------------------------------------------

/// Cut towards zero; what the integer cannot hold, and what is no number, becomes 0.
template <typename Integer>
Integer Truncate(double value) {
    // Both bounds are powers of two (or zero) and so exact; the upper one is the first value too large.
    const double lowest = static_cast<double>(std::numeric_limits<Integer>::min());
    const double tooLarge = std::ldexp(1.0, std::numeric_limits<Integer>::digits);
    const double whole = std::trunc(value);
    return whole >= lowest && whole < tooLarge ? static_cast<Integer>(whole) : Integer{0};
}

/// The largest double stands for an absent value: its hundredths fit no integer, either.
template <typename Integer>
Integer Hundredths(double value) {
    return Truncate<Integer>(value * 100.0 + 0.5);
}

/// Decimal text of a fixed field; stops at the first character that is no digit.
template <std::size_t N>
int32_t DecimalText(const char (&text)[N]) {
    static_assert(N <= 9, "more digits may not fit");
    int32_t value = 0;
    for (const char digit : text) {
        if (digit < '0' || digit > '9') break;
        value = value * 10 + (digit - '0');
    }
    return value;
}

// ---- the book -----------------------------------------------------------------------------------------------------

void ClearBook(SInstTableType& slot) {
    for (const SlotSide& side : SLOT_LEVELS) {
        for (const SlotLevel& level : side) {
            slot.*level.price = 0;
            slot.*level.volume = 0;
        }
    }
}

/// Overwrites the first level that is empty or not better than `price`; the last one when all are better.
template <typename IsBetter>
void PutLevel(SInstTableType& slot, const SlotSide& side, int32_t price, uint32_t volume, IsBetter isBetter) {
    std::size_t i = 0;
    while (i < side.size() - 1 && slot.*side[i].price > 0 && isBetter(int32_t{slot.*side[i].price}, price)) ++i;
    slot.*side[i].price = price;
    slot.*side[i].volume = volume;
}

}  // namespace

int32_t CVexaShfeMdApiImpl::_ParseMdqp(mdqp_t* mdqp, uint16_t dstport, CVexaShfeMdApiImpl& refShfeMdApiImpl) {
    CVexaShfeMdApiImpl& api = refShfeMdApiImpl;
    EMDQPDataType feed{};
    if (!api._FindFeed(dstport, feed)) {
        const tcp_session_t session = api.m_sessions[dstport];
        VEXA_LOG(LOG_DEBUG, "src_host[%u] src_port[%d] dst_host[%u] dst_port[%d] unknown.", session.src_host,
                 session.src_port, session.dst_host, session.dst_port);
        api.m_counters.Add(ECounter::MessageOfNoFeed);
        return -1;
    }
    const auto* message = reinterpret_cast<const uint8_t*>(mdqp);
    const std::size_t length = mdqp->length;
    const std::size_t end = length + sizeof(mdqp_t);
    uint16_t fieldIdBefore = 0;
    field_t field;
    // The bound leaves the header's eight bytes out: a field that begins in the last eight bytes is not handled.
    for (std::size_t offset = sizeof(mdqp_t); offset < length; offset += sizeof field + field.field_size) {
        std::memcpy(&field, message + offset, sizeof field);
        api._HandleField(feed, field, message + offset + sizeof field, end - offset - sizeof field, fieldIdBefore,
                         dstport);
        fieldIdBefore = field.field_id;
    }
    if (mdqp->flag == mdqp::FLAG_LAST) api._FinishFeed(feed, dstport);
    return 0;
}

// `left` bytes of the message lie behind the field's header.
void CVexaShfeMdApiImpl::_HandleField(EMDQPDataType feed, const field_t& field, const uint8_t* data, std::size_t left,
                                      uint16_t fieldIdBefore, uint16_t dstport) {
    // What the field says of its size leads to the next field and no further: a record is as long as its kind.
    // A copy: records lie at any offset.
    const auto with = [&](auto record, auto handle) {
        if (sizeof record > left) {
            m_counters.Add(ECounter::FieldMalformed);
            return;
        }
        std::memcpy(&record, data, sizeof record);
        handle(record);
    };
    const auto withSlot = [&](auto record, auto handle) {
        with(record, [&](auto& found) {
            int32_t instNo = found.inst_no;
            if (_ProtectInstNo(feed, instNo) && _Slot(feed, instNo) != nullptr) {
                handle(found);
            } else {
                m_counters.Add(ECounter::InstNoOutOfRange);
            }
        });
    };
    switch (field.field_id) {
        case mdqp::FIELD_INST_INFO:
            return withSlot(inst_info_t{}, [&](inst_info_t& record) { _FieldID0101(record, feed, *this); });
        case mdqp::FIELD_DEAL_INFO:
            return withSlot(deal_info_t{}, [&](deal_info_t& record) { _FieldID0102(record, feed, *this); });
        case mdqp::FIELD_PRICE_DETAIL:
            return withSlot(price_detail_t{}, [&](price_detail_t& record) {
                _FieldID0103(record, feed, *this, dstport, fieldIdBefore != mdqp::FIELD_PRICE_DETAIL);
            });
        case mdqp::FIELD_ORDER_STATISTICS:
            return withSlot(order_statistics_info_t{},
                            [&](order_statistics_info_t& record) { _FieldID0104(record, feed, *this); });
        case mdqp::FIELD_PACKET_NO:
            return with(packet_no_t{}, [&](packet_no_t& record) { _FieldID1004(record, feed, *this); });
        case 0x0031:
        case 0x0032:
        case mdqp::FIELD_SNAP:
        case 0x1002:
        case 0x1003: return;
        default:
            WriteLogLine(LOG_ERROR, LogBaseName(__FILE__), __LINE__, "_ParseMdqp", "unknown field id: %02x",
                         field.field_id);
            m_counters.Add(ECounter::FieldUnknown);
    }
}

// Later segments of the connection must no longer reach the table, so its port is forgotten with the feed.
void CVexaShfeMdApiImpl::_FinishFeed(EMDQPDataType feed, uint16_t dstport) {
    const FeedTraits& traits = TraitsOf(feed);
    const uint64_t count = m_u50InstCount.*traits.instCount;
    m_finishedMask.enabled_mask = static_cast<uint8_t>(m_finishedMask.enabled_mask | FeedBit(feed));
    m_drvRegEnyx.WriteRegister(traits.registers.instCount, static_cast<uint32_t>(count));
    m_sessions[dstport].init = 0;
    m_u50DstPort.*traits.dstPort = 0;

#define PARSE_LOG(level, ...) WriteLogLine((level), LogBaseName(__FILE__), __LINE__, "_ParseMdqp", __VA_ARGS__)
    PARSE_LOG(LOG_INFO, "%s init finished, total instruments:%lu", traits.name, count);
    const bool isShfe = feed == SHFE_2PS || feed == SHFE_4PS;
    bool& isStillToTell = isShfe ? shfe_cnt_80_flag : ine_cnt_80_flag;
    if (count <= traits.nearlyFull || !isStillToTell) return;
    // The blank at the end of INE's is older than this library's users.
    PARSE_LOG(LOG_WARNING, "%s_inst_cnt_%s is %lu, more than 80%% max cnt.%s", traits.exchange, traits.lines, count,
              isShfe ? "" : " ");
    isStillToTell = false;
}

int32_t CVexaShfeMdApiImpl::_FieldID0101(inst_info_t& refInstInfo, const EMDQPDataType& refMDQPDataType,
                                         CVexaShfeMdApiImpl& refShfeMdApiImpl) {
    SInstTableType* slot = refShfeMdApiImpl._Slot(refMDQPDataType, refInstInfo.inst_no);
    if (slot == nullptr) return 0;
    uint64_t& count = refShfeMdApiImpl.m_u50InstCount.*TraitsOf(refMDQPDataType).instCount;
    count = std::max(count, static_cast<uint64_t>(refInstInfo.inst_no) + 1);
    slot->price_tick = Hundredths<int32_t>(refInstInfo.price_tick);
    slot->codec_price = Hundredths<int32_t>(refInstInfo.codec_price);
    slot->vol_multiple = static_cast<uint32_t>(refInstInfo.volume_multiple);
    if (refInstInfo.inst_id[0] == '\0') {
        slot->inst_id[0] = '\0';
        return 0;
    }
    constexpr std::size_t ID_BYTES = sizeof slot->inst_id - 1;
    std::memcpy(slot->inst_id, refInstInfo.inst_id, ID_BYTES);
    slot->inst_id[ID_BYTES] = '\0';
    return 0;
}

int32_t CVexaShfeMdApiImpl::_FieldID0102(deal_info_t& refDealInfo, const EMDQPDataType& refMDQPDataType,
                                         CVexaShfeMdApiImpl& refShfeMdApiImpl) {
    SInstTableType* slot = refShfeMdApiImpl._Slot(refMDQPDataType, refDealInfo.inst_no);
    if (slot == nullptr) return 0;
    refShfeMdApiImpl.m_tradingDay = std::max(refShfeMdApiImpl.m_tradingDay, DecimalText(refDealInfo.action_day));
    slot->last_price = Hundredths<int32_t>(refDealInfo.last_price);
    slot->upper_limit_price = Hundredths<int32_t>(refDealInfo.upper_limit_price);
    slot->lower_limit_price = Hundredths<int32_t>(refDealInfo.lower_limit_price);
    slot->high_price = Hundredths<int32_t>(refDealInfo.highest_price);
    slot->low_price = Hundredths<int32_t>(refDealInfo.lowest_price);
    slot->turnover = Hundredths<uint64_t>(refDealInfo.turnover);
    slot->open_interest = Truncate<uint64_t>(refDealInfo.open_interest + 0.5);
    slot->change_no = static_cast<uint32_t>(refDealInfo.change_no);
    slot->update_mill_sec = static_cast<uint32_t>(refDealInfo.update_mill_sec);
    slot->volume = static_cast<uint32_t>(refDealInfo.volume);
    return 0;
}

int32_t CVexaShfeMdApiImpl::_FieldID0103(price_detail_t& refPriceDetail, const EMDQPDataType& refMDQPDataType,
                                         CVexaShfeMdApiImpl& refShfeMdApiImpl, int, bool flag) {
    SInstTableType* slot = refShfeMdApiImpl._Slot(refMDQPDataType, refPriceDetail.inst_no);
    if (slot == nullptr) return 0;
    const auto price = Hundredths<int32_t>(refPriceDetail.price);
    const auto volume = static_cast<uint32_t>(refPriceDetail.volume);
    if (flag) ClearBook(*slot);
    if (refPriceDetail.direction == '0') {
        PutLevel(*slot, SLOT_LEVELS[BIDS], price, volume,
                 [](int32_t held, int32_t arriving) { return held > arriving; });
    } else if (refPriceDetail.direction == '1') {
        PutLevel(*slot, SLOT_LEVELS[ASKS], price, volume,
                 [](int32_t held, int32_t arriving) { return held < arriving; });
    }
    return 0;
}

int32_t CVexaShfeMdApiImpl::_FieldID0104(order_statistics_info_t& refOrderStatistics,
                                         const EMDQPDataType& refMDQPDataType, CVexaShfeMdApiImpl& refShfeMdApiImpl) {
    SInstTableType* slot = refShfeMdApiImpl._Slot(refMDQPDataType, refOrderStatistics.inst_no);
    if (slot == nullptr) return 0;
    slot->bid_volume = static_cast<uint32_t>(refOrderStatistics.bid_volume);
    slot->bid_amount = Hundredths<int64_t>(refOrderStatistics.bid_amount);
    slot->ask_volume = static_cast<uint32_t>(refOrderStatistics.ask_volume);
    slot->ask_amount = Hundredths<int64_t>(refOrderStatistics.ask_amount);
    return 0;
}

int32_t CVexaShfeMdApiImpl::_FieldID1004(packet_no_t& refPacketNo, const EMDQPDataType& refMDQPDataType,
                                         CVexaShfeMdApiImpl& refShfeMdApiImpl) {
    refShfeMdApiImpl.m_drvRegEnyx.WriteRegister(TraitsOf(refMDQPDataType).registers.snapshotPacketNo,
                                                static_cast<uint32_t>(refPacketNo.packet_no));
    return 0;
}
