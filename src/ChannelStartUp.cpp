// The start-up of a channel: may the board be left as it is, or must it be brought up; then versions, checksum, index
// file, subscriptions, engine parameters, engine start. Runs on the thread that starts or receives.
// Invariant: on a channel other than the managing one no register is touched.
#include "common/RegisterMap.h"
#include "public/clock/Clock.h"
#include "public/log/LogLine.h"
#include "public/log/RaisedLogLevel.h"
#include "src/VexaShfeMdApiImpl.h"
#include "src/board/EngineParameters.h"

namespace {

constexpr uint32_t SAMPLE_SECONDS = 3;
constexpr int64_t STREAM_FAILS_SECONDS = 1;

/// Lines of the start-up name the one operation that it is, whichever part of it wrote them.
#define UP_LOG(level, ...) VEXA_LOG_AS("_VexaSubDmaUp", level, __VA_ARGS__)

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

void RestartCaptures(const CWriteShot& captures, const U50ConfigInfo& config) {
    captures.CreateShotBinLog(config.log_path.c_str(), config.channel_id);
    captures.CreateShotPcapLog(config.log_path.c_str(), config.channel_id);
}

// Registers that fail say so only of themselves. The stream of a board that is gone fails too, soon after.
bool IsBoardLost(const CDrvRegEnyx& board, CDrvDMAEnyx& stream, VexaBoardMessageHandler handler) {
    const CWaitTimer timer;
    while (board.HasFailed() && !stream.HasFailed() && timer.ElapsedSeconds() < STREAM_FAILS_SECONDS) {
        stream.RecvOnce(handler, nullptr);
    }
    return stream.HasFailed();
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
    while (result == BOARD_LOST && WaitForBoard()) result = _VexaSubDmaUp(configCrc);
    return result == 0 ? 0 : -1;
}

// An outage uses up attempts as a snapshot that does not come would: a start waits no longer for the one than for the
// other. False when the session was ended meanwhile.
bool CVexaShfeMdApiImpl::WaitForBoard() {
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

int32_t CVexaShfeMdApiImpl::_VexaSubDmaUp(uint32_t configCrc) {
    const int32_t channel = m_u50ConfigInfo.channel_id;
    if (channel != MANAGER_CHANNEL) return 0;
    VEXA_LOG(LOG_DEBUG, "channel%d FPGA Init......begin", channel);
    if (m_u50ConfigInfo.dma_data_flag) RestartCaptures(m_writeDmaShot, m_u50ConfigInfo);

    if (const int32_t result = BringUpUntilLoaded(); result != 0) return result;
    if (Chk_SysVersion() != 0) {
        if (IsBoardLost(m_drvRegEnyx, m_drvDMAEnyx, _MdClearHandler)) {
            m_snapshot.Unload();
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
    WriteEngineParameters(m_drvRegEnyx, m_u50ConfigInfo);
    _StartDmaUp();
    return 0;
}

// Attempts, until the snapshot is there or they are used up. One that lost its board is none.
int32_t CVexaShfeMdApiImpl::BringUpUntilLoaded() {
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

int32_t CVexaShfeMdApiImpl::_StartDmaUp() {
    const int32_t channel = m_u50ConfigInfo.channel_id;
    if (channel == MANAGER_CHANNEL) StartEngines(m_drvRegEnyx, channel);
    m_isAllInitFinished = true;
    return 0;
}
