// The DMA handler of the live phase: updates go straight to the application, events into the log and, where they mean a
// loss, into a rebuild. Runs inside the receive step, on the application's thread.
// Invariant: on the road of an update nothing is allocated, locked, formatted or asked of the system.
#include <algorithm>
#include <array>
#include <cstring>

#include "common/RegisterMap.h"
#include "public/clock/Clock.h"
#include "public/log/LogLine.h"
#include "public/log/RaisedLogLevel.h"
#include "src/VexaShfeMdApiImpl.h"

namespace {

/// Minutes of the day, first and last, in which no data is no fault: around the sessions' openings, breaks and ends.
struct QuietMinutes {
    int hour;
    int first;
    int last;
};

constexpr QuietMinutes QUIET[] = {{8, 55, 59},  {20, 55, 59}, {9, 0, 0},    {21, 0, 0},  {10, 15, 15},
                                  {10, 25, 30}, {11, 30, 30}, {13, 25, 30}, {15, 0, 59}, {2, 30, 30}};

bool IsQuiet(int hour, int minute) {
    return std::any_of(std::begin(QUIET), std::end(QUIET), [=](const QuietMinutes& quiet) {
        return hour == quiet.hour && quiet.first <= minute && minute <= quiet.last;
    });
}

// Beyond this no calendar is meant; a register that reads so says nothing about the time of day.
constexpr uint64_t SECONDS_MAX = uint64_t{1} << 40;

// By the time of the last update, not by the clock: what matters is whether the exchange was quiet then.
bool IsTimeOutExpected(const CDrvRegEnyx& board, uint32_t eventData0) {
    std::array<uint64_t, FEED_COUNT> times{};
    for (uint32_t feed = 0; feed < times.size(); ++feed) {
        board.ReadRegister(reg::LAST_UPDATE_TIME + feed, times[feed]);
    }
    const uint64_t latest = *std::max_element(times.begin(), times.end());
    std::tm local{};
    const bool isKnown = latest < SECONDS_MAX && CClock::LocalTime(static_cast<int64_t>(latest), local);
    const bool isExpected = isKnown && IsQuiet(local.tm_hour, local.tm_min);
    VEXA_LOG_AS("_CheckLostUdpPktHandler", isExpected ? LOG_INFO : LOG_WARNING,
                "received pkt timeout event,%s event_data0=%08x last_update_time[%lu,%lu,%lu,%lu] ts[%u,%u]",
                isExpected ? " ignore." : "", eventData0, times[0], times[1], times[2], times[3],
                static_cast<unsigned int>(local.tm_hour), static_cast<unsigned int>(local.tm_min));
    return isExpected;
}

}  // namespace

void CVexaShfeMdApiImpl::_MdHandler(const unsigned char* buf, unsigned int, void* userData) {
    auto* user = static_cast<U50UserData*>(userData);
    if (user == nullptr) [[unlikely]] {
        VEXA_LOG(LOG_ERROR, "user_data is nullptr");
        return;
    }
    if (buf == nullptr || user->lpMdApi == nullptr) [[unlikely]]
        return;
    auto& api = *static_cast<CVexaShfeMdApiImpl*>(user->lpMdApi);
    uint32_t type = 0;
    std::memcpy(&type, buf, sizeof type);
    if (type != DMA_UDP) [[unlikely]] {
        if (type == DMA_EVENT) api.HandleEvent(buf);
        return;
    }
    const unsigned char* record = buf + DMA_UDP_RECORD_OFFSET;
    if (user->userDataType == CALL_BACK) {
        bool isValid = false;
        CVexaShfeMdSpi& spi = api.m_vexaShfeMdSpiOptional.GetData(isValid);
        if (!isValid) [[unlikely]] {
            VEXA_LOG(LOG_ERROR, "refMdSpi is nullptr");
            api.m_counters.Add(ECounter::UpdateUndeliverable);
            return;
        }
        user->isQuote = true;
        // The interface lets the application write to the record; the buffer is the board's to give away.
        spi.OnVexaShfeMd(*reinterpret_cast<VexaShfeMdType*>(const_cast<unsigned char*>(record)));
        return;
    }
    if (user->lpMdData == nullptr) [[unlikely]] {
        VEXA_LOG(LOG_ERROR, "lpMdData is nullptr");
        api.m_counters.Add(ECounter::UpdateUndeliverable);
        return;
    }
    std::memcpy(user->lpMdData, record, sizeof(VexaShfeMdType));
    user->isQuote = true;
}

