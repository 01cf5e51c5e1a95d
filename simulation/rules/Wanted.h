/// Which channel wants which instrument, read from the configuration a second time, and what the tables must hold.
#pragma once

#include <cstdint>
#include <string>

#include "exchange/Instrument.h"
#include "interface/VexaShfeMdStruct.h"
#include "simulation/base/SessionPlan.h"

namespace simulation {

bool IsWanted(const ChannelPlan& channel, const std::string& id);

/// One entry of the channel's list alone.
bool IsEntryWanted(const ChannelPlan& channel, const std::string& entry, const std::string& id);

/// The control word of an instrument on the board; 0 where no channel wants it.
uint32_t ControlWord(const SessionPlan& plan, const std::string& id);

bool IsSettlementTrade(const std::string& id);

/// Ten book prices strictly falling, empty levels outside alone, all of them within the limits.
bool IsSane(const SInstTableType& slot);

/// What differs between a slot and the exchange's state; empty when nothing does. Update times are not compared: a
/// snapshot does not carry them in the form that live updates do.
std::string Difference(const SInstTableType& slot, const exchange::Instrument& instrument, const VexaShfeMdType& truth,
                       bool hasTrueLimits);

}  // namespace simulation
