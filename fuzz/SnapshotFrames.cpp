// The exchange's snapshot of SHFE and INE, one connection behind the other.
#include "fuzz/SnapshotFrames.h"

#include "exchange/Exchange.h"
#include "exchange/SnapshotConnection.h"

namespace fuzz {

std::vector<std::vector<uint8_t>> SnapshotFrames() {
    constexpr int ACKNOWLEDGEMENTS = 2;
    exchange::ExchangeOptions options;
    options.shfeInstruments = 14;
    options.ineInstruments = 5;
    exchange::Exchange market(options);
    std::vector<std::vector<uint8_t>> messages;
    uint16_t port = 40000;
    for (const EMDQPDataType feed : {SHFE_2PS, INE_2PS}) {
        exchange::SnapshotConnection connection({0x0A140001, 0x0A140002, 33022, port++}, 1000,
                                                market.SnapshotMessages(feed), {}, 1);
        std::vector<uint8_t> frame;
        for (int left = ACKNOWLEDGEMENTS; left > 0 && connection.NextFrame(frame);) {
            if (connection.IsSent()) --left;
            messages.push_back(exchange::WrapInDmaTcp(frame));
        }
    }
    return messages;
}

}  // namespace fuzz
