#include "software_board/SnapshotService.h"

#include <algorithm>

namespace software_board {

namespace {

constexpr uint32_t SHFE_SERVER_IP = 0x0A0A0101;
constexpr uint32_t INE_SERVER_IP = 0x0A0A0201;
constexpr uint32_t ACKNOWLEDGEMENTS_BEFORE_RECONNECT = 16;
constexpr uint32_t FRAMES_PER_FOREIGN_FRAME = 60;
constexpr uint32_t PORT_STEP = 16;  // between two connects of one feed
constexpr uint32_t PORT_FIRST = 1024;
constexpr uint32_t INITIAL_SEQ = 1000;
constexpr uint32_t INITIAL_SEQ_STEP = 77'777'777;
constexpr uint32_t BYTES_BEFORE_WRAP = 8192;
constexpr uint32_t SECOND_PORT_OFFSET = 4;  // behind the four feeds' own
constexpr uint32_t UNASKED_PORT_OFFSET = 8;

/// Local ports change with each connect, as a host's do.
uint16_t LocalPort(uint32_t first, uint32_t connects) {
    const uint32_t port = first + PORT_STEP * connects;
    return static_cast<uint16_t>(PORT_FIRST + (port - PORT_FIRST) % (65536 - PORT_FIRST));
}

}  // namespace

SnapshotService::SnapshotService(const BoardOptions& options, exchange::Exchange& market, BoardStatistics& statistics)
    : m_options(options), m_market(market), m_statistics(statistics) {
    for (const exchange::FaultRow& row : exchange::FaultTable()) {
        if (row.place != exchange::EFaultPlace::OneConnection || !options.faults.Has(row.kind)) continue;
        m_oneShots.push_back({row.kind, options.faults.MomentOf(row.kind)});
    }
}

void SnapshotService::Add(const Request& request) {
    if (m_requests.empty()) BeginConnect();
    m_requests.push_back(request);
    Connect(request);
}

void SnapshotService::Close() {
    m_requests.clear();
    m_links.clear();
}

// Faults that spoil a whole snapshot come one at a time, so that each can be recovered from. One whose connect has come
// goes before those that have none.
std::optional<exchange::EFault> SnapshotService::NextOneShot() {
    const auto isDue = [&](const exchange::Fault& fault) { return fault.moment && *fault.moment <= m_connects; };
    auto next = std::find_if(m_oneShots.begin(), m_oneShots.end(), isDue);
    if (next == m_oneShots.end()) {
        next = std::find_if(m_oneShots.begin(), m_oneShots.end(),
                            [](const exchange::Fault& fault) { return !fault.moment; });
    }
    if (next == m_oneShots.end()) return {};
    const exchange::EFault kind = next->kind;
    m_oneShots.erase(next);
    return kind;
}

exchange::Faults SnapshotService::FaultsOfConnect() const {
    exchange::Faults faults;
    for (const exchange::FaultRow& row : exchange::FaultTable()) {
        if (row.place != exchange::EFaultPlace::EveryConnection || !m_options.faults.Has(row.kind)) continue;
        if (m_options.faults.MomentOf(row.kind).value_or(m_connects) == m_connects) faults.Set(row.kind);
    }
    return faults;
}

void SnapshotService::BeginConnect() {
    m_links.clear();
    m_turn = 0;
    ++m_connects;
}

// A connection that a fault spoils gets no second one, which would make up for it.
void SnapshotService::Connect(const Request& request) {
    exchange::Faults faults = FaultsOfConnect();
    if (m_links.empty()) {
        if (const auto oneShot = NextOneShot()) {
            faults.Set(*oneShot);
            faults.Clear(exchange::EFault::SecondConnection);
        }
    }
    const bool isUnaskedToo = faults.Has(exchange::EFault::UnaskedFeed);
    faults.Clear(exchange::EFault::UnaskedFeed);
    m_links.push_back({request, MakeConnection(request, faults, 0), faults.Has(exchange::EFault::SecondConnection)});
    if (isUnaskedToo) ConnectUnasked(request);
}

// Whole and sound, but of the feed beside the one asked for.
void SnapshotService::ConnectUnasked(const Request& request) {
    exchange::Faults faults;
    faults.Set(exchange::EFault::UnaskedFeed);
    m_links.push_back({request, MakeConnection(request, faults, UNASKED_PORT_OFFSET)});
}

exchange::SnapshotConnection SnapshotService::MakeConnection(const Request& request, const exchange::Faults& faults,
                                                             uint32_t portOffset) {
    const uint32_t before = m_connects - 1;
    const bool isShfe = request.feed == SHFE_2PS || request.feed == SHFE_4PS;
    // A port that a feed was given up on still stands for that feed: segments of a connection without a topic, which
    // belong to nobody, would be taken for its messages. And a connection that gave way to a second one is still open.
    const bool isSamePort = faults.Has(exchange::EFault::SamePort) && !faults.Has(exchange::EFault::WrongTopic) &&
                            !m_options.faults.Has(exchange::EFault::SecondConnection);
    const exchange::TcpEndpoints endpoints{isShfe ? SHFE_SERVER_IP : INE_SERVER_IP, request.hostIp,
                                           isShfe ? m_options.shfeSnapPort : m_options.ineSnapPort,
                                           LocalPort(request.hostPort + portOffset, isSamePort ? 0 : before)};
    const uint64_t connection = (before * 2ULL + (portOffset == 0 ? 0 : 1)) * FEED_COUNT + IndexOf(request.feed);
    const uint64_t seed = m_options.exchange.seed * 1000 + connection;
    uint32_t initialSeq = (INITIAL_SEQ + INITIAL_SEQ_STEP * before) % 0x80000000U;
    // Receivers that compare plainly take what lies behind the wrap-around for old: a flood there would be none.
    if (faults.Has(exchange::EFault::SequenceWrap) && !faults.Has(exchange::EFault::EarlyFlood)) {
        initialSeq = UINT32_MAX - exchange::Random(seed, "initial number").Below(BYTES_BEFORE_WRAP);
    }
    software_board::Add(m_statistics.snapshotConnections, uint64_t{1});
    const bool isUnasked = faults.Has(exchange::EFault::UnaskedFeed);
    return {endpoints, initialSeq,
            isUnasked ? m_market.UnaskedMessages(request.feed) : m_market.SnapshotMessages(request.feed, faults),
            faults, seed};
}

bool SnapshotService::NextFrame(std::vector<uint8_t>& frame, bool mayAcknowledge) {
    if (m_links.empty()) return false;
    if (m_isForeignFrameDue) {
        m_isForeignFrameDue = false;
        frame.assign(60, 0);  // something that is no TCP segment, as every network carries
        return true;
    }
    if (!NextFrameOfLinks(frame, mayAcknowledge)) return false;
    m_isForeignFrameDue = ++m_frames % FRAMES_PER_FOREIGN_FRAME == 0;
    software_board::Add(m_statistics.snapshotFrames, uint64_t{1});
    if (!IsOver()) return true;
    BeginConnect();
    for (const Request& request : m_requests) Connect(request);
    return true;
}

bool SnapshotService::NextFrameOfLinks(std::vector<uint8_t>& frame, bool mayAcknowledge) {
    for (std::size_t tried = 0; tried < m_links.size(); ++tried) {
        const std::size_t index = m_turn++ % m_links.size();
        if (m_links[index].connection.IsSent() && !mayAcknowledge) continue;
        if (NextFrameOf(index, frame)) return true;
    }
    return false;
}

bool SnapshotService::NextFrameOf(std::size_t index, std::vector<uint8_t>& frame) {
    Link& link = m_links[index];
    const bool wasSent = link.connection.IsSent();
    if (!link.connection.NextFrame(frame)) return false;
    if (wasSent) ++link.acknowledgements;
    if (link.isFollowed && link.connection.IsHalfWay()) {
        link.isFollowed = false;
        const Request request = link.request;
        exchange::Faults faults = FaultsOfConnect();
        faults.Clear(exchange::EFault::UnaskedFeed);
        m_links.push_back({request, MakeConnection(request, faults, SECOND_PORT_OFFSET)});
    }
    return true;
}

// A host that has forgotten all its connections waits for new ones. So does one that still keeps the phase open after a
// whole snapshot: it has discarded it.
bool SnapshotService::IsOver() const {
    const auto isLost = [](const Link& link) { return link.connection.IsOver(); };
    const auto isIdle = [](const Link& link) { return link.acknowledgements >= ACKNOWLEDGEMENTS_BEFORE_RECONNECT; };
    return std::any_of(m_links.begin(), m_links.end(), isLost) || std::all_of(m_links.begin(), m_links.end(), isIdle);
}

}  // namespace software_board
