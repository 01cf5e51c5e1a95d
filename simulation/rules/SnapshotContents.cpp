#include "simulation/rules/SnapshotContents.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstring>

#include "simulation/rules/BoardMap.h"
#include "simulation/rules/Wanted.h"

namespace simulation {
namespace {

constexpr uint32_t HEADER = 8;
constexpr uint32_t FIELD_HEADER = 4;
constexpr uint8_t LAST = 1;

enum EField : uint32_t { INSTRUMENT = 0x0101, DEAL = 0x0102, LEVEL = 0x0103, ORDERS = 0x0104, PACKET_NO = 0x1004 };

template <typename T>
T At(const uint8_t* bytes, std::size_t offset) {
    T value;
    std::memcpy(&value, bytes + offset, sizeof value);
    return value;
}

/// 0 where there is no such value.
int64_t Cents(double yuan) { return yuan >= DBL_MAX ? 0 : static_cast<int64_t>(std::trunc(yuan * 100.0 + 0.5)); }
int32_t Price(const uint8_t* data, std::size_t offset) { return static_cast<int32_t>(Cents(At<double>(data, offset))); }

/// Where the number of the instrument lies in a record, and how long that is.
struct Shape {
    uint32_t numberAt;
    uint32_t size;
};

Shape ShapeOf(uint32_t id) {
    switch (id) {
        case INSTRUMENT: return {108, 112};
        case DEAL: return {0, 154};
        case LEVEL: return {0, 17};
        case ORDERS: return {0, 28};
        default: return {0, 4};
    }
}

}  // namespace

// A field that begins within the last eight bytes is left alone.
bool SnapshotContents::Read(EMDQPDataType feed, const uint8_t* message, std::vector<RegisterWrite>& told) {
    const uint32_t length = At<uint16_t>(message, 2);
    uint32_t before = 0;
    for (uint32_t at = HEADER; at < length;) {
        const uint32_t id = At<uint16_t>(message, at);
        const uint32_t left = length + HEADER - at - FIELD_HEADER;
        if (ShapeOf(id).size <= left) ReadField(feed, id, message + at + FIELD_HEADER, before != LEVEL, told);
        before = id;
        at += FIELD_HEADER + At<uint16_t>(message, at + 2);
    }
    if (message[0] != LAST) return false;
    m_finished = static_cast<uint8_t>(m_finished | 1U << feed);
    told.push_back({board::FEEDS[Index(feed)].count, static_cast<uint32_t>(Count(feed))});
    return true;
}

SInstTableType* SnapshotContents::Slot(EMDQPDataType feed, int32_t instNo) {
    if (instNo < 0 || instNo >= board::FEEDS[Index(feed)].slots) return nullptr;
    auto& slots = m_slots[Index(feed)];
    if (static_cast<std::size_t>(instNo) >= slots.size()) slots.resize(static_cast<std::size_t>(instNo) + 1);
    return &slots[static_cast<std::size_t>(instNo)];
}

void SnapshotContents::ReadField(EMDQPDataType feed, uint32_t id, const uint8_t* data, bool isBookNew,
                                 std::vector<RegisterWrite>& told) {
    if (id == PACKET_NO) told.push_back({board::FEEDS[Index(feed)].packetNo, At<uint32_t>(data, 0)});
    if (id < INSTRUMENT || id > ORDERS) return;
    SInstTableType* slot = Slot(feed, At<int32_t>(data, ShapeOf(id).numberAt));
    if (slot == nullptr) return;
    switch (id) {
        case INSTRUMENT: return Describe(feed, data);
        case DEAL: return PutDeal(*slot, data);
        case LEVEL: return PutLevel(*slot, data, isBookNew);
        default: return PutOrders(*slot, data);
    }
}

// The count is one past the highest number described.
void SnapshotContents::Describe(EMDQPDataType feed, const uint8_t* data) {
    const int32_t instNo = At<int32_t>(data, 108);
    m_counts[Index(feed)] = std::max(Count(feed), instNo + 1);
    SInstTableType& slot = *Slot(feed, instNo);
    slot.price_tick = Price(data, 92);
    slot.codec_price = Price(data, 100);
    slot.vol_multiple = At<uint32_t>(data, 72);
    std::memcpy(slot.inst_id, data, sizeof slot.inst_id - 1);
}

void SnapshotContents::PutDeal(SInstTableType& slot, const uint8_t* data) {
    slot.last_price = Price(data, 4);
    slot.volume = At<uint32_t>(data, 12);
    slot.turnover = static_cast<uint64_t>(Cents(At<double>(data, 16)));
    slot.open_interest = static_cast<uint64_t>(std::trunc(At<double>(data, 24) + 0.5));
    slot.high_price = Price(data, 32);
    slot.low_price = Price(data, 40);
    slot.upper_limit_price = Price(data, 72);
    slot.lower_limit_price = Price(data, 80);
    slot.update_mill_sec = At<uint32_t>(data, 146);
    slot.change_no = At<uint32_t>(data, 150);
}

// Takes the place of the first level that is empty or not better, or of the last one.
void SnapshotContents::PutLevel(SInstTableType& slot, const uint8_t* data, bool isBookNew) {
    auto* bid = reinterpret_cast<uint8_t*>(&slot) + 28;  // price and volume of bid 5 to 1, then of ask 5 to 1
    constexpr std::size_t PAIR = 8;
    constexpr std::size_t SIDE = 5 * PAIR;
    if (isBookNew) std::memset(bid, 0, 2 * SIDE);
    const char direction = At<char>(data, 4);
    if (direction != '0' && direction != '1') return;
    const bool isBid = direction == '0';
    uint8_t* side = isBid ? bid : bid + SIDE;
    const int32_t price = Price(data, 5);
    std::size_t level = 4;  // the best one
    for (; level > 0; --level) {
        const int32_t held = At<int32_t>(side, level * PAIR);
        const bool isBetter = isBid ? held > price : held < price;
        if (held <= 0 || !isBetter) break;
    }
    std::memcpy(side + level * PAIR, &price, sizeof price);
    std::memcpy(side + level * PAIR + 4, data + 13, 4);
}

void SnapshotContents::PutOrders(SInstTableType& slot, const uint8_t* data) {
    slot.bid_volume = At<uint32_t>(data, 4);
    slot.bid_amount = Cents(At<double>(data, 8));
    slot.ask_volume = At<uint32_t>(data, 16);
    slot.ask_amount = Cents(At<double>(data, 20));
}

// Two levels of either side change places, the limits come nearer together or part, or two figures are lost.
std::vector<SInstTableType> SnapshotContents::ForBoard(EMDQPDataType feed, const Settings& settings) const {
    std::vector<SInstTableType> slots = Slots(feed);
    slots.resize(static_cast<std::size_t>(Count(feed)));
    if (!settings.isFaultInjected || settings.faultInstNo >= Count(feed)) return slots;
    SInstTableType& slot = slots[static_cast<std::size_t>(settings.faultInstNo)];
    if (settings.faultCase == 0) {
        const SInstTableType before = slot;
        slot.bid1_price = before.bid2_price;
        slot.bid2_price = before.bid1_price;
        slot.ask5_price = before.ask4_price;
        slot.ask4_price = before.ask5_price;
    } else if (settings.faultCase == 1) {
        const int32_t parts = 1 << settings.faultParts;
        const int32_t cut = (slot.upper_limit_price - slot.lower_limit_price) / parts * (parts - 2);
        slot.upper_limit_price -= cut / 2;
        slot.lower_limit_price += cut / 2;
    } else if (settings.faultCase == 2) {
        slot.bid1_price = 0;
        slot.bid2_vol = 0;
    }
    return slots;
}

std::set<std::pair<int32_t, int32_t>> SnapshotContents::Insane() const {
    std::set<std::pair<int32_t, int32_t>> insane;
    for (int32_t feed = 0; feed < FEED_COUNT; ++feed) {
        const auto& slots = m_slots[static_cast<std::size_t>(feed)];
        const auto count = static_cast<std::size_t>(m_counts[static_cast<std::size_t>(feed)]);
        for (std::size_t slot = 0; slot < std::min(slots.size(), count); ++slot) {
            const std::string id(slots[slot].inst_id, strnlen(slots[slot].inst_id, sizeof slots[slot].inst_id));
            if (!IsSettlementTrade(id) && !IsSane(slots[slot])) insane.emplace(feed, static_cast<int32_t>(slot));
        }
    }
    return insane;
}

}  // namespace simulation
