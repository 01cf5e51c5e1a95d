#include "tools/BoardText.h"

#include <algorithm>
#include <bitset>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <optional>
#include <stdexcept>

#include "common/Feed.h"
#include "common/RegisterMap.h"
#include "public/clock/Clock.h"
#include "software_board/BoardTables.h"
#include "software_board/RegisterFile.h"
#include "tools/RegisterNames.h"

namespace {

using software_board::ChannelMemory;
using software_board::Load;
using software_board::ProcessNumber;
using software_board::SharedBoard;

using Count = unsigned long long;

constexpr double RATE_MAX = 1e15;          // a peer may write any count
constexpr std::size_t PHASE_COLUMNS = 10;  // the longest name and two blanks

std::string LocalTimeText(uint64_t seconds) {
    std::tm local{};
    if (seconds == 0 || !CClock::LocalTime(static_cast<int64_t>(seconds), local)) return "never";
    char text[32];
    std::strftime(text, sizeof text, "%H:%M:%S", &local);
    return text;
}

/// Part of the ring that waits to be read, as far as the reader has told.
double FillOf(const SharedBoard& board, const ChannelMemory& channel) {
    const uint64_t waiting = Load(channel.written) - Load(channel.ring.released);
    const uint32_t lines = std::max(Load(board.ringLines), 1U);
    return 100.0 * static_cast<double>(std::min<uint64_t>(waiting, lines)) / lines;
}

void PrintChannels(const SharedBoard& board) {
    std::printf("\n%-8s %-8s %6s %12s %10s  %s\n", "channel", "holder", "ring", "delivered", "dropped", "last event");
    for (int32_t channel = 0; channel < CHANNEL_SIZE; ++channel) {
        const ChannelMemory& memory = board.memory.channels[channel];
        const software_board::ProcessId holder = Load(memory.holder);
        if (holder == 0 && Load(memory.written) == 0) continue;
        std::printf("%-8d %-8s %5.1f%% %12llu %10llu  %08x %08x %08x %08x\n", channel,
                    holder == 0 ? "-" : std::to_string(ProcessNumber(holder)).c_str(), FillOf(board, memory),
                    static_cast<Count>(Load(memory.delivered)), static_cast<Count>(Load(memory.dropped)),
                    Load(memory.lastEvent[0]), Load(memory.lastEvent[1]), Load(memory.lastEvent[2]),
                    Load(memory.lastEvent[3]));
    }
}

void PrintFeeds(const SharedBoard& board) {
    std::printf("\n%-8s %12s %12s  %s\n", "feed", "instruments", "packets", "last update");
    for (std::size_t feed = 0; feed < FEED_COUNT; ++feed) {
        std::printf("%-8s %12u %12llu  %s\n", FEEDS[feed].name, Load(board.instruments[feed]),
                    static_cast<Count>(Load(board.memory.registers.packets[feed])),
                    LocalTimeText(Load(board.memory.registers.lastUpdate[feed])).c_str());
    }
}

uint64_t ValueOf(const SharedBoard& board, uint32_t index) { return software_board::ReadRegister(board.memory, index); }

void PrintNamed(const SharedBoard& board, const NamedRegister& named) {
    std::printf("0x%05x  %-34s 0x%0*llx\n", named.index, named.name.c_str(), named.is64Bit ? 16 : 8,
                static_cast<Count>(ValueOf(board, named.index)));
}

std::string ChannelsOf(uint32_t config) {
    std::string channels;
    for (int32_t channel = 0; channel < CHANNEL_SIZE; ++channel) {
        if ((config >> channel & 1U) != 0) channels += (channels.empty() ? "" : ",") + std::to_string(channel);
    }
    if ((config & SLOT_TAS) != 0) channels += " TAS";
    return channels.empty() ? "-" : channels;
}

std::string PrintableId(const SInstTableType& slot) {
    std::string id(slot.inst_id, strnlen(slot.inst_id, sizeof slot.inst_id));
    std::replace(id.begin(), id.end(), ' ', '?');
    return Printable(id);
}

void PrintSlot(const SInstTableType& slot, int32_t instNo) {
    const auto price = [](int32_t hundredths) { return hundredths / 100.0; };
    std::printf("%6d  %-15s %9u %12.2f %12.2f %8u %12.2f %8u  %s\n", instNo, PrintableId(slot).c_str(), slot.change_no,
                price(slot.last_price), price(slot.bid1_price), slot.bid1_vol, price(slot.ask1_price), slot.ask1_vol,
                ChannelsOf(slot.config).c_str());
}

const char* PhaseOf(const SharedBoard& board) {
    return BoardPhaseName(static_cast<software_board::EBoardPhase>(Load(board.memory.registers.phase)));
}

std::bitset<CHANNEL_SIZE> HeldChannels(const SharedBoard& board) {
    std::bitset<CHANNEL_SIZE> held;
    for (std::size_t channel = 0; channel < held.size(); ++channel) {
        held[channel] = Load(board.memory.channels[channel].holder) != 0;
    }
    return held;
}

/// "0-2 5"; "none".
std::string Ranges(const std::bitset<CHANNEL_SIZE>& channels) {
    std::string text;
    for (std::size_t first = 0; first < channels.size(); ++first) {
        if (!channels[first]) continue;
        std::size_t last = first;
        while (last + 1 < channels.size() && channels[last + 1]) ++last;
        text += (text.empty() ? "" : " ") + std::to_string(first);
        if (last > first) text += "-" + std::to_string(last);
        first = last;
    }
    return text.empty() ? "none" : text;
}

/// Four characters at most: "950", "1.2k", "34M".
std::string Short(double number) {
    static constexpr const char* UNITS[] = {"", "k", "M", "G", "T", "P", "E"};
    std::size_t unit = 0;
    for (; number >= 999.5 && unit + 1 < std::size(UNITS); ++unit) number /= 1000;
    char text[16];
    std::snprintf(text, sizeof text, unit > 0 && number < 9.95 ? "%.1f%s" : "%.0f%s", number, UNITS[unit]);
    return text;
}

}  // namespace

