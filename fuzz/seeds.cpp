// Writes the seeds of every target into a folder each. The same program writes the same files.
#include <cstdio>
#include <filesystem>
#include <fstream>

#include "fuzz/SeedWriter.h"

namespace fuzz {

void WriteSeed(const std::string& folder, const std::string& name, const std::vector<uint8_t>& bytes) {
    std::ofstream file(folder + "/" + name, std::ios::binary);
    file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

}  // namespace fuzz

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fputs("usage: fuzz_seeds FOLDER\n", stderr);
        return 2;
    }
    const std::string folder = argv[1];
    const auto target = [&](const char* name) {
        std::filesystem::create_directories(folder + "/" + name);
        return folder + "/" + name;
    };
    fuzz::WriteSnapshotSeeds(target("snapshot"));
    fuzz::WriteStartUpSeeds(target("start_up"));
    fuzz::WriteServedBoardSeeds(target("served_board"));
    fuzz::WriteMarketDataSeeds(target("market_data"));
    fuzz::WriteIniSeeds(target("ini"));
    return 0;
}
