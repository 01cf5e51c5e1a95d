// The snapshot of a feed as MDQP messages. An instrument's fields never part: a receiver clears a book at the first
// price level behind any other field, and at the start of each message. So what does not belong there stands in front
// of an instrument, and never ends in a price level.
#include <algorithm>
#include <cstddef>
#include <cstring>
#include <limits>
#include <utility>

#include "exchange/Exchange.h"
#include "exchange/MdqpWriter.h"
#include "exchange/Segments.h"
#include "exchange/SnapshotRecords.h"

namespace exchange {
namespace {

using Messages = std::vector<std::vector<uint8_t>>;

constexpr uint32_t MANY_INSTRUMENTS = 12;  // a message of them is several segments long
constexpr uint32_t UNKNOWN_ONE_IN = 8;     // instruments
constexpr uint32_t STRAY_ONE_IN = 16;      // instruments
constexpr uint32_t ABSENT_ONE_IN = 10;     // instruments
constexpr uint32_t LYING_ONE_IN = 2;       // messages
constexpr uint32_t REPEATED_ONE_IN = 4;    // price levels
constexpr uint32_t TAIL_ONE_IN = 2;        // messages
constexpr uint32_t TAIL_BYTES_MAX = 12;
constexpr uint16_t UNKNOWN_FIELD_FIRST = 0x0201;
constexpr uint32_t UNKNOWN_FIELDS = 64;
constexpr uint32_t UNKNOWN_BYTES_MAX = 40;
constexpr int32_t UNKNOWN_TOPIC = -1;
constexpr std::size_t NO_INSTRUMENT = SIZE_MAX;

void WriteSide(MdqpWriter& writer, int32_t instNo, char direction, const BookSide& side, Random* repeats) {
    for (int32_t level = 0; level < BOOK_LEVELS && side.price[level] != 0; ++level) {
        if (repeats != nullptr && repeats->OneIn(REPEATED_ONE_IN)) {
            const auto other = static_cast<int32_t>(1 + repeats->Below(1000));
            writer.PriceDetail(instNo, direction, Yuan(side.price[level]), other);
        }
        writer.PriceDetail(instNo, direction, Yuan(side.price[level]), static_cast<int32_t>(side.volume[level]));
    }
}

/// Most messages hold one or two instruments; a few many.
std::size_t InstrumentsInMessage(Random& random) {
    return random.OneIn(16) ? 3 + random.Below(MANY_INSTRUMENTS - 2) : 1 + random.Below(2);
}

/// A future with orders on both sides. The first instrument is one, so there always is one.
std::size_t FutureToSpoil(const std::vector<Instrument>& instruments, const std::vector<bool>& isListed,
                          const std::vector<Book>& books, Random random) {
    const std::size_t start = random.Below(static_cast<uint32_t>(instruments.size()));
    for (std::size_t i = 0; i < instruments.size(); ++i) {
        const std::size_t index = (start + i) % instruments.size();
        const Book& book = books[index];
        const bool isQuoted = isListed[index] && book.bids.price[0] != 0 && book.asks.price[0] != 0;
        if (instruments[index].kind == InstrumentKind::Future && isQuoted) return index;
    }
    return NO_INSTRUMENT;
}

/// The ask furthest from the bids, so that the levels keep their order.
void RaiseLastAsk(const Instrument& instrument, Book& book) {
    int32_t last = BOOK_LEVELS - 1;
    while (last > 0 && book.asks.price[last] == 0) --last;
    book.asks.price[last] = instrument.upperLimit + instrument.priceTick;
}

/// Any instrument whose book receivers look at.
std::size_t InstrumentToSpoil(const std::vector<Instrument>& instruments, const std::vector<bool>& isListed,
                              Random random) {
    const std::size_t start = random.Below(static_cast<uint32_t>(instruments.size()));
    for (std::size_t i = 0; i < instruments.size(); ++i) {
        const std::size_t index = (start + i) % instruments.size();
        if (isListed[index] && instruments[index].kind != InstrumentKind::Tas) return index;
    }
    return NO_INSTRUMENT;
}

/// A book of drawn depth, every level a tick from the next, and limits exactly at its ends; then one thing about it is
/// wrong by a unit or a tick: best bid and ask meet or have passed each other, or the ends lie outside the limits.
void WriteWrongBook(const Instrument& instrument, Book& book, deal_info_t& deal, Random& random) {
    const int32_t tick = instrument.priceTick;
    auto asks = static_cast<int32_t>(random.Below(BOOK_LEVELS + 1));
    const auto bids = static_cast<int32_t>(random.Below(BOOK_LEVELS + 1));
    if (asks + bids == 0) asks = 1;
    const int32_t by = random.OneIn(2) ? 1 : tick;
    const uint32_t kind = random.Below(asks > 0 && bids > 0 ? 4 : 2);
    const int32_t down = kind == 2 ? tick : kind == 3 ? tick + by : 0;  // the asks
    for (int32_t level = 0; level < BOOK_LEVELS; ++level) {
        book.bids.price[level] = level < bids ? instrument.codecPrice - level * tick : 0;
        book.asks.price[level] = level < asks ? instrument.codecPrice + (level + 1) * tick - down : 0;
        book.bids.volume[level] = book.asks.volume[level] = static_cast<uint32_t>(level + 1);
    }
    const int32_t highest = asks > 0 ? book.asks.price[asks - 1] : book.bids.price[0];
    const int32_t lowest = bids > 0 ? book.bids.price[bids - 1] : book.asks.price[0];
    deal.upper_limit_price = Yuan(std::max(highest, lowest) - (kind == 0 ? by : 0));
    deal.lower_limit_price = Yuan(std::min(highest, lowest) + (kind == 1 ? by : 0));
}

/// A number that no table holds: below zero or behind its end.
int32_t StrayNumber(EMDQPDataType feed, Random& random) {
    if (random.OneIn(2)) return -1 - static_cast<int32_t>(random.Below(1000));
    if (random.OneIn(4)) return std::numeric_limits<int32_t>::max();
    const int32_t capacity = feed == SHFE_2PS ? SHFE_INST_CAPACITY : INE_INST_CAPACITY;
    return capacity + static_cast<int32_t>(random.Below(1000));
}

void WriteUnknownField(MdqpWriter& writer, Random& random) {
    uint8_t bytes[UNKNOWN_BYTES_MAX];
    for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(random.Next());
    const auto id = static_cast<uint16_t>(UNKNOWN_FIELD_FIRST + random.Below(UNKNOWN_FIELDS));
    writer.Field(id, bytes, static_cast<uint16_t>(random.Below(UNKNOWN_BYTES_MAX + 1)));
}

/// For the order statistics that end a message. Too little leads into the record's last eight bytes, too much beyond
/// the message, so that a receiver's walk ends either way.
uint16_t WrongSize(Random& random) {
    constexpr uint32_t RIGHT = sizeof(order_statistics_info_t);
    if (random.OneIn(2)) return static_cast<uint16_t>(RIGHT - 1 - random.Below(sizeof(mdqp_t)));
    return static_cast<uint16_t>(RIGHT + 1 + random.Below(std::numeric_limits<uint16_t>::max() - RIGHT));
}

/// As long as a message can be, with its header longer than receivers carry over.
std::vector<uint8_t> OversizedMessage() {
    const std::vector<uint8_t> nothing(std::numeric_limits<uint16_t>::max() - sizeof(field_t));
    MdqpWriter writer(mdqp::FLAG_MORE);
    writer.Field(UNKNOWN_FIELD_FIRST, nothing.data(), static_cast<uint16_t>(nothing.size()));
    return writer.Bytes();
}

/// What happens in one snapshot, each fault with a chance of its own.
struct SnapshotFaults {
    SnapshotFaults(const Faults& asked, uint64_t seed)
        : faults(asked),
          unknown(seed, FaultName(EFault::UnknownField)),
          stray(seed, FaultName(EFault::InstrumentOutOfRange)),
          sizes(seed, FaultName(EFault::WrongFieldSize)),
          spoiling(seed, "spoiled book"),
          wrongBook(seed, FaultName(EFault::WrongBook)),
          tails(seed, FaultName(EFault::TailField)),
          repeats(seed, FaultName(EFault::RepeatedLevel)) {}

