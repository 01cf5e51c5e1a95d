/// What comes of each system call of a session that fails, by call and by what the call is for.
#pragma once

#include <cerrno>
#include <cstdint>
#include <vector>

#include "tests/support/FailingCalls.h"

namespace failing {

constexpr int PART = FailingCalls::PART;
constexpr int CUT = -2;  // a part, and no room for the rest

/// What a call is for.
enum class EFor { Ini, Checksum, Rewind, Log, BinHead, Bin, PcapHead, Pcap, IndexBeside, Index, Signal, Cpu, Name };

enum class ESeen {
    Nothing,          ///< neither in what is told nor in what is there
    NoConfiguration,  ///< the start is refused: the file cannot be read
    NoChecksum,       ///< the start is refused: -1 of the checksum
    EmptyChecksum,    ///< -2
    ShortChecksum,    ///< -4
    NoLog,            ///< told once on standard error
    LineLost,         ///< the same, and of the log one line
    NoCapture,        ///< one error line, and of the captures one file
    HeadLost,         ///< the same
    RecordLost,       ///< one error line, and of the captures one record
    NoIndex,          ///< one warning
    NoSignal,         ///< one error line
    NotPinned,        ///< one warning
};

struct Rule {
    ECall call;
    EFor reason;
    std::vector<int> errors;
    ESeen seen;
};

inline const std::vector<int> OPENING{EACCES, ENOENT, EMFILE, ENFILE, ENOMEM, EINTR, EIO, ENOSPC, EROFS, EDQUOT};
inline const std::vector<int> READING{EACCES, ENOENT, EMFILE, ENFILE, ENOMEM, EINTR, EIO};
inline const std::vector<int> LOOKING{EIO, ENOMEM, EOVERFLOW};
inline const std::vector<int> WRITING{ENOSPC, EDQUOT, EIO, EFBIG, EAGAIN, CUT};
inline const std::vector<int> SOME{EINTR, PART};
inline const std::vector<int> CLOSING{EIO, EINTR, ENOSPC, EDQUOT};
inline const std::vector<int> REPLACING{EACCES, EPERM, EIO, ENOSPC, EBUSY, EXDEV};

inline const Rule RULES[] = {
    {ECall::Open, EFor::Ini, READING, ESeen::NoConfiguration},
    {ECall::Fstat, EFor::Ini, LOOKING, ESeen::NoConfiguration},
    {ECall::Read, EFor::Ini, {EIO, EISDIR, EAGAIN}, ESeen::NoConfiguration},
    {ECall::Read, EFor::Ini, SOME, ESeen::Nothing},
    {ECall::Close, EFor::Ini, CLOSING, ESeen::Nothing},

    {ECall::Open, EFor::Checksum, READING, ESeen::NoChecksum},
    {ECall::Fstat, EFor::Checksum, LOOKING, ESeen::NoChecksum},
    {ECall::Fdopen, EFor::Checksum, {ENOMEM, EINVAL}, ESeen::NoChecksum},
    {ECall::Lseek, EFor::Checksum, {EIO, ESPIPE, EOVERFLOW}, ESeen::EmptyChecksum},
    {ECall::Lseek, EFor::Rewind, {EIO, ESPIPE, EOVERFLOW}, ESeen::ShortChecksum},
    {ECall::Read, EFor::Checksum, {EIO, EINTR, EAGAIN}, ESeen::ShortChecksum},
    {ECall::Read, EFor::Checksum, {PART}, ESeen::Nothing},
    {ECall::Close, EFor::Checksum, CLOSING, ESeen::Nothing},

    {ECall::Open, EFor::Log, OPENING, ESeen::NoLog},
    {ECall::Fstat, EFor::Log, LOOKING, ESeen::NoLog},
    {ECall::Dup3, EFor::Log, {EBUSY, EINTR, EMFILE}, ESeen::Nothing},
    {ECall::Close, EFor::Log, CLOSING, ESeen::Nothing},
    {ECall::Write, EFor::Log, WRITING, ESeen::LineLost},
    {ECall::Write, EFor::Log, SOME, ESeen::Nothing},

    {ECall::Open, EFor::Bin, OPENING, ESeen::NoCapture},
    {ECall::Open, EFor::Bin, {EEXIST}, ESeen::Nothing},
    {ECall::Fstat, EFor::Bin, LOOKING, ESeen::NoCapture},
    {ECall::Write, EFor::BinHead, WRITING, ESeen::HeadLost},
    {ECall::Write, EFor::BinHead, SOME, ESeen::Nothing},
    {ECall::Write, EFor::Bin, WRITING, ESeen::RecordLost},
    {ECall::Write, EFor::Bin, SOME, ESeen::Nothing},
    {ECall::Close, EFor::Bin, CLOSING, ESeen::Nothing},

    {ECall::Open, EFor::Pcap, OPENING, ESeen::NoCapture},
    {ECall::Open, EFor::Pcap, {EEXIST}, ESeen::Nothing},
    {ECall::Fstat, EFor::Pcap, LOOKING, ESeen::NoCapture},
    {ECall::Write, EFor::PcapHead, WRITING, ESeen::HeadLost},
    {ECall::Write, EFor::PcapHead, SOME, ESeen::Nothing},
    {ECall::Write, EFor::Pcap, WRITING, ESeen::RecordLost},
    {ECall::Write, EFor::Pcap, SOME, ESeen::Nothing},
    {ECall::Close, EFor::Pcap, CLOSING, ESeen::Nothing},

    {ECall::Lstat, EFor::Index, {EACCES, EIO, ENOMEM, EOVERFLOW}, ESeen::NoIndex},
    {ECall::Getrandom, EFor::Name, {EAGAIN, ENOSYS, PART}, ESeen::Nothing},
    {ECall::Open, EFor::IndexBeside, OPENING, ESeen::NoIndex},
    {ECall::Open, EFor::IndexBeside, {EEXIST}, ESeen::Nothing},
    {ECall::Write, EFor::IndexBeside, WRITING, ESeen::NoIndex},
    {ECall::Write, EFor::IndexBeside, SOME, ESeen::Nothing},
    {ECall::Close, EFor::IndexBeside, CLOSING, ESeen::NoIndex},
    {ECall::Rename, EFor::IndexBeside, REPLACING, ESeen::NoIndex},

    {ECall::Sigaction, EFor::Signal, {EINVAL}, ESeen::NoSignal},
    {ECall::SetAffinity, EFor::Cpu, {EINVAL, EPERM}, ESeen::NotPinned},
};

struct Call {
    ECall call;
    uint64_t number;  ///< of its kind, from 1
    EFor reason;
};

}  // namespace failing
