/// Raw capture of the DMA stream: a binary file of whole messages and a nanosecond pcap file of their frames.
/// Files lie beside the log, owner-only, never opened through a symbolic link. A full disk is told once and counted.
#pragma once

#include <cstddef>
#include <cstdint>

class CWriteShot {
public:
    /// The process's one pair of captures.
    static const CWriteShot& GetInstance();

    /// Creates the next binary file beside the log; its name carries channel, date, time and process id. `logPath` is
    /// read as CCommonLog::SetLogPath reads it (empty: the working directory). 0, or -1 with one error line.
    int32_t CreateShotBinLog(const char* logPath, int32_t channel) const;
    void CloseShotBinLog() const;
    void WriteShotBinLog(const unsigned char* data, std::size_t length) const;

    /// The same for the pcap file. What is too short to be a frame is left to the binary file.
    int32_t CreateShotPcapLog(const char* logPath, int32_t channel) const;
    void CloseShotPcapLog() const;
    void WriteShotPcapLog(const unsigned char* data, std::size_t length) const;

    uint64_t GetBinShotCnt() const;  ///< records in the binary file
    uint64_t GetDroppedCnt() const;  ///< records that could not be written

    CWriteShot(const CWriteShot&) = delete;
    CWriteShot& operator=(const CWriteShot&) = delete;

private:
    CWriteShot() = default;
};
