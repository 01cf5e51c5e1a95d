/// One MDQP message -> instrument slots, counts, packet number, end of the feed. One thread.
///
/// Invariant: a record is read only where all of it lies inside its message, and stored only where its slot exists.
#pragma once

#include <cstddef>
#include <cstdint>

#include "common/Mdqp.h"
#include "src/Counters.h"
#include "src/snapshot/InstrumentStore.h"

/// Where the decoder tells the board what a snapshot says of its feed.
class IRegisterWriter {
public:
    virtual void Write(uint32_t index, uint32_t value) = 0;

protected:
    ~IRegisterWriter() = default;
};

class CMdqpDecoder {
public:
    /// What it works on outlives it.
    CMdqpDecoder(CInstrumentStore& store, IRegisterWriter& board, CCounters& counters)
        : m_store(store), m_board(board), m_counters(counters) {}

    /// Reads the bytes that the message's header announces, and no others. True when it was the feed's last message.
    bool Decode(EMDQPDataType feed, const uint8_t* message);

    // One record each, into the slot that its number names.
    void InstInfo(EMDQPDataType feed, const inst_info_t& record, SInstTableType& slot);
    void DealInfo(const deal_info_t& record, SInstTableType& slot);
    /// `isFirst`: of a run of levels; it clears the book.
    static void PriceDetail(const price_detail_t& record, bool isFirst, SInstTableType& slot);
    static void OrderStatistics(const order_statistics_info_t& record, SInstTableType& slot);
    void PacketNo(EMDQPDataType feed, const packet_no_t& record);

private:
    /// What lies behind a field's header, and which field came before.
    struct Place {
        const uint8_t* data;
        std::size_t left;  ///< bytes of the message
        uint16_t fieldIdBefore;
    };

    void TakeField(EMDQPDataType feed, uint16_t fieldId, const Place& place);
    template <typename Record, typename Take>
    void WithRecord(const Place& place, Take take);
    template <typename Record, typename Take>
    void WithSlot(EMDQPDataType feed, const Place& place, Take take);
    void FinishFeed(EMDQPDataType feed);

    CInstrumentStore& m_store;
    IRegisterWriter& m_board;
    CCounters& m_counters;
};
