// The two roads to a board: one stepped by this process's own polls, one served by another process. Of the first there
// is one board for each bus.
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <utility>

#include "software_board/RegisterFile.h"
#include "software_board/SharedClient.h"
#include "software_board/SoftwareBoard.h"

struct VexaBoardRegisters {
    virtual ~VexaBoardRegisters() = default;
    virtual bool Write(uint32_t index, uint32_t value) = 0;
    virtual bool Read(uint32_t index, uint64_t& value) = 0;
};

struct VexaBoardStream {
    virtual ~VexaBoardStream() = default;
    virtual int32_t Receive(VexaBoardMessageHandler handler, void* user) = 0;
};

namespace software_board {

namespace {

constexpr uint32_t UPDATES_PER_SECOND = 1000;  // of a board made from an argument that does not say
constexpr const char* SHARED = "shared";       // the argument that asks for a board served by another process

// ---- a board of this process ----------------------------------------------------------------------------------------

std::map<uint16_t, SoftwareBoard*> g_installed;
std::map<uint16_t, std::unique_ptr<SoftwareBoard>> g_made;

/// Null, with a text, when the argument cannot be read.
SoftwareBoard* BoardOf(const char* argument, uint16_t bus, std::string& error) {
    if (const auto installed = g_installed.find(bus); installed != g_installed.end()) return installed->second;
    std::unique_ptr<SoftwareBoard>& made = g_made[bus];
    if (made == nullptr) {
        BoardOptions options;
        options.updatesPerSecond = UPDATES_PER_SECOND;
        options.acknowledgeEveryMs = ACKNOWLEDGE_EVERY_MS;
        if (!ParseArgument(argument, options, error)) return nullptr;
        made = std::make_unique<SoftwareBoard>(options);
    }
    return made.get();
}

bool IsRefused(const SoftwareBoard& board, EBroken what, std::string& error) {
    if (!IsBroken(board.Memory(), what)) return false;
    error = WhyRefused(what);
    return true;
}

class OwnRegisters final : public VexaBoardRegisters {
public:
    explicit OwnRegisters(SoftwareBoard& board) : m_board(board) {}
    bool Write(uint32_t index, uint32_t value) override {
        m_board.Write(index, value);
        return true;
    }
    bool Read(uint32_t index, uint64_t& value) override {
        value = m_board.Read64(index);
        return true;
    }

private:
    SoftwareBoard& m_board;
};

class OwnStream final : public VexaBoardStream {
public:
    OwnStream(SoftwareBoard& board, int32_t channel) : m_board(board), m_channel(channel) {
        m_board.OpenStream(m_channel);
    }
    ~OwnStream() override { m_board.CloseStream(m_channel); }
    OwnStream(const OwnStream&) = delete;
    OwnStream& operator=(const OwnStream&) = delete;
    int32_t Receive(VexaBoardMessageHandler handler, void* user) override {
        return m_board.Receive(m_channel, handler, user) ? 1 : 0;
    }

private:
    SoftwareBoard& m_board;
    int32_t m_channel;
};

// ---- a board served by another process ------------------------------------------------------------------------------

class ServedRegisters final : public VexaBoardRegisters {
public:
    bool Open(uint16_t bus, std::string& error) { return m_registers.Open(bus, error); }
    bool Write(uint32_t index, uint32_t value) override { return m_registers.Write(index, value); }
    bool Read(uint32_t index, uint64_t& value) override { return m_registers.Read(index, value); }

private:
    SharedRegisters m_registers;
};

class ServedStream final : public VexaBoardStream {
public:
    bool Open(uint16_t bus, int32_t channel, std::string& error) { return m_stream.Open(bus, channel, error); }
    int32_t Receive(VexaBoardMessageHandler handler, void* user) override { return m_stream.Receive(handler, user); }

private:
    SharedStream m_stream;
};

// ---- opening --------------------------------------------------------------------------------------------------------

std::unique_ptr<VexaBoardRegisters> MakeRegisters(const char* argument, uint16_t bus, std::string& error) {
    if (std::strcmp(argument, SHARED) == 0) {
        auto registers = std::make_unique<ServedRegisters>();
        if (!registers->Open(bus, error)) return nullptr;
        return registers;
    }
    SoftwareBoard* board = BoardOf(argument, bus, error);
    if (board == nullptr || IsRefused(*board, BROKEN_REGISTERS, error)) return nullptr;
    return std::make_unique<OwnRegisters>(*board);
}

std::unique_ptr<VexaBoardStream> MakeStream(const char* argument, uint16_t bus, int32_t channel, std::string& error) {
    if (std::strcmp(argument, SHARED) == 0) {
        auto stream = std::make_unique<ServedStream>();
        if (!stream->Open(bus, channel, error)) return nullptr;
        return stream;
    }
    SoftwareBoard* board = BoardOf(argument, bus, error);
    if (board == nullptr || IsRefused(*board, BROKEN_STREAMS, error)) return nullptr;
    return std::make_unique<OwnStream>(*board, channel);
}

constexpr const char* REGISTERS_FAILED =
    "the board has ended or does not answer; registers go over to the next one with a bring-up";
constexpr const char* STREAM_FAILED =
    "the board has ended; the stream goes over to the next one that has its channel free";

// What the operations return, unless it is a number of messages.
constexpr int32_t DONE = 0;
constexpr int32_t FAILED = -1;

thread_local std::string g_refusal;
thread_local const char* g_lastError = "";

int32_t Fail(const char* why) {
    g_lastError = why;
    return FAILED;
}

/// The caller may be C: nothing is thrown.
template <typename Handle, typename Make>
int32_t OpenHandle(Handle** handle, Make make) {
    try {
        std::string error;
        std::unique_ptr<Handle> made = make(error);
        if (made != nullptr) {
            *handle = made.release();
            return DONE;
        }
        g_refusal = std::move(error);
        return Fail(g_refusal.c_str());
    } catch (const std::bad_alloc&) {
        return Fail("out of memory");
    }
}

const char* LastError() { return g_lastError; }

int32_t OpenRegisters(const char* argument, uint16_t bus, uint16_t, VexaBoardRegisters** registers) {
    return OpenHandle(registers, [&](std::string& error) { return MakeRegisters(argument, bus, error); });
}

void CloseRegisters(VexaBoardRegisters* registers) { delete registers; }

int32_t Write32(VexaBoardRegisters* registers, uint32_t index, uint32_t value) {
    try {
        return registers->Write(index, value) ? DONE : Fail(REGISTERS_FAILED);
    } catch (const std::bad_alloc&) {
        return Fail("out of memory");
    }
}

int32_t Read32(VexaBoardRegisters* registers, uint32_t index, uint32_t* value) {
    uint64_t read = 0;
    if (!registers->Read(index, read)) return Fail(REGISTERS_FAILED);
    *value = static_cast<uint32_t>(read);
    return DONE;
}

int32_t Read64(VexaBoardRegisters* registers, uint32_t index, uint64_t* value) {
    return registers->Read(index, *value) ? DONE : Fail(REGISTERS_FAILED);
}

/// "CUSTOM_CHAN3_DATA" is channel 3; none is of another shape.
std::optional<int32_t> ChannelOf(const char* name) {
    for (int32_t channel = 0; channel < CHANNEL_SIZE; ++channel) {
        char ofChannel[32];
        std::snprintf(ofChannel, sizeof ofChannel, "CUSTOM_CHAN%d_DATA", channel);
        if (std::strcmp(ofChannel, name) == 0) return channel;
    }
    return {};
}

int32_t OpenStream(const char* argument, uint16_t bus, const char* name, VexaBoardStream** stream) {
    return OpenHandle(stream, [&](std::string& error) -> std::unique_ptr<VexaBoardStream> {
        const std::optional<int32_t> channel = ChannelOf(name);
        if (!channel) {
            error = std::string("no stream ") + name + "; there are CUSTOM_CHAN0_DATA to CUSTOM_CHAN15_DATA";
            return nullptr;
        }
        return MakeStream(argument, bus, *channel, error);
    });
}

void CloseStream(VexaBoardStream* stream) { delete stream; }

int32_t Receive(VexaBoardStream* stream, VexaBoardMessageHandler handler, void* user) {
    const int32_t result = stream->Receive(handler, user);
    return result < 0 ? Fail(STREAM_FAILED) : result;
}

constexpr VexaBoardProvider PROVIDER{VEXA_BOARD_PROVIDER_VERSION,
                                     sizeof(VexaBoardProvider),
                                     "software",
                                     OpenRegisters,
                                     CloseRegisters,
                                     Write32,
                                     Read32,
                                     Read64,
                                     OpenStream,
                                     CloseStream,
                                     Receive,
                                     LastError};

}  // namespace

const VexaBoardProvider& Provider() { return PROVIDER; }

void InstallBoard(uint16_t bus, SoftwareBoard* board) {
    if (board == nullptr) {
        g_installed.erase(bus);
    } else {
        g_installed[bus] = board;
    }
}

}  // namespace software_board
