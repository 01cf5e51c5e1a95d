// Runs on the receiving thread; lines name the operation that a message comes in by.
#include "src/snapshot/MdqpDecoder.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstring>
#include <limits>

#include "public/log/LogLine.h"

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

// ---- a message ------------------------------------------------------------------------------------------------------

bool CMdqpDecoder::Decode(EMDQPDataType feed, const uint8_t* message) {
    mdqp_t header;
    std::memcpy(&header, message, sizeof header);
    const std::size_t length = header.length;
    const std::size_t end = length + sizeof header;
    uint16_t fieldIdBefore = 0;
    field_t field;
    // The bound leaves the header's eight bytes out: a field that begins in the last eight bytes is not handled.
    for (std::size_t offset = sizeof header; offset < length; offset += sizeof field + field.field_size) {
        std::memcpy(&field, message + offset, sizeof field);
        const std::size_t data = offset + sizeof field;
        TakeField(feed, field.field_id, {message + data, end - data, fieldIdBefore});
        fieldIdBefore = field.field_id;
    }
    if (header.flag != mdqp::FLAG_LAST) return false;
    FinishFeed(feed);
    return true;
}

// What a field says of its size leads to the next field and no further: a record is as long as its kind.
// A copy: records lie at any offset.
template <typename Record, typename Take>
inline void CMdqpDecoder::WithRecord(const Place& place, Take take) {
    if (sizeof(Record) > place.left) {
        m_counters.Add(ECounter::FieldMalformed);
        return;
    }
    Record record;
    std::memcpy(&record, place.data, sizeof record);
    take(record);
}

template <typename Record, typename Take>
inline void CMdqpDecoder::WithSlot(EMDQPDataType feed, const Place& place, Take take) {
    WithRecord<Record>(place, [&](const Record& record) {
        const int32_t instNo = record.inst_no;
        SInstTableType* slot = CInstrumentStore::Protect(feed, instNo) ? m_store.Slot(feed, instNo) : nullptr;
        if (slot != nullptr) {
            take(record, *slot);
        } else {
            m_counters.Add(ECounter::InstNoOutOfRange);
        }
    });
}

void CMdqpDecoder::TakeField(EMDQPDataType feed, uint16_t fieldId, const Place& place) {
    switch (fieldId) {
        case mdqp::FIELD_INST_INFO:
            return WithSlot<inst_info_t>(feed, place,
                                         [&](const auto& record, auto& slot) { InstInfo(feed, record, slot); });
        case mdqp::FIELD_DEAL_INFO:
            return WithSlot<deal_info_t>(feed, place, [&](const auto& record, auto& slot) { DealInfo(record, slot); });
        case mdqp::FIELD_PRICE_DETAIL:
            return WithSlot<price_detail_t>(feed, place, [&](const auto& record, auto& slot) {
                PriceDetail(record, place.fieldIdBefore != mdqp::FIELD_PRICE_DETAIL, slot);
            });
        case mdqp::FIELD_ORDER_STATISTICS: return WithSlot<order_statistics_info_t>(feed, place, OrderStatistics);
        case mdqp::FIELD_PACKET_NO:
            return WithRecord<packet_no_t>(place, [&](const auto& record) { PacketNo(feed, record); });
        case 0x0031:
        case 0x0032:
        case mdqp::FIELD_SNAP:
        case 0x1002:
        case 0x1003: return;
        default:
            VEXA_LOG_AS("_ParseMdqp", LOG_ERROR, "unknown field id: %02x", fieldId);
            m_counters.Add(ECounter::FieldUnknown);
    }
}

