/// A terminal of a given size: what its screen shows after a program's output.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

class Screen {
public:
    Screen(std::size_t columns, std::size_t rows);

    void Write(std::string_view output);

    const std::vector<std::string>& Lines() const { return m_lines; }
    std::size_t LinesWith(std::string_view text) const;

    /// Lines that were broken at the right edge since the screen was last cleared.
    std::size_t Wraps() const { return m_wraps; }
    /// How often the screen was cleared as a whole.
    std::size_t Clears() const { return m_clears; }

private:
    void Print(char c);
    void NextLine();
    void Execute(char command, std::size_t number);

    std::size_t m_columns;
    std::vector<std::string> m_lines;
    std::size_t m_row = 0;
    std::size_t m_column = 0;
    std::size_t m_wraps = 0;
    std::size_t m_clears = 0;
    std::string m_escape;  ///< a sequence that is not whole yet
};
