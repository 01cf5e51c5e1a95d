// Ids in order, so that those that begin with an entry lie side by side. A list may have thousands of entries that
// select nothing; each costs two searches, and not a walk over all tables.
#include "src/board/Selection.h"

#include <algorithm>
#include <iterator>
#include <tuple>

namespace {

constexpr std::size_t PRODUCT_LENGTH = 2;  // "cu"
constexpr std::size_t FUTURE_LENGTH = 6;   // "cu2612"; longer ids are options

bool IsPrefix(std::string_view entry) { return entry.size() == PRODUCT_LENGTH || entry.size() == FUTURE_LENGTH; }

bool IsWanted(const U50ChannelInfo& channel, std::string_view id) {
    return id.size() <= FUTURE_LENGTH || channel.options;
}

/// As slots are added: by number, the feeds of one number in their order.
bool ComesBefore(const CSelection::Slot& a, const CSelection::Slot& b) {
    return std::tie(a.instNo, a.feed) < std::tie(b.instNo, b.feed);
}

}  // namespace

bool IsSelected(const U50ChannelInfo& channel, std::string_view id, std::string_view entry) {
    if (channel.recvall) return IsWanted(channel, id);
    if (!IsPrefix(entry)) return id == entry;
    return id.substr(0, entry.size()) == entry && IsWanted(channel, id);
}

void CSelection::Sort() {
    const auto isWanted = [this](const Slot& slot) { return IsWanted(m_channel, slot.id); };
    if (m_channel.recvall) {
        std::copy_if(m_all.begin(), m_all.end(), std::back_inserter(m_everything), isWanted);
    } else {
        std::stable_sort(m_all.begin(), m_all.end(), [](const Slot& a, const Slot& b) { return a.id < b.id; });
        std::copy_if(m_all.begin(), m_all.end(), std::back_inserter(m_wanted), isWanted);
    }
}

const std::vector<CSelection::Slot>& CSelection::Of(std::string_view entry) {
    if (m_channel.recvall) return m_everything;
    if (IsPrefix(entry)) {
        TakeRange(m_wanted, entry);
        std::sort(m_found.begin(), m_found.end(), ComesBefore);
    } else {
        TakeRange(m_all, entry);
    }
    return m_found;
}

// The slots whose id selects by this entry: for a prefix all that begin with it, else those that are it.
void CSelection::TakeRange(const std::vector<Slot>& byId, std::string_view entry) {
    const std::size_t compared = IsPrefix(entry) ? entry.size() : std::string_view::npos;
    const auto first = std::partition_point(byId.begin(), byId.end(),
                                            [=](const Slot& slot) { return slot.id.substr(0, compared) < entry; });
    const auto last =
        std::partition_point(first, byId.end(), [=](const Slot& slot) { return slot.id.substr(0, compared) == entry; });
    m_found.assign(first, last);
}
