// Counts the lines of each place by the second. Called from any thread and any signal handler, at any point of a call.
// In: places and seconds; out: verdicts, and once a second is over what it held back.
// Invariant: a slot's place is written before the slot is seen as taken and never changes after; where two takers meet,
// or the table is full, lines pass uncounted. A second is compared for being the same alone, so that a clock that is
// set back begins a new one.
#include "public/log/LogLimit.h"

#include <algorithm>
#include <charconv>
#include <cstring>

namespace {

constexpr uint64_t Window(int64_t second, uint32_t lines) { return static_cast<uint64_t>(second) << 32 | lines; }

constexpr uint32_t Lines(uint64_t window) { return static_cast<uint32_t>(window); }

constexpr bool IsOf(uint64_t window, int64_t second) { return window >> 32 == static_cast<uint32_t>(second); }

constexpr uint32_t Held(uint64_t window) {
    return std::max(Lines(window), CLogLimit::LINES_PER_SECOND) - CLogLimit::LINES_PER_SECOND;
}

/// One line more of this second, which ends long before its lines have no number any more.
constexpr uint64_t Counted(uint64_t window, int64_t second) {
    return IsOf(window, second) ? window + 1 : Window(second, 1);
}

}  // namespace

/// "[file:line]" with "[function]" behind it where there is one.
bool CLogLimit::ReadPlace(std::string_view text, Place& place) {
    text = text.substr(0, HEAD_CAPACITY);
    const std::size_t end = text.find(']');
    const std::size_t colon = end == std::string_view::npos ? end : text.rfind(':', end);
    if (colon == std::string_view::npos || text.front() != '[') return false;
    const char* const lineEnd = text.data() + end;
    const auto [parsed, error] = std::from_chars(text.data() + colon + 1, lineEnd, place.line);
    if (error != std::errc() || parsed != lineEnd) return false;
    place.file = text.substr(1, colon - 1);
    const bool hasFunction = text.substr(end + 1).starts_with('[');
    const std::size_t functionEnd = hasFunction ? text.find(']', end + 1) : std::string_view::npos;
    place.head = text.substr(0, (functionEnd == std::string_view::npos ? end : functionEnd) + 1);
    return true;
}

/// Where a place of this line is looked for the n-th time: files share few lines.
CLogLimit::Slot& CLogLimit::NthOf(int line, std::size_t nth) {
    return m_slots[(static_cast<std::size_t>(line) + nth) % PLACES];
}

CLogLimit::Slot* CLogLimit::Find(std::string_view file, int line) {
    for (std::size_t i = 0; i < PLACES; ++i) {
        Slot& slot = NthOf(line, i);
        const uint32_t use = slot.use.load(std::memory_order_acquire);
        if (use == Free) return nullptr;
        if (use == Taken && slot.Is(file, line)) return &slot;
    }
    return nullptr;
}

CLogLimit::Slot* CLogLimit::FindOrTake(const Place& place) {
    for (std::size_t i = 0; i < PLACES; ++i) {
        Slot& slot = NthOf(place.line, i);
        uint32_t use = slot.use.load(std::memory_order_acquire);
        if (use == Free && slot.use.compare_exchange_strong(use, BeingTaken, std::memory_order_acquire)) {
            slot.line = place.line;
            slot.fileLength = static_cast<uint32_t>(place.file.size());
            slot.headLength = static_cast<uint32_t>(place.head.size());
            std::memcpy(slot.head, place.head.data(), place.head.size());
            slot.use.store(Taken, std::memory_order_release);
            return &slot;
        }
        if (use == Taken && slot.Is(place.file, place.line)) return &slot;
    }
    return nullptr;
}

bool CLogLimit::IsUsedUp(const char* file, int line) {
    const Slot* slot = Find(file, line);
    return slot != nullptr && Lines(slot->window.load(std::memory_order_relaxed)) >= LINES_PER_SECOND;
}

bool CLogLimit::IsHeld(ELOGLEVEL level, const char* file, int line, int64_t second) {
    Slot* slot = Find(file, line);
    if (slot == nullptr) return false;
    uint64_t before = slot->window.load(std::memory_order_relaxed);
    do {
        if (!IsOf(before, second) || Lines(before) < LINES_PER_SECOND) return false;
    } while (!slot->window.compare_exchange_weak(before, Counted(before, second), std::memory_order_release));
    NoteHeld(*slot, level, second);
    return true;
}

bool CLogLimit::Passes(ELOGLEVEL level, std::string_view text, int64_t second, LogHeld& before) {
    Place place;
    Slot* slot = ReadPlace(text, place) ? FindOrTake(place) : nullptr;
    if (slot == nullptr) return true;
    uint64_t window = slot->window.load(std::memory_order_relaxed);
    while (!slot->window.compare_exchange_weak(window, Counted(window, second), std::memory_order_release)) {
    }
    if (!IsOf(window, second)) {
        before = {slot->level.load(std::memory_order_relaxed), {slot->head, slot->headLength}, Held(window)};
        return true;
    }
    if (Lines(window) < LINES_PER_SECOND) return true;
    NoteHeld(*slot, level, second);
    return false;
}

void CLogLimit::NoteHeld(Slot& slot, ELOGLEVEL level, int64_t second) {
    slot.level.store(level, std::memory_order_relaxed);
    m_heldLines.fetch_add(1, std::memory_order_relaxed);
    m_heldIn.store(second, std::memory_order_release);
}

bool CLogLimit::TakeHeld(int64_t second, LogHeld& held) {
    int64_t heldIn = m_heldIn.load(std::memory_order_acquire);
    if (heldIn == NOTHING || heldIn == second) return false;
    for (Slot& slot : m_slots) {
        uint64_t window = slot.window.load(std::memory_order_acquire);  // who counted first had seen the head
        if (Held(window) == 0 || IsOf(window, second)) continue;
        if (slot.window.compare_exchange_strong(window, Window(second, 0), std::memory_order_relaxed)) {
            held = {slot.level.load(std::memory_order_relaxed), {slot.head, slot.headLength}, Held(window)};
            return true;
        }
    }
    m_heldIn.compare_exchange_strong(heldIn, NOTHING, std::memory_order_relaxed);
    return false;
}

void CLogLimit::Forget() {
    m_heldIn.store(NOTHING, std::memory_order_relaxed);
    for (Slot& slot : m_slots) slot.window.store(0, std::memory_order_relaxed);
}
