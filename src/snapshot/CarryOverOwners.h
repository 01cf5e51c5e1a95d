/// The connections that hold a carry-over buffer, in the order in which they took it. All ports together get a fixed
/// number of buffers; the longest-standing one that nobody uses is found within a few kilobytes, whatever is scanned.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <iterator>

#include "src/snapshot/TcpSession.h"

class CCarryOverOwners {
public:
    uint32_t Count() const { return m_count; }
    bool IsFull() const { return m_count == FRAG_BUF_BUDGET; }

    void Add(tcp_session_t& session) {
        if (!IsFull()) m_sessions[m_count++] = &session;
    }

    void Remove(const tcp_session_t& session) {
        const auto end = std::remove(m_sessions.begin(), m_sessions.begin() + m_count, &session);
        m_count = static_cast<uint32_t>(std::distance(m_sessions.begin(), end));
    }

    /// Null when every one of them is in use. Few ever are: a connection in use brings a feed.
    tcp_session_t* OldestUnused() const {
        const auto end = m_sessions.begin() + m_count;
        const auto found =
            std::find_if(m_sessions.begin(), end, [](const tcp_session_t* session) { return session->init == 0; });
        return found == end ? nullptr : *found;
    }

private:
    std::array<tcp_session_t*, FRAG_BUF_BUDGET> m_sessions{};
    uint32_t m_count = 0;
};
