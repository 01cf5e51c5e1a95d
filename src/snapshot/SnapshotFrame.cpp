#include "src/snapshot/SnapshotFrame.h"

#include "common/FpgaStructCommon.h"

namespace snapshot_frame {
namespace {

using headers::PSEUDO_HEADER_BYTES;

// A header length counts four-bit words, so that an IP header can never be too long for a TCP part behind it.
static_assert(headers::ETHERNET_BYTES + 15 * headers::WORD_BYTES < TCP_LENGTH_LIMIT);
static_assert(PSEUDO_HEADER_BYTES + TCP_LENGTH_LIMIT <= DMA_MESSAGE_CAPACITY);

/// The addresses and the length that the checksum covers besides the TCP part; then that part without its checksum.
void FillChecksumArea(const SnapshotFrame& frame, uint8_t* area) {
    std::memcpy(area, &frame.ipSrc, sizeof(frame.ipSrc));
    std::memcpy(area + 4, &frame.ipDst, sizeof(frame.ipDst));
    area[8] = 0;
    area[9] = frame.protocol;
    area[10] = static_cast<uint8_t>(frame.tcpLength >> 8);
    area[11] = static_cast<uint8_t>(frame.tcpLength);
    std::memcpy(area + PSEUDO_HEADER_BYTES, frame.tcp, static_cast<std::size_t>(frame.tcpLength));
    std::memset(area + PSEUDO_HEADER_BYTES + headers::TCP_CHECKSUM, 0, sizeof(frame.check));
}

}  // namespace

uint16_t Checksum(const uint8_t* bytes, int32_t length) {
    uint32_t sum = 0;
    for (; length >= 2; length -= 2, bytes += 2) sum += Raw<uint16_t>(bytes);
    if (length == 1) {
        const uint8_t lastWord[2] = {*bytes, 0};
        sum += Raw<uint16_t>(lastWord);
    }
    while ((sum >> 16) != 0) sum = (sum & 0xFFFF) + (sum >> 16);
    return static_cast<uint16_t>(~sum);
}

uint16_t TcpChecksum(const SnapshotFrame& frame) {
    uint8_t area[DMA_MESSAGE_CAPACITY];
    FillChecksumArea(frame, area);
    return Checksum(area, frame.tcpLength + static_cast<int32_t>(PSEUDO_HEADER_BYTES));
}

}  // namespace snapshot_frame
