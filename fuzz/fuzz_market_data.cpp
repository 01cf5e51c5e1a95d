// Any sequence of DMA messages through a live session, in both forms of delivery, and the rebuilds that events bring.
// Each message lies in a heap block of just the bytes that a provider promises, so that any read beyond them is seen.
//
//     options   form of delivery, channel, no Spi or record, hour of the last update
//     message   a byte for its kind: an update (176 bytes), an event (six words), any bytes (two bytes of size),
//     nothing
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "fuzz/Bytes.h"
#include "fuzz/FuzzBoard.h"
#include "fuzz/Oracle.h"
#include "fuzz/SnapshotFrames.h"
#include "testing/IniText.h"
#include "testing/LogCapture.h"
#include "testing/ManualClock.h"
#include "testing/TemporaryDirectory.h"
#include "tests/support/TestableApi.h"

namespace fuzz {
namespace {

constexpr int STEPS_MAX = 400;
constexpr int REBUILDS_MAX = 6;
constexpr std::size_t RECORD_BYTES = 176;

enum EOption : uint8_t { POLLING = 1, OTHER_CHANNEL = 2, NOBODY_THERE = 4, MEMORY_NOT_READY = 8 };

/// Hands over one prepared message, then the snapshot while its phase is open.
class LiveBoard : public Board {
public:
    explicit LiveBoard(const std::vector<std::vector<uint8_t>>& frames) : m_frames(frames) {}

    std::vector<uint8_t> next;
    uint64_t lastUpdate = 0;
    uint64_t bringUps = 0;

    int32_t Write(uint32_t index, uint32_t value) override {
        if (index == 0x10) {
            ReopenTables();
            ++bringUps;
        }
        if (index == 0x1000) {
            m_isSnapshotOpen = value == 15;
            m_nextFrame = 0;
        }
        return Board::Write(index, value);
    }

    int32_t Read(uint32_t index, uint64_t& value) override {
        switch (index) {
            case 0x2032: value = 3; return 0;
            case 0x101: value = 0x20260420; return 0;
            case 0x103: value = 1; return 0;
            case 0x2041: value = lastUpdate; return 0;
            default: return Board::Read(index, value);
        }
    }

    int32_t Receive(VexaBoardStream*, VexaBoardMessageHandler handler, void* user) override {
        if (!next.empty()) {
            Hand(std::exchange(next, {}), handler, user);
            return 1;
        }
        if (!m_isSnapshotOpen || m_nextFrame == m_frames.size()) return 0;
        Hand(m_frames[m_nextFrame++], handler, user);
        return 1;
    }

private:
    const std::vector<std::vector<uint8_t>>& m_frames;
    std::size_t m_nextFrame = 0;
    bool m_isSnapshotOpen = false;
};

struct Application : CVexaShfeMdSpi {
    void OnVexaShfeMd(VexaShfeMdType& md) override {
        std::memcpy(&record, &md, sizeof record);
        ++calls;
    }
    VexaShfeMdType record{};
    uint64_t calls = 0;
};

/// Behind a short message a provider leaves zeros here.
uint32_t Word(const std::vector<uint8_t>& message, std::size_t index) {
    const std::size_t begin = std::min(message.size(), index * sizeof(uint32_t));
    return ByteReader(message.data() + begin, message.size() - begin).Take<uint32_t>();
}

/// The minutes of the day in which no data is no fault, written out.
bool IsQuiet(uint32_t hour, uint32_t minute) {
    const uint32_t time = hour * 100 + minute;
    return (time >= 855 && time <= 900) || (time >= 2055 && time <= 2100) || time == 1015 ||
           (time >= 1025 && time <= 1030) || time == 1130 || (time >= 1325 && time <= 1330) ||
           (time >= 1500 && time <= 1559) || time == 230;
}

class LiveSession {
public:
    LiveSession(const std::vector<std::vector<uint8_t>>& frames, ByteReader& input)
        : m_board(frames), m_options(input.Take<uint8_t>()), m_minuteOfDay(input.Take<uint16_t>() % 1440U) {
        // The target runs in UTC.
        constexpr uint64_t MIDNIGHT = 1'777'507'200;
        m_board.lastUpdate = MIDNIGHT + m_minuteOfDay * 60U;
        m_isPolling = (m_options & POLLING) != 0;
        m_isManaging = (m_options & OTHER_CHANNEL) == 0;
    }

    void Start(const std::string& managing, const std::string& other) {
        const char* path = m_isManaging ? managing.c_str() : other.c_str();
        FUZZ_REQUIRE((m_isPolling ? m_api->VexaStart(path) : m_api->VexaStart(m_application, path)) == 0);
        if ((m_options & NOBODY_THERE) != 0) m_api->m_vexaShfeMdSpiOptional = CQELOptional<CVexaShfeMdSpi>();
        if ((m_options & MEMORY_NOT_READY) != 0) m_api->m_isHBM2InitFinished = false;
    }

