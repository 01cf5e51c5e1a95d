// The start-up of a channel: may the board be left as it is, or must it be brought up; then versions, checksum, index
// file, subscriptions, engine parameters, engine start. Runs on the thread that starts or receives.
// Invariant: on a channel other than the managing one no register is touched.
#include "public/clock/Clock.h"
#include "public/log/LogLine.h"
#include "public/log/RaisedLogLevel.h"
#include "src/BoardTable.h"
#include "src/VexaShfeMdApiImpl.h"

namespace {

constexpr uint32_t SAMPLE_SECONDS = 3;
constexpr int64_t STREAM_FAILS_SECONDS = 1;

/// Lines of the start-up name the one operation that it is, whichever part of it wrote them.
#define UP_LOG(level, ...) WriteLogLine((level), LogBaseName(__FILE__), __LINE__, "_VexaSubDmaUp", __VA_ARGS__)

U50MdPktCnt ReadPacketCounters(const CDrvRegEnyx& board) {
    U50MdPktCnt counters;
    board.ReadRegister(reg::SHFE_2PS_PKTS, counters.shfe_2ps_pkts);
    board.ReadRegister(reg::INE_2PS_PKTS, counters.en_2ps_pkts);
    board.ReadRegister(reg::SHFE_4PS_PKTS, counters.shfe_4ps_pkts);
    board.ReadRegister(reg::INE_4PS_PKTS, counters.en_4ps_pkts);
    board.ReadRegister(reg::EVENT_PKTS, counters.shfe_event_pkts);
    return counters;
}

bool HasDataFlowed(const U50MdPktCnt& first, const U50MdPktCnt& second) {
    return first.shfe_2ps_pkts != second.shfe_2ps_pkts || first.en_2ps_pkts != second.en_2ps_pkts ||
           first.shfe_4ps_pkts != second.shfe_4ps_pkts || first.en_4ps_pkts != second.en_4ps_pkts;
}

}  // namespace

int32_t CVexaShfeMdApiImpl::_ChechAndVexaSubDmaUp() {
    const int32_t channel = m_u50ConfigInfo.channel_id;
    if (channel != MANAGER_CHANNEL) return 0;
    uint32_t configCrc = 0;
    if (_GetConfigCrc(configCrc) != 0) {
        VEXA_LOG(LOG_ERROR, "Error opening file [%s].", m_configFileName.data());
        return -1;
    }
    CRaisedLogLevel raised(m_u50ConfigInfo.log_level);
    const U50MdPktCnt first = ReadPacketCounters(m_drvRegEnyx);
    CClock::SleepSeconds(SAMPLE_SECONDS);
    const U50MdPktCnt second = ReadPacketCounters(m_drvRegEnyx);
    uint32_t lastCrc = 0;
    m_drvRegEnyx.ReadRegister(reg::CONFIG_CHECKSUM, lastCrc);
    raised.End();

    if (m_u50ConfigInfo.crc_mux_check && lastCrc == configCrc) {
        VEXA_LOG(LOG_WARNING, "crc_mux_check is %d, lasrtCrc is %d , configCrc is %d.",
                 static_cast<int>(m_u50ConfigInfo.crc_mux_check), static_cast<int>(lastCrc),
                 static_cast<int>(configCrc));
        if (HasDataFlowed(first, second) && first.shfe_event_pkts == second.shfe_event_pkts) {
            VEXA_LOG(LOG_WARNING,
                     "channel%d %s no changes have occurred, no initialization required, pkts1 [%lu %lu %lu %lu %lu], "
                     "pkts2 [%lu %lu %lu %lu %lu].",
                     channel, m_configFileName.data(), first.shfe_2ps_pkts, first.en_2ps_pkts, first.shfe_4ps_pkts,
                     first.en_4ps_pkts, first.shfe_event_pkts, second.shfe_2ps_pkts, second.en_2ps_pkts,
                     second.shfe_4ps_pkts, second.en_4ps_pkts, second.shfe_event_pkts);
            m_isAllInitFinished = true;
            return 0;
        }
    }
    int32_t result = _VexaSubDmaUp(configCrc);
    while (result == BOARD_LOST && _WaitForBoard()) result = _VexaSubDmaUp(configCrc);
    return result == 0 ? 0 : -1;
}

// An outage uses up attempts as a snapshot that does not come would: a start waits no longer for the one than for the
// other. False when the session was ended meanwhile.
bool CVexaShfeMdApiImpl::_WaitForBoard() {
    const CWaitTimer timer;
    while (timer.ElapsedSeconds() <= int64_t{m_u50ConfigInfo.wait_snap_timeout}) {
        if (m_isExit.load(std::memory_order_relaxed) || m_isStopflag.load(std::memory_order_relaxed)) return false;
        m_drvDMAEnyx.RecvOnce(_MdClearHandler, &m_u50UserData);
        if (!m_drvDMAEnyx.HasFailed()) return true;
    }
    ++m_u50InitCnt;
    UP_LOG(LOG_WARNING, "channel%d u50 Init time out Cnt == %d", m_u50ConfigInfo.channel_id, m_u50InitCnt);
    return true;
}

// Registers that fail say so only of themselves. The stream of a board that is gone fails too, soon after.
bool CVexaShfeMdApiImpl::_IsBoardLost() {
    const CWaitTimer timer;
    while (m_drvRegEnyx.HasFailed() && !m_drvDMAEnyx.HasFailed() && timer.ElapsedSeconds() < STREAM_FAILS_SECONDS) {
        m_drvDMAEnyx.RecvOnce(_MdClearHandler, &m_u50UserData);
    }
    return m_drvDMAEnyx.HasFailed();
}

