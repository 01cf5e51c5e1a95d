/// Faults that a session meets, by name, at a moment. The same seed gives the same session, byte for byte.
#pragma once

#include <array>
#include <bitset>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace exchange {

enum class EFault : uint8_t {
    Reorder,
    Duplicate,
    Drop,
    CorruptChecksum,
    CorruptLength,
    ForeignPort,
    ForeignHost,
    SplitSmall,
    SplitAnywhere,
    SplitHeaders,
    LongFirstSegment,
    BareAck,
    UnknownField,
    WrongFieldSize,
    InstrumentOutOfRange,
    AbsentValues,
    SequenceWrap,
    ResetWithoutAck,
    SecondConnection,
    TailField,
    RepeatedLevel,
    SettlementLimits,
    SamePort,
    ChangingList,
    UnaskedFeed,
    Reset,
    Stall,
    DropForGood,
    EarlyFlood,
    OversizedMessage,
    WrongTopic,
    CrossedBook,
    OutsideLimits,
    WrongBook,
    PacketLost,
    PriceError,
    Timeout,
    TimeoutQuiet,
    MemoryNotReady,
    OldFirmware,
    VersionWriteLost,
    RingOverflow,
    EventStorm,
    RegisterAllOnes,
    StreamOpenFails,
    RegistersOpenFail,
    Count_,
};

inline constexpr std::size_t FAULT_COUNT = static_cast<std::size_t>(EFault::Count_);

/// What a moment counts, and how often the fault happens.
enum class EFaultPlace : uint8_t {
    EveryConnection,  ///< every snapshot connection, or those of the one connect that the moment numbers from 1
    OneConnection,    ///< one snapshot connection: that of the moment's connect, or else the next one left free
    Board,            ///< the board, after as many live updates as the moment says
};

struct FaultRow {
    EFault kind;
    const char* name;
    EFaultPlace place;
    bool isRecovered;  ///< the session is live afterwards and equals the truth; "all" names these
    const char* summary;
};

/// Every fault, in the order of EFault.
const std::array<FaultRow, FAULT_COUNT>& FaultTable();

/// As it is written: "name@moment", or the name alone.
struct Fault {
    EFault kind;
    std::optional<uint64_t> moment;
};

/// The faults asked for, each at most once.
class Faults {
public:
    bool Has(EFault fault) const { return m_isSet[Index(fault)]; }
    std::optional<uint64_t> MomentOf(EFault fault) const { return m_moments[Index(fault)]; }
    bool IsEmpty() const { return m_isSet.none(); }

    void Set(EFault fault, std::optional<uint64_t> moment = {});
    void Clear(EFault fault);

    bool operator==(const Faults&) const = default;

private:
    static std::size_t Index(EFault fault) { return static_cast<std::size_t>(fault); }

    std::bitset<FAULT_COUNT> m_isSet;
    std::array<std::optional<uint64_t>, FAULT_COUNT> m_moments{};
};

const char* FaultName(EFault fault);

/// Names, comma-separated, each with "@moment" or without; "all" for every fault that is recovered from; or nothing.
/// A later name replaces the same one before it. On false `faults` is as it was, and `error` tells what is wrong and
/// what is known.
bool ParseFaults(std::string_view names, Faults& faults, std::string& error);

/// Comma-separated list of the known names, for help texts.
std::string FaultNames();

}  // namespace exchange
