// Lists instruments in rounds over the delivery months: futures, trade at settlement and options at the money first,
// then strikes further out until the count is reached. Only the futures' prices are drawn; all else follows from them.
#include "exchange/InstrumentList.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <span>
#include <utility>

#include "exchange/Random.h"

namespace exchange {
namespace {

constexpr int32_t MONTHS_LISTED = 12;
constexpr int32_t MONTHS_WITH_TAS = 4;
constexpr int32_t TAS_LIMIT_TICKS = 20;  // trade at settlement: a narrow band around the reference
constexpr int32_t FUTURE_LIMIT_PERCENT = 8;
constexpr int32_t OPTION_MIN_TICKS = 10;  // no option is worth less, so that a book has room below it

/// Ticks and prices in hundredths, strike steps in whole yuan; a strike step of 0: no options.
struct Product {
    const char* code;
    int32_t tick;
    int32_t multiple;
    int32_t price;
    int32_t optionTick;
    int32_t strikeStep;
    bool hasTas;
};

constexpr std::array<Product, 20> SHFE_PRODUCTS{{
    {"cu", 1000, 5, 7900000, 200, 1000, true},   {"al", 500, 5, 2050000, 100, 100, true},
    {"zn", 500, 5, 2300000, 100, 200, true},     {"pb", 500, 5, 1700000, 50, 100, false},
    {"ni", 1000, 1, 12500000, 200, 2000, false}, {"sn", 1000, 1, 26500000, 500, 5000, false},
    {"au", 2, 1000, 78000, 2, 8, true},          {"ag", 100, 15, 820000, 50, 100, false},
    {"rb", 100, 10, 310000, 50, 50, true},       {"wr", 100, 10, 340000, 0, 0, false},
    {"hc", 100, 10, 325000, 0, 0, false},        {"ss", 500, 5, 1300000, 0, 0, false},
    {"fu", 100, 10, 290000, 50, 50, false},      {"bu", 100, 10, 350000, 50, 50, false},
    {"ru", 500, 10, 1500000, 100, 250, false},   {"sp", 200, 10, 540000, 50, 50, false},
    {"ao", 100, 20, 320000, 50, 50, false},      {"br", 500, 5, 1200000, 100, 200, false},
    {"ad", 500, 10, 1950000, 0, 0, false},       {"op", 200, 40, 420000, 0, 0, false},
}};

constexpr std::array<Product, 5> INE_PRODUCTS{{
    {"sc", 10, 1000, 52000, 5, 5, true},
    {"lu", 100, 10, 360000, 0, 0, true},
    {"nr", 500, 10, 1250000, 0, 0, true},
    {"bc", 1000, 5, 7000000, 0, 0, true},
    {"ec", 10, 50, 150000, 0, 0, false},
}};

int32_t RoundTo(int32_t value, int32_t step) { return (value + step / 2) / step * step; }

class Lister {
public:
    Lister(std::span<const Product> products, int32_t count, int32_t tradingDay, Random random)
        : m_products(products), m_count(static_cast<std::size_t>(count)), m_tradingDay(tradingDay) {
        for (const Product& product : products) {
            for (int32_t month = 0; month < MONTHS_LISTED; ++month) {
                const int32_t price = product.price / 1000 * random.Between(950, 1050);
                m_futurePrices.push_back(RoundTo(price, product.tick));
            }
        }
    }

    std::vector<Instrument> List() {
        ForEachContract([this](const Product& product, int32_t month, int32_t future) {
            AddFuture(product, month, future);
            if (product.hasTas && month < MONTHS_WITH_TAS) AddTas(product, month, future);
            AddOptions(product, month, future, 0);
        });
        for (int32_t layer = 1; !IsFull(); ++layer) {
            ForEachContract([this, layer](const Product& product, int32_t month, int32_t future) {
                AddOptions(product, month, future, layer);
                AddOptions(product, month, future, -layer);
            });
        }
        return std::move(m_list);
    }

private:
    template <typename Visit>
    void ForEachContract(Visit visit) {
        for (int32_t month = 0; month < MONTHS_LISTED; ++month) {
            for (std::size_t i = 0; i < m_products.size(); ++i) {
                visit(m_products[i], month, m_futurePrices[i * MONTHS_LISTED + static_cast<std::size_t>(month)]);
            }
        }
    }

    bool IsFull() const { return m_list.size() >= m_count; }

    /// "cu2612": the `month`-th delivery month after the trading day's.
    std::string Contract(const Product& product, int32_t month) const {
        const int32_t months = m_tradingDay / 10000 * 12 + (m_tradingDay / 100 % 100 - 1) + 1 + month;
        const int32_t yearMonth = std::abs(months) / 12 % 100 * 100 + std::abs(months) % 12 + 1;
        char digits[16];
        std::snprintf(digits, sizeof(digits), "%04d", yearMonth);
        return product.code + std::string(digits);
    }

    void AddFuture(const Product& product, int32_t month, int32_t future) {
        const int32_t reach = RoundTo(future / 100 * FUTURE_LIMIT_PERCENT, product.tick);
        Add({Contract(product, month), product.code, InstrumentKind::Future, 0, product.tick, future, product.multiple,
             future + reach, future - reach});
    }

    void AddTas(const Product& product, int32_t month, int32_t future) {
        const int32_t reach = TAS_LIMIT_TICKS * product.tick;
        Add({Contract(product, month) + "TAS", product.code, InstrumentKind::Tas, 0, product.tick, future,
             product.multiple, future + reach, future - reach});
    }

    /// A call and a put, `layer` strikes away from the money.
    void AddOptions(const Product& product, int32_t month, int32_t future, int32_t layer) {
        if (product.strikeStep == 0) return;
        const int32_t strike = RoundTo(future / 100, product.strikeStep) + layer * product.strikeStep;
        if (strike <= 0) return;
        const int32_t timeValue = future / (40 * (1 + std::abs(layer)));
        const int32_t inTheMoney = future - strike * 100;
        AddOption(product, Contract(product, month) + "C" + std::to_string(strike), future,
                  std::max(inTheMoney, 0) + timeValue);
        AddOption(product, Contract(product, month) + "P" + std::to_string(strike), future,
                  std::max(-inTheMoney, 0) + timeValue);
    }

    void AddOption(const Product& product, std::string id, int32_t future, int32_t worth) {
        const int32_t tick = product.optionTick;
        const int32_t price = std::max(RoundTo(worth, tick), OPTION_MIN_TICKS * tick);
        const int32_t reach = RoundTo(future / 100 * FUTURE_LIMIT_PERCENT, tick);
        Add({std::move(id), product.code, InstrumentKind::Option, 0, tick, price, product.multiple, price + reach,
             std::max(price - reach, tick)});
    }

    void Add(Instrument instrument) {
        if (IsFull()) return;
        instrument.instNo = static_cast<int32_t>(m_list.size());
        m_list.push_back(std::move(instrument));
    }

    std::span<const Product> m_products;
    std::size_t m_count;
    int32_t m_tradingDay;
    std::vector<int32_t> m_futurePrices;
    std::vector<Instrument> m_list;
};

}  // namespace

std::vector<Instrument> ListInstruments(Venue venue, int32_t count, int32_t tradingDay, uint64_t seed) {
    if (venue == Venue::Shfe) return Lister(SHFE_PRODUCTS, count, tradingDay, Random(seed, "shfe prices")).List();
    return Lister(INE_PRODUCTS, count, tradingDay, Random(seed, "ine prices")).List();
}

}  // namespace exchange
