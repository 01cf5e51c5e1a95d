/// Inputs that targets begin from, written to files. `folder` exists.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace fuzz {

void WriteSeed(const std::string& folder, const std::string& name, const std::vector<uint8_t>& bytes);

void WriteSnapshotSeeds(const std::string& folder);
void WriteStartUpSeeds(const std::string& folder);
void WriteIniSeeds(const std::string& folder);
void WriteMarketDataSeeds(const std::string& folder);
void WriteServedBoardSeeds(const std::string& folder);

}  // namespace fuzz
