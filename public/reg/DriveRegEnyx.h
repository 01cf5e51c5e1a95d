/// Registers and the receive stream of the board, over whatever provider is loaded. Thin: one call, one provider call.
/// All calls come from the session's thread.
///
/// A board that does not answer is told twice in the log, when the first call fails and when one succeeds again; what
/// failed in between is counted.
#pragma once

#include <atomic>
#include <cstdint>

#include "public/reg/BoardProvider.h"
#include "public/string/qel_string_base.h"

/// The process's register area. At log level LOG_DEBUG_EX every access is traced; below it an access formats nothing.
class CDrvRegEnyx {
public:
    /// The process's one register area, open or not.
    static CDrvRegEnyx& GetInstance();

    /// Loads the provider if none is loaded yet and opens the register core `core` of the board on bus `bus`. An area
    /// that is open already is closed first. 0, or negative with a log line that says what to do.
    int32_t Init(uint16_t bus, uint16_t core) const;

    /// 0, or negative when no area is open or the board does not take it. `addr` counts 32-bit registers.
    int32_t WriteRegister(uint32_t addr, uint32_t value) const;

    /// The same; `value` is left alone when the read fails.
    int32_t ReadRegister(uint32_t addr, uint32_t& value) const;
    int32_t ReadRegister(uint32_t addr, uint64_t& value) const;

    /// Closes the register area, whoever holds it.
    void Destory() const;

    /// The open area of the board on `bus`, as the provider gave it; null when that is not open. Valid until it is
    /// closed.
    VexaBoardRegisters* GetHwAccelerator(uint16_t bus) const { return bus == m_bus ? m_registers : nullptr; }

    /// True from an access that failed until one succeeds.
    bool HasFailed() const { return m_hasFailed.load(std::memory_order_relaxed); }

    /// Accesses that failed since the process began.
    uint64_t FailedAccesses() const { return m_failedAccesses.load(std::memory_order_relaxed); }

    CDrvRegEnyx(const CDrvRegEnyx&) = delete;
    CDrvRegEnyx& operator=(const CDrvRegEnyx&) = delete;

private:
    friend class CRegisterHold;

    CDrvRegEnyx() = default;
    int32_t Note(int32_t result, uint32_t addr) const;
    void TellOutage(int32_t result, uint32_t addr) const;

    mutable const VexaBoardProvider* m_provider = nullptr;
    mutable VexaBoardRegisters* m_registers = nullptr;
    mutable uint16_t m_bus{};
    mutable uint32_t m_holds = 0;
    mutable std::atomic<bool> m_hasFailed{};
    mutable std::atomic<uint64_t> m_failedAccesses{};
    mutable uint64_t m_failedBefore{};  ///< the outage that lasts
};

/// One session's hold on the process's register area. The area stays open, and stays on its bus, while anybody holds
/// it, and is closed with the last hold.
class CRegisterHold {
public:
    CRegisterHold() = default;
    ~CRegisterHold() { Release(); }
    CRegisterHold(const CRegisterHold&) = delete;
    CRegisterHold& operator=(const CRegisterHold&) = delete;

    /// Opens the area, or joins those who hold it. 0, or negative with a log line: it cannot be opened, or others hold
    /// it on another bus, which stays as it is.
    int32_t Take(uint16_t bus, uint16_t core);
    void Release();

private:
    bool m_isHeld = false;
};

/// One receive stream.
class CDrvDMAEnyx {
public:
    CDrvDMAEnyx() = default;
    ~CDrvDMAEnyx();

    /// Opens the stream `name` of the board on bus `bus`; one that is open already is closed first. 0 or negative.
    int32_t Init(uint16_t bus, const CQelCharArray<64>& name);

    /// One poll: calls `handler` for at most one message and returns. 0, or negative when the stream has failed or is
    /// not open. A failed stream is in order again with the first poll that succeeds.
    int32_t RecvOnce(VexaBoardMessageHandler handler, void* user);

    /// Also while the stream has failed.
    bool IsOpen() const { return m_stream != nullptr || HasFailed(); }

    /// True from a poll that failed until one succeeds.
    bool HasFailed() const { return m_failed != nullptr; }

    /// Polls that failed in the object's life.
    uint64_t FailedPolls() const { return m_failedPolls; }

    CDrvDMAEnyx(const CDrvDMAEnyx&) = delete;
    CDrvDMAEnyx& operator=(const CDrvDMAEnyx&) = delete;

private:
    void Close();
    int32_t BeginOutage(int32_t result);
    int32_t RecvFailed(VexaBoardMessageHandler handler, void* user);

    const VexaBoardProvider* m_provider = nullptr;
    VexaBoardStream* m_stream = nullptr;  ///< while it is in order, so that a poll looks at nothing else
    VexaBoardStream* m_failed = nullptr;  ///< the same while it is not
    uint64_t m_failedPolls = 0;
    uint64_t m_failedBefore{};  ///< the outage that lasts
    CQelCharArray<64> m_name;
};
