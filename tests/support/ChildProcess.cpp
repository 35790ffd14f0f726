#include "support/ChildProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <stdexcept>
#include <utility>

extern char** environ;

namespace vexim::testing {

namespace {
constexpr int kPatienceMillis = 60'000;
}

ChildProcess::ChildProcess(std::vector<std::string> words) {
    std::array<int, 2> in{}, out{};
    if (::pipe2(in.data(), O_CLOEXEC) != 0 || ::pipe2(out.data(), O_CLOEXEC) != 0)
        throw std::runtime_error("no pipe");
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, in[0], STDIN_FILENO);
    ::posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
    // or it would keep connections open that this process closes
    ::posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);
    std::vector<char*> arguments;
    for (auto& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    const int failure =
        ::posix_spawnp(&process_, arguments[0], &actions, nullptr, arguments.data(), environ);
    ::posix_spawn_file_actions_destroy(&actions);
    ::close(in[0]);
    ::close(out[1]);
    input_ = in[1];
    output_ = out[0];
    if (failure == 0) return;
    ::close(input_);
    ::close(output_);
    throw std::runtime_error(words[0] + " cannot be started");
}

ChildProcess::~ChildProcess() {
    closeInput();
    ::close(output_);
    if (process_ < 0) return;
    signal(SIGKILL);
    wait();
}

std::optional<std::string> ChildProcess::readLine() {
    for (;;) {
        if (const auto end = read_.find('\n'); end != std::string::npos) {
            std::string line = read_.substr(0, end);
            read_.erase(0, end + 1);
            return line;
        }
        pollfd waiting{output_, POLLIN, 0};
        if (::poll(&waiting, 1, kPatienceMillis) <= 0) return std::nullopt;
        std::array<char, 4096> bytes{};
        const auto count = ::read(output_, bytes.data(), bytes.size());
        if (count <= 0) return std::nullopt;
        read_.append(bytes.data(), static_cast<std::size_t>(count));
    }
}

void ChildProcess::writeLine(std::string line) {
    line += '\n';
    if (::write(input_, line.data(), line.size()) < 0)
        throw std::runtime_error("the child is gone");
}

void ChildProcess::closeInput() {
    if (input_ >= 0) ::close(std::exchange(input_, -1));
}

void ChildProcess::signal(int number) { ::kill(process_, number); }

int ChildProcess::wait() {
    if (process_ < 0) return -1;
    pollfd end{static_cast<int>(::syscall(SYS_pidfd_open, process_, 0)), POLLIN, 0};
    if (end.fd >= 0) {
        if (::poll(&end, 1, kPatienceMillis) == 0) signal(SIGKILL);
        ::close(end.fd);
    }
    int status = -1;
    ::waitpid(std::exchange(process_, -1), &status, 0);
    return status;
}

}  // namespace vexim::testing
