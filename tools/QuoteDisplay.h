/// Shows live quotes: on a terminal a table that refreshes in place and keeps to the terminal's size, else sampled
/// lines.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "interface/VexaShfeMdStruct.h"
#include "tools/QuoteTable.h"
#include "tools/Terminal.h"

class QuoteDisplay {
public:
    explicit QuoteDisplay(bool isTerminal) : m_isTerminal(isTerminal) {}

    /// Takes one update; cheap enough to be called for each.
    void OnQuote(const VexaShfeMdType& md);

    /// Redraws when it is time to; `now` in nanoseconds, any origin.
    void Tick(int64_t now);

    /// The next table is drawn below what was printed meanwhile.
    void Detach() { m_drawnLines = 0; }

    uint64_t Updates() const { return m_updates; }
    std::size_t Instruments() const { return m_quotes.size(); }

    /// By identifier.
    const std::map<std::string, Quote>& Quotes() const { return m_quotes; }

private:
    void DrawTable(double rate);
    void PrintLine(double rate);
    std::vector<const std::pair<const std::string, Quote>*> BusiestByName(std::size_t count) const;
    void GoBackTo(const TerminalSize& size);

    bool m_isTerminal;
    std::map<std::string, Quote> m_quotes;
    const Quote* m_latest = nullptr;
    uint64_t m_updates = 0;
    uint64_t m_updatesAtTick = 0;
    int64_t m_lastTickNs = 0;
    int m_drawnLines = 0;
    TerminalSize m_drawnOn{};
};

/// The identifier as printable text; whatever is not a plain character becomes '?'.
std::string PrintableId(const VexaShfeMdType& md);
