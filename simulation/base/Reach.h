/// What was tried in which phase and form of delivery: a cell that stays empty was never simulated.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <string>

#include "simulation/base/SessionPhase.h"

namespace simulation {

enum class EForm : uint8_t { Callback, Polling, Count_ };

constexpr std::size_t FORM_COUNT = static_cast<std::size_t>(EForm::Count_);

class Reach {
public:
    /// Of the managing session, from here on.
    void SetForm(EForm form) { m_form = form; }
    void Note(const std::string& what, ESessionPhase phase) {
        ++m_counts[what][static_cast<std::size_t>(phase)][static_cast<std::size_t>(m_form)];
    }
    void Add(const Reach& other);
    uint64_t Count(const std::string& what, ESessionPhase phase, EForm form) const;
    std::string Text() const;

private:
    using Cells = std::array<std::array<uint64_t, FORM_COUNT>, PHASE_COUNT>;

    EForm m_form = EForm::Callback;
    std::map<std::string, Cells> m_counts;
};

}  // namespace simulation
