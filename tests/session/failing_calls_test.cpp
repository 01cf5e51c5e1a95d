// Every system call of a start, a loss, a rebuild and a stop fails in each way it can. A table says what comes of it,
// by call and by what the call is for; a session without failures is the measure of everything else that is seen.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>

#include <algorithm>
#include <cstring>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "tests/session/FailingRules.h"
#include "tests/session/FailingSession.h"

using testing::IsEmpty;

namespace failing {
namespace {

// A session makes hundreds of writes: of so many calls for one thing some are taken, always the same.
constexpr std::size_t CALLS_MAX = 6;
constexpr uint64_t SEED = 20260430;

/// `seen` is `whole` without `lost` of its elements, and with `added` among them, in this order.
void ExpectChanged(const Lines& whole, const Lines& seen, std::size_t lost, const Lines& added) {
    Lines extra;
    std::size_t at = 0;
    std::size_t missing = 0;
    for (const std::string& one : seen) {
        const std::size_t reach = std::min(whole.size(), at + lost - std::min(lost, missing) + 1);
        std::size_t match = at;
        while (match < reach && whole[match] != one) ++match;
        if (match == reach) {
            extra.push_back(one);
        } else {
            missing += match - at;
            at = match + 1;
        }
    }
    missing += whole.size() - at;
    EXPECT_EQ(extra, added);
    EXPECT_EQ(missing, lost);
}

bool IsRefusal(ESeen seen) {
    return seen == ESeen::NoConfiguration || seen == ESeen::NoChecksum || seen == ESeen::EmptyChecksum ||
           seen == ESeen::ShortChecksum;
}

void ExpectRefused(const Sight& sight, ESeen seen) {
    EXPECT_EQ(sight.start, -2);
    EXPECT_EQ(sight.error, "");
    EXPECT_EQ(sight.captureFiles, 0U);
    EXPECT_FALSE(sight.hasIndex);
    const auto isTrouble = [](const std::string& line) {
        return line.starts_with("[ERROR]") || line.starts_with("[WARNING]");
    };
    Lines troubles;
    std::copy_if(sight.log.begin(), sight.log.end(), std::back_inserter(troubles), isTrouble);
    const std::string init = "[ERROR] [VexaStart]_Init error";
    if (seen == ESeen::NoConfiguration) {
        EXPECT_EQ(sight.told, "ReadConfig is <dir>/session.ini failed \nInit, _ReadConfig failed \n");
        EXPECT_THAT(sight.log, IsEmpty());  // it goes where the log went before
        return;
    }
    EXPECT_EQ(sight.told, "");
    const std::string why = seen == ESeen::NoChecksum      ? "Error opening file [<dir>/session.ini] [4294967295]."
                            : seen == ESeen::EmptyChecksum ? "file is empty [<dir>/session.ini] [4294967294]."
                                                           : "error reading certificate file[<dir>/session.ini] "
                                                             "[4294967292].";
    EXPECT_THAT(troubles,
                testing::ElementsAre("[ERROR] [_GetConfigCrc]" + why,
                                     "[ERROR] [_ChechAndVexaSubDmaUp]Error opening file [<dir>/session.ini].", init));
}

struct Filter {
    ECall call;
    std::optional<EFor> reason;
};

class FailingCallsTable : public testing::Test {
protected:
    ~FailingCallsTable() override { FailingCalls::Forget(); }

    static Sight Undisturbed() {
        FailingCalls::Forget();
        FailingSession session;
        return session.Run();
    }

