/// Registers and the receive stream of the board, over whatever provider is loaded. Thin: one call, one provider call.
/// All calls come from the session's thread.
#pragma once

#include <cstdint>

#include "public/reg/BoardProvider.h"
#include "public/string/qel_string_base.h"

/// The process's register area. At log level LOG_DEBUG_EX every access is traced; below it an access formats nothing.
class CDrvRegEnyx {
public:
    static CDrvRegEnyx& GetInstance();

    /// Loads the provider if none is loaded yet and opens the register core `core` of the board on bus `bus`. An area
    /// that is open already is closed first. 0, or negative with a log line that says what to do.
    int32_t Init(uint16_t bus, uint16_t core) const;

    int32_t WriteRegister(uint32_t addr, uint32_t value) const;

    /// `value` is left alone when the read fails.
    int32_t ReadRegister(uint32_t addr, uint32_t& value) const;
    int32_t ReadRegister(uint32_t addr, uint64_t& value) const;

    /// Closes the register area.
    void Destory() const;

    CDrvRegEnyx(const CDrvRegEnyx&) = delete;
    CDrvRegEnyx& operator=(const CDrvRegEnyx&) = delete;

private:
    CDrvRegEnyx() = default;

    mutable const VexaBoardProvider* m_provider = nullptr;
    mutable VexaBoardRegisters* m_registers = nullptr;
};

/// One receive stream.
class CDrvDMAEnyx {
public:
    CDrvDMAEnyx() = default;
    ~CDrvDMAEnyx();

    /// Opens the stream `name` of the board on bus `bus`; one that is open already is closed first. 0 or negative.
    int32_t Init(uint16_t bus, const CQelCharArray<64>& name);

    /// One poll: calls `handler` for at most one message and returns. 0, or negative when the stream has failed or is
    /// not open.
    int32_t RecvOnce(VexaBoardMessageHandler handler, void* user);

    CDrvDMAEnyx(const CDrvDMAEnyx&) = delete;
    CDrvDMAEnyx& operator=(const CDrvDMAEnyx&) = delete;

private:
    void Close();

    const VexaBoardProvider* m_provider = nullptr;
    VexaBoardStream* m_stream = nullptr;
};
