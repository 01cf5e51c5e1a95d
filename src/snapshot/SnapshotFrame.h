/// A checked view of one captured frame of a snapshot connection. Arriving frames and stored early ones are read by
/// the same functions, so that no length is believed twice or believed anywhere else.
///
///     [ Ethernet 14 | IPv4 header | TCP header | payload ........ | padding of the link layer ]
///                   '------------- total length ----------------'
///     '------------------------- length, as captured ----------------------------------------'
#pragma once

#include <cstdint>
#include <cstring>

#include "common/FrameHeaders.h"

constexpr int32_t TCP_LENGTH_LIMIT = 2036;  ///< bytes; a TCP header with its payload must be shorter

struct SnapshotFrame {
    const uint8_t* bytes;  ///< from the Ethernet header on
    uint32_t length;       ///< as captured
    uint32_t ipSrc;        ///< network order, as received
    uint32_t ipDst;        ///< network order, as received
    uint8_t protocol;
    uint16_t srcPort;
    uint16_t dstPort;
    uint32_t seq;
    uint8_t flags;
    uint16_t check;  ///< as it lies in the header
    const uint8_t* tcp;
    int32_t tcpLength;  ///< header and payload, by what the IP header says
    const uint8_t* payload;
    uint32_t payloadLength;
};

namespace snapshot_frame {

namespace headers = frame_headers;

/// Headers begin at any offset, so nothing is read but by bytes or copies.
template <class T>
T Raw(const uint8_t* bytes) {
    T value;
    std::memcpy(&value, bytes, sizeof(value));
    return value;
}

inline uint16_t Big16(const uint8_t* bytes) { return static_cast<uint16_t>((bytes[0] << 8) | bytes[1]); }
inline uint32_t Big32(const uint8_t* bytes) { return (uint32_t{Big16(bytes)} << 16) | Big16(bytes + 2); }

/// All but the payload. False when the headers do not fit what was captured; nothing beyond it is read.
inline bool ReadHeaders(const uint8_t* bytes, uint32_t length, SnapshotFrame& frame) {
    if (length < headers::ETHERNET_BYTES + headers::IP_BYTES_MIN) return false;
    const uint8_t* ip = bytes + headers::ETHERNET_BYTES;
    const uint32_t ipHeaderBytes = (ip[0] & 0x0FU) * headers::WORD_BYTES;
    if (ipHeaderBytes < headers::IP_BYTES_MIN) return false;
    if (headers::ETHERNET_BYTES + ipHeaderBytes + headers::TCP_BYTES_MIN > length) return false;
    frame.bytes = bytes;
    frame.length = length;
    frame.tcpLength = static_cast<int32_t>(Big16(ip + headers::IP_TOTAL_LENGTH)) - static_cast<int32_t>(ipHeaderBytes);
    frame.protocol = ip[headers::IP_PROTOCOL];
    frame.ipSrc = Raw<uint32_t>(ip + headers::IP_SOURCE);
    frame.ipDst = Raw<uint32_t>(ip + headers::IP_DESTINATION);

    const uint8_t* tcp = ip + ipHeaderBytes;
    frame.tcp = tcp;
    frame.srcPort = Big16(tcp + headers::TCP_SOURCE);
    frame.dstPort = Big16(tcp + headers::TCP_DESTINATION);
    frame.seq = Big32(tcp + headers::TCP_SEQUENCE);
    frame.flags = tcp[headers::TCP_FLAGS];
    frame.check = Raw<uint16_t>(tcp + headers::TCP_CHECKSUM);
    return true;
}

/// Whether the IP header's total length stays within what was captured and leaves room for a TCP header.
inline bool IsTcpCaptured(const SnapshotFrame& frame) {
    const auto captured = static_cast<int32_t>(frame.length - (frame.tcp - frame.bytes));
    return frame.tcpLength >= static_cast<int32_t>(headers::TCP_BYTES_MIN) && frame.tcpLength <= captured;
}

/// Needs a captured TCP part. False when the TCP header is too short or runs beyond the total length.
inline bool ReadPayload(SnapshotFrame& frame) {
    const uint32_t headerBytes = (frame.tcp[headers::TCP_DATA_OFFSET] >> 4U) * headers::WORD_BYTES;
    const auto tcpLength = static_cast<uint32_t>(frame.tcpLength);
    if (headerBytes < headers::TCP_BYTES_MIN || headerBytes > tcpLength) return false;
    frame.payload = frame.tcp + headerBytes;
    frame.payloadLength = tcpLength - headerBytes;
    return true;
}

/// The Internet checksum of `length` bytes, in the machine's byte order, as a header holds it.
uint16_t Checksum(const uint8_t* bytes, int32_t length);

/// What the frame's checksum should be. Needs a captured TCP part below TCP_LENGTH_LIMIT.
uint16_t TcpChecksum(const SnapshotFrame& frame);

}  // namespace snapshot_frame
