// Any sequence of DMA messages through the live handler, in both forms of delivery. Each message lies in a heap block
// of just the bytes that a provider promises, so that any read beyond them is seen.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

#include "public/log/CommonLog.h"
#include "src/VexaShfeMdApiImpl.h"

namespace {

class NullLog : public ILogSink {
public:
    void OnLine(ELOGLEVEL, const char*, std::size_t) override {}
};

class Session : public CVexaShfeMdApiImpl {
public:
    using CVexaShfeMdApiImpl::_MdHandler;
    using CVexaShfeMdApiImpl::m_isHBM2InitFinished;
    using CVexaShfeMdApiImpl::m_u50ConfigInfo;
    using CVexaShfeMdApiImpl::m_u50UserData;
    using CVexaShfeMdApiImpl::m_vexaShfeMdSpiOptional;
};

struct SummingSpi : CVexaShfeMdSpi {
    void OnVexaShfeMd(VexaShfeMdType& md) override {
        const auto* bytes = reinterpret_cast<const unsigned char*>(&md);
        for (std::size_t i = 0; i < sizeof md; ++i) sum = sum + bytes[i];
    }
    volatile unsigned int sum = 0;
};

constexpr std::size_t LENGTH_BYTES = 2;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    static NullLog log;
    CCommonLog::GetInstance().SetSink(&log);
    static SummingSpi spi;
    static const auto session = std::make_unique<Session>();
    VexaShfeMdType record{};
    session->m_u50UserData.lpMdApi = session.get();
    session->m_vexaShfeMdSpiOptional = CQELOptional<CVexaShfeMdSpi>(spi);
    if (size == 0) return 0;
    session->m_u50UserData.userDataType = (data[0] & 1) != 0 ? BUFF_FETCH : CALL_BACK;
    session->m_u50UserData.lpMdData = (data[0] & 2) != 0 ? &record : nullptr;
    session->m_u50ConfigInfo.channel_id = (data[0] & 4) != 0 ? 3 : 0;
    session->m_isHBM2InitFinished = (data[0] & 8) != 0;
    for (std::size_t offset = 1; offset + LENGTH_BYTES <= size;) {
        const std::size_t wanted = data[offset] | std::size_t{data[offset + 1]} << 8;
        offset += LENGTH_BYTES;
        const std::size_t length = std::min(wanted, size - offset);
        const std::size_t readable = std::max<std::size_t>(length, DMA_READABLE_BYTES);
        const std::unique_ptr<unsigned char[]> message(new unsigned char[readable]());
        std::memcpy(message.get(), data + offset, length);
        offset += length;
        Session::_MdHandler(message.get(), static_cast<unsigned int>(length), &session->m_u50UserData);
    }
    return 0;
}
