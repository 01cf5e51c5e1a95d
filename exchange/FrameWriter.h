/// Builds Ethernet/IPv4/TCP frames with right checksums, and breaks one thing on request.
#pragma once

#include <cstdint>
#include <vector>

#include "common/FrameHeaders.h"

namespace exchange {

/// Addresses in host order: 10.1.2.3 is 0x0A010203.
struct TcpEndpoints {
    uint32_t srcIp = 0;
    uint32_t dstIp = 0;
    uint16_t srcPort = 0;
    uint16_t dstPort = 0;
};

using frame_headers::TCP_ACK;
using frame_headers::TCP_FIN;
using frame_headers::TCP_PSH;
using frame_headers::TCP_RST;
using frame_headers::TCP_SYN;

class FrameWriter {
public:
    explicit FrameWriter(const TcpEndpoints& endpoints) : m_endpoints(endpoints) {}

    FrameWriter& Seq(uint32_t seq);
    FrameWriter& Flags(uint8_t flags);
    FrameWriter& Payload(std::vector<uint8_t> payload);

    // Mutators; checksums are computed afterwards, so that nothing else is wrong, unless WithChecksumOff is used.
    FrameWriter& WithIpHeaderWords(uint8_t words);   ///< what ip_hl says; 5 is the truth
    FrameWriter& WithTcpHeaderWords(uint8_t words);  ///< what doff says; 5 is the truth
    FrameWriter& WithTotalLengthOff(int delta);      ///< what ip_len says
    FrameWriter& WithProtocol(uint8_t protocol);     ///< 6 is TCP
    FrameWriter& WithChecksumOff();                  ///< one bit of the TCP checksum is wrong

    /// The frame, from its 14-byte Ethernet header on.
    std::vector<uint8_t> Frame() const;

    /// The frame inside a DMA_TCP message, as the board hands it up.
    std::vector<uint8_t> DmaMessage() const;

private:
    TcpEndpoints m_endpoints;
    uint32_t m_seq = 1;
    uint8_t m_flags = TCP_ACK;
    std::vector<uint8_t> m_payload;
    uint8_t m_ipHeaderWords = 5;
    uint8_t m_tcpHeaderWords = 5;
    int m_totalLengthOff = 0;
    uint8_t m_protocol = 6;
    bool m_isChecksumOff = false;
};

/// Puts `frame` behind the 12-byte head of a DMA_TCP message.
std::vector<uint8_t> WrapInDmaTcp(const std::vector<uint8_t>& frame);

}  // namespace exchange
