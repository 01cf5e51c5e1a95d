/// A board written as an object: the provider's C functions lead to virtual operations of it.
#pragma once

#include <cstdint>
#include <stdexcept>

#include "public/reg/BoardProvider.h"
#include "testing/InstalledBoard.h"

/// The provider's operations, as BoardProvider.h has them. A board that says nothing else opens everything, takes every
/// write, answers every read with zero and has no messages.
class BoardOperations {
public:
    virtual ~BoardOperations() = default;

    virtual int32_t OpenRegisters(const char*, uint16_t, uint16_t, VexaBoardRegisters** registers) {
        *registers = RegistersHandle();
        return 0;
    }
    virtual void CloseRegisters(VexaBoardRegisters*) {}
    virtual int32_t Write32(VexaBoardRegisters*, uint32_t, uint32_t) { return 0; }
    virtual int32_t Read32(VexaBoardRegisters*, uint32_t, uint32_t* value) {
        *value = 0;
        return 0;
    }
    virtual int32_t Read64(VexaBoardRegisters*, uint32_t, uint64_t* value) {
        *value = 0;
        return 0;
    }
    virtual int32_t OpenStream(const char*, uint16_t, const char*, VexaBoardStream** stream) {
        *stream = StreamHandle();
        return 0;
    }
    virtual void CloseStream(VexaBoardStream*) {}
    virtual int32_t Receive(VexaBoardStream*, VexaBoardMessageHandler, void*) { return 0; }
    virtual const char* LastError() { return ""; }

    /// For boards that keep nothing behind a handle.
    static VexaBoardRegisters* RegistersHandle() { return reinterpret_cast<VexaBoardRegisters*>(&s_nothing[0]); }
    static VexaBoardStream* StreamHandle() { return reinterpret_cast<VexaBoardStream*>(&s_nothing[1]); }

    int openRegisters = 0;  ///< handles open now
    int openStreams = 0;
    uint64_t calls = 0;  ///< of all operations but closing, in the board's life

private:
    inline static char s_nothing[2]{};
};

/// Leads the process's provider to `board` for its lifetime; one at a time. A member of its board stands last, so that
/// it goes first: the registers are closed on a board that is whole. What is closed later is nobody's.
class ProviderAdapter {
public:
    /// `name` lasts as long as the process: log lines carry it.
    ProviderAdapter(BoardOperations& board, const char* name, const char* argument = "")
        : m_target(board), m_installed(Named(name), argument) {}

private:
    struct Target {
        explicit Target(BoardOperations& board) {
            if (s_board != nullptr) throw std::logic_error("one ProviderAdapter at a time");
            s_board = &board;
        }
        ~Target() { s_board = nullptr; }
        Target(const Target&) = delete;
        Target& operator=(const Target&) = delete;
    };

    static BoardOperations& Called() {
        ++s_board->calls;
        return *s_board;
    }

    static int32_t OpenRegisters(const char* argument, uint16_t bus, uint16_t core, VexaBoardRegisters** registers) {
        const int32_t result = Called().OpenRegisters(argument, bus, core, registers);
        if (result == 0 && *registers != nullptr) ++s_board->openRegisters;
        return result;
    }
    static void CloseRegisters(VexaBoardRegisters* registers) {
        if (s_board == nullptr) return;
        --s_board->openRegisters;
        s_board->CloseRegisters(registers);
    }
    static int32_t Write32(VexaBoardRegisters* registers, uint32_t index, uint32_t value) {
        return Called().Write32(registers, index, value);
    }
    static int32_t Read32(VexaBoardRegisters* registers, uint32_t index, uint32_t* value) {
        return Called().Read32(registers, index, value);
    }
    static int32_t Read64(VexaBoardRegisters* registers, uint32_t index, uint64_t* value) {
        return Called().Read64(registers, index, value);
    }
    static int32_t OpenStream(const char* argument, uint16_t bus, const char* name, VexaBoardStream** stream) {
        const int32_t result = Called().OpenStream(argument, bus, name, stream);
        if (result == 0 && *stream != nullptr) ++s_board->openStreams;
        return result;
    }
    static void CloseStream(VexaBoardStream* stream) {
        if (s_board == nullptr) return;
        --s_board->openStreams;
        s_board->CloseStream(stream);
    }
    static int32_t Receive(VexaBoardStream* stream, VexaBoardMessageHandler handler, void* user) {
        return Called().Receive(stream, handler, user);
    }
    static const char* LastError() { return s_board->LastError(); }

    // The library keeps the table beyond its board, for the handles that it still closes.
    static const VexaBoardProvider& Named(const char* name) {
        static VexaBoardProvider table{VEXA_BOARD_PROVIDER_VERSION,
                                       sizeof(VexaBoardProvider),
                                       "",
                                       OpenRegisters,
                                       CloseRegisters,
                                       Write32,
                                       Read32,
                                       Read64,
                                       OpenStream,
                                       CloseStream,
                                       Receive,
                                       LastError};
        table.name = name;
        return table;
    }

    inline static BoardOperations* s_board = nullptr;

    Target m_target;  // outlives the registers
    InstalledProvider m_installed;
};
