#include "software_board/SnapshotService.h"

#include <algorithm>
#include <utility>

namespace software_board {

namespace {

constexpr uint32_t SHFE_SERVER_IP = 0x0A0A0101;
constexpr uint32_t INE_SERVER_IP = 0x0A0A0201;
constexpr uint32_t ACKNOWLEDGEMENTS_BEFORE_RECONNECT = 16;
constexpr uint32_t FOREIGN_FRAME_EVERY = 61;
constexpr uint32_t PORT_STEP = 16;  // between two connects of one feed
constexpr uint32_t PORT_FIRST = 1024;
constexpr uint32_t INITIAL_SEQ = 1000;
constexpr uint32_t INITIAL_SEQ_STEP = 77'777'777;

/// Local ports change with each connect, as a host's do.
uint16_t LocalPort(uint16_t first, uint32_t connects) {
    const uint32_t port = first + PORT_STEP * connects;
    return static_cast<uint16_t>(PORT_FIRST + (port - PORT_FIRST) % (65536 - PORT_FIRST));
}

}  // namespace

SnapshotService::SnapshotService(const BoardOptions& options, exchange::Exchange& market, BoardStatistics& statistics)
    : m_options(options), m_market(market), m_statistics(statistics) {
    for (const auto fault : {&exchange::Faults::reset, &exchange::Faults::stall, &exchange::Faults::crossedBook}) {
        if (options.faults.*fault) m_oneShots.push_back(fault);
    }
}

void SnapshotService::Open(std::vector<Request> requests) {
    m_requests = std::move(requests);
    Connect();
}

void SnapshotService::Close() {
    m_requests.clear();
    m_links.clear();
}

// Faults that spoil a whole snapshot come one at a time, so that each can be recovered from; the others always.
exchange::Faults SnapshotService::FaultsOf(std::size_t link, bool& isBookCrossed) {
    exchange::Faults faults = m_options.faults;
    faults.reset = faults.stall = faults.crossedBook = isBookCrossed = false;
    if (link != 0 || m_oneShots.empty()) return faults;
    faults.*m_oneShots.front() = true;
    isBookCrossed = faults.crossedBook;
    m_oneShots.erase(m_oneShots.begin());
    return faults;
}

void SnapshotService::Connect() {
    m_links.clear();
    m_turn = 0;
    for (const Request& request : m_requests) {
        bool isBookCrossed = false;
        const exchange::Faults faults = FaultsOf(m_links.size(), isBookCrossed);
        const bool isShfe = request.feed == SHFE_2PS || request.feed == SHFE_4PS;
        const exchange::TcpEndpoints endpoints{isShfe ? SHFE_SERVER_IP : INE_SERVER_IP, request.hostIp,
                                               isShfe ? m_options.shfeSnapPort : m_options.ineSnapPort,
                                               LocalPort(request.hostPort, m_connects)};
        const uint32_t initialSeq = (INITIAL_SEQ + INITIAL_SEQ_STEP * m_connects) % 0x80000000U;
        const uint64_t seed = m_options.exchange.seed * 1000 + m_connects * FEED_COUNT + request.feed;
        m_links.push_back({exchange::SnapshotConnection(
            endpoints, initialSeq, m_market.SnapshotMessages(request.feed, isBookCrossed), faults, seed)});
        ++m_statistics.snapshotConnections;
    }
    ++m_connects;
}

bool SnapshotService::NextFrame(std::vector<uint8_t>& frame) {
    if (m_links.empty()) return false;
    if (++m_frames % FOREIGN_FRAME_EVERY == 0) {
        frame.assign(60, 0);  // something that is no TCP segment, as every network carries
        return true;
    }
    for (std::size_t tried = 0; tried < m_links.size(); ++tried) {
        Link& link = m_links[m_turn++ % m_links.size()];
        const bool wasSent = link.connection.IsSent();
        if (!link.connection.NextFrame(frame)) continue;
        ++m_statistics.snapshotFrames;
        if (wasSent) ++link.acknowledgements;
        const bool isOver =
            link.connection.IsReset() || std::all_of(m_links.begin(), m_links.end(), [](const Link& one) {
                return one.acknowledgements >= ACKNOWLEDGEMENTS_BEFORE_RECONNECT;
            });
        // One lost connection makes the host forget all of them. A host that still keeps the phase open after a whole
        // snapshot has discarded it. In both cases all begin again.
        if (isOver) Connect();
        return true;
    }
    return false;
}

}  // namespace software_board
