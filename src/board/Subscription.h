/// Which user channel wants which instrument: one bit per channel in each slot's control word on the board. After the
/// tables are on the board; host slots serve as the buffer.
///
/// Invariant: an instrument that failed the price check is never subscribed; no slot outside a table is touched.
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <string_view>

#include "common/Feed.h"
#include "public/reg/DriveRegEnyx.h"
#include "src/board/Selection.h"
#include "src/snapshot/InstrumentStore.h"

class CSubscription {
public:
    /// What it works with outlives it.
    CSubscription(const CDrvRegEnyx& board, const U50ConfigInfo& config, CInstrumentStore& store,
                  const std::set<std::string>& priceErrors)
        : m_board(board), m_config(config), m_store(store), m_priceErrors(priceErrors) {}

    /// Replaces what the channel is subscribed to by what its list selects. Nothing for a number that is no channel.
    void Renew(int32_t channel);

    /// Takes the channel's bit from the first `count` slots of the feed.
    void Unsubscribe(EMDQPDataType feed, const reg::TableRegisters& registers, int32_t count, int32_t channel);

    /// Gives the slot the channel's bit if `entry` selects it.
    void Subscribe(EMDQPDataType feed, const reg::TableRegisters& registers, int32_t instNo, int32_t channel,
                   std::string_view entry);

private:
    CSelection SelectionOf(EMDQPDataType feed2ps, EMDQPDataType feed4ps, int32_t count, int32_t channel);
    bool HasPriceError(std::string_view id) const;
    void SubscribeSelected(CSelection& selection, int32_t channel, std::string_view entry);

    const CDrvRegEnyx& m_board;
    const U50ConfigInfo& m_config;
    CInstrumentStore& m_store;
    const std::set<std::string>& m_priceErrors;
};
