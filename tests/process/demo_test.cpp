// The demo as people and pipes meet it: on terminals of several sizes, interrupted, and with readers that go away.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "testing/TemporaryDirectory.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Screen.h"

using testing::ContainsRegex;
using testing::HasSubstr;

namespace {

namespace fs = std::filesystem;

/// The demo on a terminal of its own.
class TerminalProcess {
public:
    TerminalProcess(std::vector<std::string> words, const std::vector<std::string>& environment, unsigned short columns,
                    unsigned short rows) {
        winsize size{rows, columns, 0, 0};
        m_pid = forkpty(&m_terminal, nullptr, nullptr, &size);
        if (m_pid != 0) return;
        for (const std::string& entry : environment) putenv(strdup(entry.c_str()));
        std::vector<char*> pointers;
        for (std::string& word : words) pointers.push_back(word.data());
        pointers.push_back(nullptr);
        execv(pointers[0], pointers.data());
        _exit(127);
    }
    ~TerminalProcess() {
        close(m_terminal);
        if (m_isEnded) return;
        kill(m_pid, SIGKILL);
        waitpid(m_pid, nullptr, 0);
    }
    TerminalProcess(const TerminalProcess&) = delete;
    TerminalProcess& operator=(const TerminalProcess&) = delete;

    void Resize(unsigned short columns, unsigned short rows) const {
        const winsize size{rows, columns, 0, 0};
        ioctl(m_terminal, TIOCSWINSZ, &size);
    }
    void PressControlC() const { ASSERT_EQ(write(m_terminal, "\x03", 1), 1); }

