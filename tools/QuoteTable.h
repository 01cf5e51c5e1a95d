/// Quotes as lines of a table that fits a terminal's width.
#pragma once

#include <cstdint>
#include <string>

#include "interface/VexaShfeMdStruct.h"

/// The last record of an instrument, and how many there were.
struct Quote {
    VexaShfeMdType md;
    uint64_t updates;
};

/// A table of at most `columns` characters a line: what matters least is left out first.
class QuoteTable {
public:
    explicit QuoteTable(int columns);

    std::string Header() const;
    std::string Row(const std::string& instrument, const Quote& quote) const;

private:
    std::string Cut(std::string line) const;

    std::size_t m_columns;
    int m_rank;  ///< of the least important column shown
};
