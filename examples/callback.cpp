// The smallest application of the callback form: VEXA_BOARD_PROVIDER=software ./vexa_example_callback session.ini
#include <VexaShfeMdApi.h>

#include <cstdio>

#include "Arguments.h"

struct Printer : CVexaShfeMdSpi {
    void OnVexaShfeMd(VexaShfeMdType& md) override {
        std::printf("%-15s last %.2f bid %.2f x %u ask %.2f x %u\n", md.inst_id, md.last_px / 100.0, md.bid1_px / 100.0,
                    md.bid1_vol, md.ask1_px / 100.0, md.ask1_vol);
    }
};

int main(int argc, char** argv) {
    int status = 0;
    if (!ReadArguments(argc, argv, "vexa_example_callback", status)) return status;
    Printer printer;
    CVexaShfeMdApi& api = CVexaShfeMdApi::CreateVexaShfeMdApi();
    const int32_t result = api.VexaRecvStart(printer, argv[1]);  // until Ctrl-C
    CVexaShfeMdApi::DestroyVexaShfeMdApi(api);
    if (result != 0)
        std::fprintf(stderr, "vexa_example_callback: the start failed with %d; the log says why\n", result);
    return result == 0 ? 0 : 1;
}
