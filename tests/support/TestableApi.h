/// The session object with its inside open to tests.
#pragma once

#include <memory>

#include "src/VexaShfeMdApiImpl.h"
#include "testing/SnapshotUnits.h"

class TestableApi : public CVexaShfeMdApiImpl {
public:
    TestableApi() { ForgetWarnings(); }

    /// Warnings given once in a process are given again, and the exit flag is cleared.
    static void ForgetWarnings() {
        SnapshotState::WarnAgain();
        m_isExit = false;
    }

#define OPEN(name) using CVexaShfeMdApiImpl::name
    OPEN(Init);
    OPEN(_Cleandata);
    OPEN(_ReadConfig);
    OPEN(_GetConfigCrc);
    OPEN(_BindCpu);
    OPEN(_ChechAndVexaSubDmaUp);
    OPEN(_VexaSubDmaUp);
    OPEN(_StartDmaUp);
    OPEN(_InitFpga);
    OPEN(_SetRegIpAndPort);
    OPEN(Chk_SysVersion);
    OPEN(_TcpHandler);
    OPEN(_InitTcpSession);
    OPEN(ResetSession);
    OPEN(TcpCheckSum);
    OPEN(_ParseMdqp);
    OPEN(_FieldID0101);
    OPEN(_FieldID0102);
    OPEN(_FieldID0103);
    OPEN(_FieldID0104);
    OPEN(_FieldID1004);
    OPEN(_ProtectInstNo);
    OPEN(ShfePriceCheck);
    OPEN(ShfeInstPriceCheck);
    OPEN(CheckPrice);
    OPEN(isShfeTasInst);
    OPEN(_WriteContractTable);
    OPEN(_ContractSubscribeManager);
    OPEN(_ContractUnsubscribe);
    OPEN(_ContractSubscribe);
    OPEN(_InstStaticInfoWriteFile);
    OPEN(_MdHandler);
    OPEN(_MdClearHandler);
    OPEN(_CheckLostUdpPktHandler);
    OPEN(m_vexaShfeMdSpiOptional);
    OPEN(m_configFileName);
    OPEN(m_drvDMAEnyx);
    OPEN(m_u50ConfigInfo);
    OPEN(m_u50InstTable);
    OPEN(m_isTcpInitFinished);
    OPEN(m_isHBM2InitFinished);
    OPEN(m_isAllInitFinished);
    OPEN(m_u50InstCount);
    OPEN(m_sessions);
    OPEN(m_u50DstPort);
    OPEN(m_finishedMask);
    OPEN(m_tradingDay);
    OPEN(m_u50Dna);
    OPEN(m_u50MACAddr);
    OPEN(m_u50UserData);
    OPEN(m_u50InitCnt);
    OPEN(m_VerReocrd);
    OPEN(m_setPriceErrorInstId);
    OPEN(m_isStopflag);
    OPEN(m_counters);
    OPEN(m_reassembly);
    OPEN(m_store);
    OPEN(s_indexDirectory);
#undef OPEN
};

/// Always on the heap: the object is 14 MB.
inline std::unique_ptr<TestableApi> MakeApi() { return std::make_unique<TestableApi>(); }
