/// The one implementation of CVexaShfeMdApi: one session, on one thread. The class is divided into files by subsystem;
/// each group of operations below names its file.
#pragma once

#include <array>
#include <atomic>
#include <bitset>
#include <cstdint>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "common/Feed.h"
#include "common/FpgaStructCommon.h"
#include "common/Mdqp.h"
#include "interface/VexaShfeMdApi.h"
#include "public/crc32/Crc32.h"
#include "public/reg/DriveRegEnyx.h"
#include "public/signal/SignalProcess.h"
#include "public/string/qel_string_base.h"
#include "public/write_shot/write_shot.h"
#include "src/CarryOverOwners.h"
#include "src/Counters.h"
#include "src/TcpSession.h"

class CReplacedFile;
class CSelection;
struct SnapshotFrame;

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
    void _ReadIdentity();
    int32_t _Start(EUserDataType delivery, const char* lpConfig);
    /// What a step does once it is prepared. The first two are its result.
    enum class EStep : int32_t { Ended = -1, Idle = 0, Receive = 1 };
    EStep _PrepareStep();
    EStep _Rebuild();
    EStep _RefuseToReceive();
    EStep _OnFailedPoll();
    int32_t _Receive();
    static void _Cleandata(CVexaShfeMdApiImpl& api);
    void _ResetSessions();
    void _ClearTables();

    // ConfigLoading.cpp
    int32_t _ReadConfig();

    // ConfigChecksum.cpp, CpuBinding.cpp
    int32_t _GetConfigCrc(uint32_t& crc);
    int32_t _BindCpu();

    // ChannelStartUp.cpp
    /// Beside 0 and -1: the board stopped answering, or was replaced, and everything begins again when one answers.
    static const int32_t BOARD_LOST = -3;
    int32_t _ChechAndVexaSubDmaUp();
    int32_t _VexaSubDmaUp(uint32_t configCrc);
    int32_t _StartDmaUp();
    int32_t _BringUpUntilLoaded();
    bool _IsBoardLost();
    bool _WaitForBoard();
    void _RestartCaptures();
    void _WriteEngineParameters();

    // BoardBringUp.cpp
    int32_t _InitFpga();
    int32_t _WaitForMemory();
    void _ProgramSessions();
    void _ProgramGroups();
    int32_t _WaitForSnapshot();
    int32_t _SetRegIpAndPort(uint32_t ipReg, uint32_t portReg, const CAddressType& addr, bool enabled);

    // VersionCheck.cpp
    int32_t Chk_SysVersion();

    // SnapshotDispatch.cpp
    static void _TcpHandler(const unsigned char* data, unsigned int len, void* userData);
    void _HandleFrame(const unsigned char* bytes, uint32_t length);
    bool _IsChecksumRight(const SnapshotFrame& frame);
    bool _TestCompletion();
    bool _FinishSnapshot();
    void _WriteContractTables();
    void _HandleSegment(const SnapshotFrame& frame);
    void _BeginConnection(tcp_session_t& session, const SnapshotFrame& frame);

    // TcpReassembly.cpp
    int32_t _InitTcpSession(tcp_session_t& refSession, int32_t dstPort);
    void ResetSession(tcp_session_t& refSession);
    static uint16_t TcpCheckSum(void* data, int32_t len);
    enum class EMessageStep { OwnLength, FirstLength };
    void _FreeEarlySegments(tcp_session_t& session);
    uint8_t* _NewFragBuf();
    uint8_t* _DetachFragBuf(tcp_session_t& session);
    void _ReceiveSegment(tcp_session_t& session, const SnapshotFrame& frame);
    bool _DeliverPayload(tcp_session_t& session, const SnapshotFrame& frame);
    void _DeliverMessages(tcp_session_t& session, const SnapshotFrame& frame, EMessageStep step);
    void _DeliverBehindCarryOver(tcp_session_t& session, const SnapshotFrame& frame);
    void _DeliverCarryOver(tcp_session_t& session);
    void _HandOver(const uint8_t* message, uint32_t arrived, uint16_t dstPort);
    void _StoreEarlySegment(tcp_session_t& session, const SnapshotFrame& frame);
    void _InsertEarlySegment(tcp_session_t& session, const SnapshotFrame& frame);
    tcp_lost_buf_t* _NewEarlySegment(const SnapshotFrame& frame);
    tcp_lost_buf_t* _DetachFirstEarlySegment(tcp_session_t& session);
    void _DrainEarlySegments(tcp_session_t& session);

    // MdqpDecoding.cpp
    static int32_t _ParseMdqp(mdqp_t* mdqp, uint16_t dstport, CVexaShfeMdApiImpl& refShfeMdApiImpl);
    void _HandleField(EMDQPDataType feed, const field_t& field, const uint8_t* data, std::size_t left,
                      uint16_t fieldIdBefore, uint16_t dstport);
    void _FinishFeed(EMDQPDataType feed, uint16_t dstport);
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

    // FeedIdentification.cpp
    static bool _ProtectInstNo(const EMDQPDataType& refMDQPDataType, int32_t& inst_no);
    bool _BindFeed(const uint8_t* payload, uint32_t payloadLength, uint16_t dstport);
    bool _BindTopic(const snap_t& snap, uint16_t dstport);
    bool _FindFeed(uint16_t dstport, EMDQPDataType& feed) const;
    SInstTableType* _Slot(EMDQPDataType feed, int32_t inst_no);

    // PriceCheck.cpp
    static int32_t ShfePriceCheck(CVexaShfeMdApiImpl& api);
    static int32_t ShfeInstPriceCheck(SInstTableType* table, int32_t instNo, CVexaShfeMdApiImpl& api);
    static int32_t CheckPrice(std::vector<int>& prices, int32_t& up, int32_t& lower);
    static bool isShfeTasInst(const std::string& instId);

    // InstrumentTable.cpp
    int32_t _WriteContractTable(SInstTableType* table, bool enabled, uint32_t writeAddrReg, uint32_t writeDataReg,
                                int32_t count, int32_t capacity);

    // Subscription.cpp
    int32_t _ContractSubscribeManager(int32_t channel);
    CSelection _SelectionOf(EMDQPDataType feed2ps, EMDQPDataType feed4ps, int32_t count, int32_t channel);
    bool _HasPriceError(std::string_view id) const;
    void _SubscribeSelected(CSelection& selection, int32_t channel, CInstrumentType& entry);
    int32_t _ContractUnsubscribe(SInstTableType* table, uint32_t readAddrReg, uint32_t readDataReg,
                                 uint32_t writeAddrReg, uint32_t writeDataReg, int32_t count, int32_t channel);
    int32_t _ContractSubscribe(SInstTableType* table, bool enabled, uint32_t readAddrReg, uint32_t readDataReg,
                               uint32_t writeAddrReg, uint32_t writeDataReg, int32_t instNo, int32_t channel,
                               CInstrumentType& entry);

    // ContractIndexFile.cpp
    int32_t _InstStaticInfoWriteFile();
    void _WriteIndexOf(CReplacedFile& file, EMDQPDataType feed2ps, EMDQPDataType feed4ps, uint32_t count);
    static std::string s_indexDirectory;  ///< tests write elsewhere

    // MarketDataHandler.cpp
    static void _MdHandler(const unsigned char* buf, unsigned int len, void* userData);
    static void _MdClearHandler(const unsigned char* buf, unsigned int len, void* userData);
    void _HandleEvent(const unsigned char* buf);
    bool _CheckLostUdpPktHandler(const U50Event& ev);
    bool _IsTimeOutExpected(uint32_t eventData0);
    void _ForgetSnapshot();

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

    // ---- the snapshot: receive thread only; cleared as a whole by _Cleandata ----
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

    // ---- what was touched, so that clearing costs no more than it has to ----
    void _MarkSession(uint16_t port);
    void _MarkSlots(EMDQPDataType feed, int32_t usedSlots);
    std::bitset<TCP_SESSION_COUNT> m_isSessionDirty;
    std::array<uint16_t, TCP_SESSION_COUNT> m_dirtySessions;
    uint32_t m_dirtySessionCount = 0;
    std::array<int32_t, FEED_COUNT> m_dirtySlots{};  ///< one past the highest slot touched

    // ---- memory of the reassembly, all connections together ----
    uint32_t m_earlySegmentCount = 0;
    CCarryOverOwners m_carryOverOwners;

    // ---- what was dropped, refused or begun again ----
    void _TellCounters();
    CCounters m_counters;

    // ---- warnings given once in a process ----
    static bool shfe_cnt_flag;
    static bool ine_cnt_flag;
    static bool shfe_cnt_80_flag;
    static bool ine_cnt_80_flag;
};
