#include "software_board/RegisterFile.h"

#include "common/Feed.h"
#include "common/RegisterMap.h"
#include "common/Version.h"
#include "software_board/BoardTables.h"

namespace software_board {

namespace {
constexpr uint32_t BUILD_DATE = 0x20260420;
constexpr uint32_t BUILD_VERSION = 0x00010007;
constexpr uint32_t DNA[] = {0x02005E10, 0x20300000, 0x50F7B0A2};
constexpr uint32_t VERDICT_MATCH = 1;
constexpr uint32_t VERDICT_SOFTWARE_TOO_OLD = 2;
/// The library that it ships with; as written, with the first number in the highest byte.
constexpr uint32_t OLDEST_SOFTWARE = __builtin_bswap32(PackVersion(VEXA_U50_VERSION_NUMBER));

/// What the register says about the feed's connection; 0 for one that says nothing.
uint32_t ProgrammedBy(uint32_t index, std::size_t feed) {
    const uint32_t session = reg::SESSION_STRIDE * static_cast<uint32_t>(feed);
    if (index == reg::SRC_IP + session) return PROGRAMMED_HOST_IP;
    if (index == reg::SRC_PORT + session) return PROGRAMMED_HOST_PORT;
    if (index == FEEDS[feed].registers.lineA.ip) return PROGRAMMED_GROUP_IP;
    if (index == FEEDS[feed].registers.lineA.port) return PROGRAMMED_GROUP_PORT;
    return 0;
}

void NoteProgramming(BoardRegisters& registers, uint32_t index) {
    for (std::size_t feed = 0; feed < FEED_COUNT; ++feed) {
        const uint32_t written = ProgrammedBy(index, feed);
        // Whoever sees the bit sees the value.
        if (written != 0) std::atomic_ref(registers.programmed[feed]).fetch_or(written, std::memory_order_release);
    }
}

}  // namespace

const char* WhyRefused(EBroken what) {
    return what == BROKEN_STREAMS ? "the board refuses to open a stream (fault stream-open-fails)"
                                  : "the board refuses to open its registers (fault registers-open-fail)";
}

bool IsCommand(uint32_t index) {
    return index == reg::BRING_UP_START || index == reg::SNAPSHOT_CONTROL || index == reg::LOGICAL_START_2PS ||
           index == reg::LOGICAL_START_4PS;
}

bool WriteRegister(BoardMemory& memory, uint32_t index, uint32_t value) {
    Add(memory.statistics.registerWrites, uint64_t{1});
    if (IsBroken(memory, BROKEN_CARD)) return false;
    if (index == reg::SOFTWARE_VERSION && IsBroken(memory, BROKEN_VERSION_WRITE)) return false;
    if (board_tables::IsPort(index)) {
        if (!board_tables::Write(memory, index, value)) Add(memory.statistics.refusedTableWrites, uint64_t{1});
        return false;
    }
    if (index >= REGISTER_COUNT) return false;
    Store(memory.registers.values[index], value);
    NoteProgramming(memory.registers, index);
    if (index == reg::SOFTWARE_VERSION) {
        Store(memory.registers.values[reg::VERSION_VERDICT],
              value >= OLDEST_SOFTWARE ? VERDICT_MATCH : VERDICT_SOFTWARE_TOO_OLD);
    }
    return IsCommand(index);
}

bool IsProgrammed(BoardMemory& memory, EMDQPDataType feed) {
    const std::atomic_ref written(memory.registers.programmed[static_cast<std::size_t>(feed)]);
    return (written.load(std::memory_order_acquire) & PROGRAMMED_ALL) == PROGRAMMED_ALL;
}

void ForgetProgramming(BoardMemory& memory) {
    for (uint32_t& written : memory.registers.programmed) Store(written, 0U);
}

uint64_t ReadRegister(const BoardMemory& memory, uint32_t index) {
    if (IsBroken(memory, BROKEN_CARD)) return UINT64_MAX;
    if (board_tables::IsPort(index)) return board_tables::Read(memory, index);
    const BoardRegisters& registers = memory.registers;
    switch (index) {
        case reg::BUILD_DATE: return BUILD_DATE;
        case reg::BUILD_VERSION: return BUILD_VERSION;
        case reg::DNA_0: return DNA[0];
        case reg::DNA_1: return DNA[1];
        case reg::DNA_2: return DNA[2];
        case reg::HARDWARE_VERSION: return Load(registers.hardwareVersion);
        case reg::HBM2_STATUS: return Load(registers.isMemoryReady) != 0 ? reg::HBM2_READY : 0;
        case reg::SHFE_2PS_PKTS: return Load(registers.packets[SHFE_2PS]);
        case reg::INE_2PS_PKTS: return Load(registers.packets[INE_2PS]);
        case reg::SHFE_4PS_PKTS: return Load(registers.packets[SHFE_4PS]);
        case reg::INE_4PS_PKTS: return Load(registers.packets[INE_4PS]);
        case reg::EVENT_PKTS: return Load(registers.events);
        case reg::LAST_UPDATE_TIME:
        case reg::LAST_UPDATE_TIME + 1:
        case reg::LAST_UPDATE_TIME + 2:
        case reg::LAST_UPDATE_TIME + 3: return Load(registers.lastUpdate[index - reg::LAST_UPDATE_TIME]);
        default: return index < REGISTER_COUNT ? Load(registers.values[index]) : 0;
    }
}

}  // namespace software_board
