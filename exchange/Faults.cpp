// The faults, in one table: parsing, help texts and whoever lets them happen walk it.
#include "exchange/Faults.h"

#include <algorithm>
#include <charconv>

namespace exchange {
namespace {

constexpr EFaultPlace EVERY = EFaultPlace::EveryConnection;
constexpr EFaultPlace ONE = EFaultPlace::OneConnection;
constexpr EFaultPlace BOARD = EFaultPlace::Board;

constexpr std::array<FaultRow, FAULT_COUNT> FAULTS{{
    {EFault::Reorder, "reorder", EVERY, true, "segments swapped, a few places at the most"},
    {EFault::Duplicate, "duplicate", EVERY, true, "segments that arrive twice"},
    {EFault::Drop, "drop", EVERY, true, "segments left out and sent again a few places later"},
    {EFault::CorruptChecksum, "corrupt-checksum", EVERY, true, "damaged copies in front of the right segments"},
    {EFault::CorruptLength, "corrupt-length", EVERY, true, "copies whose lengths lie in front of the right segments"},
    {EFault::ForeignPort, "foreign-port", EVERY, true, "frames of another source port in between"},
    {EFault::ForeignHost, "foreign-host", EVERY, true, "plausible segments of another host in between"},
    {EFault::SplitSmall, "split-small", EVERY, true, "tiny segments; message headers stay whole"},
    {EFault::SplitAnywhere, "split-anywhere", EVERY, false, "segments that end anywhere, inside headers too"},
    {EFault::SplitHeaders, "split-headers", EVERY, true, "segments that end 2 to 7 bytes into the message they begin"},
    {EFault::LongFirstSegment, "long-first-segment", EVERY, true, "a first segment that goes on behind its message"},
    {EFault::BareAck, "bare-ack", EVERY, true, "acknowledgements without payload in between, early ones too"},
    {EFault::UnknownField, "unknown-field", EVERY, true, "fields with unknown ids"},
    {EFault::WrongFieldSize, "wrong-field-size", EVERY, true, "fields that tell another size than their record's"},
    {EFault::InstrumentOutOfRange, "instrument-out-of-range", EVERY, true, "records of instruments outside the table"},
    {EFault::AbsentValues, "absent-values", EVERY, true, "prices that the exchange declares absent"},
    {EFault::SequenceWrap, "sequence-wrap", EVERY, true, "sequence numbers that run over 2^32"},
    {EFault::ResetWithoutAck, "reset-without-ack", EVERY, true, "a meaningless RST half-way"},
    {EFault::SecondConnection, "second-connection", EVERY, true, "a second connection of a feed beside the first"},
    {EFault::TailField, "tail-field", EVERY, true, "fields that begin in the last twelve bytes of a message"},
    {EFault::RepeatedLevel, "repeated-level", EVERY, true, "price levels told twice, the second time rightly"},
    {EFault::SettlementLimits, "settlement-limits", EVERY, true, "books at settlement outside their limits"},
    {EFault::SamePort, "same-port", EVERY, true, "the same local ports with each connect"},
    {EFault::ChangingList, "changing-list", EVERY, false, "instruments that come and go from one start to the next"},
    {EFault::UnaskedFeed, "unasked-feed", EVERY, true, "a snapshot of a feed that nobody asked for"},
    {EFault::Reset, "reset", ONE, true, "RST+ACK half-way"},
    {EFault::Stall, "stall", ONE, true, "nothing more from half-way on"},
    {EFault::DropForGood, "drop-for-good", ONE, true, "one segment never comes"},
    {EFault::EarlyFlood, "early-flood", ONE, true, "a missing segment and more than 500 behind it"},
    {EFault::OversizedMessage, "oversized-message", ONE, true, "a message too long to be carried over"},
    {EFault::WrongTopic, "wrong-topic", ONE, true, "a snapshot of an unknown topic"},
    {EFault::CrossedBook, "crossed-book", ONE, true, "a best bid above the best ask"},
    {EFault::OutsideLimits, "outside-limits", ONE, true, "a quote above the upper limit price"},
    {EFault::WrongBook, "wrong-book", ONE, true, "a book wrong by a unit or a tick, at any level of either side"},
    {EFault::PacketLost, "packet-lost", BOARD, true, "the board loses updates and says so"},
    {EFault::PriceError, "price-error", BOARD, true, "the board reports a wrong price"},
    {EFault::Timeout, "timeout", BOARD, true, "the board reports a line without data while the exchange trades"},
    {EFault::TimeoutQuiet, "timeout-quiet", BOARD, true, "the same while the exchange is quiet"},
    {EFault::MemoryNotReady, "memory-not-ready", BOARD, false, "the board's memory never becomes ready"},
    {EFault::OldFirmware, "old-firmware", BOARD, false, "firmware older than the library needs"},
    {EFault::VersionWriteLost, "version-write-lost", BOARD, false, "the library's version never reaches the board"},
    {EFault::RingOverflow, "ring-overflow", BOARD, true, "a ring drops messages and says so"},
    {EFault::EventStorm, "event-storm", BOARD, true, "many events at once"},
    {EFault::RegisterAllOnes, "register-all-ones", BOARD, false, "registers read all ones, as of a card that is gone"},
    {EFault::StreamOpenFails, "stream-open-fails", BOARD, false, "a stream cannot be opened"},
    {EFault::RegistersOpenFail, "registers-open-fail", BOARD, false, "the registers cannot be opened"},
}};

constexpr bool IsInOrder() {
    for (std::size_t i = 0; i < FAULT_COUNT; ++i) {
        if (FAULTS[i].kind != static_cast<EFault>(i)) return false;
    }
    return true;
}
static_assert(IsInOrder(), "a fault's row is found by its number");

constexpr std::string_view ALL_OF_THEM = "all";

bool ParseMoment(std::string_view text, const FaultRow& row, std::optional<uint64_t>& moment) {
    uint64_t number = 0;
    const auto [end, fault] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (fault != std::errc() || end != text.data() + text.size()) return false;
    if (number == 0 && row.place != EFaultPlace::Board) return false;
    moment = number;
    return true;
}

std::string MomentsOf(const FaultRow& row) {
    if (row.place == EFaultPlace::Board) return "a number of live updates, 0 to 18446744073709551615";
    return "the number of a snapshot connect, 1 to 18446744073709551615";
}

bool SetNamed(std::string_view text, Faults& faults, std::string& error) {
    const std::size_t at = text.find('@');
    const std::string_view name = text.substr(0, at);
    const auto row =
        std::find_if(FAULTS.begin(), FAULTS.end(), [&](const FaultRow& known) { return name == known.name; });
    if (row == FAULTS.end()) {
        error =
            "unknown fault \"" + std::string(text) + "\"; known are " + FaultNames() + ", or all (without a moment)";
        return false;
    }
    std::optional<uint64_t> moment;
    if (at != std::string_view::npos && !ParseMoment(text.substr(at + 1), *row, moment)) {
        error = "fault \"" + std::string(text) + "\": behind the @ stands " + MomentsOf(*row);
        return false;
    }
    faults.Set(row->kind, moment);
    return true;
}

void SetAll(Faults& faults) {
    for (const FaultRow& row : FAULTS) {
        if (row.isRecovered) faults.Set(row.kind);
    }
}

}  // namespace

void Faults::Set(EFault fault, std::optional<uint64_t> moment) {
    m_isSet[Index(fault)] = true;
    m_moments[Index(fault)] = moment;
}

void Faults::Clear(EFault fault) {
    m_isSet[Index(fault)] = false;
    m_moments[Index(fault)].reset();
}

const std::array<FaultRow, FAULT_COUNT>& FaultTable() { return FAULTS; }

const char* FaultName(EFault fault) {
    const auto index = static_cast<std::size_t>(fault);
    return index < FAULT_COUNT ? FAULTS[index].name : "";
}

bool ParseFaults(std::string_view names, Faults& faults, std::string& error) {
    Faults parsed;
    for (bool isLast = names.empty(); !isLast;) {
        const std::size_t comma = names.find(',');
        const std::string_view name = names.substr(0, comma);
        isLast = comma == std::string_view::npos;
        if (!isLast) names.remove_prefix(comma + 1);
        if (name == ALL_OF_THEM) {
            SetAll(parsed);
        } else if (!SetNamed(name, parsed, error)) {
            return false;
        }
    }
    faults = parsed;
    return true;
}

std::string FaultNames() {
    std::string names;
    for (const FaultRow& row : FAULTS) {
        if (!names.empty()) names += ", ";
        names += row.name;
    }
    return names;
}

}  // namespace exchange
