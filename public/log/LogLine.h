/// The common shape of a log line: "[file:line][function]text".
#pragma once

#include <cstdarg>
#include <cstdio>
#include <string_view>

#include "public/log/CommonLog.h"

constexpr std::size_t LOG_TEXT_CAPACITY = 4096;

/// What stands behind the last "/"; valid as long as `path`.
constexpr const char* LogBaseName(std::string_view path) {
    const std::size_t slash = path.rfind('/');
    return path.data() + (slash == std::string_view::npos ? 0 : slash + 1);
}

/// Formats nothing that is not kept. For VEXA_LOG and VEXA_LOG_AS, which name the place; a text is cut at the capacity.
__attribute__((format(printf, 5, 6))) inline void WriteLogLine(ELOGLEVEL level, const char* file, int line,
                                                               const char* function, const char* format, ...) {
    CCommonLog& log = CCommonLog::GetInstance();
    if (!log.IsEnabled(level) || log.IsHeldBack(level, file, line)) return;
    char text[LOG_TEXT_CAPACITY];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    log.WriteLog(level, "[%s:%d][%s]%s", file, line, function, text);
}

#define VEXA_LOG(level, ...) VEXA_LOG_AS(__func__, level, __VA_ARGS__)

/// For the parts of an operation: their lines name the operation, whichever function they stand in.
#define VEXA_LOG_AS(operation, level, ...) \
    WriteLogLine((level), LogBaseName(__FILE__), __LINE__, (operation), __VA_ARGS__)
