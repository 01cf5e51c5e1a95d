#include "simulation/base/EventTrace.h"

#include <algorithm>
#include <cinttypes>
#include <cstring>

namespace simulation {
namespace {

constexpr std::array NAMES{"write", "read", "read64", "slots", "message", "record", "call", "result", "script", "log"};

int Format(const Event& event, char* text, std::size_t size) {
    return std::snprintf(text, size, "%10.3f ms  channel %d  %-8s %" PRIx64 " %" PRIx64,
                         static_cast<double>(event.time) / 1e6, event.channel,
                         NAMES[static_cast<std::size_t>(event.kind)], event.what, event.value);
}

}  // namespace

uint64_t HashOf(const void* bytes, std::size_t size) {
    uint64_t hash = size;
    const auto* byte = static_cast<const unsigned char*>(bytes);
    for (; size >= sizeof hash; size -= sizeof hash, byte += sizeof hash) {
        uint64_t word = 0;
        std::memcpy(&word, byte, sizeof word);
        hash = Mix(hash, word);
    }
    for (; size > 0; --size) hash = Mix(hash, *byte++);
    return hash;
}

void EventTrace::Add(const Event& event) {
    m_last[m_count++ % KEPT] = event;
    m_hash = Mix(
        Mix(Mix(m_hash, static_cast<uint64_t>(event.kind) << 32 | static_cast<uint32_t>(event.channel)), event.what),
        Mix(event.value, static_cast<uint64_t>(event.time)));
    if (m_file == nullptr) return;
    char text[128];
    Format(event, text, sizeof text);
    std::fprintf(m_file, "%s\n", text);
}

std::vector<std::string> EventTrace::LastLines() const {
    std::vector<std::string> lines;
    for (uint64_t i = m_count - std::min<uint64_t>(m_count, KEPT); i < m_count; ++i) {
        char text[128];
        Format(m_last[i % KEPT], text, sizeof text);
        lines.emplace_back(text);
    }
    return lines;
}

}  // namespace simulation
