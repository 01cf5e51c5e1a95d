#include "src/snapshot/PriceCheck.h"

#include <array>
#include <limits>

#include "public/log/LogLine.h"
#include "src/snapshot/InstId.h"

namespace price_check {
namespace {

constexpr const SlotSide& ASK = SLOT_LEVELS[ASKS];
constexpr const SlotSide& BID = SLOT_LEVELS[BIDS];
/// From the highest ask to the lowest bid.
constexpr std::array BOOK{ASK[4], ASK[3], ASK[2], ASK[1], ASK[0], BID[0], BID[1], BID[2], BID[3], BID[4]};

constexpr const char* CHECK = "ShfeInstPriceCheck";  // its lines' operation

}  // namespace

int32_t CheckAll(CInstrumentStore& store, bool isShielded, std::set<std::string>& failed) {
    for (int32_t instNo = 0; instNo < SHFE_INST_CAPACITY; ++instNo) {
        for (const EMDQPDataType feed : ALL_FEEDS) {
            if (instNo >= store.UsedSlots(feed)) continue;
            const int32_t result = CheckInstrument(store.Table(feed)[instNo], instNo, isShielded, failed);
            if (result != 0) return result;
        }
    }
    return 0;
}

int32_t CheckInstrument(const SInstTableType& slot, int32_t instNo, bool isShielded, std::set<std::string>& failed) {
    const std::string instId(InstId(slot));
    if (IsTas(instId)) return 0;
    std::vector<int> prices;
    prices.reserve(std::size(BOOK));
    for (const SlotLevel& level : BOOK) prices.push_back(slot.*level.price);
    const int32_t result = CheckPrice(prices, slot.upper_limit_price, slot.lower_limit_price);
    if (result == 0) return 0;

    failed.insert(instId);
    VEXA_LOG_AS(CHECK, LOG_ERROR, "inst_id [%s] inst_no[%d]", instId.c_str(), instNo);
    VEXA_LOG_AS(CHECK, LOG_ERROR, "upper_price is [%8d]", slot.upper_limit_price);
    VEXA_LOG_AS(CHECK, LOG_ERROR, "lower_price is [%8d]", slot.lower_limit_price);
    for (std::size_t i = 0; i < std::size(BOOK); ++i)
        VEXA_LOG_AS(CHECK, LOG_ERROR, "%s_price is [%8d]", BOOK[i].name, prices[i]);
    return isShielded ? 0 : result;
}

int32_t CheckPrice(const std::vector<int>& prices, int32_t upper, int32_t lower) {
    constexpr int32_t NOTHING_YET = std::numeric_limits<int32_t>::max();
    int32_t previous = NOTHING_YET;
    for (std::size_t i = 0; i < prices.size(); ++i) {
        const int32_t price = prices[i];
        const auto position = static_cast<int>(i);
        if (price == 0 && previous == NOTHING_YET) continue;
        if (price != 0 && (price < lower || price > upper)) {
            VEXA_LOG(
                LOG_WARNING,
                "(price > up) or (price < lower), price is %d, up is %d, lower is %d, shfe2psInstTable index is :%d",
                price, upper, lower, position);
            return -1;
        }
        if (price >= previous && !(price == 0 && previous == 0)) {
            VEXA_LOG(LOG_WARNING, "The price is abnormal, price index is :%d ", position);
            return -2;
        }
        previous = price;
    }
    return 0;
}

}  // namespace price_check
