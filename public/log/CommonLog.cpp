// The process's log. Any thread and any signal handler may write a line; only an ordinary line opens files or looks at
// the calendar, a handler's line takes what is open. In: finished texts. Out: lines in the day's file.
// A line reaches the file whole or not at all; where the system keeps a part, the next line does not begin on it.
#include "public/log/CommonLog.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <new>
#include <ratio>
#include <string>
#include <string_view>

#include "public/clock/Clock.h"
#include "public/file/WriteWhole.h"
#include "public/log/LogFile.h"

namespace {

using namespace std::chrono;

using quarters = duration<int64_t, std::ratio<900>>;  // offsets from UTC are whole quarters of an hour

constexpr std::size_t TEXT_CAPACITY = 4608;  // a text of 4,096 bytes with file, line and function in front
constexpr std::size_t LINE_CAPACITY = TEXT_CAPACITY + 64;

int64_t SecondOf(int64_t wallNanoseconds) { return floor<seconds>(nanoseconds(wallNanoseconds)).count(); }

/// Writes decimal digits without the formatted-output functions: a signal handler comes this way.
char* PutDigits(char* to, int64_t value, int digits) {
    for (int i = digits - 1; i >= 0; --i) {
        to[i] = static_cast<char>('0' + value % 10);
        value /= 10;
    }
    return to + digits;
}

char* PutText(char* to, std::string_view text) { return std::copy(text.begin(), text.end(), to); }

std::string_view LevelName(ELOGLEVEL level) {
    switch (level) {
        case LOG_ERROR: return " [ERROR] ";
        case LOG_WARNING: return " [WARNING] ";
        case LOG_INFO: return " [INFO] ";
        case LOG_DEBUG: return " [DEBUG] ";
        default: return " [TRACE] ";
    }
}

char* PutDate(char* to, days sinceEpoch, std::string_view between) {
    const year_month_day date{sys_days(sinceEpoch)};
    to = PutDigits(to, int{date.year()}, 4);
    to = PutDigits(PutText(to, between), unsigned{date.month()}, 2);
    return PutDigits(PutText(to, between), unsigned{date.day()}, 2);
}

/// "2026-04-30 09:30:00.123456 [INFO] "
char* PutHead(char* to, int64_t wallNanoseconds, int64_t utcOffset, ELOGLEVEL level) {
    const microseconds local = floor<microseconds>(nanoseconds(wallNanoseconds)) + seconds(utcOffset);
    const days day = floor<days>(local);
    const hh_mm_ss time(local - day);
    to = PutText(PutDate(to, day, "-"), " ");
    to = PutDigits(to, time.hours().count(), 2);
    to = PutDigits(PutText(to, ":"), time.minutes().count(), 2);
    to = PutDigits(PutText(to, ":"), time.seconds().count(), 2);
    to = PutDigits(PutText(to, "."), time.subseconds().count(), 6);
    return PutText(to, LevelName(level));
}

/// A text from the wire must neither end a line nor drive a terminal.
char* PutPrintable(char* to, const char* text, std::size_t length) {
    return std::transform(text, text + length, to, [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return byte < 0x20 || byte == 0x7F ? '?' : c;
    });
}

}  // namespace

CCommonLog& CCommonLog::GetInstance() {
    static CCommonLog instance;
    return instance;
}

void CCommonLog::SetLogPath(const char* path) {
    while (m_isChanging.test_and_set(std::memory_order_acquire)) {
    }
    m_path[std::string_view(path == nullptr ? "" : path).copy(m_path, PATH_CAPACITY - 1)] = '\0';
    m_hasTold = false;
    m_openDay = NEVER;
    m_quarter.store(NEVER, std::memory_order_relaxed);
    m_isChanging.clear(std::memory_order_release);
}

void CCommonLog::SetSink(ILogSink* sink) {
    m_limit.Forget();
    m_sink.store(sink, std::memory_order_release);
}

bool CCommonLog::IsHeldBack(ELOGLEVEL level, const char* file, int line) {
    if (!CLogLimit::IsLimited(level) || !m_limit.IsUsedUp(file, line)) return false;
    return m_limit.IsHeld(level, file, line, SecondOf(CClock::WallNanoseconds()));
}

void CCommonLog::WriteLog(ELOGLEVEL level, const char* format, ...) {
    if (!IsEnabled(level)) return;
    char text[TEXT_CAPACITY];
    va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    if (length < 0) return Drop();
    Emit(level, text, std::min(static_cast<std::size_t>(length), sizeof text - 1), true);
}

void CCommonLog::WriteText(ELOGLEVEL level, const char* text, std::size_t length) {
    if (IsEnabled(level)) Emit(level, text, std::min(length, TEXT_CAPACITY), false);
}

