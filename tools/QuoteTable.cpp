#include "tools/QuoteTable.h"

#include <algorithm>
#include <cstdio>

namespace {

/// Hundredths; without the fraction where it would not fit.
std::string Price(int32_t hundredths, int width) {
    char text[32];
    const int length = std::snprintf(text, sizeof text, "%.2f", hundredths / 100.0);
    if (length > width) std::snprintf(text, sizeof text, "%.0f", hundredths / 100.0);
    return text;
}

/// In thousands or millions where the digits would not fit.
std::string Count(uint64_t count, int width) {
    std::string text = std::to_string(count);
    for (const char* unit : {"k", "M", "G"}) {
        if (static_cast<int>(text.size()) <= width) break;
        count /= 1000;
        text = std::to_string(count) + unit;
    }
    return text;
}

struct Column {
    const char* title;
    int width;
    int rank;  ///< 1 stays longest
    std::string (*text)(const Quote& quote, int width);
};

constexpr int INSTRUMENT_WIDTH = 15;
constexpr int LAST_RANK = 6;

/// Behind the instrument; all of them fill 79 characters.
constexpr Column COLUMNS[] = {
    {"last", 10, 2, [](const Quote& quote, int width) { return Price(quote.md.last_px, width); }},
    {"bid", 10, 3, [](const Quote& quote, int width) { return Price(quote.md.bid1_px, width); }},
    {"size", 6, 5, [](const Quote& quote, int width) { return Count(quote.md.bid1_vol, width); }},
    {"ask", 10, 3, [](const Quote& quote, int width) { return Price(quote.md.ask1_px, width); }},
    {"size", 6, 5, [](const Quote& quote, int width) { return Count(quote.md.ask1_vol, width); }},
    {"volume", 8, 4, [](const Quote& quote, int width) { return Count(quote.md.volume, width); }},
    {"updates", 7, LAST_RANK, [](const Quote& quote, int width) { return Count(quote.updates, width); }},
};

int WidthUpTo(int rank) {
    int width = INSTRUMENT_WIDTH;
    for (const Column& column : COLUMNS) {
        if (column.rank <= rank) width += 1 + column.width;
    }
    return width;
}

std::string Padded(const std::string& text, int width) {
    const auto missing = static_cast<std::size_t>(std::max(0, width - static_cast<int>(text.size())));
    return std::string(missing, ' ') + text;
}

std::string LeftAligned(std::string text) {
    if (text.size() < INSTRUMENT_WIDTH) text.resize(INSTRUMENT_WIDTH, ' ');
    return text;
}

}  // namespace

QuoteTable::QuoteTable(int columns) : m_columns(static_cast<std::size_t>(std::max(columns, 1))), m_rank(LAST_RANK) {
    while (m_rank > 1 && WidthUpTo(m_rank) > columns) --m_rank;
}

std::string QuoteTable::Header() const {
    std::string line = LeftAligned("instrument");
    for (const Column& column : COLUMNS) {
        if (column.rank <= m_rank) line += " " + Padded(column.title, column.width);
    }
    return Cut(line);
}

std::string QuoteTable::Row(const std::string& instrument, const Quote& quote) const {
    std::string line = LeftAligned(instrument);
    for (const Column& column : COLUMNS) {
        if (column.rank <= m_rank) line += " " + Padded(column.text(quote, column.width), column.width);
    }
    return Cut(line);
}

std::string QuoteTable::Cut(std::string line) const {
    if (line.size() > m_columns) line.resize(m_columns);
    return line;
}
