// The streams of fuzz_snapshot and their frames, sound ones and others.
#include "fuzz/SnapshotStream.h"

#include <algorithm>
#include <cstring>

#include "common/FpgaStructCommon.h"

namespace fuzz {
namespace {

constexpr uint16_t OTHER_PORT = 1023;
constexpr uint32_t OTHER_HOST = 0x0A1400FE;
constexpr std::size_t PADDING = 6;
constexpr std::size_t BEYOND_MAX = 2000;

bool IsWholeMessage(const std::vector<uint8_t>& bytes) {
    if (bytes.size() < sizeof(mdqp_t)) return false;
    uint16_t length = 0;
    std::memcpy(&length, &bytes[offsetof(mdqp_t, length)], sizeof length);
    return (bytes[0] == mdqp::FLAG_LAST || bytes[0] == mdqp::FLAG_MORE) && bytes[1] == mdqp::TYPE_SNAPSHOT &&
           bytes.size() == sizeof(mdqp_t) + length;
}

bool IsTaken(EWrong wrong) {
    return wrong == EWrong::Nothing || wrong == EWrong::Padded || wrong == EWrong::ResetWithoutAck;
}

}  // namespace

void Stream::Open(uint32_t seq) {
    initialSeq = seq;
    bytes.clear();
    m_begins.clear();
    m_wholeEnd = cursor = at = 0;
    isFollowed = false;
}

void Stream::Add(const std::vector<uint8_t>& message) {
    if (bytes.size() + message.size() > STREAM_BYTES_MAX) return;
    if (m_wholeEnd == bytes.size() && IsWholeMessage(message)) {
        m_begins.push_back(bytes.size());
        m_wholeEnd += message.size();
    }
    bytes.insert(bytes.end(), message.begin(), message.end());
}

std::size_t Stream::MessageAt(std::size_t position) const {
    const auto found = std::lower_bound(m_begins.begin(), m_begins.end(), position);
    if (found == m_begins.end() || *found != position) return 0;
    return (found + 1 == m_begins.end() ? m_wholeEnd : *(found + 1)) - position;
}

bool Stream::CutsHeader(std::size_t position) const {
    const auto behind = std::lower_bound(m_begins.begin(), m_begins.end(), position);
    return behind != m_begins.begin() && position - *(behind - 1) < sizeof(mdqp_t);
}

std::vector<uint8_t> Stream::Message(std::size_t begin, std::size_t end, EWrong wrong) const {
    std::vector<uint8_t> payload(bytes.begin() + static_cast<std::ptrdiff_t>(begin),
                                 bytes.begin() + static_cast<std::ptrdiff_t>(end));
    if (!IsTaken(wrong)) std::for_each(payload.begin(), payload.end(), [](uint8_t& byte) { byte ^= 0x5A; });
    exchange::TcpEndpoints ends{SERVER_HOST, LOCAL_HOST, SNAP_PORT, port};
    if (wrong == EWrong::ForeignPort) ends.srcPort = OTHER_PORT;
    if (wrong == EWrong::OtherHost) ends.srcIp = OTHER_HOST;
    exchange::FrameWriter writer(ends);
    writer.Seq(SeqAt(begin)).Flags(exchange::TCP_ACK | exchange::TCP_PSH).Payload(std::move(payload));
    switch (wrong) {
        case EWrong::Checksum: writer.WithChecksumOff(); break;
        case EWrong::LengthBeyond: writer.WithTotalLengthOff(1 + static_cast<int>(begin % BEYOND_MAX)); break;
        case EWrong::NoIpHeader: writer.WithIpHeaderWords(4); break;
        case EWrong::OddIpHeader: writer.WithIpHeaderWords(15); break;
        case EWrong::ShortTcpHeader: writer.WithTcpHeaderWords(4); break;
        case EWrong::NotTcp: writer.WithProtocol(17); break;
        case EWrong::Reset: writer.Flags(exchange::TCP_RST | exchange::TCP_ACK); break;
        case EWrong::ResetWithoutAck: writer.Flags(exchange::TCP_RST); break;
        default: break;
    }
    std::vector<uint8_t> message = writer.DmaMessage();
    if (wrong == EWrong::Padded) message.resize(message.size() + PADDING);
    if (wrong == EWrong::Cut) message.pop_back();
    if (wrong == EWrong::TooLong) message.resize(DMA_MESSAGE_CAPACITY + 1);
    if (wrong == EWrong::NoSegment) message[0] = DMA_EVENT;
    return message;
}

}  // namespace fuzz
