// Seeds of fuzz_snapshot: the exchange's own streams, one of each fault, as scripts.
#include <algorithm>
#include <array>
#include <cstring>
#include <utility>
#include <vector>

#include "exchange/Exchange.h"
#include "exchange/MdqpWriter.h"
#include "exchange/SnapshotConnection.h"
#include "fuzz/SeedWriter.h"
#include "fuzz/SnapshotScript.h"
#include "fuzz/SnapshotStream.h"
#include "src/snapshot/SnapshotFrame.h"

namespace fuzz {
namespace {

using exchange::EFault;
using exchange::Faults;

constexpr uint8_t ALL_FEEDS_ENABLED = 0x0F;
constexpr uint8_t FEEDS_2PS = 0x05;
constexpr uint32_t EARLY_SEQ = 1000;
constexpr uint32_t LATE_SEQ = 0xFFFFF000U;  // wraps around within the stream
constexpr std::size_t FRAMES_MAX = 2000;
constexpr std::size_t BLOCK_BYTES_MAX = 60000;  // beyond it the exchange's messages are those of a step of their own

void AddStep(Script& script, EStep kind, std::size_t stream, int64_t number, EWrong wrong = EWrong::Nothing) {
    script.steps.push_back(
        {kind, static_cast<uint8_t>(stream), static_cast<uint8_t>(wrong), static_cast<int32_t>(number), {}});
}

int64_t BodyBytes(const std::vector<uint8_t>& message) { return static_cast<int64_t>(message.size() - sizeof(mdqp_t)); }

/// One stream's messages and, frame by frame, what became of them.
class Recorder {
public:
    Recorder(Script& script, std::size_t index, const std::vector<std::vector<uint8_t>>& messages, const Faults& faults)
        : m_script(script),
          m_index(index),
          m_initialSeq(faults.Has(EFault::SequenceWrap) ? LATE_SEQ : EARLY_SEQ),
          m_connection({SERVER_HOST, LOCAL_HOST, SNAP_PORT, static_cast<uint16_t>(FIRST_PORT + index)}, m_initialSeq,
                       messages, faults, index + 1) {
        AddStep(script, EStep::Open, index, m_initialSeq);
        for (const std::vector<uint8_t>& message : messages) {
            const bool isLong = message.size() > BLOCK_BYTES_MAX;
            AddStep(script, isLong ? EStep::Oversized : EStep::Message, index, BodyBytes(message));
            if (!isLong) script.steps.back().block = message;
            m_stream.insert(m_stream.end(), message.begin(), message.end());
        }
    }

    bool RecordFrame() {
        std::vector<uint8_t> frame;
        if (m_isOver || m_connection.IsOver()) return false;
        m_isOver = m_connection.IsSent();  // what comes then is the acknowledgement that ends a snapshot
        if (!m_connection.NextFrame(frame)) return false;
        SnapshotFrame view;
        const bool isRead = snapshot_frame::ReadHeaders(frame.data(), static_cast<uint32_t>(frame.size()), view) &&
                            snapshot_frame::IsTcpCaptured(view) && snapshot_frame::ReadPayload(view);
        if (isRead && IsOfStream(view, frame)) return Segment(view);
        AddStep(m_script, EStep::Raw, m_index, 0);
        m_script.steps.back().block = exchange::WrapInDmaTcp(frame);
        return true;
    }

private:
    bool IsOfStream(const SnapshotFrame& view, const std::vector<uint8_t>& frame) const {
        const std::size_t position = view.seq - m_initialSeq;
        if (position + view.payloadLength > m_stream.size()) return false;
        exchange::FrameWriter writer({SERVER_HOST, LOCAL_HOST, SNAP_PORT, static_cast<uint16_t>(FIRST_PORT + m_index)});
        const auto first = m_stream.begin() + static_cast<std::ptrdiff_t>(position);
        writer.Seq(view.seq)
            .Flags(view.flags)
            .Payload({first, first + static_cast<std::ptrdiff_t>(view.payloadLength)});
        return writer.Frame() == frame;
    }

    bool Segment(const SnapshotFrame& view) {
        const int64_t position = view.seq - m_initialSeq;
        if (position != m_cursor) AddStep(m_script, EStep::Jump, m_index, position - m_cursor);
        EWrong wrong = EWrong::Nothing;
        if ((view.flags & exchange::TCP_RST) != 0) {
            wrong = (view.flags & exchange::TCP_ACK) != 0 ? EWrong::Reset : EWrong::ResetWithoutAck;
        }
        AddStep(m_script, EStep::Segment, m_index, view.payloadLength, wrong);
        m_cursor = position + (wrong == EWrong::Nothing ? view.payloadLength : 0);
        return true;
    }

