/// One served board and its applications, each a process of its own: directory, INI files, processes, what each
/// received, and the exchange's truth to hold that against. They share a clock that moves only when they do.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "common/FpgaStructCommon.h"
#include "interface/VexaShfeMdStruct.h"
#include "software_board/SharedMemory.h"
#include "testing/TemporaryDirectory.h"
#include "tests/process/CommonClock.h"
#include "tests/support/ChildProcess.h"

/// A reader process and the file of what it received.
struct Reader {
    std::unique_ptr<ChildProcess> process;
    std::string records;

    std::size_t Count() const;
    std::vector<VexaShfeMdType> Records() const;
};

class ServedWorld {
public:
    static constexpr uint64_t SEED = 7;

    explicit ServedWorld(uint16_t busNumber);
    ~ServedWorld();
    ServedWorld(const ServedWorld&) = delete;
    ServedWorld& operator=(const ServedWorld&) = delete;

    std::string Path(const std::string& name) const { return directory.File(name); }
    /// Of each no more than the last `bytes`.
    void TellWhatTheProcessesSaid(std::size_t bytes = std::string::npos) const;
    std::string Log(int channel) const;

    /// One file for all channels, as on one machine; the channel stands in the device key.
    void WriteConfig(const std::string& comment) const;

    std::unique_ptr<ChildProcess> RunBoard(std::vector<std::string> arguments, const std::string& output) const;

    /// `rate` is in updates a second of their clock. False when there is no board after a while.
    bool Serve(const std::string& rate = "100", const std::string& instruments = "120");

    /// A reader of its own file of records.
    Reader RunReader(int channel, const std::string& slowness = "0");

    /// Of the processes' clock.
    double Seconds() const { return static_cast<double>(m_clock->Latest()) / 1e9; }
    /// Until their clock has moved by so much; it stands while none of them runs.
    void Pass(double seconds) const;

    bool IsLive() const;
    uint64_t BringUps() const;
    uint64_t Updates() const;

    /// What the exchange says after each of its first moves, by instrument and change number.
    using Truth = std::map<std::pair<std::string, uint32_t>, VexaShfeMdType>;
    Truth TruthUpTo(uint64_t updates) const;

    /// How a reader's records stand to the truth.
    struct Verdict {
        std::size_t wrong = 0;  ///< no such state of the exchange, or not its bytes
        std::size_t back = 0;   ///< told again, or older than one before
        std::size_t gaps = 0;   ///< changes of an instrument left out between two
    };
    static Verdict Judge(const Reader& reader, const Truth& truth);

    TemporaryDirectory directory{"vexa-served"};
    uint16_t bus;
    std::unique_ptr<ChildProcess> server;
    software_board::SharedMapping board;

private:
    std::vector<std::string> Environment() const;

    common_clock::Clock* m_clock = nullptr;
    int m_readers = 0;
};
