// usage: vexa_reader INI RECORDS [MICROSECONDS]
// An application of its own process: appends every record it receives to the file RECORDS, taking MICROSECONDS over
// each, until it is signalled or its session ends. Exit status 0 after a signal or a stop, 1 after a failed start.
#include <VexaShfeMdApi.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "public/clock/Clock.h"

namespace {

constexpr uint32_t IDLE_US = 2000;

struct Recorder : CVexaShfeMdSpi {
    Recorder(int opened, unsigned int slowness) : file(opened), microseconds(slowness) {}
    void OnVexaShfeMd(VexaShfeMdType& md) override {
        // One record, one write: what a killed process has received is there.
        if (write(file, &md, sizeof md) != static_cast<ssize_t>(sizeof md)) std::perror("records");
        if (microseconds > 0) CClock::SleepMicroseconds(microseconds);
    }
    int file;
    unsigned int microseconds;
};

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        std::fprintf(stderr, "vexa_reader: needs two words; give an INI file and a file for the records\n");
        return 2;
    }
    const int file = open(argv[2], O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    if (file < 0) {
        std::perror(argv[2]);
        return 2;
    }
    Recorder recorder(file, argc > 3 ? static_cast<unsigned int>(std::atoi(argv[3])) : 0);
    CVexaShfeMdApi& api = CVexaShfeMdApi::CreateVexaShfeMdApi();
    if (api.VexaStart(recorder, argv[1]) != 0) return 1;
    int result = 0;
    while (result != -1) {
        result = api.VexaRecv();
        if (result == 0) CClock::SleepMicroseconds(IDLE_US);  // many readers share few cores
    }
    CVexaShfeMdApi::DestroyVexaShfeMdApi(api);
    return 0;
}
