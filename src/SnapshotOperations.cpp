// Operations of the class whose work lies in src/snapshot/ and src/board/: each hands on to the unit that does it.
#include "public/log/LogLine.h"
#include "src/VexaShfeMdApiImpl.h"
#include "src/board/SessionRegisters.h"
#include "src/board/TableDownload.h"
#include "src/snapshot/InstId.h"
#include "src/snapshot/PriceCheck.h"

// ---- the snapshot phase ---------------------------------------------------------------------------------------------

void CVexaShfeMdApiImpl::_TcpHandler(const unsigned char* data, unsigned int len, void* userData) {
    if (userData == nullptr || data == nullptr) {
        VEXA_LOG(LOG_DEBUG, "user_data or lpPacket is nullptr");
        return;
    }
    static_cast<CVexaShfeMdApiImpl*>(userData)->m_snapshot.Take(data, len);
}

int32_t CVexaShfeMdApiImpl::_InitTcpSession(tcp_session_t& refSession, int32_t dstPort) {
    return m_reassembly.Open(refSession, dstPort);
}

void CVexaShfeMdApiImpl::ResetSession(tcp_session_t& refSession) { m_reassembly.Reset(refSession); }

uint16_t CVexaShfeMdApiImpl::TcpCheckSum(void* data, int32_t len) {
    return snapshot_frame::Checksum(static_cast<const uint8_t*>(data), len);
}

int32_t CVexaShfeMdApiImpl::_ParseMdqp(mdqp_t* mdqp, uint16_t dstport, CVexaShfeMdApiImpl& refShfeMdApiImpl) {
    CVexaShfeMdApiImpl& api = refShfeMdApiImpl;
    const auto* message = reinterpret_cast<const uint8_t*>(mdqp);
    tcp_session_t& session = api.m_sessions[dstport];
    EMDQPDataType feed{};
    const bool isOfFeed = api.m_store.Find(dstport, feed);
    if (api.m_feeds.OnMessage(message, MdqpBytes(message), dstport, session)) CReassembly::Close(session);
    return isOfFeed ? 0 : -1;
}

int32_t CVexaShfeMdApiImpl::_FieldID0101(inst_info_t& refInstInfo, const EMDQPDataType& refMDQPDataType,
                                         CVexaShfeMdApiImpl& refShfeMdApiImpl) {
    CVexaShfeMdApiImpl& api = refShfeMdApiImpl;
    SInstTableType* slot = api.m_store.Slot(refMDQPDataType, refInstInfo.inst_no);
    if (slot != nullptr) api.m_decoder.InstInfo(refMDQPDataType, refInstInfo, *slot);
    return 0;
}

int32_t CVexaShfeMdApiImpl::_FieldID0102(deal_info_t& refDealInfo, const EMDQPDataType& refMDQPDataType,
                                         CVexaShfeMdApiImpl& refShfeMdApiImpl) {
    CVexaShfeMdApiImpl& api = refShfeMdApiImpl;
    SInstTableType* slot = api.m_store.Slot(refMDQPDataType, refDealInfo.inst_no);
    if (slot != nullptr) api.m_decoder.DealInfo(refDealInfo, *slot);
    return 0;
}

int32_t CVexaShfeMdApiImpl::_FieldID0103(price_detail_t& refPriceDetail, const EMDQPDataType& refMDQPDataType,
                                         CVexaShfeMdApiImpl& refShfeMdApiImpl, int, bool flag) {
    SInstTableType* slot = refShfeMdApiImpl.m_store.Slot(refMDQPDataType, refPriceDetail.inst_no);
    if (slot != nullptr) CMdqpDecoder::PriceDetail(refPriceDetail, flag, *slot);
    return 0;
}

int32_t CVexaShfeMdApiImpl::_FieldID0104(order_statistics_info_t& refOrderStatistics,
                                         const EMDQPDataType& refMDQPDataType, CVexaShfeMdApiImpl& refShfeMdApiImpl) {
    SInstTableType* slot = refShfeMdApiImpl.m_store.Slot(refMDQPDataType, refOrderStatistics.inst_no);
    if (slot != nullptr) CMdqpDecoder::OrderStatistics(refOrderStatistics, *slot);
    return 0;
}

