// The process's log. Any thread and any signal handler may write a line; only an ordinary line opens files or looks at
// the calendar, a handler's line takes what is open. In: finished texts. Out: lines in the day's file.
// A line reaches the file whole or not at all; where the system keeps a part, the next line does not begin on it.
#include "public/log/CommonLog.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <new>
#include <string>

#include "public/clock/Clock.h"
#include "public/file/WriteWhole.h"
#include "public/log/LogFile.h"

namespace {

constexpr int64_t NANOSECONDS_PER_SECOND = 1'000'000'000;
constexpr int64_t SECONDS_PER_HOUR = 3600;
constexpr int64_t SECONDS_PER_QUARTER = 900;  // offsets from UTC are whole quarters of an hour
constexpr int64_t SECONDS_PER_DAY = 86400;
constexpr std::size_t TEXT_CAPACITY = 4608;  // a text of 4,096 bytes with file, line and function in front
constexpr std::size_t LINE_CAPACITY = TEXT_CAPACITY + 64;

int64_t FloorDiv(int64_t value, int64_t divisor) { return value / divisor - (value % divisor < 0 ? 1 : 0); }

struct Date {
    int64_t year;
    int64_t month;
    int64_t day;
};

/// The proleptic Gregorian date of a day since the epoch; the calendar functions of the C library may take locks.
Date DateOf(int64_t daysSinceEpoch) {
    const int64_t shifted = daysSinceEpoch + 719468;  // days since 1 March of the year 0
    const int64_t era = FloorDiv(shifted, 146097);
    const int64_t dayOfEra = shifted - era * 146097;
    const int64_t yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
    const int64_t dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    const int64_t shiftedMonth = (5 * dayOfYear + 2) / 153;
    const int64_t month = shiftedMonth < 10 ? shiftedMonth + 3 : shiftedMonth - 9;
    return {yearOfEra + era * 400 + (month <= 2 ? 1 : 0), month, dayOfYear - (153 * shiftedMonth + 2) / 5 + 1};
}

/// Writes decimal digits without the formatted-output functions: a signal handler comes this way.
char* PutDigits(char* to, int64_t value, int digits) {
    for (int i = digits - 1; i >= 0; --i) {
        to[i] = static_cast<char>('0' + value % 10);
        value /= 10;
    }
    return to + digits;
}

char* PutText(char* to, const char* text) { return std::copy_n(text, std::strlen(text), to); }

const char* LevelName(ELOGLEVEL level) {
    switch (level) {
        case LOG_ERROR: return " [ERROR] ";
        case LOG_WARNING: return " [WARNING] ";
        case LOG_INFO: return " [INFO] ";
        case LOG_DEBUG: return " [DEBUG] ";
        default: return " [TRACE] ";
    }
}

/// "2026-04-30 09:30:00.123456 [INFO] "
char* PutHead(char* to, int64_t wallNanoseconds, int64_t utcOffset, ELOGLEVEL level) {
    const int64_t local = FloorDiv(wallNanoseconds, NANOSECONDS_PER_SECOND) + utcOffset;
    const int64_t day = FloorDiv(local, SECONDS_PER_DAY);
    const int64_t second = local - day * SECONDS_PER_DAY;
    const Date date = DateOf(day);
    to = PutDigits(to, date.year, 4);
    *to++ = '-';
    to = PutDigits(to, date.month, 2);
    *to++ = '-';
    to = PutDigits(to, date.day, 2);
    *to++ = ' ';
    to = PutDigits(to, second / SECONDS_PER_HOUR, 2);
    *to++ = ':';
    to = PutDigits(to, second / 60 % 60, 2);
    *to++ = ':';
    to = PutDigits(to, second % 60, 2);
    *to++ = '.';
    const int64_t fraction =
        wallNanoseconds - FloorDiv(wallNanoseconds, NANOSECONDS_PER_SECOND) * NANOSECONDS_PER_SECOND;
    to = PutDigits(to, fraction / 1000, 6);
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
    const std::size_t length = path == nullptr ? 0 : strnlen(path, PATH_CAPACITY - 1);
    if (length > 0) std::memcpy(m_path, path, length);
    m_path[length] = '\0';
    m_hasTold = false;
    m_isStale.store(true, std::memory_order_relaxed);
    m_isChanging.clear(std::memory_order_release);
}

void CCommonLog::SetSink(ILogSink* sink) {
    m_limit.Forget();
    m_sink.store(sink, std::memory_order_release);
}

bool CCommonLog::IsHeldBack(ELOGLEVEL level, const char* file, int line) {
    if (!CLogLimit::IsLimited(level) || !m_limit.IsUsedUp(file, line)) return false;
    return m_limit.IsHeld(level, file, line, FloorDiv(CClock::WallNanoseconds(), NANOSECONDS_PER_SECOND));
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
    const int64_t second = FloorDiv(now, NANOSECONDS_PER_SECOND);
    LogHeld held;
    while (m_limit.IsHolding() && m_limit.TakeHeld(second, held)) TellHeld(held, now, mayOpen);
    held.lines = 0;
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
    if (mayOpen) Refresh(FloorDiv(now, NANOSECONDS_PER_SECOND));
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
    if (!TakeBack(file, written) || isBehindCut) m_isCut.store(true, std::memory_order_relaxed);
    if (mayOpen) TellOnce("cannot be written", m_path, reason);
    Drop();
}

// A line is whole or absent: what a full disk took of it is taken back. False where that cannot be done.
bool CCommonLog::TakeBack(int file, std::size_t written) {
    if (file == STANDARD_ERROR || written == 0) return true;
    const auto partial = static_cast<off_t>(written);
    const off_t reached = lseek(file, 0, SEEK_END);
    return reached >= partial && ftruncate(file, reached - partial) == 0;
}

// Opens the file when the path is new or the local day has changed. The offset is looked up again every quarter of an
// hour: no day begins, and no clock is set, at another moment.
void CCommonLog::Refresh(int64_t wallSeconds) {
    const bool isStale = m_isStale.load(std::memory_order_relaxed);
    const int64_t refreshAt = m_refreshAt.load(std::memory_order_relaxed);
    if (!isStale && wallSeconds < refreshAt && wallSeconds >= refreshAt - SECONDS_PER_QUARTER) return;
    if (m_isChanging.test_and_set(std::memory_order_acquire)) return;
    std::tm local{};
    if (CClock::LocalTime(wallSeconds, local)) m_utcOffset.store(local.tm_gmtoff, std::memory_order_relaxed);
    const int64_t day = FloorDiv(wallSeconds + m_utcOffset.load(std::memory_order_relaxed), SECONDS_PER_DAY);
    if (isStale || day != m_openDay) OpenDay(day);
    m_refreshAt.store((FloorDiv(wallSeconds, SECONDS_PER_QUARTER) + 1) * SECONDS_PER_QUARTER,
                      std::memory_order_relaxed);
    m_isStale.store(false, std::memory_order_relaxed);
    m_isChanging.clear(std::memory_order_release);
}

void CCommonLog::OpenDay(int64_t day) {
    m_openDay = day;
    const int before = m_file.load(std::memory_order_relaxed);
    const int opened = m_path[0] == '\0' ? STANDARD_ERROR : OpenFileOf(day);
    if (before > STANDARD_ERROR && opened > STANDARD_ERROR && dup3(opened, before, O_CLOEXEC) >= 0) {
        close(opened);
        return;
    }
    m_file.store(opened, std::memory_order_release);
    if (before > STANDARD_ERROR) close(before);
}

int CCommonLog::OpenFileOf(int64_t day) {
    const Date date = DateOf(day);
    char name[sizeof "vexa_shfe_md_yyyymmdd.log"];
    char* end = PutText(name, "vexa_shfe_md_");
    end = PutDigits(PutDigits(PutDigits(end, date.year, 4), date.month, 2), date.day, 2);
    std::memcpy(end, ".log", sizeof ".log");
    try {
        const std::string file = log_file::Place(m_path, name);
        const int opened = log_file::OpenAppend(file, false);
        if (opened >= 0) return opened;
        TellOnce("cannot be opened", file.c_str(), errno);
    } catch (const std::bad_alloc&) {
        TellOnce("cannot be opened", m_path, ENOMEM);
    }
    return NO_FILE;
}

void CCommonLog::TellOnce(const char* what, const char* file, int reason) {
    if (m_hasTold.exchange(true, std::memory_order_relaxed)) return;
    char line[1024];
    const int length =
        std::snprintf(line, sizeof line, "vexa_shfe_md: the log file %.512s %s (%s); the session goes on without it\n",
                      file, what, std::strerror(reason));
    if (length > 0) WriteWhole(STANDARD_ERROR, line, std::min(static_cast<std::size_t>(length), sizeof line - 1));
}

void CCommonLog::Drop() { m_dropped.fetch_add(1, std::memory_order_relaxed); }
