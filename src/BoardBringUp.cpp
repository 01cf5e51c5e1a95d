// One bring-up attempt: clears the data, waits for the board's memory, programs it, and waits for the snapshot.
// Runs on the thread that starts or receives; both waits are busy polls of the stream, measured on the monotonic clock.
// Invariant: every register is written in the one order that the board expects.
#include <arpa/inet.h>

#include <cstdio>
#include <vector>

#include "common/Feed.h"
#include "common/RegisterMap.h"
#include "public/clock/Clock.h"
#include "public/log/LogLine.h"
#include "public/log/RaisedLogLevel.h"
#include "src/VexaShfeMdApiImpl.h"

namespace {

constexpr int64_t HBM2_WAIT_SECONDS = 5;
constexpr std::size_t MAC_OCTETS = 6;

struct MacAddress {
    uint32_t octet[MAC_OCTETS];

    uint32_t High() const { return ((octet[0] << 8) | octet[1]) & 0xFFFFU; }
    /// Each snapshot session has an address of its own: `session` is added to the last octet, and what it carries over
    /// goes into bit 8.
    uint32_t Low(uint32_t session) const {
        return (octet[2] << 24) | (octet[3] << 16) | (octet[4] << 8) | (octet[5] + session);
    }
};

/// All zero when the text is no address.
MacAddress ParseMac(const char* text) {
    unsigned int octet[MAC_OCTETS] = {};
    // NOLINTNEXTLINE(cert-err34-c): the count of numbers is what is tested
    const int count = std::sscanf(text, "%02x:%02x:%02x:%02x:%02x:%02x", &octet[0], &octet[1], &octet[2], &octet[3],
                                  &octet[4], &octet[5]);
    MacAddress mac{};
    if (count != static_cast<int>(MAC_OCTETS)) return mac;
    for (std::size_t i = 0; i < MAC_OCTETS; ++i) mac.octet[i] = octet[i] & 0xFFU;
    return mac;
}

/// a.b.c.d as a<<24 | b<<16 | c<<8 | d; all ones for a text that is no address.
uint32_t HostOrderAddress(const char* text) { return ntohl(inet_addr(text)); }

/// Writes one register of each snapshot session.
template <typename ValueOf>
void WriteSessions(const CDrvRegEnyx& board, uint32_t first, ValueOf valueOf) {
    for (uint32_t session = 0; session < reg::SESSION_COUNT; ++session) {
        board.WriteRegister(first + reg::SESSION_STRIDE * session, valueOf(session));
    }
}

}  // namespace

int32_t CVexaShfeMdApiImpl::_InitFpga() {
    ++m_u50InitCnt;
    _Cleandata(*this);
    CRaisedLogLevel raised(m_u50ConfigInfo.log_level);
    m_drvRegEnyx.WriteRegister(reg::BRING_UP_START, 1);
    m_drvRegEnyx.WriteRegister(reg::PRICE_PROTECT_EVENT_MASK, m_u50ConfigInfo.price_protect_event_mask);

    if (const int32_t result = _WaitForMemory(); result != 0) {
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
    _ProgramSessions();
    _ProgramGroups();

    raised.End();
    VEXA_LOG(LOG_INFO, "listening tcp basement data");
    if (const int32_t result = _WaitForSnapshot(); result != 0) return result;
    VEXA_LOG(LOG_INFO, "tcp init finished, start listening udp data");
    return 0;
}

// What arrives meanwhile is stale and discarded, the board's own ready event with it: the wait then ends on its limit
// and the status register tells.
int32_t CVexaShfeMdApiImpl::_WaitForMemory() {
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

void CVexaShfeMdApiImpl::_ProgramSessions() {
    const MacAddress dstMac = ParseMac(m_u50ConfigInfo.DSTMAC.data());
    for (uint32_t session = 0; session < reg::SESSION_COUNT; ++session) {
        const uint32_t offset = reg::SESSION_STRIDE * session;
        m_drvRegEnyx.WriteRegister(reg::DST_MAC_HIGH + offset, dstMac.High());
        m_drvRegEnyx.WriteRegister(reg::DST_MAC_LOW + offset, dstMac.Low(0));
    }
    const uint32_t dstIp = HostOrderAddress(m_u50ConfigInfo.DSTIP.data());
    WriteSessions(m_drvRegEnyx, reg::DST_IP, [=](uint32_t) { return dstIp; });
    WriteSessions(m_drvRegEnyx, reg::DST_PORT, [this](uint32_t) { return uint32_t{m_u50ConfigInfo.DSTPORT}; });

    const MacAddress srcMac = ParseMac(m_u50ConfigInfo.SRCMAC.data());
    WriteSessions(m_drvRegEnyx, reg::SRC_MAC_HIGH, [&](uint32_t) { return srcMac.High(); });
    WriteSessions(m_drvRegEnyx, reg::SRC_MAC_LOW, [&](uint32_t session) { return srcMac.Low(session); });
    const uint32_t srcIp = HostOrderAddress(m_u50ConfigInfo.SRCIP.data());
    for (uint32_t session = 0; session < reg::SESSION_COUNT; ++session) {
        const uint32_t offset = reg::SESSION_STRIDE * session;
        m_drvRegEnyx.WriteRegister(reg::SRC_IP + offset, srcIp);
        m_drvRegEnyx.WriteRegister(reg::SRC_PORT + offset, m_u50ConfigInfo.SRCPORT);
    }
}

// The 2ps engine's groups before the 4ps engine's.
void CVexaShfeMdApiImpl::_ProgramGroups() {
    for (const EMDQPDataType feed : {SHFE_2PS, INE_2PS, SHFE_4PS, INE_4PS}) {
        const FeedTraits& traits = TraitsOf(feed);
        const FeedTraits::Registers& registers = traits.registers;
        const bool isEnabled = HasFeed(m_u50ConfigInfo.enabled_mask, feed);
        const U50MultiIpAndPort& groups = m_u50ConfigInfo.multiIpAndPort;
        _SetRegIpAndPort(registers.lineA.ip, registers.lineA.port, groups.*traits.lineA, isEnabled);
        _SetRegIpAndPort(registers.lineB.ip, registers.lineB.port, groups.*traits.lineB, isEnabled);
    }
}

int32_t CVexaShfeMdApiImpl::_SetRegIpAndPort(uint32_t ipReg, uint32_t portReg, const CAddressType& addr, bool enabled) {
    if (!enabled) {
        m_drvRegEnyx.WriteRegister(ipReg, 0);
        m_drvRegEnyx.WriteRegister(portReg, 0);
        return 0;
    }
    std::vector<CAddressType> parts;
    addr.SplitByChar(parts, ':');
    if (parts.size() < 2) {
        VEXA_LOG(LOG_ERROR, "_SetRegIpAndPort failed");
        return -1;
    }
    const int32_t port = parts[1].ToInt32();
    VEXA_LOG(LOG_INFO, "%u[%s] %u[%d]", ipReg, parts[0].data(), portReg, port);
    m_drvRegEnyx.WriteRegister(ipReg, HostOrderAddress(parts[0].data()));
    m_drvRegEnyx.WriteRegister(portReg, static_cast<uint32_t>(port));
    return 0;
}

int32_t CVexaShfeMdApiImpl::_WaitForSnapshot() {
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
