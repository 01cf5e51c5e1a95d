#include "tools/QuoteDisplay.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <vector>

namespace {

constexpr int64_t REFRESH_NS = 200'000'000;
constexpr std::size_t TABLE_ROWS = 16;
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

void QuoteDisplay::DrawTable(double rate) {
    // The busiest instruments, by name, so that rows keep their place.
    std::vector<const std::pair<const std::string, Quote>*> rows;
    rows.reserve(m_quotes.size());
    for (const auto& entry : m_quotes) rows.push_back(&entry);
    const std::size_t count = std::min(TABLE_ROWS, rows.size());
    std::partial_sort(rows.begin(), rows.begin() + static_cast<std::ptrdiff_t>(count), rows.end(),
                      [](const auto* a, const auto* b) { return a->second.updates > b->second.updates; });
    rows.resize(count);
    std::sort(rows.begin(), rows.end(), [](const auto* a, const auto* b) { return a->first < b->first; });

    if (m_drawnLines > 0) std::printf("\033[%dA", m_drawnLines);
    std::printf("\033[K%-16s %12s %12s %8s %12s %8s %10s %9s\n", "instrument", "last", "bid", "size", "ask", "size",
                "volume", "updates");
    for (const auto* row : rows) {
        const VexaShfeMdType& md = row->second.md;
        std::printf("\033[K%-16s %12.2f %12.2f %8u %12.2f %8u %10u %9llu\n", row->first.c_str(),
                    md.last_px / HUNDREDTHS, md.bid1_px / HUNDREDTHS, md.bid1_vol, md.ask1_px / HUNDREDTHS, md.ask1_vol,
                    md.volume, static_cast<unsigned long long>(row->second.updates));
    }
    std::printf("\033[K%zu instruments, %llu updates, %.0f a second\n", m_quotes.size(),
                static_cast<unsigned long long>(m_updates), rate);
    m_drawnLines = static_cast<int>(count) + 2;
}

void QuoteDisplay::PrintLine(double rate) {
    if (m_latest == nullptr) return;
    const VexaShfeMdType& md = m_latest->md;
    std::printf("quote %-16s last %10.2f bid %10.2f x %-5u ask %10.2f x %-5u volume %-8u | %llu updates, %.0f/s\n",
                PrintableId(md).c_str(), md.last_px / HUNDREDTHS, md.bid1_px / HUNDREDTHS, md.bid1_vol,
                md.ask1_px / HUNDREDTHS, md.ask1_vol, md.volume, static_cast<unsigned long long>(m_updates), rate);
}
