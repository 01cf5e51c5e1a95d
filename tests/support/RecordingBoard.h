/// A board that does nothing but remember: every register access in order, answers from a table, messages from a queue.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <ostream>
#include <string>
#include <vector>

#include "testing/ProviderAdapter.h"

struct Access {
    enum Kind { Write, Read32, Read64 } kind;
    uint32_t index;
    uint64_t value;
    bool operator==(const Access&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Access& access);

inline Access W(uint32_t index, uint64_t value) { return {Access::Write, index, value}; }
inline Access R(uint32_t index, uint64_t value = 0) { return {Access::Read32, index, value}; }
inline Access R64(uint32_t index, uint64_t value = 0) { return {Access::Read64, index, value}; }

/// Puts itself in place as the process's provider for its lifetime. One at a time.
class RecordingBoard : public BoardOperations {
public:
    RecordingBoard() = default;

    std::vector<Access> accesses;               ///< in order
    std::map<uint32_t, uint64_t> answers;       ///< what reads give; 0 when absent
    std::deque<std::vector<uint8_t>> messages;  ///< one is handed over per poll
    uint64_t polls = 0;
    std::string streamName;  ///< of the last open_stream
    uint16_t bus = 0;        ///< of the last open_registers
    uint16_t core = 0;
    int32_t registersResult = 0;  ///< what open_registers gives
    int32_t streamResult = 0;     ///< what open_stream gives
    int32_t accessResult = 0;     ///< what register accesses give; they are remembered all the same
    int32_t pollResult = 0;       ///< negative: what polls give, and no message
    std::string lastError;

    /// Called on every poll before a message is handed over.
    std::function<void(RecordingBoard&)> onPoll;
    /// Called on every read, may answer it: return true and set the value.
    std::function<bool(uint32_t index, uint64_t& value)> onRead;

    std::vector<Access> Writes() const;
    std::vector<Access> AccessesTo(uint32_t first, uint32_t last) const;
    void Forget() { accesses.clear(); }

    RecordingBoard(const RecordingBoard&) = delete;
    RecordingBoard& operator=(const RecordingBoard&) = delete;

private:
    int32_t OpenRegisters(const char* argument, uint16_t bus, uint16_t core, VexaBoardRegisters** registers) override;
    int32_t Write32(VexaBoardRegisters* registers, uint32_t index, uint32_t value) override;
    int32_t Read32(VexaBoardRegisters* registers, uint32_t index, uint32_t* value) override;
    int32_t Read64(VexaBoardRegisters* registers, uint32_t index, uint64_t* value) override;
    int32_t OpenStream(const char* argument, uint16_t bus, const char* name, VexaBoardStream** stream) override;
    int32_t Receive(VexaBoardStream* stream, VexaBoardMessageHandler handler, void* user) override;
    const char* LastError() override { return lastError.c_str(); }

    uint64_t Answer(uint32_t index);
    int32_t RefuseRead(uint32_t index);

    ProviderAdapter m_adapter{*this, "recording"};
};
