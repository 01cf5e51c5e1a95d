/// A session under system calls that fail, and all that can be seen of it from outside.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tests/session/FailingRules.h"
#include "tests/support/SessionWorld.h"

namespace failing {

using Lines = std::vector<std::string>;

struct Sight {
    int32_t start = 99;
    bool isWhole = false;  ///< received, rebuilt after a loss, received again, and ended on the stop
    std::string told;      ///< on standard output
    std::string error;     ///< on standard error
    Lines log;
    Lines captures;  ///< the bodies of all records, file by file
    std::size_t captureFiles = 0;
    bool hasIndex = false;
    Lines others;  ///< files that nobody should find
    uint64_t linesDropped = 0;
    uint64_t recordsDropped = 0;
};

class FailingSession {
public:
    FailingSession();
    ~FailingSession() { LogTo(""); }
    FailingSession(const FailingSession&) = delete;
    FailingSession& operator=(const FailingSession&) = delete;

    /// Start, loss, rebuild and stop under the failures that were asked for.
    Sight Run();

    /// A start on the same object after all that; all files of the first one are gone.
    bool StartsAgain();

    /// Of the session and its log, with everything closed.
    std::ptrdiff_t FilesLeftOpen();

private:
    bool LiveALossAndStop();

    static void LogTo(const std::string& path);

    std::string Nameless(std::string text) const;

    void LookAtFiles(Sight& sight) const;

    /// Without the times in front; every line is whole.
    void TakeLog(const std::string& content, Lines& lines) const;

    SessionWorld world;
    std::string m_directory;
    std::ptrdiff_t m_openFiles = 0;
};

/// What the calls of a session are for.
std::vector<Call> WithReasons(const std::vector<MadeCall>& made);

}  // namespace failing
