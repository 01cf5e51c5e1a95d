#include "src/board/SessionRegisters.h"

#include <arpa/inet.h>

#include <cstdio>
#include <vector>

#include "common/Feed.h"
#include "public/log/LogLine.h"

namespace {

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

void ProgramSessions(const CDrvRegEnyx& board, const U50ConfigInfo& config) {
    const MacAddress dstMac = ParseMac(config.DSTMAC.data());
    for (uint32_t session = 0; session < reg::SESSION_COUNT; ++session) {
        const uint32_t offset = reg::SESSION_STRIDE * session;
        board.WriteRegister(reg::DST_MAC_HIGH + offset, dstMac.High());
        board.WriteRegister(reg::DST_MAC_LOW + offset, dstMac.Low(0));
    }
    const uint32_t dstIp = HostOrderAddress(config.DSTIP.data());
    WriteSessions(board, reg::DST_IP, [=](uint32_t) { return dstIp; });
    WriteSessions(board, reg::DST_PORT, [&](uint32_t) { return uint32_t{config.DSTPORT}; });

    const MacAddress srcMac = ParseMac(config.SRCMAC.data());
    WriteSessions(board, reg::SRC_MAC_HIGH, [&](uint32_t) { return srcMac.High(); });
    WriteSessions(board, reg::SRC_MAC_LOW, [&](uint32_t session) { return srcMac.Low(session); });
    const uint32_t srcIp = HostOrderAddress(config.SRCIP.data());
    for (uint32_t session = 0; session < reg::SESSION_COUNT; ++session) {
        const uint32_t offset = reg::SESSION_STRIDE * session;
        board.WriteRegister(reg::SRC_IP + offset, srcIp);
        board.WriteRegister(reg::SRC_PORT + offset, config.SRCPORT);
    }
}

// The 2ps engine's groups before the 4ps engine's.
void ProgramGroups(const CDrvRegEnyx& board, const U50ConfigInfo& config) {
    for (const EMDQPDataType feed : {SHFE_2PS, INE_2PS, SHFE_4PS, INE_4PS}) {
        const FeedTraits& traits = TraitsOf(feed);
        const bool isEnabled = HasFeed(config.enabled_mask, feed);
        ProgramGroup(board, traits.registers.lineA, config.multiIpAndPort.*traits.lineA, isEnabled);
        ProgramGroup(board, traits.registers.lineB, config.multiIpAndPort.*traits.lineB, isEnabled);
    }
}

int32_t ProgramGroup(const CDrvRegEnyx& board, const reg::GroupRegisters& registers, const CAddressType& address,
                     bool isEnabled) {
    if (!isEnabled) {
        board.WriteRegister(registers.ip, 0);
        board.WriteRegister(registers.port, 0);
        return 0;
    }
    std::vector<CAddressType> parts;
    address.SplitByChar(parts, ':');
    if (parts.size() < 2) {
        VEXA_LOG_AS("_SetRegIpAndPort", LOG_ERROR, "_SetRegIpAndPort failed");
        return -1;
    }
    const int32_t port = parts[1].ToInt32();
    VEXA_LOG_AS("_SetRegIpAndPort", LOG_INFO, "%u[%s] %u[%d]", registers.ip, parts[0].data(), registers.port, port);
    board.WriteRegister(registers.ip, HostOrderAddress(parts[0].data()));
    board.WriteRegister(registers.port, static_cast<uint32_t>(port));
    return 0;
}
