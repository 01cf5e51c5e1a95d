#include "tests/support/Screen.h"

#include <algorithm>
#include <cctype>
#include <stdexcept>

Screen::Screen(std::size_t columns, std::size_t rows) : m_columns(columns), m_lines(rows) {}

void Screen::Write(std::string_view output) {
    for (const char c : output) {
        if (!m_escape.empty() || c == '\033') {
            m_escape += c;
            if (std::isalpha(static_cast<unsigned char>(c)) == 0) continue;
            const std::string number = m_escape.substr(std::min<std::size_t>(2, m_escape.size() - 1));
            Execute(c, std::isdigit(static_cast<unsigned char>(number[0])) != 0 ? std::stoul(number) : 0);
            m_escape.clear();
        } else if (c == '\r') {
            m_column = 0;
        } else if (c == '\n') {
            NextLine();
        } else {
            Print(c);
        }
    }
}

std::size_t Screen::LinesWith(std::string_view text) const {
    return static_cast<std::size_t>(std::count_if(
        m_lines.begin(), m_lines.end(), [=](const std::string& line) { return line.find(text) != std::string::npos; }));
}

void Screen::Print(char c) {
    if (m_column == m_columns) {
        ++m_wraps;
        m_column = 0;
        NextLine();
    }
    std::string& line = m_lines[m_row];
    if (line.size() <= m_column) line.resize(m_column + 1, ' ');
    line[m_column++] = c;
}

void Screen::NextLine() {
    if (m_row + 1 < m_lines.size()) {
        ++m_row;
        return;
    }
    m_lines.erase(m_lines.begin());
    m_lines.emplace_back();
}

void Screen::Execute(char command, std::size_t number) {
    std::string& line = m_lines[m_row];
    switch (command) {
        case 'A': m_row -= std::min(number, m_row); return;
        case 'H': m_row = m_column = 0; return;
        case 'K': line.resize(std::min(line.size(), m_column)); return;
        case 'J':
            if (number == 2) {
                ++m_clears;
                m_wraps = 0;
                m_lines.assign(m_lines.size(), "");
                return;
            }
            line.resize(std::min(line.size(), m_column));
            std::fill(m_lines.begin() + static_cast<std::ptrdiff_t>(m_row) + 1, m_lines.end(), "");
            return;
        default: throw std::runtime_error("the screen does not know " + m_escape.substr(1));
    }
}
