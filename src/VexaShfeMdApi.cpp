// The factory: makes and ends session objects, and stands in when memory for one is short.
#include "interface/VexaShfeMdApi.h"

#include <cstdio>
#include <new>

#include "common/Version.h"
#include "public/log/LogLine.h"
#include "src/VexaShfeMdApiImpl.h"

// A build with SOURCE_DATE_EPOCH set carries that time, so that it can be reproduced byte for byte.
#ifndef VEXA_BUILD_STAMP
#define VEXA_BUILD_STAMP __DATE__ " " __TIME__
#endif

const CQelCharArray<1024> CVexaShfeMdApiImpl::VEXA_U50_VERSION =
    CQelCharArray<1024>(VEXA_BUILD_STAMP " V").Append(VEXA_U50_VERSION_NUMBER);

namespace {

// The factory returns a reference and so cannot fail: this object refuses every start in its place, as a session that
// cannot be initialised would.
class CUnavailableApi final : public CVexaShfeMdApi {
public:
    int32_t VexaRecvStart(CVexaShfeMdSpi& spi, const char* lpConfig) override {
        VexaStart(spi, lpConfig);
        return -1;
    }
    int32_t VexaStart(CVexaShfeMdSpi&, const char* lpConfig) override {
        if (lpConfig == nullptr) {
            std::fputs("VexaStart error, lpConfig is nullptr", stdout);
            std::fflush(stdout);
            return -1;
        }
        VEXA_LOG(LOG_ERROR, "_Init error");
        return -2;
    }
    int32_t VexaRecv() override { return -1; }
    int32_t VexaStart(const char* lpConfig) override {
        if (lpConfig == nullptr) {
            VEXA_LOG(LOG_ERROR, "lpConfig is nullptr");
            return -1;
        }
        VEXA_LOG(LOG_ERROR, "_Init error");
        return -2;
    }
    int32_t VexaRecv(VexaShfeMdType&) override { return -1; }
    int32_t VexaStop() override { return 0; }
};

constinit CUnavailableApi g_unavailableApi;

}  // namespace

CVexaShfeMdApi& CVexaShfeMdApi::CreateVexaShfeMdApi() {
    CVexaShfeMdApi* api = new (std::nothrow) CVexaShfeMdApiImpl;
    if (api != nullptr) return *api;
    VEXA_LOG(LOG_ERROR, "no memory for a session object of %zu bytes; every start will fail",
             sizeof(CVexaShfeMdApiImpl));
    return g_unavailableApi;
}

void CVexaShfeMdApi::DestroyVexaShfeMdApi(CVexaShfeMdApi& api) {
    // Callers may hand in a dereferenced null pointer; only a volatile keeps the compiler from knowing better.
    CVexaShfeMdApi* volatile address = &api;
    CVexaShfeMdApi* const object = address;
    if (object == nullptr || object == &g_unavailableApi) return;
    delete static_cast<CVexaShfeMdApiImpl*>(object);
}
