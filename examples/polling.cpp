// The smallest application of the polling form: VEXA_BOARD_PROVIDER=software ./vexa_example_polling session.ini
#include <VexaShfeMdApi.h>

#include <cstdio>

#include "Arguments.h"

int main(int argc, char** argv) {
    int status = 0;
    if (!ReadArguments(argc, argv, "vexa_example_polling", status)) return status;
    CVexaShfeMdApi& api = CVexaShfeMdApi::CreateVexaShfeMdApi();
    int32_t result = api.VexaStart(argv[1]);
    if (result != 0) {
        std::fprintf(stderr, "vexa_example_polling: the start failed with %d; the log says why\n", result);
    } else {
        VexaShfeMdType md{};
        while ((result = api.VexaRecv(md)) != -1) {  // until Ctrl-C
            if (result == 1) std::printf("%-15s last %.2f volume %u\n", md.inst_id, md.last_px / 100.0, md.volume);
        }
        result = 0;
    }
    CVexaShfeMdApi::DestroyVexaShfeMdApi(api);
    return result == 0 ? 0 : 1;
}
