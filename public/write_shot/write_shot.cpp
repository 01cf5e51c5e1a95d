// The two capture files of the process. Session thread only. In: DMA messages and the frames in them. Out: records that
// carry the same time in both files. A record is whole or absent, so that readers always reach the last one.
#include "public/write_shot/write_shot.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <string>

#include "public/clock/Clock.h"
#include "public/file/WriteWhole.h"
#include "public/log/LogFile.h"
#include "public/log/LogLine.h"

namespace {

constexpr int64_t NANOSECONDS_PER_SECOND = 1'000'000'000;
constexpr std::size_t FRAME_BYTES_MIN = 14;
constexpr int NAMES_TRIED_MAX = 100;

struct BinHead {
    char magic[8];
    uint32_t version;
    uint32_t reserved;
};
static_assert(sizeof(BinHead) == 16);

struct BinRecordHead {
    uint64_t timeNanoseconds;
    uint32_t length;
    uint32_t reserved;
};
static_assert(sizeof(BinRecordHead) == 16);

struct PcapHead {
    uint32_t magic;
    uint16_t versionMajor;
    uint16_t versionMinor;
    uint32_t zone;
    uint32_t accuracy;
    uint32_t snapLength;
    uint32_t linkType;
};
static_assert(sizeof(PcapHead) == 24);

struct PcapRecordHead {
    uint32_t seconds;
    uint32_t nanoseconds;
    uint32_t captured;
    uint32_t length;
};
static_assert(sizeof(PcapRecordHead) == 16);

constexpr BinHead BIN_HEAD{{'V', 'E', 'X', 'A', 'S', 'H', 'O', 'T'}, 1, 0};
constexpr PcapHead PCAP_HEAD{0xA1B23C4D, 2, 4, 0, 0, 65535, 1};  // nanoseconds, Ethernet

/// One capture file. A record is whole or absent.
struct ShotFile {
    int descriptor = -1;
    uint64_t records = 0;
    bool hasTold = false;
    bool isCut = false;  ///< ends in a part of a record, behind which none could be read

    bool IsOpen() const { return descriptor >= 0; }
    void Close() {
        if (IsOpen()) close(descriptor);
        descriptor = -1;
    }
};

struct Recorder {
    ShotFile bin;
    ShotFile pcap;
    uint64_t dropped{};
    int64_t lastStamp{};  ///< of the message given to the binary file last: its frame carries the same
};

Recorder g_recorder;

std::string ShotName(int32_t channel, const char* ending, int attempt) {
    std::tm local{};
    CClock::LocalTime(CClock::WallNanoseconds() / NANOSECONDS_PER_SECOND, local);
    char name[128];
    std::snprintf(name, sizeof name, "vexa_shfe_md_chan%d_%04d%02d%02d_%02d%02d%02d_%d", channel, local.tm_year + 1900,
                  local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec,
                  static_cast<int>(getpid()));
    std::string text = name;
    if (attempt > 0) text.append("_").append(std::to_string(attempt));
    return text + ending;
}

/// Writes head and body as one record, or nothing at all.
bool Append(ShotFile& file, const void* head, std::size_t headSize, const void* body, std::size_t bodySize) {
    if (file.isCut) {
        ++g_recorder.dropped;
        return false;
    }
    const std::size_t written = WriteWhole(file.descriptor, head, headSize);
    const std::size_t more = written == headSize ? WriteWhole(file.descriptor, body, bodySize) : 0;
    if (written == headSize && more == bodySize) return true;
    const int reason = errno;
    file.isCut = !TakeBack(file.descriptor, written + more);
    ++g_recorder.dropped;
    if (file.hasTold) return false;
    file.hasTold = true;
    VEXA_LOG(LOG_ERROR, "a capture record cannot be written (%s); records are counted as dropped",
             std::strerror(reason));
    return false;
}

int32_t Create(ShotFile& file, const char* logPath, int32_t channel, const char* ending, const void* head,
               std::size_t headSize) {
    file.Close();
    file = {};
    const std::string path = logPath == nullptr ? "" : logPath;
    std::string name;
    for (int attempt = 0; attempt < NAMES_TRIED_MAX && !file.IsOpen(); ++attempt) {
        name = log_file::Place(path, ShotName(channel, ending, attempt));
        file.descriptor = log_file::OpenAppend(name, true);
        if (!file.IsOpen() && errno != EEXIST) break;
    }
    if (!file.IsOpen()) {
        VEXA_LOG(LOG_ERROR, "the capture file %s cannot be created (%s); check log_path", name.c_str(),
                 std::strerror(errno));
        return -1;
    }
    // Records behind a missing head would be unreadable.
    if (Append(file, head, headSize, nullptr, 0)) return 0;
    file.Close();
    unlink(name.c_str());
    return -1;
}

}  // namespace

const CWriteShot& CWriteShot::GetInstance() {
    static const CWriteShot instance;
    return instance;
}

int32_t CWriteShot::CreateShotBinLog(const char* logPath, int32_t channel) const {
    return Create(g_recorder.bin, logPath, channel, ".bin", &BIN_HEAD, sizeof BIN_HEAD);
}

int32_t CWriteShot::CreateShotPcapLog(const char* logPath, int32_t channel) const {
    return Create(g_recorder.pcap, logPath, channel, ".pcap", &PCAP_HEAD, sizeof PCAP_HEAD);
}

void CWriteShot::CloseShotBinLog() const { g_recorder.bin.Close(); }

void CWriteShot::CloseShotPcapLog() const { g_recorder.pcap.Close(); }

void CWriteShot::WriteShotBinLog(const unsigned char* data, std::size_t length) const {
    g_recorder.lastStamp = CClock::WallNanoseconds();
    if (!g_recorder.bin.IsOpen() || data == nullptr) return;
    const BinRecordHead head{static_cast<uint64_t>(g_recorder.lastStamp), static_cast<uint32_t>(length), 0};
    if (Append(g_recorder.bin, &head, sizeof head, data, length)) ++g_recorder.bin.records;
}

void CWriteShot::WriteShotPcapLog(const unsigned char* data, std::size_t length) const {
    if (!g_recorder.pcap.IsOpen() || data == nullptr || length < FRAME_BYTES_MIN) return;
    const auto size = static_cast<uint32_t>(length);
    const PcapRecordHead head{static_cast<uint32_t>(g_recorder.lastStamp / NANOSECONDS_PER_SECOND),
                              static_cast<uint32_t>(g_recorder.lastStamp % NANOSECONDS_PER_SECOND), size, size};
    Append(g_recorder.pcap, &head, sizeof head, data, length);
}

uint64_t CWriteShot::GetBinShotCnt() const { return g_recorder.bin.records; }

uint64_t CWriteShot::GetDroppedCnt() const { return g_recorder.dropped; }
