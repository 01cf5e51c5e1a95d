/// Faults that a session must survive, by name. The same seed gives the same session, byte for byte.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace exchange {

struct Faults {
    bool reorder = false;      ///< segments of the snapshot swapped, a few places at the most
    bool duplicate = false;    ///< segments repeated
    bool corrupt = false;      ///< a damaged copy in front of some segments (the right one follows)
    bool reset = false;        ///< the first connection is reset half-way (RST+ACK)
    bool stall = false;        ///< the first connection stops half-way for good
    bool crossedBook = false;  ///< the first snapshot holds a book whose best bid is above its best ask
    bool lostPacket = false;   ///< the board loses updates some time after the start and says so
};

/// Names, comma-separated: reorder, duplicate, corrupt, reset, stall, crossed-book, lost-packet; or "all", or empty.
/// Returns false and tells in `error` which name is unknown and which ones there are.
bool ParseFaults(std::string_view names, Faults& faults, std::string& error);

/// Comma-separated list of the known names, for help texts.
std::string FaultNames();

}  // namespace exchange