    void ExpectSeen(const Sight& sight, ESeen seen, const Call& call, const std::string& reason) const {
        if (IsRefusal(seen)) return ExpectRefused(sight, seen);
        EXPECT_EQ(sight.start, 0);
        EXPECT_TRUE(sight.isWhole);
        EXPECT_EQ(sight.told, "");
        EXPECT_EQ(sight.hasIndex, true);  // the start's or the rebuild's
        const bool isOfLog = seen == ESeen::NoLog || seen == ESeen::LineLost;
        const std::string what =
            seen == ESeen::NoLog ? "vexa_shfe_md_20260429.log cannot be opened (" : " cannot be written (";
        EXPECT_EQ(
            sight.error,
            isOfLog ? "vexa_shfe_md: the log file <dir>/" + what + reason + "); the session goes on without it\n" : "");
        if (seen == ESeen::NoLog) {
            EXPECT_THAT(sight.log, IsEmpty());
            EXPECT_EQ(sight.linesDropped, whole.log.size());
        } else {
            ExpectChanged(whole.log, sight.log, LinesLost(seen), Told(seen, call, reason));
            EXPECT_EQ(sight.linesDropped, seen == ESeen::LineLost ? 1U : 0U);
        }
        ExpectCaptures(sight, seen);
    }

    void ExpectCaptures(const Sight& sight, ESeen seen) const {
        const bool isFileLost = seen == ESeen::NoCapture || seen == ESeen::HeadLost;
        EXPECT_EQ(sight.captureFiles, isFileLost ? 3U : 4U);
        EXPECT_EQ(sight.recordsDropped, seen == ESeen::HeadLost || seen == ESeen::RecordLost ? 1U : 0U);
        if (isFileLost) {
            EXPECT_LT(sight.captures.size(), whole.captures.size());
        } else {
            ExpectChanged(whole.captures, sight.captures, seen == ESeen::RecordLost ? 1 : 0, {});
        }
    }

    static std::size_t LinesLost(ESeen seen) { return seen == ESeen::LineLost || seen == ESeen::NotPinned ? 1 : 0; }

    /// The lines that the failure adds to the log.
    static Lines Told(ESeen seen, const Call& call, const std::string& reason) {
        const std::string capture = call.reason == EFor::Bin || call.reason == EFor::BinHead ? "bin" : "pcap";
        switch (seen) {
            case ESeen::NoCapture:
                return {"[ERROR] [Create]the capture file <dir>/vexa_shfe_md_chan0_<time>." + capture +
                        " cannot be created (" + reason + "); check log_path"};
            case ESeen::HeadLost:
            case ESeen::RecordLost:
                return {"[ERROR] [Append]a capture record cannot be written (" + reason +
                        "); records are counted as dropped"};
            case ESeen::NoIndex:
                return {"[WARNING] [_InstStaticInfoWriteFile]open contract index file failed <dir>/.shfe_20260429_pm"};
            case ESeen::NoSignal: {
                const char* const names[] = {"SIGINT", "SIGTERM", "SIGPIPE"};
                return {std::string("[ERROR] [InitSignal]Failed to install ") + names[call.number - 1] + " handle!"};
            }
            case ESeen::NotPinned:
                return {"[WARNING] [_BindCpu]set CPU[" + std::to_string(sched_getcpu()) + "] affinity failed."};
            default: return {};
        }
    }

    /// The calls that a rule is for; of many the first, the last and some between.
    std::vector<Call> Sample(const Filter& wanted) const {
        std::vector<Call> all;
        std::copy_if(calls.begin(), calls.end(), std::back_inserter(all), [&](const Call& call) {
            return call.call == wanted.call && (!wanted.reason || *wanted.reason == call.reason);
        });
        if (all.size() <= CALLS_MAX) return all;
        std::mt19937_64 random(SEED);
        std::vector<Call> some{all.front()};
        std::sample(all.begin() + 1, all.end() - 1, std::back_inserter(some), CALLS_MAX - 2, random);
        some.push_back(all.back());
        return some;
    }

    void ExpectFailure(const Rule& rule, const Call& call, int error) const {
        SCOPED_TRACE(Title(call, error));
        FailingCalls::Forget();
        FailingCalls::FailAt(call.call, call.number, error == CUT ? PART : error);
        if (error == CUT) FailingCalls::FailAt(call.call, call.number + 1, ENOSPC);
        FailingSession session;
        const Sight sight = session.Run();
        EXPECT_EQ(FailingCalls::Happened(), error == CUT ? 2U : 1U);
        ExpectSeen(sight, rule.seen, call, std::strerror(error == CUT ? ENOSPC : error));
        EXPECT_THAT(sight.others, IsEmpty());
        EXPECT_TRUE(session.StartsAgain());
        EXPECT_EQ(session.FilesLeftOpen(), 0);
    }

