/// Every wait, sleep and look at the calendar of the library. The delivery path never calls it.
///
/// The system clock is real; tests and simulations put a source of their own in its place, before a session starts and
/// not while one runs.
#pragma once

#include <cstdint>
#include <ctime>

/// Where time comes from. Implementations are called from one thread at a time.
class IClockSource {
public:
    virtual int64_t WallNanoseconds() = 0;       ///< since the epoch; may be set
    virtual int64_t MonotonicNanoseconds() = 0;  ///< never goes back
    virtual void SleepNanoseconds(int64_t nanoseconds) = 0;
    virtual ~IClockSource() = default;
};

class CClock {
public:
    /// Puts `source` in place of the system's clocks; null goes back to them. `source` must outlive its use.
    static void Use(IClockSource* source);

    static int64_t WallNanoseconds();       ///< since the epoch; may be set
    static int64_t MonotonicNanoseconds();  ///< never goes back

    /// A signal may end it early.
    static void SleepSeconds(uint32_t seconds);
    static void SleepMicroseconds(uint32_t microseconds);

    /// Local calendar time of `seconds` since the epoch. Returns false when the calendar does not reach there.
    static bool LocalTime(int64_t seconds, std::tm& local);
};

/// Measures one wait on the monotonic clock, so that a set system clock neither cuts nor stretches it.
class CWaitTimer {
public:
    CWaitTimer() : m_start(CClock::MonotonicNanoseconds()) {}
    int64_t ElapsedSeconds() const;  ///< whole seconds, cut towards zero

private:
    int64_t m_start;
};
