/// What a software board is made from.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "exchange/Exchange.h"
#include "exchange/Faults.h"

namespace software_board {

/// For hosts in real time: a snapshot that is not taken is sent anew after sixteen of these, and not as fast as polled.
constexpr uint32_t ACKNOWLEDGE_EVERY_MS = 20;

struct BoardOptions {
    exchange::ExchangeOptions exchange;
    exchange::Faults faults;
    uint16_t shfeSnapPort = TraitsOf(SHFE_2PS).defaults.snapPort;  ///< TCP source port of the snapshot servers
    uint16_t ineSnapPort = TraitsOf(INE_2PS).defaults.snapPort;
    uint32_t updatesPerSecond = 0;    ///< pace of the live updates by the clock; 0: one whenever the host asks
    uint32_t lostPacketAfter = 2000;  ///< live updates between two faults of the board that have no moment
    uint32_t hbm2ReadyMs = 500;       ///< from the start of a bring-up
    uint32_t acknowledgeEveryMs = 0;  ///< between two segments of a connection that has sent its snapshot
    uint32_t hardwareVersion = 0x20260420;
    uint32_t ringMessages = 5461;  ///< live records that one channel's ring holds; that many at the most
};

/// Reads a provider argument into `options`: "key=value" pairs, comma-separated: seed, shfe, ine (instruments), rate
/// (updates per second), faults (names joined by "+", each with "@moment" or without), lost_after. False with a text
/// that names the key or value and what is allowed.
bool ParseArgument(std::string_view argument, BoardOptions& options, std::string& error);

}  // namespace software_board
