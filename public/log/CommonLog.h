/// The process's log: one line is one formatted text, handed to one write(2) unless that is interrupted; files are open
/// for appending. A line waits for no other and allocates nothing; the first one of a path or a day opens the file,
/// which does. A log that cannot be written never stops the session: that is told once for each path on standard error,
/// and lines are counted.
/// Of one place's warnings and errors at most 200 a second are kept; then "N more like this" tells of the others.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "public/log/LogLevel.h"
#include "public/log/LogLimit.h"

/// Receives every text that is kept in place of the file (tests, tools): without the time and level in front, without a
/// line end, and with control bytes as they were given. `line` is valid during the call.
class ILogSink {
public:
    /// One text; from whichever thread or signal handler logs.
    virtual void OnLine(ELOGLEVEL level, const char* line, std::size_t length) = 0;
    virtual ~ILogSink() = default;
};

class CCommonLog {
public:
    static constexpr std::size_t PATH_CAPACITY = 4096;
    static constexpr int NO_FILE = -1;
    static constexpr int STANDARD_ERROR = 2;

    /// The process's one log.
    static CCommonLog& GetInstance();

    /// Empty: standard error. A directory, or a text ending in "/": vexa_shfe_md_<yyyymmdd>.log in it. Any other text
    /// is put before that name. At most 4,095 characters. Takes effect with the next line of WriteLog.
    void SetLogPath(const char* path);

    /// A mask of ELOGLEVEL bits.
    void SetLogLevel(int32_t mask) { m_mask.store(mask, std::memory_order_relaxed); }

    /// Whether the mask has the level's bit.
    bool IsEnabled(ELOGLEVEL level) const { return (m_mask.load(std::memory_order_relaxed) & level) != 0; }

    /// Tests the level before anything is formatted; cuts a text beyond the line's capacity.
    void WriteLog(ELOGLEVEL level, const char* format, ...) __attribute__((format(printf, 3, 4)));

    /// One finished text, into what is open. Calls nothing but what a signal handler may call on Linux.
    void WriteText(ELOGLEVEL level, const char* text, std::size_t length);

    /// Whether a warning or error of this place would be held back now; it is counted then and need not be formatted.
    bool IsHeldBack(ELOGLEVEL level, const char* file, int line);

    /// Lines held back since the process began; none of them counts as dropped.
    uint64_t HeldBackLines() const { return m_limit.HeldLines(); }

    /// Lines that could not be written since the process began.
    uint64_t DroppedLines() const { return m_dropped.load(std::memory_order_relaxed); }

    /// Puts `sink` in place of the file; null goes back to the file. `sink` must outlive its use, in whatever thread.
    /// What was held back before is forgotten: two runs under the same clock see the same lines.
    void SetSink(ILogSink* sink);

    CCommonLog(const CCommonLog&) = delete;
    CCommonLog& operator=(const CCommonLog&) = delete;

private:
    static constexpr int64_t NEVER = INT64_MIN;  ///< no time that a clock tells

    CCommonLog() = default;

    void Emit(ELOGLEVEL level, const char* text, std::size_t length, bool mayOpen);
    void TellHeld(const LogHeld& held, int64_t now, bool mayOpen);
    void Put(ELOGLEVEL level, const char* text, std::size_t length, int64_t now, bool mayOpen);
    void Refresh(int64_t wallSeconds);
    void OpenDay(int64_t day);
    int OpenFileOf(int64_t day);
    void ReportTroubleOnce(const char* what, const char* file, int reason);
    void Drop();

    std::atomic<int32_t> m_mask{LOG_ERROR | LOG_WARNING | LOG_INFO | LOG_DEBUG};
    std::atomic<uint64_t> m_dropped{0};
    std::atomic<ILogSink*> m_sink{nullptr};
    CLogLimit m_limit;

    // The file, changed under m_isChanging alone; who finds it taken goes on with what is open, and only SetLogPath
    // waits. The descriptor keeps its number from one file to the next, so that a line under way in a handler or
    // another thread never meets a stranger's.
    std::atomic_flag m_isChanging;
    std::atomic<int> m_file{STANDARD_ERROR};
    std::atomic<int64_t> m_quarter{NEVER};  ///< the quarter of an hour in which offset and day were looked up
    std::atomic<int64_t> m_utcOffset{0};    ///< seconds east
    int64_t m_openDay = NEVER;              ///< local days since the epoch of the open file
    std::atomic<bool> m_isCut{false};       ///< a part of a line stands at the file's end
    std::atomic<bool> m_hasTold{false};     ///< of the file that does not open or does not take lines
    char m_path[PATH_CAPACITY] = {};
};
