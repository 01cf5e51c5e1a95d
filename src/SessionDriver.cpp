// The session driver: start, receive step, stop, and the reset that ends a session.
// Everything runs on the application's thread; the two flags alone are written from elsewhere.
// Invariant: whatever the session touched (sessions, slots) is marked, so that a reset costs what was used and a
// repeated one next to nothing.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <exception>
#include <span>

#include "common/Feed.h"
#include "common/RegisterMap.h"
#include "public/log/LogLine.h"
#include "public/log/RaisedLogLevel.h"
#include "src/VexaShfeMdApiImpl.h"

CVexaShfeMdApiImpl::CVexaShfeMdApiImpl()
    : m_drvRegEnyx(CDrvRegEnyx::GetInstance()),
      m_writeDmaShot(CWriteShot::GetInstance()),
      m_u50InstTable{},
      m_sessions{},
      m_dirtySessions{} {}

CVexaShfeMdApiImpl::~CVexaShfeMdApiImpl() { _ResetSessions(); }

// ---- starting -----------------------------------------------------------------------------------------------------

int32_t CVexaShfeMdApiImpl::VexaStart(CVexaShfeMdSpi& spi, const char* lpConfig) {
    if (lpConfig == nullptr) {
        std::fputs("VexaStart error, lpConfig is nullptr", stdout);
        std::fflush(stdout);
        return -1;
    }
    m_isStopflag.store(false, std::memory_order_relaxed);
    m_vexaShfeMdSpiOptional = spi;
    if (_Start(CALL_BACK, lpConfig) != 0) {
        VEXA_LOG(LOG_ERROR, "_Init error");
        return -2;
    }
    return 0;
}

int32_t CVexaShfeMdApiImpl::VexaStart(const char* lpConfig) {
    if (lpConfig == nullptr) {
        VEXA_LOG(LOG_ERROR, "lpConfig is nullptr");
        return -1;
    }
    if (_Start(BUFF_FETCH, lpConfig) != 0) {
        VEXA_LOG(LOG_ERROR, "_Init error");
        return -2;
    }
    return 0;
}

int32_t CVexaShfeMdApiImpl::VexaRecvStart(CVexaShfeMdSpi& spi, const char* lpConfig) {
    if (VexaStart(spi, lpConfig) != 0) return -1;
    while (VexaRecv() != -1) {
    }
    return 0;
}

int32_t CVexaShfeMdApiImpl::_Start(EUserDataType delivery, const char* lpConfig) {
    m_configFileName.UnSafeCopyFrom(lpConfig);
    m_u50UserData.lpMdApi = this;
    m_u50UserData.userDataType = delivery;
    m_hasToldNoStream = false;
    try {
        return Init();
    } catch (const std::exception& error) {
        VEXA_LOG(LOG_ERROR, "start given up: %s", error.what());
        return -1;
    }
}

int32_t CVexaShfeMdApiImpl::Init() {
    if (_ReadConfig() != 0) {
        std::fputs("Init, _ReadConfig failed \n", stdout);
        std::fflush(stdout);
        return -2;
    }
    VEXA_LOG(LOG_INFO, "VEXA_U50_VERSION[%s]", VEXA_U50_VERSION.data());
    InitSignal();
    CCommonLog::GetInstance().SetLogLevel(m_u50ConfigInfo.log_level);
    _BindCpu();

    const auto bus = static_cast<uint16_t>(m_u50ConfigInfo.bus_id);
    if (m_registerHold.Take(bus, reg::CORE_SELECTOR) != 0) {
        VEXA_LOG(LOG_ERROR, "Reg Init failed");
        return -4;
    }
    CQelCharArray<64> channelName("CUSTOM_CHAN");
    channelName.Append(m_u50ConfigInfo.channel_id).Append("_DATA");
    if (m_drvDMAEnyx.Init(bus, channelName) != 0) {
        m_registerHold.Release();
        VEXA_LOG(LOG_ERROR, "DMA Init failed");
        return -3;
    }

    CRaisedLogLevel raised(m_u50ConfigInfo.log_level);
    uint32_t buildDate = 0;
    uint32_t buildVersion = 0;
    m_drvRegEnyx.ReadRegister(reg::BUILD_DATE, buildDate);
    m_drvRegEnyx.ReadRegister(reg::BUILD_VERSION, buildVersion);
    VEXA_LOG(LOG_INFO, "FPGA COMPILE_DATE[%08x] COMPILE_VER[%08x]", buildDate, buildVersion);
    _ReadIdentity();
    VEXA_LOG(LOG_INFO, "DNA [%08x:%08x:%08x] [%s]", m_u50Dna[0], m_u50Dna[1], m_u50Dna[2], m_u50MACAddr.data());
    raised.End();

    return _ChechAndVexaSubDmaUp();
}

// The board's MAC address is the first six bytes of its identity.
void CVexaShfeMdApiImpl::_ReadIdentity() {
    constexpr uint32_t registers[] = {reg::DNA_0, reg::DNA_1, reg::DNA_2};
    for (std::size_t word = 0; word < std::size(registers); ++word) {
        m_u50Dna[word] = 0;
        m_drvRegEnyx.ReadRegister(registers[word], m_u50Dna[word]);
    }
    const uint64_t identity = (uint64_t{m_u50Dna[0]} << 32) | m_u50Dna[1];
    char text[sizeof "00:00:00:00:00:00"];
    const auto byte = [identity](int index) {
        return static_cast<unsigned int>((identity >> (56 - 8 * index)) & 0xFF);
    };
    std::snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", byte(0), byte(1), byte(2), byte(3), byte(4),
                  byte(5));
    m_u50MACAddr.UnSafeCopyFrom(text);
}

