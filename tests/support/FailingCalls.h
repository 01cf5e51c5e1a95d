/// System calls of the library that fail on demand: the k-th of its kind with a given error, or with a part of what was
/// asked. A program that uses them is linked with `--wrap` for each kind, under the names that NAMES_OF_CALLS has.
/// Calls outside a Watch (of the test, of the test framework) are left alone.
#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <map>
#include <string>
#include <utility>
#include <vector>

enum class ECall {
    Open,
    Fdopen,
    Read,
    Pread,
    Write,
    Close,
    Fstat,
    Stat,
    Lstat,
    Lseek,
    Ftruncate,
    Rename,
    Unlink,
    Fchmod,
    Fcntl,
    Dup3,
    Sigaction,
    SetAffinity,
    Getrandom,
    Realpath,
    Dlopen,
    Dladdr,
    Dlinfo,
};

constexpr const char* NAMES_OF_CALLS[] = {"open",      "fdopen",   "read",   "pread",  "write",     "close",
                                          "fstat",     "stat",     "lstat",  "lseek",  "ftruncate", "rename",
                                          "unlink",    "fchmod",   "fcntl",  "dup3",   "sigaction", "sched_setaffinity",
                                          "getrandom", "realpath", "dlopen", "dladdr", "dlinfo"};
constexpr std::size_t CALL_COUNT = std::size(NAMES_OF_CALLS);

struct MadeCall {
    ECall call;
    std::string path;  ///< of the file or library; empty where there is none
};

class FailingCalls {
public:
    /// No error at all: a part of what was asked is done.
    static constexpr int PART = -1;
    /// No error either: a write that takes nothing.
    static constexpr int NOTHING = -2;

    /// The calls of a kind are counted from 1.
    static void FailAt(ECall call, uint64_t number, int error) { s_failures[{call, number}] = error; }
    static void FailFrom(ECall call, uint64_t number, int error) { s_from[call] = {number, error}; }

    /// No failure any more; counting begins anew.
    static void Forget();

    /// All calls since the counting began, in order.
    static const std::vector<MadeCall>& Made() { return s_made; }

    /// How many failures have happened.
    static uint64_t Happened() { return s_happened; }

    /// Calls made in its lifetime are counted, and fail.
    class Watch {
    public:
        Watch() { s_isWatching = true; }
        ~Watch() { s_isWatching = false; }
        Watch(const Watch&) = delete;
        Watch& operator=(const Watch&) = delete;
    };

    static bool IsWatching() { return s_isWatching; }

    /// For the wrappers: notes a call. 0, the error it has to fail with, PART or NOTHING.
    static int Note(ECall call, const char* path);
    static int Note(ECall call, int file);

private:
    struct From {
        uint64_t number;
        int error;
    };
    static inline bool s_isWatching = false;
    static inline std::map<std::pair<ECall, uint64_t>, int> s_failures;
    static inline std::map<ECall, From> s_from;
    static inline std::map<ECall, uint64_t> s_counts;
    static inline std::vector<MadeCall> s_made;
    static inline uint64_t s_happened = 0;
};