    Script& m_script;
    std::size_t m_index;
    uint32_t m_initialSeq;
    exchange::SnapshotConnection m_connection;
    std::vector<uint8_t> m_stream;
    int64_t m_cursor = 0;
    bool m_isOver = false;
};

exchange::Exchange MakeExchange(int32_t shfe, int32_t ine, int32_t shfeTopic, int32_t ineTopic) {
    exchange::ExchangeOptions options;
    options.shfeInstruments = shfe;
    options.ineInstruments = ine;
    options.shfeTopicId = shfeTopic;
    options.ineTopicId = ineTopic;
    return exchange::Exchange(options);
}

/// The connections' frames in turn.
void RecordInTurn(std::vector<Recorder>& recorders) {
    std::size_t frames = 0;
    for (bool isAny = true; isAny && frames < FRAMES_MAX;) {
        isAny = false;
        for (Recorder& recorder : recorders) {
            isAny = recorder.RecordFrame() || isAny;
            ++frames;
        }
    }
}

Script Record(exchange::Exchange& market, const Faults& faults, uint8_t options) {
    Script script;
    script.options = options;
    std::vector<Recorder> recorders;
    for (const EMDQPDataType feed : {SHFE_2PS, INE_2PS}) {
        recorders.emplace_back(script, recorders.size(), market.SnapshotMessages(feed, faults), faults);
    }
    if (faults.Has(EFault::SecondConnection)) {
        recorders.emplace_back(script, recorders.size(), market.SnapshotMessages(SHFE_2PS), Faults{});
    }
    RecordInTurn(recorders);
    return script;
}

Script RecordFourFeeds() {
    Script script;
    script.options = ALL_FEEDS_ENABLED | OPTION_TALK;
    exchange::Exchange slow = MakeExchange(20, 9, 1000, 5000);
    exchange::Exchange fast = MakeExchange(18, 7, 1001, 5001);
    std::vector<Recorder> recorders;
    for (exchange::Exchange* market : {&slow, &fast}) {
        for (const EMDQPDataType feed : {SHFE_2PS, INE_2PS}) {
            recorders.emplace_back(script, recorders.size(), market->SnapshotMessages(feed), Faults{});
        }
    }
    RecordInTurn(recorders);
    return script;
}

/// A snapshot to its end, with a step in front or a configuration of its own.
Script Plain(uint8_t options, uint8_t debugCase = 0) {
    exchange::Exchange market = MakeExchange(14, 5, 1000, 5000);
    Script script = Record(market, {}, options);
    script.debugCase = debugCase;
    return script;
}

Script WithStep(std::size_t place, Step step) {
    Script script = Plain(FEEDS_2PS);
    script.steps.insert(script.steps.begin() + static_cast<std::ptrdiff_t>(place), std::move(step));
    return script;
}

/// Fields that the exchange never sends: an instrument without a name, and those that nothing is made of.
std::vector<uint8_t> OddMessage() {
    exchange::MdqpWriter writer;
    inst_info_t nameless{};
    nameless.inst_no = 1;
    writer.InstInfo(nameless);
    for (const uint16_t id : {0x0031, 0x0032, 0x1002, 0x1003}) writer.Field(id, "", 1);
    return writer.PriceDetail(1, '2', 5.0, 1).PacketNo(7).Bytes();
}

/// Ends one byte before its last record does.
template <typename Record>
std::vector<uint8_t> CutMessage(uint16_t fieldId, const Record& record) {
    return exchange::MdqpWriter().Field(fieldId, &record, sizeof record - 1).Bytes();
}

Script WithCutRecords() {
    Script script = Plain(FEEDS_2PS | OPTION_PLAY_OUT);
    const auto add = [&](const std::vector<uint8_t>& message) {
        script.steps.insert(script.steps.begin() + 3, {EStep::Message, 0, 0, 0, message});
    };
    add(CutMessage(mdqp::FIELD_INST_INFO, inst_info_t{}));
    add(CutMessage(mdqp::FIELD_DEAL_INFO, deal_info_t{}));
    add(CutMessage(mdqp::FIELD_PRICE_DETAIL, price_detail_t{}));
    add(CutMessage(mdqp::FIELD_ORDER_STATISTICS, order_statistics_info_t{}));
    return script;
}

/// The first stream's messages, its first segment, and then what segments do that exchanges never send. The next one
/// may take the second message along.
Script WithSegments(const std::vector<std::pair<EStep, int64_t>>& segments, bool isBehindSecond) {
    Script script = Plain(FEEDS_2PS | OPTION_PLAY_OUT);
    std::vector<int64_t> sizes;
    std::erase_if(script.steps,
                  [](const Step& step) { return step.kind != EStep::Open && step.kind != EStep::Message; });
    for (const Step& step : script.steps) {
        if (step.stream == 0 && step.kind == EStep::Message) sizes.push_back(static_cast<int64_t>(step.block.size()));
    }
    AddStep(script, EStep::Segment, 0, sizes[0]);
    int64_t more = isBehindSecond ? sizes[1] : 0;
    for (const auto& [kind, number] : segments) AddStep(script, kind, 0, number + std::exchange(more, 0));
    return script;
}

}  // namespace

void WriteSnapshotSeeds(const std::string& folder) {
    const auto write = [&](const std::string& name, const Script& script) {
        WriteSeed(folder, name, WriteScript(script));
    };
    for (const exchange::FaultRow& row : exchange::FaultTable()) {
        if (row.place == exchange::EFaultPlace::Board) continue;
        Faults faults;
        faults.Set(row.kind);
        exchange::Exchange market = MakeExchange(14, 5, 1000, 5000);
        write(row.name, Record(market, faults, FEEDS_2PS | OPTION_PLAY_OUT));
    }
    write("plain", Plain(FEEDS_2PS | OPTION_TALK));
    write("four-feeds", RecordFourFeeds());
    exchange::Exchange full = MakeExchange(SHFE_INST_CAPACITY, INE_INST_CAPACITY, 1000, 5000);
    write("full-tables", Record(full, {}, FEEDS_2PS));
    write("shielded", Plain(FEEDS_2PS | OPTION_SHIELD));
    for (uint8_t debugCase = 0; debugCase < 4; ++debugCase) {
        const auto limits = static_cast<uint8_t>(2 << 5);
        write("debug-" + std::to_string(debugCase),
              Plain(FEEDS_2PS | OPTION_DEBUG | OPTION_TALK, static_cast<uint8_t>(debugCase | limits)));
    }
    write("no-feeds", Plain(0));
    write("odd-fields", WithStep(3, {EStep::Message, 0, 0, 0, OddMessage()}));
    using enum EStep;
    write("mark-alone", WithSegments({{Segment, 5}, {Segment, 40}}, false));
    write("short-tail", WithSegments({{Segment, 4}, {Segment, 40}, {Segment, 700}}, true));
    write("overlapping", WithSegments({{Jump, 200},
                                       {Segment, 100},
                                       {Jump, 100},
                                       {Segment, 50},
                                       {Jump, -150},
                                       {Segment, 60},
                                       {Jump, -110},
                                       {Segment, 90},
                                       {Jump, -340},
                                       {Segment, 200}},
                                      false));
    write("no-mark",
          WithSegments({{Jump, 9}, {Segment, 100}, {Jump, -109}, {Segment, 9}, {Jump, 3}, {Segment, 60}}, false));
    write("ine-range", [] {
        Script script = WithStep(3, {EStep::Message, 0, 0, 0, OddMessage()});
        inst_info_t outside{};
        outside.inst_no = INE_INST_CAPACITY;
        const auto last = std::find_if(script.steps.begin(), script.steps.end(), [](const Step& step) {
            return step.stream == 1 && step.kind == EStep::Segment;
        });
        script.options |= OPTION_PLAY_OUT;
        const auto message = std::find_if(script.steps.begin(), last, [](const Step& step) {
            return step.stream == 1 && step.kind == EStep::Message;
        });
        script.steps.insert(message + 1, {EStep::Message, 1, 0, 0, exchange::MdqpWriter().InstInfo(outside).Bytes()});
        return script;
    }());
    write("cut-records", WithCutRecords());
    // Behind the messages of both streams and the first segment of each.
    const std::size_t middle = Plain(FEEDS_2PS).steps.size() - 6;
    for (uint8_t wrong = 0; wrong < static_cast<uint8_t>(EWrong::Count_); ++wrong) {
        write("wrong-" + std::to_string(wrong), WithStep(middle, {EStep::Segment, 0, wrong, 700, {}}));
    }
    write("scan", WithStep(middle, {EStep::Scan, 0, 0, 600, {}}));
    write("scan-of-feeds", WithStep(middle, {EStep::Scan, 0, 1, 600, {}}));
}

}  // namespace fuzz
