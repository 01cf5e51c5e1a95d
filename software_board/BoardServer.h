/// Serves a board to the processes that attach to it: makes its memory, steps its engine, answers requests, and takes
/// channels back from processes that have ended. Used from one thread.
#pragma once

#include <optional>
#include <string>

#include "software_board/BoardEngine.h"
#include "software_board/BoardOptions.h"
#include "software_board/SharedMemory.h"

namespace software_board {

class BoardServer {
public:
    /// False with a text that says why: another process serves this bus, or the memory cannot be had.
    bool Open(uint16_t bus, const BoardOptions& options, std::string& error);

    /// Does what is due, at most a few hundred things. False when nothing was.
    bool Step();

    const SharedBoard& Board() const { return *m_mapping; }

private:
    bool AnswerCommand();
    bool AnswerInjection();
    bool ExecuteInjection(const RequestBox& box, std::string& error);
    void TakeChannelsBack();

    SharedMapping m_mapping;
    std::optional<BoardEngine> m_engine;
    uint32_t m_rounds = 0;
};

}  // namespace software_board
