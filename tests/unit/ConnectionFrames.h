/// Connections with known messages, and a look at the frames that they send.
#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include "common/Mdqp.h"
#include "exchange/SnapshotConnection.h"
#include "tests/support/FaultSet.h"

namespace exchange {

inline constexpr TcpEndpoints ENDPOINTS{0x0A010203, 0x0A040506, 33022, 41000};
inline constexpr uint32_t INITIAL_SEQ = 1000000;
inline constexpr std::size_t ETHERNET_BYTES = 14;
inline constexpr std::size_t IP_BYTES = 20;
inline constexpr std::size_t TCP_BYTES = 20;
inline constexpr std::size_t TCP_START = ETHERNET_BYTES + IP_BYTES;
inline constexpr std::size_t PAYLOAD_START = TCP_START + TCP_BYTES;
inline constexpr int FAR_MORE_THAN_A_SESSION = 5000;

using Bytes = std::vector<uint8_t>;
using Messages = std::vector<Bytes>;

inline uint32_t Word16(const Bytes& frame, std::size_t at) { return uint32_t{frame[at]} * 256 + frame[at + 1]; }

inline uint32_t SeqOf(const Bytes& frame) {
    return Word16(frame, TCP_START + 4) * 65536 + Word16(frame, TCP_START + 6);
}

inline uint8_t FlagsOf(const Bytes& frame) { return frame[TCP_START + 13]; }

inline Bytes PayloadOf(const Bytes& frame) { return Bytes(frame.begin() + PAYLOAD_START, frame.end()); }

/// The Internet checksum the slow way: the sum over pseudo-header and segment, its checksum included, is all ones.
inline bool IsChecksumRight(const Bytes& frame) {
    Bytes covered(frame.begin() + ETHERNET_BYTES + 12, frame.end());  // addresses, TCP header, payload
    const std::size_t tcpLength = frame.size() - TCP_START;
    covered.insert(covered.end(), covered.size() % 2, 0);
    uint64_t sum = 6 + tcpLength;
    for (std::size_t i = 0; i < covered.size(); i += 2) sum += Word16(covered, i);
    return sum % 65535 == 0;
}

inline uint32_t Word32(const Bytes& frame, std::size_t at) { return Word16(frame, at) * 65536 + Word16(frame, at + 2); }

inline bool AreLengthsRight(const Bytes& frame) {
    return frame[ETHERNET_BYTES] == 0x45 && Word16(frame, ETHERNET_BYTES + 2) == frame.size() - ETHERNET_BYTES &&
           frame[TCP_START + 12] == 0x50;
}

inline bool IsOfTheServer(const Bytes& frame) {
    return Word32(frame, ETHERNET_BYTES + 12) == ENDPOINTS.srcIp && Word16(frame, TCP_START) == ENDPOINTS.srcPort;
}

/// Whatever a receiver may take for a segment of the stream.
inline bool IsOfTheStream(const Bytes& frame) {
    return IsChecksumRight(frame) && AreLengthsRight(frame) && IsOfTheServer(frame) && frame.size() > PAYLOAD_START;
}

/// Every fault of segments after which the stream still arrives whole.
inline Faults AllDisturbances() {
    return Only(EFault::Reorder, EFault::Duplicate, EFault::Drop, EFault::CorruptChecksum, EFault::CorruptLength,
                EFault::ForeignPort, EFault::ForeignHost, EFault::ResetWithoutAck);
}

/// A message of `size` bytes with a recognisable body.
inline Bytes Message(std::size_t size, uint8_t flag = mdqp::FLAG_MORE) {
    Bytes message(size);
    for (std::size_t i = 0; i < size; ++i) message[i] = static_cast<uint8_t>(i * 7 + size);
    message[0] = flag;
    message[1] = mdqp::TYPE_SNAPSHOT;
    message[2] = static_cast<uint8_t>((size - sizeof(mdqp_t)) % 256);
    message[3] = static_cast<uint8_t>((size - sizeof(mdqp_t)) / 256);
    return message;
}

/// Sizes that bring message starts to every place of a segment.
inline Messages ManyMessages() {
    Messages messages{Message(300)};
    for (std::size_t i = 0; i < 200; ++i) messages.push_back(Message(301 + i * 37 % 900));
    messages.push_back(Message(5000));
    messages.push_back(Message(8, mdqp::FLAG_LAST));
    return messages;
}

inline Bytes Joined(const Messages& messages) {
    Bytes stream;
    for (const Bytes& message : messages) stream.insert(stream.end(), message.begin(), message.end());
    return stream;
}

/// Everything a connection sends until it stops or has sent all.
inline Messages FramesUpToTheEnd(SnapshotConnection& connection) {
    Messages frames;
    Bytes frame;
    for (int i = 0; i < FAR_MORE_THAN_A_SESSION && !connection.IsSent() && connection.NextFrame(frame); ++i) {
        frames.push_back(frame);
    }
    return frames;
}

inline Messages FramesOf(const Faults& faults, uint64_t seed = 1, const Messages& messages = ManyMessages()) {
    SnapshotConnection connection(ENDPOINTS, INITIAL_SEQ, messages, faults, seed);
    return FramesUpToTheEnd(connection);
}

/// The stream as a receiver of right segments puts it together, whatever their order.
inline Bytes Reassembled(const Messages& frames) {
    std::map<uint32_t, Bytes> segments;
    for (const Bytes& frame : frames) {
        if (IsOfTheStream(frame)) segments[SeqOf(frame) - INITIAL_SEQ] = PayloadOf(frame);
    }
    Bytes stream;
    for (const auto& [seq, payload] : segments) {
        if (seq != stream.size()) break;
        stream.insert(stream.end(), payload.begin(), payload.end());
    }
    return stream;
}

inline std::vector<uint32_t> SeqsOf(const Messages& frames) {
    std::vector<uint32_t> seqs;
    for (const Bytes& frame : frames) seqs.push_back(SeqOf(frame));
    return seqs;
}

}  // namespace exchange
