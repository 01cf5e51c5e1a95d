// One bring-up attempt: clears the data, waits for the board's memory, programs it, and waits for the snapshot.
// Runs on the thread that starts or receives; both waits are busy polls of the stream, measured on the monotonic clock.
// Invariant: every register is written in the one order that the board expects.
#include "common/RegisterMap.h"
#include "public/clock/Clock.h"
#include "public/log/LogLine.h"
#include "public/log/RaisedLogLevel.h"
#include "src/VexaShfeMdApiImpl.h"
#include "src/board/SessionRegisters.h"

namespace {
constexpr int64_t HBM2_WAIT_SECONDS = 5;
}

int32_t CVexaShfeMdApiImpl::_InitFpga() {
    ++m_u50InitCnt;
    _Cleandata(*this);
    CRaisedLogLevel raised(m_u50ConfigInfo.log_level);
    m_drvRegEnyx.WriteRegister(reg::BRING_UP_START, 1);
    m_drvRegEnyx.WriteRegister(reg::PRICE_PROTECT_EVENT_MASK, m_u50ConfigInfo.price_protect_event_mask);

    if (const int32_t result = WaitForMemory(); result != 0) {
        if (result == BOARD_LOST) return BOARD_LOST;
        VEXA_LOG(LOG_WARNING, "HBM2 init timeout, Please check whether the FPGA is normal.");
        raised.LeaveRaised();
        return -1;
    }
    VEXA_LOG(LOG_INFO, "HBM2 init successful.");

    m_drvRegEnyx.WriteRegister(reg::SNAPSHOT_CONTROL, reg::SNAPSHOT_OPEN);
    m_drvRegEnyx.WriteRegister(reg::SHFE_INST_COUNT, 0);
    m_drvRegEnyx.WriteRegister(reg::INE_INST_COUNT, 0);
    m_drvRegEnyx.WriteRegister(reg::DETECT_INTERVAL_2PS, m_u50ConfigInfo.detect_interval);
    m_drvRegEnyx.WriteRegister(reg::DETECT_INTERVAL_4PS, m_u50ConfigInfo.detect_interval);
    const int32_t route = m_u50ConfigInfo.TARGETROUTE & 15;
    m_drvRegEnyx.WriteRegister(reg::TARGET_ROUTE, static_cast<uint32_t>(route));
    VEXA_LOG(LOG_INFO, "route[%d]", route);
    ProgramSessions(m_drvRegEnyx, m_u50ConfigInfo);
    ProgramGroups(m_drvRegEnyx, m_u50ConfigInfo);

    raised.End();
    VEXA_LOG(LOG_INFO, "listening tcp basement data");
    if (const int32_t result = WaitForSnapshot(); result != 0) return result;
    VEXA_LOG(LOG_INFO, "tcp init finished, start listening udp data");
    return 0;
}

// What arrives meanwhile is stale and discarded, the board's own ready event with it: the wait then ends on its limit
// and the status register tells.
int32_t CVexaShfeMdApiImpl::WaitForMemory() {
    m_isHBM2InitFinished = false;
    const CWaitTimer timer;
    while (!m_isHBM2InitFinished && timer.ElapsedSeconds() <= HBM2_WAIT_SECONDS) {
        m_drvDMAEnyx.RecvOnce(_MdClearHandler, &m_u50UserData);
        if (m_drvDMAEnyx.HasFailed()) return BOARD_LOST;
    }
    if (m_isHBM2InitFinished) return 0;
    uint32_t status = 0;
    m_drvRegEnyx.ReadRegister(reg::HBM2_STATUS, status);
    m_isHBM2InitFinished = status == reg::HBM2_READY;
    return m_isHBM2InitFinished ? 0 : -1;
}

int32_t CVexaShfeMdApiImpl::WaitForSnapshot() {
    const CWaitTimer timer;
    while (!m_isExit.load(std::memory_order_relaxed)) {
        if (m_isTcpInitFinished || m_isStopflag.load(std::memory_order_relaxed)) break;
        if (int64_t{m_u50ConfigInfo.wait_snap_timeout} < timer.ElapsedSeconds()) return -2;
        m_drvDMAEnyx.RecvOnce(_TcpHandler, this);
        if (m_drvDMAEnyx.HasFailed()) return BOARD_LOST;
    }
    if (m_isExit.load(std::memory_order_relaxed) || m_isStopflag.load(std::memory_order_relaxed)) return -1;
    return 0;
}
