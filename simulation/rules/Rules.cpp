#include "simulation/rules/Rules.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <iterator>

namespace simulation {
namespace {

constexpr Rule RULES[] = {
    {ERule::Truth, 1, "truth",
     "a delivered record equals the exchange's state of that instrument at that change, all 176 bytes"},
    {ERule::NeverBack, 2, "never back", "change numbers of an instrument never go back within a session"},
    {ERule::Subscribed, 3, "subscribed", "nothing of an instrument that the channel did not subscribe to is delivered"},
    {ERule::Silence, 4, "silence",
     "nothing is delivered before the engines start, nor between a loss and the end of its recovery"},
    {ERule::Complete, 5, "complete", "after quiet, the last record of every subscribed instrument equals the truth"},
    {ERule::RegisterMap, 6, "register map",
     "no write to a closed table port, no access outside the register map or of the wrong width"},
    {ERule::TablePairs, 7, "table pairs",
     "accesses to a table come in pairs that nothing interrupts, data before address"},
    {ERule::Order, 8, "order", "bring-up and start-up accesses come in their one order"},
    {ERule::Tables, 9, "tables",
     "the board's tables equal the snapshot, unused slots are zero, counts equal the counts"},
    {ERule::Subscriptions, 10, "subscriptions", "subscription words are what the configuration asks for"},
    {ERule::SnapshotContents, 34, "snapshot contents",
     "a snapshot is used, refused or waited for, and held, as its frames say"},
    {ERule::Reassembly, 12, "reassembly", "the lists, sizes and flags of the reassembly agree"},
    {ERule::Memory, 13, "memory", "after a session's end no early segment and no carry-over buffer is alive"},
    {ERule::SnapshotUse, 14, "snapshot use",
     "a complete and sane snapshot is used at the next segment, one that failed its check never"},
    {ERule::Counters, 15, "counters", "what is dropped moves exactly one counter, and nothing else moves any"},
    {ERule::Checksum, 16, "checksum",
     "the checksum changes only in a start that carries one; attempts stay within their limit"},
    {ERule::Waits, 17, "waits", "every wait ends within its limit and one poll"},
    {ERule::BoundedSteps, 18, "bounded steps", "no step makes more than a fixed number of outside calls"},
    {ERule::BareDelivery, 19, "bare delivery", "the road of an update allocates nothing and looks at no clock"},
    {ERule::Results, 20, "results", "return values tell what happened"},
    {ERule::Once, 21, "once", "no update is lost or told twice while the ring did not overflow"},
    {ERule::End, 22, "end", "after a stop or a signal every step returns -1; an object ends without an outside call"},
    {ERule::Log, 23, "log", "log lines are whole, and the level is the configured one after each raised section"},
    {ERule::Holdings, 24, "holdings",
     "memory, mapped pages, descriptors and board handles are the same at every return to the same state"},
    {ERule::Bounds, 25, "bounds",
     "no byte behind a message's end matters: the same session with other bytes there is the same"},
    {ERule::OneManager, 26, "one manager", "channels other than the managing one never write a register"},
    {ERule::FinishedFeeds, 27, "finished feeds", "a finished feed stays finished until everything is cleared"},
    {ERule::Values, 29, "values", "each register is told what the configuration means"},
    {ERule::LeftAlone, 30, "left alone",
     "a start leaves a board alone exactly when asked to, with its file in force, in flow, no event"},
    {ERule::RightEnds, 31, "right ends",
     "a stop or a signal ends the wait for the snapshot at once, and no other part of a start"},
    {ERule::IndexFile, 32, "index file", "the contract index file holds what the snapshot held"},
    {ERule::Passes, 33, "passes",
     "the subscription passes are the one sequence of accesses that the configuration asks for"},
};

static_assert(std::all_of(std::begin(RULES), std::end(RULES),
                          [](const Rule& row) { return row.number == NumberOf(row.rule); }));

}  // namespace

std::span<const Rule> Rules() { return RULES; }

const Rule& FindRule(ERule rule) {
    return *std::find_if(std::begin(RULES), std::end(RULES), [=](const Rule& row) { return row.rule == rule; });
}

void ThrowBreach(ERule rule, const std::string& what) { throw Breach{rule, what}; }

std::string Hex(uint64_t value) {
    char text[24];
    std::snprintf(text, sizeof text, "0x%" PRIx64, value);
    return text;
}

}  // namespace simulation
