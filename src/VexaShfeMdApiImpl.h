/// The one implementation of CVexaShfeMdApi: one session, on one thread. The class holds the session's state, drives it
/// and delivers; its work on the snapshot lies in src/snapshot/, what it tells the board in src/board/. Each group of
/// operations below names its file.
#pragma once

#include <atomic>
#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "common/FpgaStructCommon.h"
#include "common/Mdqp.h"
#include "interface/VexaShfeMdApi.h"
#include "public/crc32/Crc32.h"
#include "public/reg/DriveRegEnyx.h"
#include "public/signal/SignalProcess.h"
#include "public/string/qel_string_base.h"
#include "public/write_shot/write_shot.h"
#include "src/Counters.h"
#include "src/board/RegisterWriter.h"
#include "src/board/Subscription.h"
#include "src/snapshot/FeedIdentification.h"
#include "src/snapshot/InstrumentStore.h"
#include "src/snapshot/MdqpDecoder.h"
#include "src/snapshot/Reassembly.h"
#include "src/snapshot/SnapshotPhase.h"
#include "src/snapshot/TcpSession.h"

class CVexaShfeMdApiImpl : public CVexaShfeMdApi, public CSignalProcess {
public:
    CVexaShfeMdApiImpl();
    CVexaShfeMdApiImpl(const CVexaShfeMdApiImpl&) = delete;
    CVexaShfeMdApiImpl& operator=(const CVexaShfeMdApiImpl&) = delete;

    int32_t VexaRecvStart(CVexaShfeMdSpi& spi, const char* lpConfig) override;
    int32_t VexaStart(CVexaShfeMdSpi& spi, const char* lpConfig) override;
    int32_t VexaRecv() override;
    int32_t VexaStart(const char* lpConfig) override;
    int32_t VexaRecv(VexaShfeMdType& md) override;
    int32_t VexaStop() override;

    // Behind the interface's six slots, so that their order stays the application's.
    virtual ~CVexaShfeMdApiImpl();

    /// Only this channel programs the board, loads the snapshot and rebuilds after a loss.
    static const int32_t MANAGER_CHANNEL = 0;

    /// Build date, build time and version number.
    static const CQelCharArray<1024> VEXA_U50_VERSION;

protected:
    // SessionDriver.cpp
    int32_t Init();
    static void _Cleandata(CVexaShfeMdApiImpl& api);
    int32_t Start(EUserDataType delivery, const char* lpConfig);
    /// What a step does once it is prepared. The first two are its result.
    enum class EStep : int32_t { Ended = -1, Idle = 0, Receive = 1 };
    EStep PrepareStep();
    EStep Rebuild();
    EStep RefuseToReceive();
    EStep OnFailedPoll();
    int32_t Receive();
    void TellCounters();

    // ConfigLoading.cpp, ConfigChecksum.cpp, CpuBinding.cpp
    int32_t _ReadConfig();
    int32_t _GetConfigCrc(uint32_t& crc);
    int32_t _BindCpu();

    // ChannelStartUp.cpp
    /// Beside 0 and -1: the board stopped answering, or was replaced, and everything begins again when one answers.
    static const int32_t BOARD_LOST = -3;
    int32_t _ChechAndVexaSubDmaUp();
    int32_t _VexaSubDmaUp(uint32_t configCrc);
    int32_t _StartDmaUp();
    int32_t BringUpUntilLoaded();
    bool WaitForBoard();

    // BoardBringUp.cpp
    int32_t _InitFpga();
    int32_t WaitForMemory();
    int32_t WaitForSnapshot();

    // VersionCheck.cpp, ContractIndexFile.cpp
    int32_t Chk_SysVersion();
    int32_t _InstStaticInfoWriteFile();

    // MarketDataHandler.cpp
    static void _MdHandler(const unsigned char* buf, unsigned int len, void* userData);
    static void _MdClearHandler(const unsigned char* buf, unsigned int len, void* userData);
    void HandleEvent(const unsigned char* buf);
    bool _CheckLostUdpPktHandler(const U50Event& ev);
    void ForgetSnapshot();

