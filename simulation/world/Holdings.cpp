#include "simulation/world/Holdings.h"

#include <filesystem>
#include <iterator>

#include "simulation/base/WatchedAllocator.h"
#include "simulation/rules/Rules.h"
#include "simulation/world/WatchedProvider.h"

namespace simulation {

Holdings Holdings::Now() {
    const std::filesystem::directory_iterator entries("/proc/self/fd");
    return {WatchedAllocator::Alive(), WatchedAllocator::MappedBytes(),
            static_cast<std::size_t>(std::distance(begin(entries), end(entries))), WatchedProvider::OpenHandles()};
}

std::string Holdings::Text() const {
    return std::to_string(blocks) + " blocks, " + std::to_string(mappedBytes) + " mapped bytes, " +
           std::to_string(descriptors) + " descriptors, " + std::to_string(handles) + " board handles";
}

void RequireSame(const Holdings& before, const Holdings& now) {
    Require(before == now, ERule::Holdings, [&] { return "held before: " + before.Text() + "; now: " + now.Text(); });
}

}  // namespace simulation
