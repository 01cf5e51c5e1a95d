/// The limit of one place's lines: of one file and line at most 200 a second pass, the rest is counted and told once
/// that second is over. Any thread and any signal handler: no lock, no allocation, no clock of its own.
/// Fixed memory: a place that finds no room in the table is not limited.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "public/log/LogLevel.h"

/// What was held back of one place.
struct LogHeld {
    ELOGLEVEL level{};
    std::string_view head;  ///< "[file:line][function]"
    uint32_t lines = 0;
};

class CLogLimit {
public:
    static constexpr uint32_t LINES_PER_SECOND = 200;

    /// Infos and debug lines pass, however many there are.
    static constexpr bool IsLimited(ELOGLEVEL level) { return level == LOG_ERROR || level == LOG_WARNING; }

    /// Whether the place may have had its lines of the second under way; then IsHeld decides. Needs no clock.
    bool IsUsedUp(const char* file, int line);

    /// Counts a line that is not formatted yet and tells whether it is held back; one that is not is left to Passes.
    bool IsHeld(ELOGLEVEL level, const char* file, int line, int64_t second);

    /// Counts a finished line by the place in front of it; false when it is held back. A text without one passes.
    /// `before` has lines where some of an earlier second have not been told yet.
    bool Passes(ELOGLEVEL level, std::string_view text, int64_t second, LogHeld& before);

    /// Whether something waits to be told.
    bool IsHolding() const { return m_heldIn.load(std::memory_order_relaxed) != NOTHING; }

    /// Takes what was held back of one place in another second than this one; false when there is nothing more.
    bool TakeHeld(int64_t second, LogHeld& held);

    /// Lines held back since the process began.
    uint64_t HeldLines() const { return m_heldLines.load(std::memory_order_relaxed); }

    /// Every place begins anew; what has not been told is not told any more.
    void Forget();

private:
    static constexpr std::size_t PLACES = 128;
    static constexpr std::size_t HEAD_CAPACITY = 112;
    static constexpr int64_t NOTHING = INT64_MIN;

    enum EUse : uint32_t { Free, BeingTaken, Taken };

    struct Place {
        std::string_view file;
        int line{};
        std::string_view head;
    };

    /// Belongs to one place for ever once taken. `window` is a second (upper half) and the lines it has seen.
    struct Slot {
        std::atomic<uint32_t> use{Free};
        std::atomic<ELOGLEVEL> level{};
        std::atomic<uint64_t> window{};
        int line{};
        uint32_t fileLength{};
        uint32_t headLength{};
        char head[HEAD_CAPACITY]{};

        bool Is(std::string_view file, int itsLine) const {
            return line == itsLine && file == std::string_view(head + 1, fileLength);
        }
    };

    static bool ReadPlace(std::string_view text, Place& place);
    Slot& NthOf(int line, std::size_t nth);
    Slot* Find(std::string_view file, int line);
    Slot* FindOrTake(const Place& place);
    void NoteHeld(Slot& slot, ELOGLEVEL level, int64_t second);

    std::array<Slot, PLACES> m_slots;
    std::atomic<int64_t> m_heldIn{NOTHING};  ///< the second in which lines were held back last
    std::atomic<uint64_t> m_heldLines{0};
};
