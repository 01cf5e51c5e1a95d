/// Shows the stages of a start-up as the board sees them pass: one line each, with a counter that moves on a terminal.
#pragma once

#include <array>
#include <cstdint>

#include "software_board/SoftwareBoard.h"

class StartUpProgress {
public:
    StartUpProgress(software_board::SoftwareBoard& board, bool isTerminal) : m_board(board), m_isTerminal(isTerminal) {}

    /// To be called before the start: its first stage only reads.
    void Begin();

    /// To be called for every register write, before it takes effect.
    void OnWrite(uint32_t index, uint32_t value);

    /// To be called now and then; redraws the moving counter on a terminal, at most ten times a second.
    void Redraw();

    bool IsLive() const { return m_stage == LIVE; }
    uint64_t EngineStarts() const { return m_engineStarts; }
    uint64_t Losses() const { return m_losses; }

private:
    enum Stage : std::size_t { COUNTERS, MEMORY, SNAPSHOT, TABLES, VERSION, SUBSCRIPTION, LIVE, STAGE_COUNT };
    static const std::array<const char*, STAGE_COUNT> STAGE_NAMES;

    void Enter(Stage stage);
    void Draw();

    software_board::SoftwareBoard& m_board;
    bool m_isTerminal;
    Stage m_stage = COUNTERS;
    bool m_isCounterShown = false;
    uint64_t m_engineStarts = 0;
    uint64_t m_losses = 0;
    int64_t m_lastDrawNs = 0;
};