    // SnapshotOperations.cpp: what src/snapshot/ and src/board/ do, by the names of this class.
    static void _TcpHandler(const unsigned char* data, unsigned int len, void* userData);
    int32_t _InitTcpSession(tcp_session_t& refSession, int32_t dstPort);
    void ResetSession(tcp_session_t& refSession);
    static uint16_t TcpCheckSum(void* data, int32_t len);
    static int32_t _ParseMdqp(mdqp_t* mdqp, uint16_t dstport, CVexaShfeMdApiImpl& refShfeMdApiImpl);
    static int32_t _FieldID0101(inst_info_t& refInstInfo, const EMDQPDataType& refMDQPDataType,
                                CVexaShfeMdApiImpl& refShfeMdApiImpl);
    static int32_t _FieldID0102(deal_info_t& refDealInfo, const EMDQPDataType& refMDQPDataType,
                                CVexaShfeMdApiImpl& refShfeMdApiImpl);
    static int32_t _FieldID0103(price_detail_t& refPriceDetail, const EMDQPDataType& refMDQPDataType,
                                CVexaShfeMdApiImpl& refShfeMdApiImpl, int dstport, bool flag);
    static int32_t _FieldID0104(order_statistics_info_t& refOrderStatistics, const EMDQPDataType& refMDQPDataType,
                                CVexaShfeMdApiImpl& refShfeMdApiImpl);
    static int32_t _FieldID1004(packet_no_t& refPacketNo, const EMDQPDataType& refMDQPDataType,
                                CVexaShfeMdApiImpl& refShfeMdApiImpl);
    static bool _ProtectInstNo(const EMDQPDataType& refMDQPDataType, int32_t& inst_no);
    static int32_t ShfePriceCheck(CVexaShfeMdApiImpl& api);
    static int32_t ShfeInstPriceCheck(SInstTableType* table, int32_t instNo, CVexaShfeMdApiImpl& api);
    static int32_t CheckPrice(std::vector<int>& prices, int32_t& up, int32_t& lower);
    static bool isShfeTasInst(const std::string& instId);
    int32_t _WriteContractTable(SInstTableType* table, bool enabled, uint32_t writeAddrReg, uint32_t writeDataReg,
                                int32_t count, int32_t capacity);
    int32_t _SetRegIpAndPort(uint32_t ipReg, uint32_t portReg, const CAddressType& addr, bool enabled);
    int32_t _ContractSubscribeManager(int32_t channel);
    int32_t _ContractUnsubscribe(SInstTableType* table, uint32_t readAddrReg, uint32_t readDataReg,
                                 uint32_t writeAddrReg, uint32_t writeDataReg, int32_t count, int32_t channel);
    int32_t _ContractSubscribe(SInstTableType* table, bool enabled, uint32_t readAddrReg, uint32_t readDataReg,
                               uint32_t writeAddrReg, uint32_t writeDataReg, int32_t instNo, int32_t channel,
                               CInstrumentType& entry);

    // ---- given by the application, constant between two starts ----
    CQELOptional<CVexaShfeMdSpi> m_vexaShfeMdSpiOptional;
    CConfigFileNameType m_configFileName;

    // ---- the board and the services ----
    CDrvDMAEnyx m_drvDMAEnyx;
    const CDrvRegEnyx& m_drvRegEnyx;
    CRegisterHold m_registerHold;
    CCrc32 m_crc32;
    const CWriteShot& m_writeDmaShot;

    // ---- constant after loading ----
    U50ConfigInfo m_u50ConfigInfo;

    // ---- the snapshot: receive thread only; the units below alone write to it, the start-up to the two other flags
    // ----
    U50InstTable m_u50InstTable;
    bool m_isTcpInitFinished = false;
    bool m_isHBM2InitFinished = false;
    bool m_isAllInitFinished = false;
    U50InstCount m_u50InstCount;
    tcp_session_t m_sessions[TCP_SESSION_COUNT];
    U50DstPort m_u50DstPort;
    UEnabledMask m_finishedMask{};
    int32_t m_tradingDay = 0;

    // ---- identity of the board, read at start ----
    uint32_t m_u50Dna[3] = {};
    CMACType m_u50MACAddr;

    // ---- delivery ----
    U50UserData m_u50UserData;
    bool m_hasToldNoStream = false;

    // ---- start-up ----
    int32_t m_u50InitCnt = 0;
    std::vector<std::string> m_VerReocrd;
    std::set<std::string> m_setPriceErrorInstId;
    std::atomic<bool> m_isStopflag{false};

    // ---- the work ----
    CCounters m_counters;  ///< what was dropped, refused or begun again
    CInstrumentStore m_store;
    CRegisterWriter m_registerWriter;
    CMdqpDecoder m_decoder;
    CFeedIdentification m_feeds;
    CReassembly m_reassembly;
    CSnapshotPhase m_snapshot;
    CSubscription m_subscription;

    static std::string s_indexDirectory;  ///< tests write elsewhere
};