    static std::string Title(const Call& call, int error) {
        return std::string(NAMES_OF_CALLS[static_cast<std::size_t>(call.call)]) + " number " +
               std::to_string(call.number) + ": " +
               (error == PART  ? "a part"
                : error == CUT ? "a part, then ENOSPC"
                               : strerrorname_np(error));
    }

    static const Rule& RuleOf(const Call& call) {
        const auto* found = std::find_if(std::begin(RULES), std::end(RULES), [&](const Rule& rule) {
            return rule.call == call.call && rule.reason == call.reason;
        });
        return *found;
    }

    Sight whole = Undisturbed();
    std::vector<Call> calls = WithReasons(FailingCalls::Made());
};

class FailingCallsOf : public FailingCallsTable, public testing::WithParamInterface<ECall> {};

TEST_P(FailingCallsOf, AKindLeaveWhatTheTableSays) {
    ASSERT_EQ(whole.start, 0);
    ASSERT_TRUE(whole.isWhole);
    ASSERT_EQ(whole.captureFiles, 4U);
    ASSERT_THAT(whole.others, IsEmpty());
    for (const Rule& rule : RULES) {
        if (rule.call != GetParam()) continue;
        for (const int error : rule.errors) {
            for (const Call& call : Sample({rule.call, rule.reason})) ExpectFailure(rule, call, error);
        }
    }
}

TEST_P(FailingCallsOf, AKindForEverRefuseTheStartWhereOneOfThemWould) {
    for (const Call& call : Sample({GetParam(), {}})) {
        SCOPED_TRACE(Title(call, EIO) + " and all later ones");
        const auto refuses = [&](const Call& later) {
            return later.call == call.call && later.number >= call.number && IsRefusal(RuleOf(later).seen);
        };
        const bool isRefused = std::any_of(calls.begin(), calls.end(), refuses);
        FailingCalls::Forget();
        FailingCalls::FailFrom(call.call, call.number, EIO);
        FailingSession session;
        const Sight sight = session.Run();
        EXPECT_EQ(sight.start, isRefused ? -2 : 0);
        EXPECT_EQ(sight.isWhole, !isRefused);
        EXPECT_TRUE(session.StartsAgain());
        EXPECT_EQ(session.FilesLeftOpen(), 0);
        if (HasFailure()) return;
    }
}

INSTANTIATE_TEST_SUITE_P(Each, FailingCallsOf,
                         testing::Values(ECall::Open, ECall::Fdopen, ECall::Read, ECall::Write, ECall::Close,
                                         ECall::Fstat, ECall::Lstat, ECall::Lseek, ECall::Rename, ECall::Dup3,
                                         ECall::Sigaction, ECall::SetAffinity, ECall::Getrandom),
                         [](const auto& call) { return NAMES_OF_CALLS[static_cast<std::size_t>(call.param)]; });

TEST_F(FailingCallsTable, HasARuleForEveryCallOfASessionAndNoOther) {
    std::set<const Rule*> used;
    for (const Call& call : calls) {
        bool hasRule = false;
        for (const Rule& rule : RULES) {
            if (rule.call != call.call || rule.reason != call.reason) continue;
            hasRule = true;
            used.insert(&rule);
        }
        EXPECT_TRUE(hasRule) << Title(call, 0) << ", reason " << static_cast<int>(call.reason);
    }
    for (const Rule& rule : RULES) {
        EXPECT_TRUE(used.contains(&rule))
            << NAMES_OF_CALLS[static_cast<std::size_t>(rule.call)] << ", reason " << static_cast<int>(rule.reason);
    }
}

}  // namespace
}  // namespace failing
