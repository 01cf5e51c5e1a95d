// The day's instrument list as a text file, so that other processes and operators can map ids to instrument numbers.
// Runs on the thread that starts or receives; a failure is a warning and the start goes on.
// Invariant: a line holds twelve columns, whatever the wire said an instrument is called.
#include <algorithm>
#include <array>
#include <cinttypes>
#include <cstdio>
#include <cstring>

#include "common/Feed.h"
#include "common/RegisterMap.h"
#include "public/clock/Clock.h"
#include "public/file/ReplacedFile.h"
#include "public/log/LogLine.h"
#include "src/VexaShfeMdApiImpl.h"

std::string CVexaShfeMdApiImpl::s_indexDirectory = "/tmp";

namespace {

constexpr int64_t NANOSECONDS_PER_SECOND = 1'000'000'000;
constexpr int AFTERNOON_HOUR = 17;
constexpr const char* HEADER =
    "contract_no,contract_name,change_no,open_interest,last_price,turnover,volume,price_tick,codec_price,vol_multiple,"
    "upper_limit_price,lower_limit_price\n";

std::string IndexPath(const std::string& directory) {
    std::tm local{};
    CClock::LocalTime(CClock::WallNanoseconds() / NANOSECONDS_PER_SECOND, local);
    char name[64];
    std::snprintf(name, sizeof name, "/.shfe_%04d%02d%02d%s", local.tm_year + 1900, local.tm_mon + 1, local.tm_mday,
                  local.tm_hour < AFTERNOON_HOUR ? "_am" : "_pm");
    return directory + name;
}

/// A text from the wire must neither end a line nor begin a column.
std::array<char, sizeof SInstTableType::inst_id + 1> ColumnText(const SInstTableType& slot) {
    std::array<char, sizeof slot.inst_id + 1> text{};
    std::replace_copy_if(
        slot.inst_id, slot.inst_id + strnlen(slot.inst_id, sizeof slot.inst_id), text.begin(),
        [](char c) { return c == ',' || c < ' ' || c > '~'; }, '?');
    return text;
}

void AddSlots(CReplacedFile& file, const SInstTableType* table, uint32_t count) {
    char line[256];  // twelve columns of at most twenty characters
    for (uint32_t i = 0; i < count; ++i) {
        const SInstTableType& slot = table[i];
        const int length = std::snprintf(line, sizeof line, "%d,%s,%u,%" PRIu64 ",%d,%" PRIu64 ",%u,%d,%d,%u,%d,%d\n",
                                         static_cast<int32_t>(i), ColumnText(slot).data(), slot.change_no,
                                         uint64_t{slot.open_interest}, slot.last_price, uint64_t{slot.turnover},
                                         slot.volume, slot.price_tick, slot.codec_price, slot.vol_multiple,
                                         slot.upper_limit_price, slot.lower_limit_price);
        file.Add({line, static_cast<std::size_t>(length)});
    }
}

// The 4ps feed's table takes precedence where both have finished.
void AddExchange(CReplacedFile& file, CInstrumentStore& store, EMDQPDataType feed2ps, EMDQPDataType feed4ps,
                 uint32_t count) {
    const bool has4ps = store.HasFinished(feed4ps);
    if (!has4ps && !store.HasFinished(feed2ps)) return;
    const EMDQPDataType feed = has4ps ? feed4ps : feed2ps;
    AddSlots(file, store.Table(feed), std::min(count, static_cast<uint32_t>(TraitsOf(feed).capacity)));
}

}  // namespace

int32_t CVexaShfeMdApiImpl::_InstStaticInfoWriteFile() {
    const std::string path = IndexPath(s_indexDirectory);
    uint32_t shfeInstCount = 0;
    uint32_t ineInstCount = 0;
    m_drvRegEnyx.ReadRegister(reg::SHFE_INST_COUNT, shfeInstCount);
    m_drvRegEnyx.ReadRegister(reg::INE_INST_COUNT, ineInstCount);
    if (shfeInstCount == 0 && ineInstCount == 0) {
        VEXA_LOG(LOG_WARNING, "shfeInstCount:%u, ineInstCount:%u, not write contract index file %s", shfeInstCount,
                 ineInstCount, path.c_str());
        return -1;
    }
    CReplacedFile file(path);
    if (file.IsOpen()) {
        file.Add(HEADER);
        AddExchange(file, m_store, SHFE_2PS, SHFE_4PS, shfeInstCount);
        AddExchange(file, m_store, INE_2PS, INE_4PS, ineInstCount);
        if (file.PutInPlace()) return 0;
    }
    VEXA_LOG(LOG_WARNING, "open contract index file failed %s", path.c_str());
    return -1;
}