void CVexaShfeMdApiImpl::_MdClearHandler(const unsigned char*, unsigned int, void*) {}

// Lines of events name the handler that they came in by.
#define HANDLER_LOG(level, ...) VEXA_LOG_AS("_MdHandler", level, __VA_ARGS__)

[[gnu::cold, gnu::noinline]] void CVexaShfeMdApiImpl::HandleEvent(const unsigned char* buf) {
    U50Event event;
    std::memcpy(&event, buf, sizeof event);
    const int32_t channel = m_u50ConfigInfo.channel_id;
    HANDLER_LOG(LOG_WARNING,
                "channel%d got DMA_EVENT event_data0[%u] event_data1[%u] event_data2[%u] event_data3[%u] "
                "event_data4[%u] event_data5[%u]",
                channel, event.event_data0, event.event_data1, event.event_data2, event.event_data3, event.event_data4,
                event.event_data5);
    if (channel != MANAGER_CHANNEL) {
        HANDLER_LOG(LOG_WARNING, "channel%d receive DMA_EVENT event_data0[%u] event_data1[%u] event_data2[%u]", channel,
                    event.event_data0, event.event_data1, event.event_data2);
        return;
    }
    if (!m_isHBM2InitFinished && (event.event_data2 & EVENT_MEMORY_READY) != 0) {
        m_isHBM2InitFinished = true;
        HANDLER_LOG(LOG_INFO, "received HBM2 init event, event_data2=%08x", event.event_data2);
        return;
    }
    if (_CheckLostUdpPktHandler(event)) m_isAllInitFinished = false;
}

bool CVexaShfeMdApiImpl::_CheckLostUdpPktHandler(const U50Event& ev) {
    if ((ev.event_data0 & EVENT_LOST) != 0) {
        VEXA_LOG(LOG_WARNING, "received lost pkt event, event_data0=%08x", ev.event_data0);
    } else if ((ev.event_data1 & EVENT_PRICE_ERROR) != 0) {
        VEXA_LOG(LOG_WARNING, "received px error event, event_data1=%08x", ev.event_data1);
    } else if ((ev.event_data0 & EVENT_TIME_OUT) == 0) {
        if ((ev.event_data3 & EVENT_LOST_3) == 0) return false;
        VEXA_LOG(LOG_WARNING, "received lost pkt event, event_data3=%08x", ev.event_data3);
    } else if (IsTimeOutExpected(m_drvRegEnyx, ev.event_data0)) {
        return false;
    }
    m_counters.Add(ECounter::EventLoss);
    ForgetSnapshot();
    return true;
}

// The registers' trace at the raised level is the record of the loss; their values are not used.
void CVexaShfeMdApiImpl::ForgetSnapshot() {
    m_snapshot.Forget();
    m_isHBM2InitFinished = false;
    const CRaisedLogLevel raised(m_u50ConfigInfo.log_level);
    for (const uint32_t address : {reg::DIAGNOSTIC_2030, reg::DIAGNOSTIC_2031, reg::HBM2_STATUS, reg::DIAGNOSTIC_12015,
                                   reg::DIAGNOSTIC_1201B, reg::DIAGNOSTIC_22015, reg::DIAGNOSTIC_2201B}) {
        uint32_t value = 0;
        m_drvRegEnyx.ReadRegister(address, value);
    }
}