int32_t CVexaShfeMdApiImpl::_FieldID1004(packet_no_t& refPacketNo, const EMDQPDataType& refMDQPDataType,
                                         CVexaShfeMdApiImpl& refShfeMdApiImpl) {
    refShfeMdApiImpl.m_decoder.PacketNo(refMDQPDataType, refPacketNo);
    return 0;
}

bool CVexaShfeMdApiImpl::_ProtectInstNo(const EMDQPDataType& refMDQPDataType, int32_t& inst_no) {
    return CInstrumentStore::Protect(refMDQPDataType, inst_no);
}

// ---- the price check ------------------------------------------------------------------------------------------------

int32_t CVexaShfeMdApiImpl::ShfePriceCheck(CVexaShfeMdApiImpl& api) {
    return price_check::CheckAll(api.m_store, api.m_u50ConfigInfo.shield_price_check, api.m_setPriceErrorInstId);
}

int32_t CVexaShfeMdApiImpl::ShfeInstPriceCheck(SInstTableType* table, int32_t instNo, CVexaShfeMdApiImpl& api) {
    return price_check::CheckInstrument(table[instNo], instNo, api.m_u50ConfigInfo.shield_price_check,
                                        api.m_setPriceErrorInstId);
}

int32_t CVexaShfeMdApiImpl::CheckPrice(std::vector<int>& prices, int32_t& up, int32_t& lower) {
    return price_check::CheckPrice(prices, up, lower);
}

bool CVexaShfeMdApiImpl::isShfeTasInst(const std::string& instId) { return IsTas(instId); }

// ---- the board ------------------------------------------------------------------------------------------------------

int32_t CVexaShfeMdApiImpl::_WriteContractTable(SInstTableType* table, bool enabled, uint32_t writeAddrReg,
                                                uint32_t writeDataReg, int32_t count, int32_t capacity) {
    WriteTable(m_drvRegEnyx, m_u50ConfigInfo,
               {.writeAddr = writeAddrReg, .writeData = writeDataReg, .readAddr{}, .readData{}},
               {table, count, capacity, enabled});
    return 0;
}

int32_t CVexaShfeMdApiImpl::_SetRegIpAndPort(uint32_t ipReg, uint32_t portReg, const CAddressType& addr, bool enabled) {
    return ProgramGroup(m_drvRegEnyx, {ipReg, portReg}, addr, enabled);
}

int32_t CVexaShfeMdApiImpl::_ContractSubscribeManager(int32_t channel) {
    m_subscription.Renew(channel);
    return 0;
}

int32_t CVexaShfeMdApiImpl::_ContractUnsubscribe(SInstTableType* table, uint32_t readAddrReg, uint32_t readDataReg,
                                                 uint32_t writeAddrReg, uint32_t writeDataReg, int32_t count,
                                                 int32_t channel) {
    const std::optional<EMDQPDataType> feed = FeedOfTable(m_u50InstTable, table);
    if (feed) m_subscription.Unsubscribe(*feed, {writeAddrReg, writeDataReg, readAddrReg, readDataReg}, count, channel);
    return 0;
}

int32_t CVexaShfeMdApiImpl::_ContractSubscribe(SInstTableType* table, bool enabled, uint32_t readAddrReg,
                                               uint32_t readDataReg, uint32_t writeAddrReg, uint32_t writeDataReg,
                                               int32_t instNo, int32_t channel, CInstrumentType& entry) {
    const std::optional<EMDQPDataType> feed = FeedOfTable(m_u50InstTable, table);
    if (enabled && feed) {
        m_subscription.Subscribe(*feed, {writeAddrReg, writeDataReg, readAddrReg, readDataReg}, instNo, channel,
                                 {entry.data(), entry.Length()});
    }
    return 0;
}
