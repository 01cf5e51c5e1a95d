// The session driver: start, receive step, stop, and the reset that ends a session.
// Everything runs on the application's thread; the two flags alone are written from elsewhere.
// Invariant: a repeated clearing costs next to nothing.
#include <cstdio>
#include <exception>

#include "common/RegisterMap.h"
#include "public/log/LogLine.h"
#include "public/log/RaisedLogLevel.h"
#include "src/VexaShfeMdApiImpl.h"
#include "src/board/BoardIdentity.h"

CVexaShfeMdApiImpl::CVexaShfeMdApiImpl()
    : m_drvRegEnyx(CDrvRegEnyx::GetInstance()),
      m_writeDmaShot(CWriteShot::GetInstance()),
      m_u50InstTable{},
      m_sessions{},
      m_store({m_u50InstTable, m_u50InstCount, m_u50DstPort, m_finishedMask, m_tradingDay}),
      m_registerWriter(m_drvRegEnyx),
      m_decoder(m_store, m_registerWriter, m_counters),
      m_feeds(m_u50ConfigInfo, m_store, m_decoder, m_counters),
      m_reassembly(m_sessions, m_counters, m_feeds),
      m_snapshot({m_u50ConfigInfo, m_drvRegEnyx, m_writeDmaShot, m_counters},
                 {m_reassembly, m_store, m_isTcpInitFinished, m_setPriceErrorInstId}),
      m_subscription(m_drvRegEnyx, m_u50ConfigInfo, m_store, m_setPriceErrorInstId) {}

CVexaShfeMdApiImpl::~CVexaShfeMdApiImpl() = default;

// ---- starting -----------------------------------------------------------------------------------------------------

int32_t CVexaShfeMdApiImpl::VexaStart(CVexaShfeMdSpi& spi, const char* lpConfig) {
    if (lpConfig == nullptr) {
        std::fputs("VexaStart error, lpConfig is nullptr", stdout);
        std::fflush(stdout);
        return -1;
    }
    m_isStopflag.store(false, std::memory_order_relaxed);
    m_vexaShfeMdSpiOptional = spi;
    if (Start(CALL_BACK, lpConfig) != 0) {
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
    if (Start(BUFF_FETCH, lpConfig) != 0) {
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

int32_t CVexaShfeMdApiImpl::Start(EUserDataType delivery, const char* lpConfig) {
    m_configFileName.UnSafeCopyFrom(lpConfig);
    m_u50UserData.lpMdApi = this;
    m_u50UserData.userDataType = delivery;
    m_hasToldNoStream = false;
    try {
        return Init();
    } catch (const std::exception& error) {
        VEXA_LOG_AS("_Start", LOG_ERROR, "start given up: %s", error.what());
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
    ReadIdentity(m_drvRegEnyx, m_u50Dna, m_u50MACAddr);
    VEXA_LOG(LOG_INFO, "DNA [%08x:%08x:%08x] [%s]", m_u50Dna[0], m_u50Dna[1], m_u50Dna[2], m_u50MACAddr.data());
    raised.End();

    return _ChechAndVexaSubDmaUp();
}

// ---- receiving ----------------------------------------------------------------------------------------------------

int32_t CVexaShfeMdApiImpl::VexaRecv() {
    if (const EStep step = PrepareStep(); step != EStep::Receive) [[unlikely]]
        return static_cast<int32_t>(step);
    return Receive();
}

int32_t CVexaShfeMdApiImpl::VexaRecv(VexaShfeMdType& md) {
    if (const EStep step = PrepareStep(); step != EStep::Receive) [[unlikely]]
        return static_cast<int32_t>(step);
    m_u50UserData.lpMdData = &md;
    return Receive();
}

int32_t CVexaShfeMdApiImpl::VexaStop() {
    m_isStopflag.store(true, std::memory_order_relaxed);
    return 0;
}

inline CVexaShfeMdApiImpl::EStep CVexaShfeMdApiImpl::PrepareStep() {
    if (m_isExit.load(std::memory_order_relaxed) || m_isStopflag.load(std::memory_order_relaxed)) [[unlikely]] {
        _Cleandata(*this);
        TellCounters();
        return EStep::Ended;
    }
    if (m_u50ConfigInfo.channel_id == MANAGER_CHANNEL && !m_isAllInitFinished) [[unlikely]]
        return Rebuild();
    return EStep::Receive;
}

// Nobody's board is brought up by a session that holds no stream of it, and none that does not answer: its stream is
// polled until it does.
CVexaShfeMdApiImpl::EStep CVexaShfeMdApiImpl::Rebuild() {
    if (!m_drvDMAEnyx.IsOpen()) return RefuseToReceive();
    if (m_drvDMAEnyx.HasFailed()) {
        m_drvDMAEnyx.RecvOnce(_MdClearHandler, &m_u50UserData);
        return EStep::Idle;
    }
    int32_t result = -1;
    try {
        // No checksum: what a start stored stays as it is.
        result = _VexaSubDmaUp(0);
    } catch (const std::exception& error) {
        VEXA_LOG_AS("_Rebuild", LOG_ERROR, "rebuild given up: %s", error.what());
    }
    if (result == 0) return EStep::Receive;
    if (result == BOARD_LOST) return EStep::Idle;
    VEXA_LOG_AS("VexaRecv", LOG_ERROR, "_VexaSubDmaUp is error");
    return EStep::Ended;
}

CVexaShfeMdApiImpl::EStep CVexaShfeMdApiImpl::RefuseToReceive() {
    if (!m_hasToldNoStream) {
        VEXA_LOG_AS("VexaRecv", LOG_ERROR, "nothing to receive from: the session was not started, or its start failed");
    }
    m_hasToldNoStream = true;
    return EStep::Ended;
}

// On the managing channel a stream that has failed is a loss; the others have nothing to rebuild.
CVexaShfeMdApiImpl::EStep CVexaShfeMdApiImpl::OnFailedPoll() {
    if (!m_drvDMAEnyx.IsOpen()) return RefuseToReceive();
    if (m_u50ConfigInfo.channel_id == MANAGER_CHANNEL) {
        ForgetSnapshot();
        m_isAllInitFinished = false;
    }
    return EStep::Idle;
}

// Once at a session's end: later steps find nothing new.
void CVexaShfeMdApiImpl::TellCounters() {
    m_counters.Set(ECounter::PollFailed, m_drvDMAEnyx.FailedPolls());
    m_counters.Set(ECounter::RegisterFailed, m_drvRegEnyx.FailedAccesses());
    char text[1024];
    if (m_counters.TakeNews(text)) VEXA_LOG_AS("_TellCounters", LOG_INFO, "dropped, refused or begun again:%s", text);
}

inline int32_t CVexaShfeMdApiImpl::Receive() {
    m_u50UserData.isQuote = false;
    const int32_t polled = m_drvDMAEnyx.RecvOnce(_MdHandler, &m_u50UserData);
    if (m_u50UserData.isQuote) return 1;
    return polled == 0 ? 0 : static_cast<int32_t>(OnFailedPoll());
}

void CVexaShfeMdApiImpl::_Cleandata(CVexaShfeMdApiImpl& api) { api.m_snapshot.Clear(); }
