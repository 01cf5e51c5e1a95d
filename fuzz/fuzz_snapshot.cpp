// Feeds the snapshot handler with arbitrary DMA messages: the input is a chain of two length bytes and a message. The
// lowest bit of each length mends the frame's checksum, so that half of the mutations reach what lies behind it.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>

#include "src/SnapshotFrame.h"
#include "src/VexaShfeMdApiImpl.h"

namespace {

constexpr uint16_t SNAP_PORT = 33022;
constexpr int32_t TOPICS[FEED_COUNT] = {1000, 1001, 5000, 5001};

/// A session of four feeds. No provider is loaded: registers read as nothing and writes go nowhere.
class FuzzedApi : public CVexaShfeMdApiImpl {
public:
    FuzzedApi() {
        CCommonLog::GetInstance().SetLogLevel(LOG_NONE);
        m_u50ConfigInfo.enabled_mask.enabled_mask = 0x0F;
        m_u50ConfigInfo.log_level = LOG_NONE;
        m_u50ConfigInfo.snapTcpPort = {SNAP_PORT, SNAP_PORT, SNAP_PORT, SNAP_PORT};
        m_u50ConfigInfo.topicID = {TOPICS[SHFE_2PS], TOPICS[SHFE_4PS], TOPICS[INE_2PS], TOPICS[INE_4PS]};
    }

    void Clear() { _Cleandata(*this); }

    void Hand(const uint8_t* message, std::size_t length) {
        // Exactly what a provider promises to be readable.
        const std::size_t readable = std::max<std::size_t>(length, DMA_READABLE_BYTES);
        const std::unique_ptr<uint8_t[]> block(new uint8_t[readable]());
        std::copy_n(message, length, block.get());
        _TcpHandler(block.get(), static_cast<unsigned int>(length), this);
    }

    void HandMended(const uint8_t* message, std::size_t length) {
        uint8_t copy[DMA_MESSAGE_CAPACITY];
        length = std::min(length, sizeof copy);
        std::copy_n(message, length, copy);
        Mend(copy, length);
        Hand(copy, length);
    }

private:
    static void Mend(uint8_t* message, std::size_t length) {
        if (length < DMA_TCP_FRAME_OFFSET) return;
        const uint32_t type = DMA_TCP;
        std::memcpy(message, &type, sizeof type);
        uint8_t* frameBytes = message + DMA_TCP_FRAME_OFFSET;
        SnapshotFrame frame;
        const auto frameLength = static_cast<uint32_t>(length - DMA_TCP_FRAME_OFFSET);
        if (!snapshot_frame::ReadHeaders(frameBytes, frameLength, frame) || !snapshot_frame::IsTcpCaptured(frame))
            return;
        const auto tcpLength = static_cast<uint32_t>(frame.tcpLength);
        uint8_t area[12 + DMA_MESSAGE_CAPACITY] = {};
        std::memcpy(area, &frame.ipSrc, 4);
        std::memcpy(area + 4, &frame.ipDst, 4);
        area[9] = frame.protocol;
        area[10] = static_cast<uint8_t>(tcpLength >> 8);
        area[11] = static_cast<uint8_t>(tcpLength);
        std::memcpy(area + 12, frame.tcp, tcpLength);
        std::memset(area + 12 + snapshot_frame::TCP_CHECK_OFFSET, 0, 2);
        const uint16_t check = TcpCheckSum(area, static_cast<int32_t>(12 + tcpLength));
        const auto tcpOffset = static_cast<std::size_t>(frame.tcp - frameBytes);
        std::memcpy(frameBytes + tcpOffset + snapshot_frame::TCP_CHECK_OFFSET, &check, sizeof check);
    }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    static const auto api = std::make_unique<FuzzedApi>();
    while (size >= 2) {
        const uint32_t head = static_cast<uint32_t>(data[0]) | (static_cast<uint32_t>(data[1]) << 8);
        data += 2;
        size -= 2;
        const std::size_t length = std::min<std::size_t>(head >> 1, size);
        if ((head & 1) != 0) {
            api->HandMended(data, length);
        } else {
            api->Hand(data, length);
        }
        data += length;
        size -= length;
    }
    api->Clear();
    return 0;
}
