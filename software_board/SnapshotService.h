/// The snapshot connections while the host keeps the snapshot phase open.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "exchange/Exchange.h"
#include "exchange/SnapshotConnection.h"
#include "software_board/BoardMemory.h"
#include "software_board/BoardOptions.h"

namespace software_board {

class SnapshotService {
public:
    /// Where the host wants a feed's connection, as its registers say.
    struct Request {
        EMDQPDataType feed;
        uint32_t hostIp;
        uint16_t hostPort;
    };

    SnapshotService(const BoardOptions& options, exchange::Exchange& market, BoardStatistics& statistics);

    /// One more feed for the connect under way; the first one begins it.
    void Add(const Request& request);
    void Close();

    /// A fault of one connect that `options` did not ask for. Those of every connection are looked up there each time.
    void AddOneShot(const exchange::Fault& fault) { m_oneShots.push_back(fault); }
    void ClearOneShots() { m_oneShots.clear(); }

    /// The next frame to arrive; false when nothing does. Connections that have sent their snapshot go on with bare
    /// acknowledgements, if they may.
    bool NextFrame(std::vector<uint8_t>& frame, bool mayAcknowledge);

private:
    struct Link {
        Request request;
        exchange::SnapshotConnection connection;
        bool isFollowed = false;  ///< half-way a second connection of its feed begins
        uint32_t acknowledgements = 0;
    };

    void BeginConnect();
    void Connect(const Request& request);
    void ConnectUnasked(const Request& request);
    bool NextFrameOfLinks(std::vector<uint8_t>& frame, bool mayAcknowledge);
    std::optional<exchange::EFault> NextOneShot();
    exchange::Faults FaultsOfConnect() const;
    exchange::SnapshotConnection MakeConnection(const Request& request, const exchange::Faults& faults,
                                                uint32_t portOffset);
    bool NextFrameOf(std::size_t index, std::vector<uint8_t>& frame);
    bool IsOver() const;

    const BoardOptions& m_options;
    exchange::Exchange& m_market;
    BoardStatistics& m_statistics;
    std::vector<Request> m_requests;
    std::vector<Link> m_links;
    std::size_t m_turn = 0;
    uint32_t m_connects = 0;  ///< the current one's number; the first is 1
    uint32_t m_frames = 0;    ///< of the connections, in all
    bool m_isForeignFrameDue = false;
    std::vector<exchange::Fault> m_oneShots;  ///< still to happen, one to a connect
};

}  // namespace software_board
