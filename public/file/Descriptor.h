/// A file descriptor that is closed when its scope is left, by an error too.
#pragma once

#include <unistd.h>

#include <utility>

class CDescriptor {
public:
    /// Negative: none, as the call that should have opened it returned it.
    explicit CDescriptor(int descriptor) : m_descriptor(descriptor) {}
    ~CDescriptor() {
        if (m_descriptor >= 0) close(m_descriptor);
    }
    CDescriptor(const CDescriptor&) = delete;
    CDescriptor& operator=(const CDescriptor&) = delete;

    bool IsOpen() const { return m_descriptor >= 0; }  ///< not negative

    /// For a call that does not close it.
    int Get() const { return m_descriptor; }

    /// From here on the caller's to close.
    int Release() { return std::exchange(m_descriptor, -1); }

private:
    int m_descriptor;
};