int32_t CVexaShfeMdApiImpl::_VexaSubDmaUp(uint32_t configCrc) {
    const int32_t channel = m_u50ConfigInfo.channel_id;
    if (channel != MANAGER_CHANNEL) return 0;
    VEXA_LOG(LOG_DEBUG, "channel%d FPGA Init......begin", channel);
    if (m_u50ConfigInfo.dma_data_flag) _RestartCaptures();

    if (const int32_t result = _BringUpUntilLoaded(); result != 0) return result;
    if (Chk_SysVersion() != 0) {
        if (_IsBoardLost()) {
            m_isTcpInitFinished = false;
            return BOARD_LOST;
        }
        VEXA_LOG(LOG_ERROR, "check version is fail.");
        return -1;
    }
    {
        const CRaisedLogLevel raised(m_u50ConfigInfo.log_level);
        if (configCrc != 0) {
            m_drvRegEnyx.WriteRegister(reg::CONFIG_CHECKSUM, configCrc);
            VEXA_LOG(LOG_DEBUG, "channel%d update_reg configCrc[%u]", channel, configCrc);
        }
    }
    VEXA_LOG(LOG_DEBUG, "channel%d FPGA Init......end", channel);

    _InstStaticInfoWriteFile();
    for (int32_t user = 0; user < CHANNEL_SIZE; ++user) {
        VEXA_LOG(LOG_INFO, "channel%d subscribe start...", user);
        _ContractSubscribeManager(user);
        VEXA_LOG(LOG_INFO, "channel%d subscribe end", user);
    }
    const CRaisedLogLevel raised(m_u50ConfigInfo.log_level);
    _WriteEngineParameters();
    _StartDmaUp();
    return 0;
}

// Attempts, until the snapshot is there or they are used up. One that lost its board is none.
int32_t CVexaShfeMdApiImpl::_BringUpUntilLoaded() {
    const int32_t channel = m_u50ConfigInfo.channel_id;
    while (!m_isTcpInitFinished) {
        if (m_u50InitCnt >= m_u50ConfigInfo.init_tcpcnt) {
            UP_LOG(LOG_WARNING, "channel%d m_u50InitCnt > %d", channel, m_u50ConfigInfo.init_tcpcnt);
            return -1;
        }
        const int32_t result = _InitFpga();
        if (result == -2) {
            UP_LOG(LOG_WARNING, "channel%d u50 Init time out Cnt == %d", channel, m_u50InitCnt);
            continue;
        }
        if (result == BOARD_LOST) {
            --m_u50InitCnt;
            return BOARD_LOST;
        }
        if (result != 0) return -1;
        m_u50InitCnt = 0;
    }
    return 0;
}

void CVexaShfeMdApiImpl::_RestartCaptures() {
    const char* path = m_u50ConfigInfo.log_path.c_str();
    m_writeDmaShot.CreateShotBinLog(path, m_u50ConfigInfo.channel_id);
    m_writeDmaShot.CreateShotPcapLog(path, m_u50ConfigInfo.channel_id);
}

void CVexaShfeMdApiImpl::_WriteEngineParameters() {
    const U50ConfigInfo& config = m_u50ConfigInfo;
    for (const FeedTraits& feed : FEEDS) {
        m_drvRegEnyx.WriteRegister(feed.registers.maxInstNo, static_cast<uint32_t>(config.maxInstNo.*feed.maxInstNo));
    }
    m_drvRegEnyx.WriteRegister(reg::LAST_TICK_CHANNEL, config.last_tick_channel);
    UP_LOG(LOG_INFO,
           "shfe2ps_max_inst_no[%d] shfe4ps_max_inst_no[%d] ine2ps_max_inst_no[%d] ine4ps_max_inst_no[%d] "
           "lastTickChannel[%u]",
           config.maxInstNo.shfe2ps_max_inst_no, config.maxInstNo.shfe4ps_max_inst_no,
           config.maxInstNo.ine2ps_max_inst_no, config.maxInstNo.ine4ps_max_inst_no, config.last_tick_channel);
    m_drvRegEnyx.WriteRegister(reg::REPEAT_QUOTE_UPLOAD, config.repeat_quote_upload ? 1 : 0);
    m_drvRegEnyx.WriteRegister(reg::MODEL_SEL, config.model_sel ? 1 : 0);
    m_drvRegEnyx.WriteRegister(reg::EVENT_MODEL_SEL, config.event_model_sel ? 1 : 0);
}

int32_t CVexaShfeMdApiImpl::_StartDmaUp() {
    const int32_t channel = m_u50ConfigInfo.channel_id;
    if (channel == MANAGER_CHANNEL) {
        VEXA_LOG(LOG_INFO, "channel%d close read/write channle", channel);
        for (const EMDQPDataType feed : {SHFE_4PS, SHFE_2PS, INE_2PS, INE_4PS}) {
            board_table::Close(m_drvRegEnyx, TraitsOf(feed).registers.table);
        }
        VEXA_LOG(LOG_INFO, "channel%d logical start", channel);
        m_drvRegEnyx.WriteRegister(reg::LOGICAL_START_2PS, 1);
        m_drvRegEnyx.WriteRegister(reg::LOGICAL_START_4PS, 1);
    }
    m_isAllInitFinished = true;
    return 0;
}
