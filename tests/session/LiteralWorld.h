/// A managing session on a board that remembers every access and whose tables answer with what was written into them;
/// four snapshot connections with known instruments. No constant of the sources: numbers stand as the board knows them.
#pragma once

#include <array>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "testing/ManualClock.h"
#include "testing/TemporaryDirectory.h"
#include "tests/support/LiteralWire.h"
#include "tests/support/RecordingBoard.h"
#include "tests/support/TestableApi.h"

namespace literal {

/// One instrument table as the board has it; the order of the writing.
struct Table {
    uint32_t writeAddr;
    uint32_t writeData;
    uint32_t readAddr;
    uint32_t readData;
    uint32_t slots;
};

inline constexpr std::array<Table, 4> TABLES{{{0x11000, 0x11001, 0x11002, 0x11003, 16384},
                                              {0x21000, 0x21001, 0x21002, 0x21003, 16384},
                                              {0x11004, 0x11005, 0x11006, 0x11007, 4096},
                                              {0x21004, 0x21005, 0x21006, 0x21007, 4096}}};

using Words = std::vector<uint32_t>;

class World : public CVexaShfeMdSpi {
public:
    /// `keys` ("name=value") stand in place of the file's own.
    explicit World(int logLevel, const std::vector<std::string>& keys = {});
    ~World() override;

    int32_t Start() { return api->VexaStart(*this, file.Path().c_str()); }
    /// What the log file holds, its times, source lines and addresses of this run taken out.
    std::vector<std::string> LogLines() const;
    /// Those of them that are warnings or errors.
    std::vector<std::string> Troubles() const;
    std::string LogText() const;
    std::vector<std::string> LogFiles() const;

    /// What the board was told so far is looked at no more.
    void Forget();

    void OnVexaShfeMd(VexaShfeMdType&) override {}

    ManualClock clock;
    RecordingBoard board;
    TemporaryDirectory directory;
    TemporaryFile file;
    std::unique_ptr<TestableApi> api = MakeApi();
    bool has4ps = true;                ///< all four feeds are enabled, which no key can do
    std::vector<Bytes> snapshot;       ///< what the exchange answers
    std::function<void()> atIdentity;  ///< called when the board's identity is read

private:
    bool Answer(uint32_t index, uint64_t& value);
    void FollowWrites();
    void SendSnapshot();

    std::array<Words, 4> m_tables;
    std::array<uint32_t, 4> m_writeData{};
    std::array<uint32_t, 4> m_readAddr{};
    std::array<uint32_t, 2> m_counts{};
    std::size_t m_followed = 0;
    std::size_t m_sentAt = 0;
};

/// DMA messages of the whole snapshot of all four feeds, in order.
std::vector<Bytes> SnapshotMessages();

/// What the snapshot leaves in the slots of a table that are in use.
std::vector<Words> SnapshotSlots(std::size_t table);

}  // namespace literal
