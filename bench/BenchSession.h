/// What the benchmarks measure on: a provider that replays one live update, and a whole session in virtual time.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "src/VexaShfeMdApiImpl.h"
#include "testing/InstalledBoard.h"
#include "testing/TemporaryDirectory.h"

/// A provider whose stream gives the same DMA_UDP message at every poll, or nothing. It has a table of its own: through
/// testing/ProviderAdapter.h a poll would take a virtual call more, and that would stand in the figures.
class ReplayProvider : public InstalledProvider {
public:
    explicit ReplayProvider(bool isEmpty);
};

/// The text of a configuration file; `keys` go into [config].
std::string BenchConfig(const std::string& keys);

/// The snapshot of SHFE as DMA_TCP messages; with `isSwapped` about one segment in a hundred comes one place late.
std::vector<std::vector<uint8_t>> SnapshotDmaMessages(bool isSwapped);