    const Faults& faults;
    Random unknown;
    Random stray;
    Random sizes;
    Random spoiling;
    Random wrongBook;
    Random tails;
    Random repeats;
    std::size_t spoiled = NO_INSTRUMENT;
};

// ---- one instrument -------------------------------------------------------------------------------------------------

struct Listed {
    EMDQPDataType feed;
    const std::vector<Instrument>& instruments;
    const std::vector<Book>& books;
    const std::vector<VexaShfeMdType>& truth;
    const std::vector<bool>& isListed;
    int32_t tradingDay;
};

Book BookToTell(const Listed& listed, std::size_t index, const SnapshotFaults& wrong) {
    Book book = listed.books[index];
    if (index != wrong.spoiled) return book;
    if (wrong.faults.Has(EFault::CrossedBook)) std::swap(book.bids.price[0], book.asks.price[0]);
    if (wrong.faults.Has(EFault::OutsideLimits)) RaiseLastAsk(listed.instruments[index], book);
    return book;
}

/// The records of `index` under the number `instNo`.
void WriteRecords(MdqpWriter& writer, const Listed& listed, std::size_t index, int32_t instNo, SnapshotFaults& wrong) {
    inst_info_t info = InfoOf(listed.instruments[index]);
    deal_info_t deal = DealOf(listed.instruments[index], listed.truth[index], listed.tradingDay);
    if (wrong.faults.Has(EFault::AbsentValues)) DeclareAbsent(listed.truth[index], deal);
    info.inst_no = instNo;
    deal.inst_no = instNo;
    Book book = BookToTell(listed, index, wrong);
    if (index == wrong.spoiled && wrong.faults.Has(EFault::WrongBook)) {
        WriteWrongBook(listed.instruments[index], book, deal, wrong.wrongBook);
    }
    if (listed.instruments[index].kind == InstrumentKind::Tas && wrong.faults.Has(EFault::SettlementLimits)) {
        deal.upper_limit_price = Yuan(listed.instruments[index].lowerLimit - 1);
    }
    writer.InstInfo(info).DealInfo(deal);
    Random* repeats = wrong.faults.Has(EFault::RepeatedLevel) ? &wrong.repeats : nullptr;
    WriteSide(writer, instNo, '0', book.bids, repeats);
    WriteSide(writer, instNo, '1', book.asks, repeats);
    writer.OrderStatistics(StatisticsOf(instNo, book));
}

void WriteInstrument(MdqpWriter& writer, const Listed& listed, std::size_t index, SnapshotFaults& wrong) {
    if (wrong.faults.Has(EFault::UnknownField) && wrong.unknown.OneIn(UNKNOWN_ONE_IN)) {
        WriteUnknownField(writer, wrong.unknown);
    }
    if (wrong.faults.Has(EFault::InstrumentOutOfRange) && wrong.stray.OneIn(STRAY_ONE_IN)) {
        WriteRecords(writer, listed, index, StrayNumber(listed.feed, wrong.stray), wrong);
    }
    WriteRecords(writer, listed, index, listed.instruments[index].instNo, wrong);
}

/// A field that begins 1 to 12 bytes before the message's end; receivers look at those that begin nine before it or
/// earlier. What it tells is another packet number.
void WriteTail(MdqpWriter& writer, Random& random) {
    const uint32_t distance = 1 + random.Below(TAIL_BYTES_MAX);
    const auto packetNo = static_cast<int32_t>(random.Below(1U << 30));
    uint8_t bytes[TAIL_BYTES_MAX] = {};
    const auto size = static_cast<uint16_t>(distance < sizeof(field_t) ? 0 : distance - sizeof(field_t));
    const field_t header{mdqp::FIELD_PACKET_NO, size};
    std::memcpy(bytes, &header, sizeof header);
    if (distance >= sizeof header + sizeof packetNo) std::memcpy(bytes + sizeof header, &packetNo, sizeof packetNo);
    writer.RawBytes(bytes, distance);
}

/// An unknown field behind the others makes the message as long as `size`, where there is room for one.
void PadTo(std::vector<uint8_t>& message, std::size_t size) {
    if (message.size() + sizeof(field_t) > size) return;
    const field_t header{UNKNOWN_FIELD_FIRST, static_cast<uint16_t>(size - message.size() - sizeof(field_t))};
    const auto* bytes = reinterpret_cast<const uint8_t*>(&header);
    message.insert(message.end(), bytes, bytes + sizeof header);
    message.resize(size);
    const auto length = static_cast<uint16_t>(size - sizeof(mdqp_t));
    std::memcpy(message.data() + offsetof(mdqp_t, length), &length, sizeof length);
}

/// The first two messages become equally long, so that a first segment may hold both and go on.
void EqualizeFirst(Messages& messages, const Faults& faults, uint64_t seed) {
    const bool isTailFree = !faults.Has(EFault::WrongFieldSize) && !faults.Has(EFault::TailField);
    if (!faults.Has(EFault::LongFirstSegment) || !isTailFree || messages.size() < 2) return;
    if (!Random(seed, "equal messages").OneIn(2)) return;
    const std::size_t longer = std::max(messages[0].size(), messages[1].size());
    if (2 * longer > SEGMENT_BYTES_MAX) return;
    PadTo(messages[0], longer);
    PadTo(messages[1], longer);
}

/// The messages behind the first one's identification, cut at instruments by `cuts`.
Messages WriteMessages(MdqpWriter first, const Listed& listed, SnapshotFaults& wrong, Random& cuts) {
    Messages messages;
    const std::size_t total = listed.instruments.size();
    std::size_t next = 0;
    // A list that changes need not begin with its lowest number. The first message always holds an instrument: without
    // one it is too short to begin a connection.
    std::size_t start = wrong.faults.Has(EFault::ChangingList) ? cuts.Below(static_cast<uint32_t>(total)) : 0;
    while (!listed.isListed[start]) start = (start + 1) % total;
    const auto write = [&](MdqpWriter& writer, std::size_t count) {
        for (; count > 0 && next < total; --count, ++next) {
            const std::size_t index = (start + next) % total;
            if (listed.isListed[index]) WriteInstrument(writer, listed, index, wrong);
        }
        const bool isLying = wrong.faults.Has(EFault::WrongFieldSize) && wrong.sizes.OneIn(LYING_ONE_IN);
        if (isLying) {
            writer.WithLastFieldClaiming(WrongSize(wrong.sizes));
        } else if (wrong.faults.Has(EFault::TailField) && wrong.tails.OneIn(TAIL_ONE_IN)) {
            WriteTail(writer, wrong.tails);
        }
        messages.push_back(writer.Bytes());
    };
    write(first, 1);
    while (total - next > MANY_INSTRUMENTS) {
        MdqpWriter writer(mdqp::FLAG_MORE);
        write(writer, InstrumentsInMessage(cuts));
    }
    MdqpWriter last(mdqp::FLAG_LAST);
    write(last, MANY_INSTRUMENTS);
    return messages;
}

}  // namespace

// ---- a feed ---------------------------------------------------------------------------------------------------------

Messages Exchange::SnapshotMessages(EMDQPDataType feed, const Faults& faults) {
    return MessagesOf(feed, faults, faults.Has(EFault::WrongTopic) ? UNKNOWN_TOPIC : StateOf(feed).topicId);
}

Messages Exchange::UnaskedMessages(EMDQPDataType feed) {
    return MessagesOf(feed, {}, feed == SHFE_2PS ? m_options.shfe4psTopicId : m_options.ine4psTopicId);
}

Messages Exchange::MessagesOf(EMDQPDataType feed, const Faults& faults, int32_t topic) {
    if (StateOf(feed).instruments.empty()) return {};
    FeedState& told = m_feeds[static_cast<std::size_t>(feed)];
    const uint64_t seed = m_options.seed + static_cast<uint64_t>(++told.snapNo);
    Random cuts(seed, feed == SHFE_2PS ? "shfe snap" : "ine snap");
    if (faults.Has(EFault::AbsentValues)) ForgetSomePrices(feed);

    SnapshotFaults wrong(faults, seed * FEED_COUNT + IndexOf(feed));
    wrong.spoiled = faults.Has(EFault::WrongBook)
                        ? InstrumentToSpoil(told.instruments, told.isListed, wrong.spoiling)
                        : FutureToSpoil(told.instruments, told.isListed, told.books, wrong.spoiling);
    MdqpWriter first(mdqp::FLAG_MORE);
    first.Snap(static_cast<int16_t>(topic), told.snapNo).PacketNo(told.packetNo);
    const Listed listed{feed, told.instruments, told.books, told.truth, told.isListed, m_options.tradingDay};
    Messages messages = WriteMessages(std::move(first), listed, wrong, cuts);
    EqualizeFirst(messages, faults, seed);
    if (faults.Has(EFault::OversizedMessage)) {
        // Nothing follows: a receiver that has given the connection up would take later messages for its beginning.
        messages.resize(messages.size() / 2);
        messages.push_back(OversizedMessage());
    }
    return messages;
}

/// The same instruments each time: a receiver may have kept one feed of a snapshot whose other feed it takes again.
void Exchange::ForgetSomePrices(EMDQPDataType feed) {
    Random chance(m_options.seed * FEED_COUNT + IndexOf(feed), FaultName(EFault::AbsentValues));
    for (VexaShfeMdType& record : m_feeds[static_cast<std::size_t>(feed)].truth) {
        if (!chance.OneIn(ABSENT_ONE_IN)) continue;
        record.last_px = 0;
        record.high_price = 0;
        record.low_price = 0;
    }
}

}  // namespace exchange
