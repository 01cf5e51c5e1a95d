// The factory: makes and ends session objects, and stands in when memory for one is short.
#include "interface/VexaShfeMdApi.h"

#include <new>

#include "public/log/LogLine.h"
#include "src/Version.h"
#include "src/VexaShfeMdApiImpl.h"

// A build with SOURCE_DATE_EPOCH set carries that time, so that it can be reproduced byte for byte.
#ifndef VEXA_BUILD_STAMP
#define VEXA_BUILD_STAMP __DATE__ " " __TIME__
#endif

const CQelCharArray<1024> CVexaShfeMdApiImpl::VEXA_U50_VERSION =
    CQelCharArray<1024>(VEXA_BUILD_STAMP " V").Append(VEXA_U50_VERSION_NUMBER);

namespace {

// The factory returns a reference and so cannot fail: this object refuses every start in its place.
class CUnavailableApi final : public CVexaShfeMdApi {
public:
    int32_t VexaRecvStart(CVexaShfeMdSpi&, const char*) override { return -1; }
    int32_t VexaStart(CVexaShfeMdSpi&, const char*) override { return -2; }
    int32_t VexaRecv() override { return -1; }
    int32_t VexaStart(const char*) override { return -2; }
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