void CMdqpDecoder::FinishFeed(EMDQPDataType feed) {
    const FeedTraits& traits = TraitsOf(feed);
    const uint64_t count = m_store.Instruments(feed);
    m_store.Finish(feed);
    m_board.Write(traits.registers.instCount, static_cast<uint32_t>(count));
    VEXA_LOG_AS("_ParseMdqp", LOG_INFO, "%s init finished, total instruments:%lu", traits.name, count);
    bool& isToTell = IsShfe(feed) ? CInstrumentStore::shfe_cnt_80_flag : CInstrumentStore::ine_cnt_80_flag;
    if (count <= traits.nearlyFull || !isToTell) return;
    if (IsShfe(feed)) {
        VEXA_LOG_AS("_ParseMdqp", LOG_WARNING, "shfe_inst_cnt_%s is %lu, more than 80%% max cnt.", traits.lines, count);
    } else {
        VEXA_LOG_AS("_ParseMdqp", LOG_WARNING, "ine_inst_cnt_%s is %lu, more than 80%% max cnt. ", traits.lines, count);
    }
    isToTell = false;
}

// ---- its records ----------------------------------------------------------------------------------------------------

void CMdqpDecoder::InstInfo(EMDQPDataType feed, const inst_info_t& record, SInstTableType& slot) {
    m_store.Count(feed, record.inst_no);
    slot.price_tick = Hundredths<int32_t>(record.price_tick);
    slot.codec_price = Hundredths<int32_t>(record.codec_price);
    slot.vol_multiple = static_cast<uint32_t>(record.volume_multiple);
    if (record.inst_id[0] == '\0') {
        slot.inst_id[0] = '\0';
        return;
    }
    constexpr std::size_t ID_BYTES = sizeof slot.inst_id - 1;
    std::memcpy(slot.inst_id, record.inst_id, ID_BYTES);
    slot.inst_id[ID_BYTES] = '\0';
}

void CMdqpDecoder::DealInfo(const deal_info_t& record, SInstTableType& slot) {
    m_store.NoteDay(DecimalText(record.action_day));
    slot.last_price = Hundredths<int32_t>(record.last_price);
    slot.upper_limit_price = Hundredths<int32_t>(record.upper_limit_price);
    slot.lower_limit_price = Hundredths<int32_t>(record.lower_limit_price);
    slot.high_price = Hundredths<int32_t>(record.highest_price);
    slot.low_price = Hundredths<int32_t>(record.lowest_price);
    slot.turnover = Hundredths<uint64_t>(record.turnover);
    slot.open_interest = Truncate<uint64_t>(record.open_interest + 0.5);
    slot.change_no = static_cast<uint32_t>(record.change_no);
    slot.update_mill_sec = static_cast<uint32_t>(record.update_mill_sec);
    slot.volume = static_cast<uint32_t>(record.volume);
}

void CMdqpDecoder::PriceDetail(const price_detail_t& record, bool isFirst, SInstTableType& slot) {
    const auto price = Hundredths<int32_t>(record.price);
    const auto volume = static_cast<uint32_t>(record.volume);
    if (isFirst) ClearBook(slot);
    if (record.direction == '0') {
        PutLevel(slot, SLOT_LEVELS[BIDS], price, volume,
                 [](int32_t held, int32_t arriving) { return held > arriving; });
    } else if (record.direction == '1') {
        PutLevel(slot, SLOT_LEVELS[ASKS], price, volume,
                 [](int32_t held, int32_t arriving) { return held < arriving; });
    }
}

void CMdqpDecoder::OrderStatistics(const order_statistics_info_t& record, SInstTableType& slot) {
    slot.bid_volume = static_cast<uint32_t>(record.bid_volume);
    slot.bid_amount = Hundredths<int64_t>(record.bid_amount);
    slot.ask_volume = static_cast<uint32_t>(record.ask_volume);
    slot.ask_amount = Hundredths<int64_t>(record.ask_amount);
}

void CMdqpDecoder::PacketNo(EMDQPDataType feed, const packet_no_t& record) {
    m_board.Write(TraitsOf(feed).registers.snapshotPacketNo, static_cast<uint32_t>(record.packet_no));
}