    /// Lets `screen` show what comes until `isEnough`; false when nothing more comes.
    template <typename Question>
    bool ShowUntil(Screen& screen, Question isEnough) {
        char bytes[4096];
        while (!isEnough()) {
            pollfd readable{m_terminal, POLLIN, 0};
            if (poll(&readable, 1, 20'000) != 1) return false;
            const ssize_t count = read(m_terminal, bytes, sizeof bytes);
            if (count <= 0) return false;
            output.append(bytes, static_cast<std::size_t>(count));
            screen.Write({bytes, static_cast<std::size_t>(count)});
        }
        return true;
    }

    int End(Screen& screen) {
        ShowUntil(screen, [] { return false; });
        int status = 0;
        waitpid(m_pid, &status, 0);
        m_isEnded = true;
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }

    std::size_t CountOf(const std::string& text) const {
        std::size_t count = 0;
        for (std::size_t at = output.find(text); at != std::string::npos; at = output.find(text, at + 1)) ++count;
        return count;
    }

    std::string output;

private:
    int m_terminal = -1;
    pid_t m_pid = -1;
    bool m_isEnded = false;
};

class Demo : public testing::Test {
protected:
    Demo() { fs::create_directory(m_directory.File("made")); }

    /// Clocks run twenty times as fast, and what a run makes beside its output lies in one place.
    std::vector<std::string> Environment() const {
        return {"LD_PRELOAD=" SCALED_CLOCK, "TMPDIR=" + m_directory.File("made"), "DEMO=" VEXA_DEMO,
                "OUT=" + m_directory.Path().string()};
    }
    std::unique_ptr<TerminalProcess> OnTerminal(std::vector<std::string> words, unsigned short columns,
                                                unsigned short rows) const {
        words.insert(words.begin(), VEXA_DEMO);
        return std::make_unique<TerminalProcess>(words, Environment(), columns, rows);
    }
    /// Runs a line of the shell to its end; its own status.
    int Shell(const std::string& line) const {
        ChildProcess shell({"/bin/bash", "-c", line}, Environment(), m_directory.File("shell"));
        return shell.Wait(60);
    }
    std::string Read(const std::string& name) const {
        std::ifstream file(m_directory.Path() / name);
        return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    }
    void ExpectNothingLeft() const { EXPECT_TRUE(fs::is_empty(m_directory.File("made"))); }

private:
    TemporaryDirectory m_directory{"vexa-demo-test"};
};

struct Size {
    unsigned short columns;
    unsigned short rows;
};

class DemoOnTerminal : public Demo, public testing::WithParamInterface<Size> {};

TEST_P(DemoOnTerminal, TableFitsBothWays) {
    const auto [columns, rows] = GetParam();
    Screen screen(columns, rows);
    const auto demo = OnTerminal({"--fast", "--rate", "100"}, columns, rows);
    ASSERT_TRUE(demo->ShowUntil(screen, [&] { return demo->CountOf(" instruments, ") >= 5; })) << demo->output;
    ASSERT_TRUE(demo->ShowUntil(screen, [&] { return screen.LinesWith(" instruments, ") == 1; }));
    EXPECT_EQ(screen.LinesWith("instrument  "), 1U) << demo->output;
    EXPECT_EQ(screen.Wraps(), 0U);
    EXPECT_EQ(screen.Clears(), 0U);
    EXPECT_EQ(screen.Lines().back(), "");  // the cursor's own
    demo->PressControlC();
    EXPECT_EQ(demo->End(screen), 0);
}

std::string NameOf(const testing::TestParamInfo<Size>& size) {
    return std::to_string(size.param.columns) + "x" + std::to_string(size.param.rows);
}

INSTANTIATE_TEST_SUITE_P(Sizes, DemoOnTerminal, testing::Values(Size{80, 24}, Size{60, 15}, Size{132, 50}, Size{50, 6}),
                         NameOf);

TEST_F(Demo, TableFollowsTheTerminalsSize) {
    Screen wide(80, 24);
    const auto demo = OnTerminal({"--fast", "--rate", "100"}, 80, 24);
    ASSERT_TRUE(demo->ShowUntil(wide, [&] { return wide.LinesWith(" instruments, ") == 1; })) << demo->output;
    EXPECT_EQ(wide.LinesWith("updates"), 2U);  // header and totals

    Screen small(60, 15);
    demo->Resize(60, 15);
    ASSERT_TRUE(demo->ShowUntil(small, [&] { return small.Clears() == 1 && demo->CountOf("\033[2J") == 1; }));
    const std::size_t drawn = demo->CountOf(" instruments, ");
    ASSERT_TRUE(demo->ShowUntil(small, [&] { return demo->CountOf(" instruments, ") >= drawn + 3; }));
    ASSERT_TRUE(demo->ShowUntil(small, [&] { return small.LinesWith(" instruments, ") == 1; }));
    EXPECT_EQ(small.LinesWith("instrument  "), 1U);
    EXPECT_EQ(small.LinesWith("updates"), 1U);  // totals alone
    EXPECT_EQ(small.Wraps(), 0U);
    EXPECT_EQ(small.Clears(), 1U);
    demo->PressControlC();
    EXPECT_EQ(demo->End(small), 0);
}

TEST_F(Demo, ControlCInTheLivePhaseEndsWithTheSummary) {
    Screen screen(80, 24);
    const auto demo = OnTerminal({"--fast"}, 80, 24);
    ASSERT_TRUE(demo->ShowUntil(screen, [&] { return screen.LinesWith(" instruments, ") == 1; })) << demo->output;
    demo->PressControlC();
    EXPECT_EQ(demo->End(screen), 0);
    EXPECT_THAT(demo->output, ContainsRegex("updates      [1-9][0-9]* in [0-9]+\\.[0-9] seconds\r\n"));
    ExpectNothingLeft();
}

TEST_F(Demo, ControlCInTheStartUpEndsAtOnce) {
    Screen screen(80, 24);
    const auto demo = OnTerminal({}, 80, 24);
    ASSERT_TRUE(demo->ShowUntil(screen, [&] { return screen.LinesWith("[1/7]") == 1; })) << demo->output;
    demo->PressControlC();
    EXPECT_EQ(demo->End(screen), 130);
    EXPECT_THAT(demo->output, HasSubstr("\nvexa_demo: interrupted during the start-up\r\n"));
    EXPECT_EQ(demo->CountOf("engines started"), 0U);
    ExpectNothingLeft();
}

TEST_F(Demo, EndsByItselfAfterTenSecondsWithoutATerminal) {
    EXPECT_EQ(Shell("$DEMO --fast >$OUT/shown 2>$OUT/told"), 0);
    EXPECT_EQ(Read("told"), "");
    EXPECT_THAT(Read("shown"), ContainsRegex("\nupdates      [1-9][0-9]* in 1[0-9]\\.[0-9] seconds\n"));
    EXPECT_THAT(Read("shown"), HasSubstr("checked      800 of 800 last records equal the exchange's state\n"));
    ExpectNothingLeft();
}

TEST_F(Demo, ReaderThatGoesAwayEndsItQuietly) {
    EXPECT_EQ(Shell("{ $DEMO --fast --seconds 100000; echo $? >$OUT/status; } 2>$OUT/told | head -n 9 >/dev/null"), 0);
    EXPECT_EQ(Read("told"), "");
    EXPECT_EQ(Read("status"), "0\n");
    ExpectNothingLeft();
}

TEST_F(Demo, ReaderThatGoesAwayInTheStartUpEndsItQuietly) {
    EXPECT_EQ(Shell("{ $DEMO --seconds 100000; echo $? >$OUT/status; } 2>$OUT/told | head -n 1 >/dev/null"), 0);
    EXPECT_EQ(Read("told"), "");
    EXPECT_EQ(Read("status"), "0\n");
    ExpectNothingLeft();
}

TEST_F(Demo, FullDiskIsTold) {
    EXPECT_EQ(Shell("$DEMO --fast --seconds 1 >/dev/full 2>$OUT/told"), 1);
    EXPECT_EQ(Read("told"), "vexa_demo: standard output cannot be written\n");
    ExpectNothingLeft();
}

TEST_F(Demo, SessionThatCannotBeRebuiltIsAFailure) {
    EXPECT_EQ(Shell("$DEMO --fast --faults register-all-ones@50,packet-lost@40 >$OUT/shown 2>$OUT/told"), 1);
    EXPECT_THAT(Read("told"), ContainsRegex("^vexa_demo: the session could not be rebuilt after a loss; the log in "
                                            ".*/made/vexa-demo-[A-Za-z0-9]+ says why\n$"));
    EXPECT_THAT(Read("shown"), HasSubstr("\nlosses       1\n"));
}

}  // namespace