// ---- receiving ----------------------------------------------------------------------------------------------------

int32_t CVexaShfeMdApiImpl::VexaRecv() {
    if (const EStep step = _PrepareStep(); step != EStep::Receive) [[unlikely]]
        return static_cast<int32_t>(step);
    return _Receive();
}

int32_t CVexaShfeMdApiImpl::VexaRecv(VexaShfeMdType& md) {
    if (const EStep step = _PrepareStep(); step != EStep::Receive) [[unlikely]]
        return static_cast<int32_t>(step);
    m_u50UserData.lpMdData = &md;
    return _Receive();
}

int32_t CVexaShfeMdApiImpl::VexaStop() {
    m_isStopflag.store(true, std::memory_order_relaxed);
    return 0;
}

inline CVexaShfeMdApiImpl::EStep CVexaShfeMdApiImpl::_PrepareStep() {
    if (m_isExit.load(std::memory_order_relaxed) || m_isStopflag.load(std::memory_order_relaxed)) [[unlikely]] {
        _Cleandata(*this);
        _TellCounters();
        return EStep::Ended;
    }
    if (m_u50ConfigInfo.channel_id == MANAGER_CHANNEL && !m_isAllInitFinished) [[unlikely]]
        return _Rebuild();
    return EStep::Receive;
}

// Nobody's board is brought up by a session that holds no stream of it, and none that does not answer: its stream is
// polled until it does.
CVexaShfeMdApiImpl::EStep CVexaShfeMdApiImpl::_Rebuild() {
    if (!m_drvDMAEnyx.IsOpen()) return _RefuseToReceive();
    if (m_drvDMAEnyx.HasFailed()) {
        m_drvDMAEnyx.RecvOnce(_MdClearHandler, &m_u50UserData);
        return EStep::Idle;
    }
    int32_t result = -1;
    try {
        // No checksum: what a start stored stays as it is.
        result = _VexaSubDmaUp(0);
    } catch (const std::exception& error) {
        VEXA_LOG(LOG_ERROR, "rebuild given up: %s", error.what());
    }
    if (result == 0) return EStep::Receive;
    if (result == BOARD_LOST) return EStep::Idle;
    WriteLogLine(LOG_ERROR, LogBaseName(__FILE__), __LINE__, "VexaRecv", "_VexaSubDmaUp is error");
    return EStep::Ended;
}

CVexaShfeMdApiImpl::EStep CVexaShfeMdApiImpl::_RefuseToReceive() {
    if (!m_hasToldNoStream) {
        WriteLogLine(LOG_ERROR, LogBaseName(__FILE__), __LINE__, "VexaRecv",
                     "nothing to receive from: the session was not started, or its start failed");
    }
    m_hasToldNoStream = true;
    return EStep::Ended;
}

// On the managing channel a stream that has failed is a loss; the others have nothing to rebuild.
CVexaShfeMdApiImpl::EStep CVexaShfeMdApiImpl::_OnFailedPoll() {
    if (!m_drvDMAEnyx.IsOpen()) return _RefuseToReceive();
    if (m_u50ConfigInfo.channel_id == MANAGER_CHANNEL) {
        _ForgetSnapshot();
        m_isAllInitFinished = false;
    }
    return EStep::Idle;
}

// Once at a session's end: later steps find nothing new.
void CVexaShfeMdApiImpl::_TellCounters() {
    m_counters.Set(ECounter::PollFailed, m_drvDMAEnyx.FailedPolls());
    m_counters.Set(ECounter::RegisterFailed, m_drvRegEnyx.FailedAccesses());
    char text[1024];
    if (m_counters.TakeNews(text)) VEXA_LOG(LOG_INFO, "dropped, refused or begun again:%s", text);
}

inline int32_t CVexaShfeMdApiImpl::_Receive() {
    m_u50UserData.isQuote = false;
    const int32_t polled = m_drvDMAEnyx.RecvOnce(_MdHandler, &m_u50UserData);
    if (m_u50UserData.isQuote) return 1;
    return polled == 0 ? 0 : static_cast<int32_t>(_OnFailedPoll());
}

// ---- clearing -----------------------------------------------------------------------------------------------------

void CVexaShfeMdApiImpl::_Cleandata(CVexaShfeMdApiImpl& api) {
    api._ResetSessions();
    api.m_finishedMask.enabled_mask = 0;
    api._ClearTables();
    api.m_u50DstPort = U50DstPort();
    api.m_u50InstCount = U50InstCount();
    api.m_setPriceErrorInstId.clear();
    api.m_isTcpInitFinished = false;
}

void CVexaShfeMdApiImpl::_ResetSessions() {
    for (const uint16_t port : std::span(m_dirtySessions).first(m_dirtySessionCount)) {
        ResetSession(m_sessions[port]);
        m_isSessionDirty.reset(port);
    }
    m_dirtySessionCount = 0;
}

void CVexaShfeMdApiImpl::_ClearTables() {
    for (const EMDQPDataType feed : ALL_FEEDS) {
        const auto used = static_cast<std::size_t>(m_dirtySlots[feed]);
        std::memset(FeedTable(m_u50InstTable, feed), 0, used * sizeof(SInstTableType));
        m_dirtySlots[feed] = 0;
    }
}

void CVexaShfeMdApiImpl::_MarkSession(uint16_t port) {
    if (m_isSessionDirty.test(port)) return;
    m_isSessionDirty.set(port);
    m_dirtySessions[m_dirtySessionCount++] = port;
}

void CVexaShfeMdApiImpl::_MarkSlots(EMDQPDataType feed, int32_t usedSlots) {
    m_dirtySlots[feed] = std::min(std::max(usedSlots, m_dirtySlots[feed]), TraitsOf(feed).capacity);
}
