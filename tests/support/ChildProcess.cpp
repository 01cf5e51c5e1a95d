#include "tests/support/ChildProcess.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <utility>

namespace {

std::vector<char*> Pointers(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (std::string& text : texts) pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

}  // namespace

ChildProcess::ChildProcess(const std::vector<std::string>& arguments, const std::vector<std::string>& environment,
                           std::string output)
    : m_output(std::move(output)) {
    std::vector<std::string> argv = arguments;
    std::vector<std::string> env = environment;
    for (char** inherited = environ; *inherited != nullptr; ++inherited) env.emplace_back(*inherited);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, m_output.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
    posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
    const int result =
        posix_spawn(&m_pid, argv.front().c_str(), &actions, nullptr, Pointers(argv).data(), Pointers(env).data());
    posix_spawn_file_actions_destroy(&actions);
    if (result != 0) throw std::runtime_error("cannot run " + arguments.front());
}

ChildProcess::~ChildProcess() {
    if (m_status != -1) return;
    Signal(SIGKILL);
    Wait();
}

void ChildProcess::Signal(int number) const { kill(m_pid, number); }

int ChildProcess::Wait(double seconds) {
    int status = 0;
    if (m_status == -1 && WaitUntil([&] { return waitpid(m_pid, &status, WNOHANG) == m_pid; }, seconds)) {
        m_status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }
    return m_status;
}

std::string ChildProcess::Output() const {
    std::ifstream file(m_output);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

void PauseShortly() { CClock::SleepMicroseconds(5000); }
