/// A served board in words.
#pragma once

#include <string>

#include "software_board/SharedMemory.h"

/// What no terminal takes for a command: any process of this user may have written it.
std::string Printable(std::string text);

const char* BoardPhaseName(software_board::EBoardPhase phase);

/// "live      600+200 instruments  2000 updates/s  channels 0-1 3  delivered 1200  dropped 0", or as much of that as
/// goes into so many columns.
std::string BoardLine(const software_board::SharedBoard& board, double updatesPerSecond, std::size_t columns);

/// The whole state: board, channels, feeds.
void PrintStatus(const software_board::SharedBoard& board, uint16_t bus);

/// Throws std::runtime_error when `address` is neither a name nor a number.
void PrintRegister(const software_board::SharedBoard& board, const std::string& address);
void PrintRegisters(const software_board::SharedBoard& board, bool areZerosShown);

/// The slots in use of one feed, or the one of this instrument (throws std::runtime_error when there is none).
void PrintTable(const software_board::SharedBoard& board, EMDQPDataType feed, const std::string& instrument);
