#include "simulation/base/Edges.h"

#include <algorithm>
#include <array>
#include <set>

#include "simulation/base/EventBits.h"

namespace simulation {
namespace {

constexpr uint32_t WORDS = 6;
constexpr uint32_t BITS = 32;
constexpr uint32_t SINGLES_BEFORE_TABLES = 12;
constexpr uint32_t PAIRS_BEFORE_TABLES = 3;
constexpr uint32_t HARMLESS_LATE = 16;
constexpr std::array LATE{ESessionPhase::Tables, ESessionPhase::Versions, ESessionPhase::Subscribing,
                          ESessionPhase::Engines, ESessionPhase::Live};

struct Bit {
    uint32_t word;
    uint32_t bit;
};

enum EMeaning : uint8_t { LOST, TIME_OUT, PRICE, COUNT, READY, NOTHING };
constexpr const char* MEANINGS[] = {"lost", "time-out", "price", "count", "ready", "nothing"};

EMeaning MeaningOf(Bit bit) {
    const auto isOneOf = [bit](uint32_t word, uint32_t bits) {
        return bit.word == word && (bits >> bit.bit & 1U) != 0;
    };
    if (isOneOf(0, LOST_BITS)) return LOST;
    if (isOneOf(0, TIME_OUT_BITS)) return TIME_OUT;
    if (isOneOf(1, PRICE_ERROR_BITS)) return PRICE;
    if (isOneOf(3, LOST_COUNT_BITS)) return COUNT;
    if (isOneOf(2, MEMORY_READY_BIT)) return READY;
    return NOTHING;
}

U50Event EventOf(std::initializer_list<Bit> bits) {
    uint32_t words[WORDS] = {};
    for (const Bit& one : bits) words[one.word] |= 1U << one.bit;
    return {DMA_EVENT, sizeof(U50Event), words[0], words[1], words[2], words[3], words[4], words[5]};
}

Bit BitOf(uint64_t number) {
    return {static_cast<uint32_t>(number / BITS % WORDS), static_cast<uint32_t>(number % BITS)};
}

EventCard Single(Bit bit) {
    return {"event " + std::to_string(bit.word) + "." + std::to_string(bit.bit), EventOf({bit})};
}

std::vector<Bit> BitsThatMean(bool isLoss) {
    std::vector<Bit> bits;
    for (uint32_t number = 0; number < WORDS * BITS; ++number) {
        const EMeaning meaning = MeaningOf(BitOf(number));
        if ((meaning != NOTHING && meaning != READY) == isLoss) bits.push_back(BitOf(number));
    }
    return bits;
}

/// The `turn`-th bit of those that mean this.
Bit BitThatMeans(EMeaning meaning, uint64_t turn) {
    std::vector<Bit> bits;
    for (uint32_t number = 0; number < WORDS * BITS; ++number) {
        if (MeaningOf(BitOf(number)) == meaning) bits.push_back(BitOf(number));
    }
    return bits[turn % bits.size()];
}

constexpr std::pair<EMeaning, EMeaning> PAIRS[] = {{LOST, TIME_OUT},  {LOST, PRICE},     {LOST, COUNT},  {LOST, READY},
                                                   {TIME_OUT, PRICE}, {TIME_OUT, COUNT}, {PRICE, COUNT}, {PRICE, READY},
                                                   {COUNT, READY},    {TIME_OUT, READY}};

EventCard Pair(std::size_t which, uint64_t turn) {
    const auto [first, second] = PAIRS[which % std::size(PAIRS)];
    return {std::string("event ") + MEANINGS[first] + "+" + MEANINGS[second],
            EventOf({BitThatMeans(first, turn), BitThatMeans(second, turn / 3)})};
}

struct Window {
    int first;  ///< minute of the day
    int last;
};

constexpr Window WINDOWS[] = {{535, 539}, {540, 540}, {615, 615}, {625, 630},   {690, 690},
                              {805, 810}, {900, 959}, {150, 150}, {1255, 1259}, {1260, 1260}};

bool IsInWindow(int minute) {
    return std::any_of(std::begin(WINDOWS), std::end(WINDOWS),
                       [=](const Window& window) { return window.first <= minute && minute <= window.last; });
}

TimeCard TimeOf(int minute, int second) {
    const auto digits = [](int number) { return (number < 10 ? "0" : "") + std::to_string(number); };
    return {"last update " + digits(minute / 60) + ":" + digits(minute % 60) + ":" + digits(second),
            minute * 60 + second};
}

std::vector<TimeCard> Times(bool isQuiet) {
    std::set<int> minutes;
    for (const Window& window : WINDOWS) {
        for (const int minute : {window.first - 1, window.first, window.last, window.last + 1}) {
            if (IsInWindow(minute) == isQuiet) minutes.insert(minute);
        }
    }
    std::vector<TimeCard> times;
    for (const int minute : minutes) {
        times.push_back(TimeOf(minute, 0));
        times.push_back(TimeOf(minute, 59));
    }
    return times;
}

}  // namespace

std::vector<EventCard> AllSingles() {
    std::vector<EventCard> cards;
    for (uint32_t number = 0; number < WORDS * BITS; ++number) cards.push_back(Single(BitOf(number)));
    return cards;
}

std::vector<EventCard> AllPairs() {
    std::vector<EventCard> cards;
    for (std::size_t which = 0; which < std::size(PAIRS); ++which) cards.push_back(Pair(which, 0));
    return cards;
}

std::vector<EventCard> DealBeforeTables(uint64_t seed, ESessionPhase phase) {
    std::vector<EventCard> cards;
    const uint64_t turn = seed / 4 * 2 + seed % 2;  // of the seed's form
    const uint64_t first = turn * SINGLES_BEFORE_TABLES + 37 * static_cast<uint64_t>(phase);
    for (uint64_t card = 0; card < SINGLES_BEFORE_TABLES; ++card) cards.push_back(Single(BitOf(first + card)));
    for (uint64_t card = 0; card < PAIRS_BEFORE_TABLES; ++card) {
        cards.push_back(Pair(turn * PAIRS_BEFORE_TABLES + card, turn / 10 + card));
    }
    return cards;
}

// Four seeds in a row deal to both forms alike.
bool IsPollingDealt(uint64_t seed) { return seed / 2 % 2 != 0; }

std::vector<LateDeal> DealLate(uint64_t seed) {
    static const std::vector<Bit> LOSSES = BitsThatMean(true);
    static const std::vector<Bit> HARMLESS = BitsThatMean(false);
    const uint64_t kinds = LOSSES.size() + std::size(PAIRS);
    std::vector<LateDeal> deals;
    const uint64_t first = seed / 4 * 4 + seed % 2 * 2;
    for (uint64_t number = first; number < first + 2; ++number) {
        LateDeal deal{LATE[number % LATE.size()], {}};
        for (uint64_t card = 0; card < HARMLESS_LATE; ++card) {
            const uint64_t which = number / LATE.size() * HARMLESS_LATE + card;
            deal.cards.push_back(Single(HARMLESS[which % HARMLESS.size()]));
        }
        const uint64_t kind = number / LATE.size() % kinds;
        deal.cards.push_back(kind < LOSSES.size() ? Single(LOSSES[kind]) : Pair(kind - LOSSES.size(), number));
        deals.push_back(std::move(deal));
    }
    return deals;
}

std::vector<TimeCard> AllTimes() {
    std::vector<TimeCard> times = Times(true);
    const std::vector<TimeCard> loud = Times(false);
    times.insert(times.end(), loud.begin(), loud.end());
    return times;
}

// Several that are ignored, then one that is a loss.
std::vector<TimeCard> DealTimes(uint64_t seed) {
    constexpr uint64_t QUIET_CARDS = 4;
    static const std::vector<TimeCard> QUIET = Times(true);
    static const std::vector<TimeCard> LOUD = Times(false);
    if (seed % 3 != 0) return {};
    const uint64_t turn = seed / 12 * 2 + seed % 2;
    std::vector<TimeCard> times;
    for (uint64_t card = 0; card < QUIET_CARDS; ++card)
        times.push_back(QUIET[(turn * QUIET_CARDS + card) % QUIET.size()]);
    times.push_back(LOUD[turn % LOUD.size()]);
    return times;
}

}  // namespace simulation