std::string Printable(std::string text) {
    std::replace_if(
        text.begin(), text.end(), [](char c) { return c < ' ' || c > '~'; }, '?');
    return text;
}

const char* BoardPhaseName(software_board::EBoardPhase phase) {
    switch (phase) {
        case software_board::EBoardPhase::Idle: return "idle";
        case software_board::EBoardPhase::Memory: return "memory";
        case software_board::EBoardPhase::Snapshot: return "snapshot";
        case software_board::EBoardPhase::Tables: return "tables";
        case software_board::EBoardPhase::Live: return "live";
    }
    return "unknown";
}

std::string BoardLine(const SharedBoard& board, double updatesPerSecond, std::size_t columns) {
    const std::string phase = PhaseOf(board);
    const auto holders = HeldChannels(board);
    const uint64_t delivered = Load(board.memory.statistics.delivered);
    const uint64_t dropped = Load(board.memory.statistics.overruns);
    const double shownRate = std::clamp(updatesPerSecond, 0.0, RATE_MAX);
    const std::string rate = std::to_string(std::llround(shownRate));
    const std::string instruments =
        std::to_string(Load(board.instruments[SHFE_2PS])) + "+" + std::to_string(Load(board.instruments[INE_2PS]));
    const std::string counts = "  delivered " + std::to_string(delivered) + "  dropped " + std::to_string(dropped);
    const std::string forms[] = {
        phase + std::string(PHASE_COLUMNS - phase.size(), ' ') + instruments + " instruments  " + rate +
            " updates/s  channels " + Ranges(holders) + counts,
        phase + "  " + rate + "/s  channels " + Ranges(holders) + counts,
        phase + "  " + Short(shownRate) + "/s  " + std::to_string(holders.count()) + " channels  " +
            Short(static_cast<double>(delivered)) + " delivered  " + Short(static_cast<double>(dropped)) + " dropped",
    };
    for (const std::string& form : forms) {
        if (form.size() <= columns) return form;
    }
    return forms[std::size(forms) - 1].substr(0, columns);
}

void PrintStatus(const SharedBoard& board, uint16_t bus) {
    const auto& seen = board.memory.statistics;
    std::printf("bus        %u, served by process %d since %s, seed %llu\n", bus, ProcessNumber(Load(board.server)),
                LocalTimeText(Load(board.servedSince) / 1'000'000'000).c_str(), static_cast<Count>(Load(board.seed)));
    std::printf("phase      %s\n", PhaseOf(board));
    std::printf("checksum   0x%08llx\n", static_cast<Count>(ValueOf(board, reg::CONFIG_CHECKSUM)));
    std::printf("bring-ups  %llu\n", static_cast<Count>(Load(seen.bringUps)));
    std::printf("snapshot   %llu connections, %llu frames\n", static_cast<Count>(Load(seen.snapshotConnections)),
                static_cast<Count>(Load(seen.snapshotFrames)));
    std::printf("updates    %llu, of these lost %llu; records delivered %llu, messages dropped %llu\n",
                static_cast<Count>(Load(seen.liveUpdates)), static_cast<Count>(Load(seen.lostUpdates)),
                static_cast<Count>(Load(seen.delivered)), static_cast<Count>(Load(seen.overruns)));
    std::printf("refused    %llu snapshot openings and %llu engine starts without a bring-up, %llu table writes\n",
                static_cast<Count>(Load(seen.refusedSnapshotOpens)), static_cast<Count>(Load(seen.refusedEngineStarts)),
                static_cast<Count>(Load(seen.refusedTableWrites)));
    PrintChannels(board);
    PrintFeeds(board);
}

void PrintRegister(const SharedBoard& board, const std::string& address) {
    const std::optional<NamedRegister> found = FindRegister(address);
    if (!found) throw std::runtime_error("\"" + address + "\" is neither a register's name nor an index");
    PrintNamed(board, *found);
}

void PrintRegisters(const SharedBoard& board, bool areZerosShown) {
    for (const NamedRegister& named : NamedRegisters()) {
        if (areZerosShown || ValueOf(board, named.index) != 0) PrintNamed(board, named);
    }
}

void PrintTable(const SharedBoard& board, EMDQPDataType feed, const std::string& instrument) {
    std::printf("%6s  %-15s %9s %12s %12s %8s %12s %8s  %s\n", "number", "id", "change", "last", "bid", "volume", "ask",
                "volume", "channels");
    bool isFound = false;
    for (int32_t instNo = 0; instNo < TraitsOf(feed).capacity; ++instNo) {
        const SInstTableType slot =
            software_board::board_tables::CopyOf(software_board::board_tables::Slot(board.memory, feed, instNo));
        if (slot.inst_id[0] == '\0' || (!instrument.empty() && PrintableId(slot) != instrument)) continue;
        isFound = true;
        PrintSlot(slot, instNo);
    }
    if (!isFound && !instrument.empty()) throw std::runtime_error("no slot of this feed holds " + instrument);
}
