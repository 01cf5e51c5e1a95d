// Builds the frames of a snapshot connection, byte by byte in network order. Checksums are computed over what the
// frame says of itself, mutations included, so that a test breaks one thing only.
#include "exchange/FrameWriter.h"

#include <cstddef>
#include <utility>

#include "common/FpgaStructCommon.h"

namespace exchange {
namespace {

using frame_headers::BYTES_MIN;
using frame_headers::ETHERNET_BYTES;
constexpr std::size_t IP_BYTES = frame_headers::IP_BYTES_MIN;
constexpr std::size_t TCP_BYTES = frame_headers::TCP_BYTES_MIN;
constexpr std::size_t IP_CHECKSUM_OFFSET = ETHERNET_BYTES + frame_headers::IP_CHECKSUM;
constexpr std::size_t TCP_CHECKSUM_OFFSET = ETHERNET_BYTES + IP_BYTES + frame_headers::TCP_CHECKSUM;
constexpr uint16_t ETHERTYPE_IPV4 = 0x0800;
constexpr uint8_t IP_VERSION_4 = 4;
constexpr uint8_t TIME_TO_LIVE = 64;
constexpr uint16_t TCP_WINDOW = 65535;

void Put8(std::vector<uint8_t>& out, uint8_t value) { out.push_back(value); }

void Put16(std::vector<uint8_t>& out, uint16_t value) {
    Put8(out, static_cast<uint8_t>(value >> 8));
    Put8(out, static_cast<uint8_t>(value));
}

void Put32(std::vector<uint8_t>& out, uint32_t value) {
    Put16(out, static_cast<uint16_t>(value >> 16));
    Put16(out, static_cast<uint16_t>(value));
}

void PutLittle32(std::vector<uint8_t>& out, uint32_t value) {
    for (int shift = 0; shift < 32; shift += 8) Put8(out, static_cast<uint8_t>(value >> shift));
}

void Store16(std::vector<uint8_t>& frame, std::size_t offset, uint16_t value) {
    frame[offset] = static_cast<uint8_t>(value >> 8);
    frame[offset + 1] = static_cast<uint8_t>(value);
}

/// Sum of big-endian words; an odd last byte counts as the high half of one.
uint32_t SumOfWords(const std::vector<uint8_t>& bytes, std::size_t first, std::size_t last, uint32_t sum) {
    for (std::size_t i = first; i < last; i += 2) {
        sum += static_cast<uint32_t>(bytes[i]) << 8;
        if (i + 1 < last) sum += bytes[i + 1];
    }
    return sum;
}

uint16_t Fold(uint32_t sum) {
    while (sum > 0xFFFF) sum = (sum & 0xFFFF) + (sum >> 16);
    return static_cast<uint16_t>(~sum);
}

/// What a receiver covers with the TCP checksum: the pseudo-header, then the bytes that ip_len and ip_hl leave.
uint16_t TcpChecksum(const std::vector<uint8_t>& frame, const TcpEndpoints& ends, std::size_t tcpStart,
                     std::size_t tcpLength, uint8_t protocol) {
    std::vector<uint8_t> pseudo;
    Put32(pseudo, ends.srcIp);
    Put32(pseudo, ends.dstIp);
    Put16(pseudo, protocol);
    Put16(pseudo, static_cast<uint16_t>(tcpLength));
    const std::size_t end = tcpStart + tcpLength;
    const uint32_t sum = SumOfWords(pseudo, 0, pseudo.size(), 0);
    if (tcpStart <= frame.size() && end <= frame.size()) return Fold(SumOfWords(frame, tcpStart, end, sum));
    return Fold(sum);
}

}  // namespace

FrameWriter& FrameWriter::Seq(uint32_t seq) {
    m_seq = seq;
    return *this;
}

FrameWriter& FrameWriter::Flags(uint8_t flags) {
    m_flags = flags;
    return *this;
}

FrameWriter& FrameWriter::Payload(std::vector<uint8_t> payload) {
    m_payload = std::move(payload);
    return *this;
}

FrameWriter& FrameWriter::WithIpHeaderWords(uint8_t words) {
    m_ipHeaderWords = words;
    return *this;
}

FrameWriter& FrameWriter::WithTcpHeaderWords(uint8_t words) {
    m_tcpHeaderWords = words;
    return *this;
}

FrameWriter& FrameWriter::WithTotalLengthOff(int delta) {
    m_totalLengthOff = delta;
    return *this;
}

FrameWriter& FrameWriter::WithProtocol(uint8_t protocol) {
    m_protocol = protocol;
    return *this;
}

FrameWriter& FrameWriter::WithChecksumOff() {
    m_isChecksumOff = true;
    return *this;
}

std::vector<uint8_t> FrameWriter::Frame() const {
    const auto totalLength =
        static_cast<uint16_t>(static_cast<int>(IP_BYTES + TCP_BYTES + m_payload.size()) + m_totalLengthOff);
    std::vector<uint8_t> frame(2 * 6, 0);  // the addresses of the link layer mean nothing here
    frame.reserve(BYTES_MIN + m_payload.size());
    Put16(frame, ETHERTYPE_IPV4);

    Put8(frame, static_cast<uint8_t>((IP_VERSION_4 << 4) | (m_ipHeaderWords & 0x0F)));
    Put8(frame, 0);
    Put16(frame, totalLength);
    Put32(frame, 0);  // identification, fragment offset
    Put8(frame, TIME_TO_LIVE);
    Put8(frame, m_protocol);
    Put16(frame, 0);
    Put32(frame, m_endpoints.srcIp);
    Put32(frame, m_endpoints.dstIp);

    Put16(frame, m_endpoints.srcPort);
    Put16(frame, m_endpoints.dstPort);
    Put32(frame, m_seq);
    Put32(frame, 0);
    Put8(frame, static_cast<uint8_t>(m_tcpHeaderWords << 4));
    Put8(frame, m_flags);
    Put16(frame, TCP_WINDOW);
    Put32(frame, 0);  // checksum, urgent pointer
    frame.insert(frame.end(), m_payload.begin(), m_payload.end());

    Store16(frame, IP_CHECKSUM_OFFSET, Fold(SumOfWords(frame, ETHERNET_BYTES, ETHERNET_BYTES + IP_BYTES, 0)));
    const std::size_t ipHeader = std::size_t{m_ipHeaderWords} * 4;
    const std::size_t tcpLength = totalLength > ipHeader ? totalLength - ipHeader : 0;
    uint16_t checksum = TcpChecksum(frame, m_endpoints, ETHERNET_BYTES + ipHeader, tcpLength, m_protocol);
    if (m_isChecksumOff) checksum ^= 1;
    Store16(frame, TCP_CHECKSUM_OFFSET, checksum);
    return frame;
}

std::vector<uint8_t> FrameWriter::DmaMessage() const { return WrapInDmaTcp(Frame()); }

std::vector<uint8_t> WrapInDmaTcp(const std::vector<uint8_t>& frame) {
    std::vector<uint8_t> message;
    message.reserve(DMA_TCP_FRAME_OFFSET + frame.size());
    PutLittle32(message, DMA_TCP);
    PutLittle32(message, static_cast<uint32_t>(DMA_TCP_FRAME_OFFSET + frame.size()));
    PutLittle32(message, 0);
    message.insert(message.end(), frame.begin(), frame.end());
    return message;
}

}  // namespace exchange
