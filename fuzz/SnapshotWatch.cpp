// The rules of fuzz_snapshot. Counters are compared before and after each DMA message, and before and after each
// message that the reassembly hands on.
#include "fuzz/SnapshotWatch.h"

#include <algorithm>
#include <cstring>

#include "fuzz/FuzzBoard.h"
#include "fuzz/Oracle.h"
#include "src/snapshot/SnapshotFrame.h"

namespace fuzz {
namespace {

constexpr uint32_t CARRY_OVER_BUFFERS = 512;
constexpr uint32_t EARLY_SEGMENTS = 2000;

/// The counter that stops a segment of this kind before any connection is looked at.
bool IsStopped(EWrong wrong, ECounter& counter) {
    switch (wrong) {
        case EWrong::Checksum: counter = ECounter::ChecksumWrong; return true;
        case EWrong::LengthBeyond:
        case EWrong::NoIpHeader:
        case EWrong::ShortTcpHeader:
        case EWrong::Cut: counter = ECounter::FrameMalformed; return true;
        case EWrong::ForeignPort:
        case EWrong::NotTcp:
        case EWrong::NoSegment: counter = ECounter::FrameForeign; return true;
        case EWrong::TooLong: counter = ECounter::MessageTooLong; return true;
        default: return false;
    }
}

constexpr ECounter FILTER[] = {ECounter::MessageTooLong, ECounter::FrameMalformed, ECounter::FrameForeign,
                               ECounter::ChecksumWrong};

}  // namespace

SnapshotWatch::SnapshotWatch(SnapshotReceiver& receiver) : m_receiver(receiver) {
    for (std::size_t i = 0; i < streams.size(); ++i) streams[i].port = static_cast<uint16_t>(FIRST_PORT + i);
    receiver.watch = this;
}

SnapshotWatch::~SnapshotWatch() { m_receiver.watch = nullptr; }

SnapshotWatch::State SnapshotWatch::Look(uint16_t port) const {
    return {m_receiver.state.counters, m_receiver.units.reassembly.EarlySegments(), m_receiver.state.sessions[port]};
}

uint64_t SnapshotWatch::Moved(const State& before, ECounter counter) const {
    return m_receiver.state.counters[counter] - before.counters[counter];
}

void SnapshotWatch::Hand(const std::vector<uint8_t>& message) {
    Board::Hand(
        message,
        [](const unsigned char* data, unsigned int length, void* phase) {
            static_cast<CSnapshotPhase*>(phase)->Take(data, length);
        },
        &m_receiver.phase);
    FUZZ_REQUIRE(m_receiver.units.reassembly.CarryOverBuffers() <= CARRY_OVER_BUFFERS);
    FUZZ_REQUIRE(m_receiver.units.reassembly.EarlySegments() <= EARLY_SEGMENTS);
}

bool SnapshotWatch::WasStoppedByFilter(const State& before) const {
    return std::any_of(std::begin(FILTER), std::end(FILTER),
                       [&](ECounter counter) { return Moved(before, counter) > 0; });
}

// ---- a segment ------------------------------------------------------------------------------------------------------

void SnapshotWatch::Send(Stream& stream, std::size_t begin, std::size_t end, EWrong wrong) {
    const State before = Look(stream.port);
    const std::vector<uint8_t> message = stream.Message(begin, end, wrong);
    ECounter stop{};
    const bool isStopped = IsStopped(wrong, stop);
    if (!isStopped) Follow(stream, begin, end, wrong);
    Hand(message);
    // Of several topics in a first message the first may begin the connection and a later one refuse the segment.
    if (Moved(before, ECounter::SegmentRefused) > 0) stream.isFollowed = false;
    if (isStopped) {
        RequireOneCount(before, wrong);
    } else if (wrong != EWrong::OddIpHeader && m_receiver.state.config.enabled_mask.enabled_mask != 0) {
        FUZZ_REQUIRE(!WasStoppedByFilter(before));
        if (wrong == EWrong::Reset) {
            FUZZ_REQUIRE(Moved(before, ECounter::ResetByPeer) + Moved(before, ECounter::PriceCheckFailed) == 1);
            FUZZ_REQUIRE(m_receiver.units.reassembly.TouchedSessions() == 0);
        } else if (wrong != EWrong::OtherHost) {
            RequireBalance(before, stream, begin, end);
        }
    }
    RequireWhereabouts(stream);
}

void SnapshotWatch::SendStranger(const std::vector<uint8_t>& message) {
    const State before = Look(0);
    Hand(message);
    if (WasStoppedByFilter(before)) return;
    for (Stream& stream : streams) stream.isFollowed = false;
}

// What is no message is dropped, a connection's first segment is stepped through by its first message, and a tail
// shorter than a header is kept wrongly: none is followed. What begins a connection anew is where following begins.
void SnapshotWatch::Follow(Stream& stream, std::size_t begin, std::size_t end, EWrong wrong) {
    const tcp_session_t& session = m_receiver.state.sessions[stream.port];
    if (session.init != 1) {
        stream.at = begin;
        const std::size_t first = stream.MessageAt(begin);
        stream.isFollowed = first >= end - begin && first > 0;
    }
    const bool isOther = session.init != 1 && wrong == EWrong::OtherHost;
    if (wrong == EWrong::OddIpHeader || isOther || !stream.IsWhole(end) || stream.CutsHeader(end)) {
        stream.isFollowed = false;
    }
}

// One that is stopped changes nothing but its counter.
void SnapshotWatch::RequireOneCount(const State& before, EWrong wrong) const {
    ECounter stop{};
    IsStopped(wrong, stop);
    for (std::size_t i = 0; i < static_cast<std::size_t>(ECounter::Count_); ++i) {
        const auto counter = static_cast<ECounter>(i);
        FUZZ_REQUIRE(Moved(before, counter) == (counter == stop ? 1 : 0));
    }
    FUZZ_REQUIRE(m_receiver.units.reassembly.EarlySegments() == before.early);
}

// Every sound segment is taken in order, kept, or counted.
void SnapshotWatch::RequireBalance(const State& before, const Stream& stream, std::size_t begin,
                                   std::size_t end) const {
    if (Moved(before, ECounter::PriceCheckFailed) != 0) return;
    const uint64_t refused = Moved(before, ECounter::SegmentRefused);
    const uint64_t otherHost = Moved(before, ECounter::SegmentOtherHost);
    const uint64_t repeated = Moved(before, ECounter::SegmentRepeated);
    const uint64_t dropped = Moved(before, ECounter::SegmentEarlyDropped) + Moved(before, ECounter::EarlyOverflow);
    const uint32_t early = m_receiver.units.reassembly.EarlySegments();
    const tcp_session_t& session = before.session;
    if (session.init != 1) {
        FUZZ_REQUIRE(refused <= 1 && otherHost + repeated + dropped == 0);
        if (refused == 1 && end == begin) FUZZ_REQUIRE(m_receiver.state.sessions[stream.port].init == 0);
        return;
    }
    FUZZ_REQUIRE(refused == 0);
    if (session.src_host != __builtin_bswap32(SERVER_HOST)) {
        FUZZ_REQUIRE(otherHost == 1 && repeated + dropped == 0);
        return;
    }
    FUZZ_REQUIRE(otherHost == 0);
    const uint32_t seq = stream.SeqAt(begin);
    const uint32_t expected = session.next_expt_seq;
    if (seq < expected) {
        FUZZ_REQUIRE(repeated == 1 && dropped == 0 && early == before.early);
    } else if (seq > expected) {
        const uint64_t kept = early > before.early ? early - before.early : 0;
        FUZZ_REQUIRE(kept + repeated + dropped == 1);
    } else {
        FUZZ_REQUIRE(dropped == 0 && early <= before.early && before.early - early >= repeated);
    }
}

// Of a connection that is followed every byte so far was decoded or lies in the carry-over.
void SnapshotWatch::RequireWhereabouts(const Stream& stream) const {
    const tcp_session_t& session = m_receiver.state.sessions[stream.port];
    if (!stream.isFollowed || session.init != 1) return;
    const uint32_t kept = session.frag_buf_offset;
    FUZZ_REQUIRE((session.frag_flag == 1) == (kept > 0));
    FUZZ_REQUIRE(session.next_expt_seq == stream.SeqAt(stream.at + kept));
    FUZZ_REQUIRE(stream.at + kept <= stream.bytes.size());
    FUZZ_REQUIRE(std::memcmp(session.frag_buf, stream.bytes.data() + stream.at, kept) == 0);
}

void SnapshotWatch::Clear() {
    m_receiver.phase.Clear();
    FUZZ_REQUIRE(m_receiver.units.reassembly.EarlySegments() == 0);
    FUZZ_REQUIRE(m_receiver.units.reassembly.CarryOverBuffers() == 0);
    FUZZ_REQUIRE(m_receiver.units.reassembly.TouchedSessions() == 0);
    for (const Stream& stream : streams) {
        const tcp_session_t empty{};
        FUZZ_REQUIRE(std::memcmp(&m_receiver.state.sessions[stream.port], &empty, sizeof empty) == 0);
    }
    static const U50InstTable EMPTY{};
    FUZZ_REQUIRE(std::memcmp(&m_receiver.state.tables, &EMPTY, sizeof EMPTY) == 0);
}

// ---- a message ------------------------------------------------------------------------------------------------------

struct SnapshotWatch::FieldCounts {
    uint64_t malformed = 0;
    uint64_t unknown = 0;
    uint64_t outOfRange = 0;
};

/// Walks the message plainly: whose record does not fit, whose number has no slot, who is unknown.
SnapshotWatch::FieldCounts SnapshotWatch::CountFields(const uint8_t* bytes, EMDQPDataType feed) const {
    const std::size_t length = MdqpBytes(bytes) - sizeof(mdqp_t);
    const int32_t slots = feed == SHFE_2PS || feed == SHFE_4PS ? SHFE_INST_CAPACITY : INE_INST_CAPACITY;
    FieldCounts counts;
    for (std::size_t at = 8; at < length;) {
        const auto id = snapshot_frame::Raw<uint16_t>(bytes + at);
        const auto size = snapshot_frame::Raw<uint16_t>(bytes + at + 2);
        const std::size_t record = at + 4;
        at = record + size;
        std::size_t needed = 0;
        std::size_t number = 0;
        switch (id) {
            case 0x0101: needed = 112, number = 108; break;
            case 0x0102: needed = 154; break;
            case 0x0103: needed = 17; break;
            case 0x0104: needed = 28; break;
            case 0x1004: needed = 4; break;
            case 0x0031:
            case 0x0032:
            case 0x1001:
            case 0x1002:
            case 0x1003: continue;
            default: ++counts.unknown; continue;
        }
        if (record + needed > length + 8) {
            ++counts.malformed;
        } else if (id != 0x1004) {
            const auto instNo = snapshot_frame::Raw<int32_t>(bytes + record + number);
            if (instNo < 0 || instNo >= slots) ++counts.outOfRange;
        }
    }
    return counts;
}

bool SnapshotWatch::Decode(const uint8_t* message, uint32_t arrived, uint16_t port, const tcp_session_t& session) {
    const uint32_t size = MdqpBytes(message);
    EMDQPDataType feed{};
    const bool isOfFeed = m_receiver.units.store.Find(port, feed);
    const State before = Look(port);
    if (isOfFeed && size > arrived) {
        FUZZ_REQUIRE(!m_receiver.units.feeds.OnMessage(message, arrived, port, session));
        FUZZ_REQUIRE(Moved(before, ECounter::FieldMalformed) == 1);
        return false;
    }
    const std::size_t index = std::size_t{port} - FIRST_PORT;
    if (index < streams.size() && streams[index].isFollowed) {
        Stream& stream = streams[index];
        FUZZ_REQUIRE(stream.at + size <= stream.bytes.size());
        FUZZ_REQUIRE(std::memcmp(message, stream.bytes.data() + stream.at, size) == 0);
        stream.at += size;
    }
    const FieldCounts expected = isOfFeed ? CountFields(message, feed) : FieldCounts{};
    const bool isLast = m_receiver.units.feeds.OnMessage(message, arrived, port, session);
    FUZZ_REQUIRE(isLast == (isOfFeed && message[0] == mdqp::FLAG_LAST));
    FUZZ_REQUIRE(Moved(before, ECounter::MessageOfNoFeed) == (isOfFeed ? 0 : 1));
    FUZZ_REQUIRE(Moved(before, ECounter::FieldMalformed) == expected.malformed);
    FUZZ_REQUIRE(Moved(before, ECounter::FieldUnknown) == expected.unknown);
    FUZZ_REQUIRE(Moved(before, ECounter::InstNoOutOfRange) == expected.outOfRange);
    return isLast;
}

bool SnapshotReceiver::OnMessage(const uint8_t* message, uint32_t arrived, uint16_t port,
                                 const tcp_session_t& session) {
    return watch->Decode(message, arrived, port, session);
}

}  // namespace fuzz