void CCommonLog::Emit(ELOGLEVEL level, const char* text, std::size_t length, bool mayOpen) {
    const bool isLimited = CLogLimit::IsLimited(level);
    // A sink's lines carry no time: the clock is looked at for them only where the limit asks.
    const bool needsTime = m_sink.load(std::memory_order_relaxed) == nullptr || isLimited || m_limit.IsHolding();
    const int64_t now = needsTime ? CClock::WallNanoseconds() : 0;
    const int64_t second = SecondOf(now);
    for (LogHeld earlier; m_limit.TakeHeld(second, earlier);) TellHeld(earlier, now, mayOpen);
    LogHeld held;
    if (isLimited && !m_limit.Passes(level, {text, length}, second, held)) return;
    TellHeld(held, now, mayOpen);
    Put(level, text, length, now, mayOpen);
}

/// "[file:line][function]N more like this", without the formatted-output functions.
void CCommonLog::TellHeld(const LogHeld& held, int64_t now, bool mayOpen) {
    if (held.lines == 0 || !IsEnabled(held.level)) return;
    char line[256];
    char* end = std::copy(held.head.begin(), held.head.end(), line);
    end = std::to_chars(end, line + sizeof line, held.lines).ptr;
    end = PutText(end, " more like this");
    Put(held.level, line, static_cast<std::size_t>(end - line), now, mayOpen);
}

void CCommonLog::Put(ELOGLEVEL level, const char* text, std::size_t length, int64_t now, bool mayOpen) {
    if (ILogSink* sink = m_sink.load(std::memory_order_acquire)) return sink->OnLine(level, text, length);
    if (mayOpen) Refresh(SecondOf(now));
    const int file = m_file.load(std::memory_order_acquire);
    if (file == NO_FILE) return Drop();

    char line[LINE_CAPACITY];
    char* end = line;
    const bool isBehindCut = m_isCut.load(std::memory_order_relaxed) && m_isCut.exchange(false);
    if (isBehindCut) *end++ = '\n';
    end = PutHead(end, now, m_utcOffset.load(std::memory_order_relaxed), level);
    end = PutPrintable(end, text, length);
    *end++ = '\n';
    const auto size = static_cast<std::size_t>(end - line);
    const std::size_t written = WriteWhole(file, line, size);
    if (written == size) return;
    const int reason = errno;
    const bool isGone = file == STANDARD_ERROR || TakeBack(file, written);
    if (!isGone || isBehindCut) m_isCut.store(true, std::memory_order_relaxed);
    if (mayOpen) ReportTroubleOnce(" cannot be written (", m_path, reason);
    Drop();
}

// Opens the file when the path is new or the local day has changed. The offset is looked up again every quarter of an
// hour: no day begins, and no clock is set, at another moment.
void CCommonLog::Refresh(int64_t wallSeconds) {
    const int64_t quarter = floor<quarters>(seconds(wallSeconds)).count();
    if (quarter == m_quarter.load(std::memory_order_relaxed)) return;
    if (m_isChanging.test_and_set(std::memory_order_acquire)) return;
    std::tm local{};
    if (CClock::LocalTime(wallSeconds, local)) m_utcOffset.store(local.tm_gmtoff, std::memory_order_relaxed);
    const seconds offset(m_utcOffset.load(std::memory_order_relaxed));
    const int64_t day = floor<days>(seconds(wallSeconds) + offset).count();
    if (day != m_openDay) OpenDay(day);
    m_quarter.store(quarter, std::memory_order_relaxed);
    m_isChanging.clear(std::memory_order_release);
}

void CCommonLog::OpenDay(int64_t day) {
    m_openDay = day;
    const int before = m_file.load(std::memory_order_relaxed);
    const int opened = m_path[0] == '\0' ? STANDARD_ERROR : OpenFileOf(day);
    const bool isAnother = m_isCut.load(std::memory_order_relaxed) && log_file::AreDifferent(before, opened);
    if (before > STANDARD_ERROR && opened != STANDARD_ERROR && dup3(opened, before, O_CLOEXEC) == before) {
        close(opened);
    } else {
        m_file.store(opened, std::memory_order_release);
        if (before > STANDARD_ERROR) close(before);
    }
    if (isAnother) m_isCut.store(false, std::memory_order_relaxed);
}

int CCommonLog::OpenFileOf(int64_t day) {
    char name[] = "vexa_shfe_md_yyyymmdd.log";
    PutDate(std::find(name, name + sizeof name, 'y'), days(day), "");
    try {
        const std::string file = log_file::Place(m_path, name);
        const int opened = log_file::OpenAppend(file, false);
        if (opened >= 0) return opened;
        ReportTroubleOnce(" cannot be opened (", file.c_str(), errno);
    } catch (const std::bad_alloc&) {
        ReportTroubleOnce(" cannot be opened (", m_path, ENOMEM);
    }
    return NO_FILE;
}

void CCommonLog::ReportTroubleOnce(const char* what, const char* file, int reason) {
    if (m_hasTold.exchange(true, std::memory_order_relaxed)) return;
    char line[1024];
    char* end = PutText(line, "vexa_shfe_md: the log file ");
    end = PutText(end, std::string_view(file).substr(0, 512));
    end = PutText(PutText(end, what), std::strerror(reason));
    end = PutText(end, "); the session goes on without it\n");
    WriteWhole(STANDARD_ERROR, line, static_cast<std::size_t>(end - line));
}

void CCommonLog::Drop() { m_dropped.fetch_add(1, std::memory_order_relaxed); }
