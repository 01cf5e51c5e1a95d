#include "simulation/rules/Wanted.h"

#include <algorithm>
#include <cstring>

namespace simulation {
namespace {

constexpr std::size_t PRODUCT = 2;
constexpr std::size_t FUTURE = 6;

bool IsWantedBy(const std::string& entry, bool hasOptions, const std::string& id) {
    if (entry.size() != PRODUCT && entry.size() != FUTURE) return entry == id;
    return id.compare(0, entry.size(), entry) == 0 && (hasOptions || id.size() <= FUTURE);
}

}  // namespace

bool IsEntryWanted(const ChannelPlan& channel, const std::string& entry, const std::string& id) {
    if (channel.insts == "all") return channel.hasOptions || id.size() <= FUTURE;
    return IsWantedBy(entry, channel.hasOptions, id);
}

bool IsWanted(const ChannelPlan& channel, const std::string& id) {
    if (channel.insts == "all") return channel.hasOptions || id.size() <= FUTURE;
    std::size_t begin = 0;
    while (begin < channel.insts.size()) {
        const std::size_t end = std::min(channel.insts.find(',', begin), channel.insts.size());
        if (IsWantedBy(channel.insts.substr(begin, end - begin), channel.hasOptions, id)) return true;
        begin = end + 1;
    }
    return false;
}

bool IsSettlementTrade(const std::string& id) { return id.find("TAS") != std::string::npos; }

uint32_t ControlWord(const SessionPlan& plan, const std::string& id) {
    uint32_t word = 0;
    for (int32_t channel = 0; channel < CHANNEL_SIZE; ++channel) {
        if (IsWanted(plan.channels[channel], id)) word |= uint32_t{1} << channel;
    }
    if (word == 0) return 0;
    return word | SLOT_IN_USE | (IsSettlementTrade(id) ? SLOT_TAS : 0);
}

bool IsSane(const SInstTableType& slot) {
    const int32_t prices[] = {slot.ask5_price, slot.ask4_price, slot.ask3_price, slot.ask2_price, slot.ask1_price,
                              slot.bid1_price, slot.bid2_price, slot.bid3_price, slot.bid4_price, slot.bid5_price};
    const auto* first = std::find_if(std::begin(prices), std::end(prices), [](int32_t price) { return price != 0; });
    const auto* last = std::find(first, std::end(prices), 0);
    if (std::any_of(last, std::end(prices), [](int32_t price) { return price != 0; })) return false;
    if (std::any_of(first, last,
                    [&](int32_t price) { return price < slot.lower_limit_price || price > slot.upper_limit_price; })) {
        return false;
    }
    return std::adjacent_find(first, last, [](int32_t a, int32_t b) { return a <= b; }) == last;
}

std::string Difference(const SInstTableType& slot, const exchange::Instrument& instrument, const VexaShfeMdType& truth,
                       bool hasTrueLimits) {
#define SAME(field, expected) \
    if (slot.field != (expected)) return #field
    SAME(price_tick, instrument.priceTick);
    SAME(codec_price, instrument.codecPrice);
    SAME(vol_multiple, static_cast<uint32_t>(instrument.volumeMultiple));
    if (hasTrueLimits) SAME(upper_limit_price, instrument.upperLimit);
    SAME(lower_limit_price, instrument.lowerLimit);
    SAME(change_no, truth.change_no);
    SAME(last_price, truth.last_px);
    SAME(volume, truth.volume);
    SAME(turnover, static_cast<uint64_t>(truth.turnover));
    SAME(open_interest, static_cast<uint64_t>(truth.open_interest));
    SAME(high_price, truth.high_price);
    SAME(low_price, truth.low_price);
    SAME(bid_volume, truth.bid_volume);
    SAME(bid_amount, truth.bid_amount);
    SAME(ask_volume, truth.ask_volume);
    SAME(ask_amount, truth.ask_amount);
#define SAME_LEVEL(level)                            \
    SAME(bid##level##_price, truth.bid##level##_px); \
    SAME(bid##level##_vol, truth.bid##level##_vol);  \
    SAME(ask##level##_price, truth.ask##level##_px); \
    SAME(ask##level##_vol, truth.ask##level##_vol)
    SAME_LEVEL(1);
    SAME_LEVEL(2);
    SAME_LEVEL(3);
    SAME_LEVEL(4);
    SAME_LEVEL(5);
#undef SAME_LEVEL
#undef SAME
    if (std::memcmp(slot.inst_id, truth.inst_id, sizeof slot.inst_id) != 0) return "inst_id";
    return "";
}

}  // namespace simulation
