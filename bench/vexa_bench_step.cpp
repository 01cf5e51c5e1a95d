// Runs N receive steps of one form, for counting instructions: the difference of two runs, divided by the difference of
// their step counts, is one step without anything around it.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "bench/BenchSession.h"

namespace {
struct NothingSpi : CVexaShfeMdSpi {
    void OnVexaShfeMd(VexaShfeMdType&) override {}
};
}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr,
                     "vexa_bench_step: needs two words; give callback, polling or empty, and a count of steps\n");
        return 2;
    }
    const bool isPolling = std::strcmp(argv[1], "polling") == 0;
    const ReplayProvider provider(std::strcmp(argv[1], "empty") == 0);
    const TemporaryFile config(BenchConfig("device=xilinx0:1\n"));
    const auto api = std::make_unique<CVexaShfeMdApiImpl>();
    NothingSpi spi;
    if ((isPolling ? api->VexaStart(config.Path().c_str()) : api->VexaStart(spi, config.Path().c_str())) != 0) return 1;
    VexaShfeMdType md{};
    const long steps = std::strtol(argv[2], nullptr, 10);
    for (long step = 0; step < steps; ++step) {
        if (isPolling) {
            api->VexaRecv(md);
        } else {
            api->VexaRecv();
        }
    }
    return 0;
}
