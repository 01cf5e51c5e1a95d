/// One lie, told once, between the library and the checks: shows that the check of that number can fail.
#pragma once

namespace simulation {

class Canary {
public:
    /// 0: everything is told as it is.
    explicit Canary(int invariant = 0) : m_invariant(invariant) {}

    /// True at the first opportunity to break `invariant`, if that is the one to break.
    bool Lies(int invariant) {
        if (invariant != m_invariant || m_hasLied) [[likely]]
            return false;
        m_hasLied = true;
        return true;
    }

    int Number() const { return m_invariant; }

private:
    int m_invariant;
    bool m_hasLied = false;
};

}  // namespace simulation
