#include "tools/QuoteDisplay.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <vector>

namespace {

constexpr int64_t REFRESH_NS = 200'000'000;
constexpr std::size_t TABLE_ROWS = 16;
constexpr int LINES_BESIDE_ROWS = 3;  // header, totals, and the line that the cursor stays on
constexpr double HUNDREDTHS = 100.0;

}  // namespace

std::string PrintableId(const VexaShfeMdType& md) {
    std::string id(md.inst_id, strnlen(md.inst_id, sizeof md.inst_id));
    std::replace_if(
        id.begin(), id.end(), [](unsigned char c) { return std::isgraph(c) == 0; }, '?');
    return id;
}

void QuoteDisplay::OnQuote(const VexaShfeMdType& md) {
    Quote& quote = m_quotes[PrintableId(md)];
    quote.md = md;
    ++quote.updates;
    ++m_updates;
    m_latest = &quote;
}

void QuoteDisplay::Tick(int64_t now) {
    if (m_lastTickNs == 0) m_lastTickNs = now;
    if (now - m_lastTickNs < REFRESH_NS) return;
    const double seconds = static_cast<double>(now - m_lastTickNs) / 1e9;
    const double rate = static_cast<double>(m_updates - m_updatesAtTick) / seconds;
    m_lastTickNs = now;
    m_updatesAtTick = m_updates;
    if (m_isTerminal) {
        DrawTable(rate);
    } else {
        PrintLine(rate);
    }
    std::fflush(stdout);
}

std::vector<const std::pair<const std::string, Quote>*> QuoteDisplay::BusiestByName(std::size_t count) const {
    std::vector<const std::pair<const std::string, Quote>*> rows;
    rows.reserve(m_quotes.size());
    for (const auto& entry : m_quotes) rows.push_back(&entry);
    count = std::min(count, rows.size());
    std::partial_sort(rows.begin(), rows.begin() + static_cast<std::ptrdiff_t>(count), rows.end(),
                      [](const auto* a, const auto* b) { return a->second.updates > b->second.updates; });
    rows.resize(count);
    std::sort(rows.begin(), rows.end(), [](const auto* a, const auto* b) { return a->first < b->first; });
    return rows;
}

// A terminal that was resized has broken the lines its own way: nothing on it is where it was drawn.
void QuoteDisplay::GoBackTo(const TerminalSize& size) {
    const bool isResized = size.columns != m_drawnOn.columns || size.rows != m_drawnOn.rows;
    m_drawnOn = size;
    if (m_drawnLines == 0) return;
    if (isResized) {
        std::fputs("\033[H\033[2J", stdout);
    } else {
        std::printf("\033[%dA", m_drawnLines);
    }
}

void QuoteDisplay::DrawTable(double rate) {
    const TerminalSize size = AskTerminalSize();
    const auto room = static_cast<std::size_t>(std::max(0, size.rows - LINES_BESIDE_ROWS));
    const auto rows = BusiestByName(std::min(TABLE_ROWS, room));
    const QuoteTable table(size.columns);
    char totals[96];
    std::snprintf(totals, sizeof totals, "%zu instruments, %llu updates, %.0f a second", m_quotes.size(),
                  static_cast<unsigned long long>(m_updates), rate);

    GoBackTo(size);
    std::printf("\033[K%s\n", table.Header().c_str());
    for (const auto* row : rows) std::printf("\033[K%s\n", table.Row(row->first, row->second).c_str());
    std::printf("\033[K%.*s\n\033[J", size.columns, totals);
    m_drawnLines = static_cast<int>(rows.size()) + LINES_BESIDE_ROWS - 1;
}

void QuoteDisplay::PrintLine(double rate) {
    if (m_latest == nullptr) return;
    const VexaShfeMdType& md = m_latest->md;
    std::printf("quote %-16s last %10.2f bid %10.2f x %-5u ask %10.2f x %-5u volume %-8u | %llu updates, %.0f/s\n",
                PrintableId(md).c_str(), md.last_px / HUNDREDTHS, md.bid1_px / HUNDREDTHS, md.bid1_vol,
                md.ask1_px / HUNDREDTHS, md.ask1_vol, md.volume, static_cast<unsigned long long>(m_updates), rate);
}
