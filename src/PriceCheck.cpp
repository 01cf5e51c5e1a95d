// Is a loaded snapshot sane? Every quoted price within its limits, the ten book prices strictly falling.
// Runs on the receiving thread, once per completed snapshot, off the live path.
// Invariant: an instrument that fails is logged and remembered even where the verdict is shielded.
#include <algorithm>
#include <array>
#include <cstring>
#include <limits>

#include "public/log/LogLine.h"
#include "src/VexaShfeMdApiImpl.h"

namespace {

using Book = std::array<SlotLevel, 2 * BOOK_LEVELS>;

/// From the highest ask to the lowest bid.
constexpr Book FromTheTop() {
    Book book{};
    std::copy(SLOT_LEVELS[ASKS].rbegin(), SLOT_LEVELS[ASKS].rend(), book.begin());
    std::copy(SLOT_LEVELS[BIDS].begin(), SLOT_LEVELS[BIDS].end(), book.begin() + BOOK_LEVELS);
    return book;
}

constexpr Book BOOK = FromTheTop();

std::string InstId(const SInstTableType& slot) { return {slot.inst_id, strnlen(slot.inst_id, sizeof slot.inst_id)}; }

}  // namespace

int32_t CVexaShfeMdApiImpl::ShfePriceCheck(CVexaShfeMdApiImpl& api) {
    for (int32_t instNo = 0; instNo < SHFE_INST_CAPACITY; ++instNo) {
        for (const EMDQPDataType feed : ALL_FEEDS) {
            const uint64_t seen = api.m_u50InstCount.*TraitsOf(feed).instCount;
            const int32_t count = std::min(static_cast<int32_t>(seen), TraitsOf(feed).capacity);
            if (instNo >= count) continue;
            const int32_t result = ShfeInstPriceCheck(FeedTable(api.m_u50InstTable, feed), instNo, api);
            if (result != 0) return result;
        }
    }
    return 0;
}

int32_t CVexaShfeMdApiImpl::ShfeInstPriceCheck(SInstTableType* table, int32_t instNo, CVexaShfeMdApiImpl& api) {
    const SInstTableType& slot = table[instNo];
    const std::string instId = InstId(slot);
    if (isShfeTasInst(instId)) return 0;
    std::vector<int> prices;
    prices.reserve(std::size(BOOK));
    for (const SlotLevel& level : BOOK) prices.push_back(slot.*level.price);
    int32_t up = slot.upper_limit_price;
    int32_t lower = slot.lower_limit_price;
    const int32_t result = CheckPrice(prices, up, lower);
    if (result == 0) return 0;

    api.m_setPriceErrorInstId.insert(instId);
    VEXA_LOG(LOG_ERROR, "inst_id [%s] inst_no[%d]", instId.c_str(), instNo);
    VEXA_LOG(LOG_ERROR, "upper_price is [%8d]", up);
    VEXA_LOG(LOG_ERROR, "lower_price is [%8d]", lower);
    for (std::size_t i = 0; i < std::size(BOOK); ++i) {
        VEXA_LOG(LOG_ERROR, "%s_price is [%8d]", BOOK[i].name, prices[i]);
    }
    return api.m_u50ConfigInfo.shield_price_check ? 0 : result;
}

int32_t CVexaShfeMdApiImpl::CheckPrice(std::vector<int>& prices, int32_t& up, int32_t& lower) {
    constexpr int32_t NOTHING_YET = std::numeric_limits<int32_t>::max();
    int32_t previous = NOTHING_YET;
    for (std::size_t i = 0; i < prices.size(); ++i) {
        const int32_t price = prices[i];
        const auto position = static_cast<int>(i);
        if (price == 0 && previous == NOTHING_YET) continue;
        if (price != 0 && (price < lower || price > up)) {
            VEXA_LOG(
                LOG_WARNING,
                "(price > up) or (price < lower), price is %d, up is %d, lower is %d, shfe2psInstTable index is :%d",
                price, up, lower, position);
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

bool CVexaShfeMdApiImpl::isShfeTasInst(const std::string& instId) { return instId.find("TAS") != std::string::npos; }
