/// Where log lines go instead of the file: into a list, or nowhere.
#pragma once

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "public/log/CommonLog.h"

/// Takes every line for its lifetime, so that lines are formatted and none is kept.
class SilentLog : public ILogSink {
public:
    SilentLog() { CCommonLog::GetInstance().SetSink(this); }
    ~SilentLog() override { CCommonLog::GetInstance().SetSink(nullptr); }
    SilentLog(const SilentLog&) = delete;
    SilentLog& operator=(const SilentLog&) = delete;

    void OnLine(ELOGLEVEL, const char*, std::size_t) override {}
};

/// Keeps the lines; the log mask is LOG_ALL for its lifetime unless the code under test sets it.
class LogCapture : public ILogSink {
public:
    struct Line {
        ELOGLEVEL level;
        std::string whole;                ///< "[file:line][function]text"
        mutable bool isAskedFor = false;  ///< has been among those that Texts, Has or Count were asked for
        /// What follows "[file:line][function]".
        std::string Text() const {
            const std::size_t first = whole.find("][");
            const std::size_t end = first == std::string::npos ? first : whole.find(']', first + 2);
            return end == std::string::npos ? whole : whole.substr(end + 1);
        }
        std::string Function() const {
            const std::size_t first = whole.find("][");
            return first == std::string::npos ? "" : whole.substr(first + 2, whole.find(']', first + 2) - first - 2);
        }
    };

    LogCapture() {
        CCommonLog::GetInstance().SetLogLevel(LOG_ALL);
        CCommonLog::GetInstance().SetSink(this);
    }
    ~LogCapture() override {
        CCommonLog::GetInstance().SetSink(nullptr);
        CCommonLog::GetInstance().SetLogLevel(LOG_ERROR | LOG_WARNING | LOG_INFO | LOG_DEBUG);
    }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    void OnLine(ELOGLEVEL level, const char* line, std::size_t length) override {
        lines.push_back({level, std::string(line, length), false});
    }

    /// Texts of the lines of these levels, in order.
    std::vector<std::string> Texts(int32_t mask = LOG_ERROR | LOG_WARNING | LOG_INFO | LOG_DEBUG) const {
        std::vector<std::string> texts;
        for (const Line& line : lines) {
            if ((line.level & mask) == 0) continue;
            line.isAskedFor = true;
            texts.push_back(line.Text());
        }
        return texts;
    }

    bool Has(ELOGLEVEL level, const std::string& text) const { return Count(level, text) > 0; }

    std::size_t Count(ELOGLEVEL level, const std::string& text) const {
        return static_cast<std::size_t>(std::count_if(lines.begin(), lines.end(), [&](const Line& line) {
            const bool isMeant = line.level == level && line.Text() == text;
            line.isAskedFor |= isMeant;
            return isMeant;
        }));
    }

    std::vector<Line> lines;
};
