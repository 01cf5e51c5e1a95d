#include "simulation/rules/Invariants.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>

namespace simulation {
namespace {

constexpr Invariant ALL[] = {
    {1, "truth", "a delivered record equals the exchange's state of that instrument at that change, all 176 bytes"},
    {2, "never back", "change numbers of an instrument never go back within a session"},
    {3, "subscribed", "nothing of an instrument that the channel did not subscribe to is delivered"},
    {4, "silence", "nothing is delivered before the engines start, nor between a loss and the end of its recovery"},
    {5, "complete", "after quiet, the last record of every subscribed instrument equals the truth"},
    {6, "register map", "no write to a closed table port, no access outside the register map or of the wrong width"},
    {7, "table pairs", "accesses to a table come in pairs that nothing interrupts, data before address"},
    {8, "order", "bring-up and start-up accesses come in their one order"},
    {9, "tables", "the board's tables equal the snapshot, unused slots are zero, counts equal the counts"},
    {10, "subscriptions", "subscription words are what the configuration asks for"},
    {34, "snapshot contents", "a snapshot is used, refused or waited for, and held, as its frames say"},
    {12, "reassembly", "the lists, sizes and flags of the reassembly agree"},
    {13, "memory", "after a session's end no early segment and no carry-over buffer is alive"},
    {14, "snapshot use", "a complete and sane snapshot is used at the next segment, one that failed its check never"},
    {15, "counters", "what is dropped moves exactly one counter, and nothing else moves any"},
    {16, "checksum", "the checksum changes only in a start that carries one; attempts stay within their limit"},
    {17, "waits", "every wait ends within its limit and one poll"},
    {18, "bounded steps", "no step makes more than a fixed number of outside calls"},
    {19, "bare delivery", "the road of an update allocates nothing and looks at no clock"},
    {20, "results", "return values tell what happened"},
    {21, "once", "no update is lost or told twice while the ring did not overflow"},
    {22, "end", "after a stop or a signal every step returns -1; an object ends without an outside call"},
    {23, "log", "log lines are whole, and the level is the configured one after each raised section"},
    {24, "holdings",
     "memory, mapped pages, descriptors and board handles are the same at every return to the same state"},
    {25, "bounds", "no byte behind a message's end matters: the same session with other bytes there is the same"},
    {26, "one manager", "channels other than the managing one never write a register"},
    {27, "finished feeds", "a finished feed stays finished until everything is cleared"},
    {29, "values", "each register is told what the configuration means"},
    {30, "left alone", "a start leaves a board alone exactly when asked to, with its file in force, in flow, no event"},
    {31, "right ends", "a stop or a signal ends the wait for the snapshot at once, and no other part of a start"},
    {32, "index file", "the contract index file holds what the snapshot held"},
    {33, "passes", "the subscription passes are the one sequence of accesses that the configuration asks for"},
};

}  // namespace

std::span<const Invariant> Invariants() { return ALL; }

const Invariant* FindInvariant(int number) {
    const auto* found =
        std::find_if(std::begin(ALL), std::end(ALL), [=](const Invariant& one) { return one.number == number; });
    return found == std::end(ALL) ? nullptr : found;
}

void ThrowBreach(int invariant, const std::string& what) { throw Breach{invariant, what}; }

std::string Hex(uint64_t value) {
    char text[24];
    std::snprintf(text, sizeof text, "0x%" PRIx64, value);
    return text;
}

}  // namespace simulation