    /// What a provider never does, and what an application might.
    void RequireGuards() {
        alignas(8) static const unsigned char update[DMA_READABLE_BYTES] = {DMA_UDP};
        const auto undeliverable = [this] { return m_api->m_counters[ECounter::UpdateUndeliverable]; };
        const uint64_t before = undeliverable();
        TestableApi::_MdHandler(update, sizeof update, nullptr);
        TestableApi::_MdHandler(nullptr, 0, &m_api->m_u50UserData);
        TestableApi::_MdClearHandler(update, sizeof update, &m_api->m_u50UserData);
        FUZZ_REQUIRE(undeliverable() == before);
        U50UserData user = m_api->m_u50UserData;
        user.userDataType = BUFF_FETCH;
        user.lpMdData = nullptr;
        TestableApi::_MdHandler(update, sizeof update, &user);
        FUZZ_REQUIRE(undeliverable() == before + 1 && !user.isQuote);
    }

    void Step(const std::vector<uint8_t>& message) {
        const uint64_t bringUps = m_board.bringUps;
        if (m_mustRebuild && ++m_rebuilds > REBUILDS_MAX) return;
        if (m_mustRebuild) {
            // The message waits until the session is live: a bring-up would discard it.
            Take();
            FUZZ_REQUIRE(m_board.bringUps == bringUps + 1);
            m_mustRebuild = false;
            return;
        }
        const bool isLoss = IsLoss(message);
        m_board.next = message;
        const uint64_t counted = m_api->m_counters[ECounter::EventLoss];
        const int32_t result = Take();
        const bool isUpdate = Word(message, 0) == DMA_UDP && !message.empty();
        const bool isThere = m_isPolling || (m_options & NOBODY_THERE) == 0;
        FUZZ_REQUIRE(result == (isUpdate && isThere ? 1 : 0));
        if (result == 1) RequireRecord(message);
        FUZZ_REQUIRE(m_board.bringUps == bringUps);
        FUZZ_REQUIRE(m_api->m_counters[ECounter::EventLoss] - counted == (isLoss ? 1 : 0));
        m_mustRebuild = isLoss;
    }

    bool IsOver() const { return m_rebuilds > REBUILDS_MAX; }

private:
    int32_t Take() { return m_isPolling ? m_api->VexaRecv(m_application.record) : m_api->VexaRecv(); }

    void RequireRecord(const std::vector<uint8_t>& message) const {
        std::vector<uint8_t> readable = message;
        readable.resize(std::max<std::size_t>(message.size(), DMA_READABLE_BYTES));
        FUZZ_REQUIRE(std::memcmp(&m_application.record, &readable[DMA_UDP_RECORD_OFFSET], RECORD_BYTES) == 0);
    }

    // What an event means, read from its words in their order.
    bool IsLoss(const std::vector<uint8_t>& message) {
        if (message.empty() || Word(message, 0) != DMA_EVENT || !m_isManaging) return false;
        const uint32_t data0 = Word(message, 2);
        if (!m_api->m_isHBM2InitFinished && (Word(message, 4) & 1) != 0) return false;
        if ((data0 & 0x80808080U) != 0) return true;
        if ((Word(message, 3) & 0x0F0F0F0FU) != 0) return true;
        if ((data0 & 0x40404040U) != 0) return !IsQuiet(m_minuteOfDay / 60, m_minuteOfDay % 60);
        return (Word(message, 5) & 0x0FU) != 0;
    }

    ManualClock m_clock;
    LiveBoard m_board;
    std::unique_ptr<TestableApi> m_api = MakeApi();
    Application m_application;
    uint8_t m_options;
    uint32_t m_minuteOfDay;
    bool m_isPolling = false;
    bool m_isManaging = false;
    bool m_mustRebuild = false;
    int m_rebuilds = 0;
};

std::vector<uint8_t> NextMessage(ByteReader& input) {
    std::vector<uint8_t> message;
    const uint8_t kind = input.Take<uint8_t>() % 4;
    if (kind == 2) return input.TakeBlock(input.Take<uint16_t>() % (DMA_MESSAGE_CAPACITY + 1));
    if (kind == 3) return {};
    const bool isUpdate = kind == 0;
    Put(message, uint32_t{isUpdate ? DMA_UDP : DMA_EVENT});
    Put(message, uint32_t{0});
    std::vector<uint8_t> body = input.TakeBlock(isUpdate ? RECORD_BYTES : 6 * sizeof(uint32_t));
    body.resize(isUpdate ? RECORD_BYTES : 6 * sizeof(uint32_t));
    message.insert(message.end(), body.begin(), body.end());
    return message;
}

struct Place {
    Place() { TestableApi::s_indexDirectory = directory.Path(); }
    static IniText Config() { return IniText().Section("config").Key("log_level", 15); }

    SilentLog silence;
    TemporaryDirectory directory;
    TemporaryFile managing{
        Config().Enabled("shfe2ps").Enabled("ine2ps").Section("channel0").Key("insts", "all").Text()};
    TemporaryFile other{Config().Device(0, 3).Text()};
    std::vector<std::vector<uint8_t>> frames = SnapshotFrames();
};

}  // namespace
}  // namespace fuzz

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    setenv("TZ", "UTC", 1);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    static fuzz::Place place;
    fuzz::ByteReader input(data, size);
    fuzz::LiveSession session(place.frames, input);
    session.Start(place.managing.Path(), place.other.Path());
    session.RequireGuards();
    for (int step = 0; step < fuzz::STEPS_MAX && !input.IsEmpty() && !session.IsOver(); ++step) {
        session.Step(fuzz::NextMessage(input));
    }
    return 0;
}
