// Quotes as lines: whole lines, at every width.
#include "tools/QuoteTable.h"

#include <gtest/gtest.h>

#include <cstdint>

namespace {

Quote SomeQuote() {
    Quote quote{};
    quote.md.last_px = 7654321;
    quote.md.bid1_px = 7653000;
    quote.md.bid1_vol = 17;
    quote.md.ask1_px = 7655000;
    quote.md.ask1_vol = 8;
    quote.md.volume = 123456;
    quote.updates = 42;
    return quote;
}

TEST(QuoteTable, ShowsEverythingInEightyColumns) {
    const QuoteTable table(80);
    EXPECT_EQ(table.Header(), "instrument            last        bid   size        ask   size   volume updates");
    EXPECT_EQ(table.Row("cu2612", SomeQuote()),
              "cu2612            76543.21   76530.00     17   76550.00      8   123456      42");
}

TEST(QuoteTable, LeavesOutUpdatesAndSizesInSixtyColumns) {
    const QuoteTable table(60);
    EXPECT_EQ(table.Header(), "instrument            last        bid        ask   volume");
    EXPECT_EQ(table.Row("cu2612", SomeQuote()), "cu2612            76543.21   76530.00   76550.00   123456");
}

TEST(QuoteTable, KeepsTheLastPriceLongest) {
    EXPECT_EQ(QuoteTable(26).Row("cu2612", SomeQuote()), "cu2612            76543.21");
    EXPECT_EQ(QuoteTable(25).Row("cu2612", SomeQuote()), "cu2612         ");
    EXPECT_EQ(QuoteTable(4).Row("cu2612", SomeQuote()), "cu26");
}

TEST(QuoteTable, NoLineIsEverWiderThanAsked) {
    Quote quote = SomeQuote();
    quote.md.last_px = quote.md.bid1_px = quote.md.ask1_px = INT32_MIN;
    quote.md.bid1_vol = quote.md.ask1_vol = quote.md.volume = UINT32_MAX;
    quote.updates = UINT64_MAX;
    for (int columns = 1; columns <= 120; ++columns) {
        const QuoteTable table(columns);
        EXPECT_LE(table.Header().size(), static_cast<std::size_t>(columns));
        EXPECT_LE(table.Row("cu2612C79000-XY", quote).size(), static_cast<std::size_t>(columns));
    }
}

TEST(QuoteTable, ShortensWhatWouldPushTheColumns) {
    Quote quote = SomeQuote();
    quote.md.last_px = INT32_MAX;
    quote.md.bid1_vol = 1234567;
    quote.md.volume = 2000000000;
    quote.updates = 98765432;
    EXPECT_EQ(QuoteTable(80).Row("cu2612", quote),
              "cu2612            21474836   76530.00  1234k   76550.00      8 2000000k  98765k");
}

}  // namespace
