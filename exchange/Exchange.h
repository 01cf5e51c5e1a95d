/// The synthetic exchanges: instruments, books that move, and the truth about them.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "common/Feed.h"
#include "exchange/Book.h"
#include "exchange/Faults.h"
#include "exchange/Instrument.h"
#include "exchange/Random.h"
#include "interface/VexaShfeMdStruct.h"

namespace exchange {

struct ExchangeOptions {
    uint64_t seed = 1;
    int32_t shfeInstruments = 600;  ///< at most 16384
    int32_t ineInstruments = 200;   ///< at most 4096
    int32_t shfeTopicId = TraitsOf(SHFE_2PS).defaults.topicId;
    int32_t ineTopicId = TraitsOf(INE_2PS).defaults.topicId;
    int32_t shfe4psTopicId = TraitsOf(SHFE_4PS).defaults.topicId;  ///< of the feeds that list nothing
    int32_t ine4psTopicId = TraitsOf(INE_4PS).defaults.topicId;
    int32_t tradingDay = 20260430;  ///< yyyymmdd
    bool hasNarrowLimits = false;   ///< a third of the instruments: so that books lie at their limits
};

/// What one multicast update tells the board: only what changed. The board lays it over its own table.
struct LiveUpdate {
    EMDQPDataType feed = SHFE_2PS;
    int32_t instNo = 0;
    uint32_t changeNo = 0;
    uint32_t updateTime = 0;  ///< seconds since midnight
    uint16_t updateMilliSec = 0;
    bool hasDeal = false;  ///< last price, volume, turnover, open interest, high, low
    int32_t lastPrice = 0;
    uint32_t volume = 0;
    int64_t turnover = 0;
    int64_t openInterest = 0;
    int32_t highPrice = 0;
    int32_t lowPrice = 0;
    bool hasBook = false;  ///< all ten levels, best first, and the order statistics
    int32_t bidPrice[BOOK_LEVELS] = {};
    uint32_t bidVolume[BOOK_LEVELS] = {};
    int32_t askPrice[BOOK_LEVELS] = {};
    uint32_t askVolume[BOOK_LEVELS] = {};
    uint32_t totalBidVolume = 0;
    int64_t totalBidAmount = 0;
    uint32_t totalAskVolume = 0;
    int64_t totalAskAmount = 0;
};

/// One whole run: not thread-safe, no clock, no other source of chance than the seed.
class Exchange {
public:
    explicit Exchange(const ExchangeOptions& options);

    const ExchangeOptions& Options() const { return m_options; }

    /// From now on some instruments are not listed: they do not move and no snapshot tells of them. Which ones depends
    /// on `number`; with 0 all are. The first one always is.
    void Relist(uint64_t number);
    bool IsListed(EMDQPDataType feed, int32_t instNo) const;
    int32_t ListedEnd(EMDQPDataType feed) const;  ///< one past the last that is listed

    /// SHFE_2PS and INE_2PS have instruments; the 4ps feeds have none.
    const std::vector<Instrument>& Instruments(EMDQPDataType feed) const;

    /// What an application must hold once it has received every update. The board's own facts (type, max_inst_no,
    /// last_tick_flag, reverse) are zero here.
    const VexaShfeMdType& Truth(EMDQPDataType feed, int32_t instNo) const;

    /// Moves one instrument of those listed, chosen at random, and tells what changed.
    LiveUpdate Next();

    /// Moves this instrument. Nothing moves, and change number 0 comes back, where there is no such instrument.
    LiveUpdate Move(EMDQPDataType feed, int32_t instNo);

    /// The feed's snapshot as it stands now, as whole MDQP messages in order: the first one carries topic and packet
    /// number, the last one closes the feed. Of `faults` those happen that spoil contents, at whatever moment;
    /// absent-values changes the truth with them, the others do not.
    std::vector<std::vector<uint8_t>> SnapshotMessages(EMDQPDataType feed, const Faults& faults = {});

    /// The same instruments under the topic of the 4ps feed beside this one.
    std::vector<std::vector<uint8_t>> UnaskedMessages(EMDQPDataType feed);

private:
    struct FeedState {
        int32_t topicId = 0;
        std::vector<Instrument> instruments;
        std::vector<Book> books;
        std::vector<VexaShfeMdType> truth;
        std::vector<bool> isListed;
        int32_t packetNo = 0;  ///< multicast packets so far
        int32_t snapNo = 0;    ///< snapshots so far
    };

    void OpenFeed(EMDQPDataType feed, int32_t topicId, std::vector<Instrument> instruments);
    const FeedState& StateOf(EMDQPDataType feed) const;
    std::vector<std::vector<uint8_t>> MessagesOf(EMDQPDataType feed, const Faults& faults, int32_t topic);
    void ForgetSomePrices(EMDQPDataType feed);
    void AdvanceTime();
    void Stamp(LiveUpdate& update, uint32_t changeNo) const;

    ExchangeOptions m_options;
    std::array<FeedState, FEED_COUNT> m_feeds;
    Random m_moves;
    uint32_t m_timeMs;  ///< the exchange's own time since midnight
};

}  // namespace exchange
