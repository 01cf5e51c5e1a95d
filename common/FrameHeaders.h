/// Sizes, offsets and values of the headers in front of a snapshot segment's payload: Ethernet, IPv4, TCP. Multi-byte
/// values are in network order; nothing is aligned.
#pragma once

#include <cstdint>

namespace frame_headers {

constexpr uint32_t ETHERNET_BYTES = 14;
constexpr uint32_t IP_BYTES_MIN = 20;
constexpr uint32_t TCP_BYTES_MIN = 20;
constexpr uint32_t BYTES_MIN = ETHERNET_BYTES + IP_BYTES_MIN + TCP_BYTES_MIN;
constexpr uint32_t WORD_BYTES = 4;  ///< header lengths count these

// From the IPv4 header on.
constexpr uint32_t IP_TOTAL_LENGTH = 2;
constexpr uint32_t IP_PROTOCOL = 9;
constexpr uint32_t IP_CHECKSUM = 10;
constexpr uint32_t IP_SOURCE = 12;
constexpr uint32_t IP_DESTINATION = 16;
constexpr uint8_t PROTOCOL_TCP = 6;

// From the TCP header on.
constexpr uint32_t TCP_SOURCE = 0;
constexpr uint32_t TCP_DESTINATION = 2;
constexpr uint32_t TCP_SEQUENCE = 4;
constexpr uint32_t TCP_DATA_OFFSET = 12;
constexpr uint32_t TCP_FLAGS = 13;
constexpr uint32_t TCP_CHECKSUM = 16;
constexpr uint8_t TCP_FIN = 0x01;
constexpr uint8_t TCP_SYN = 0x02;
constexpr uint8_t TCP_RST = 0x04;
constexpr uint8_t TCP_PSH = 0x08;
constexpr uint8_t TCP_ACK = 0x10;

/// Addresses, a zero, the protocol and the length of the TCP part, which its checksum covers too.
constexpr uint32_t PSEUDO_HEADER_BYTES = 12;

}  // namespace frame_headers
