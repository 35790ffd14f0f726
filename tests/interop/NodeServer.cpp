#include "interop/NodeServer.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <stdexcept>

#include "VexIMLib/Foundation/JSON.h"

extern char** environ;

namespace vexim::testing {

NodeServer::NodeServer(const Dictionary& config) : isSecure_(config.contains("tls")) {
    std::array<int, 2> in{};
    std::array<int, 2> out{};
    if (::pipe2(in.data(), O_CLOEXEC) != 0 || ::pipe2(out.data(), O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in[0], 0);
    posix_spawn_file_actions_adddup2(&actions, out[1], 1);
    std::string node = "node";
    std::string script = VEXIM_INTEROP_FOLDER "/server.mjs";
    std::string json = writeJSON(config).text;
    std::array<char*, 4> arguments{node.data(), script.data(), json.data(), nullptr};
    const int failed = ::posix_spawnp(&process_, "node", &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    ::close(in[0]);
    ::close(out[1]);
    input_ = in[1];
    output_ = out[0];
    if (failed != 0) throw std::runtime_error("node cannot be started");
    port_ = static_cast<std::uint16_t>(nextLine().get("port").intValue());
    if (port_ == 0) throw std::runtime_error("the server does not listen");
}

NodeServer::~NodeServer() {
    ::close(input_);  // asks it to end
    ::close(output_);
    ::kill(process_, SIGKILL);
    ::waitpid(process_, nullptr, 0);
}

std::string NodeServer::url() const { return (isSecure_ ? "https://127.0.0.1:" : "http://127.0.0.1:") + std::to_string(port_); }

void NodeServer::command(const Dictionary& what) {
    const std::string line = writeJSON(what).text + "\n";
    if (::write(input_, line.data(), line.size()) < 0) throw std::runtime_error("the server is gone");
}

Value NodeServer::nextLine() {
    constexpr int kPatienceMillis = 20'000;
    for (;;) {
        const auto end = buffer_.find('\n');
        if (end != std::string::npos) {
            const Value line = parseJSON(buffer_.substr(0, end)).value;
            buffer_.erase(0, end + 1);
            return line;
        }
        pollfd waiting{output_, POLLIN, 0};
        if (::poll(&waiting, 1, kPatienceMillis) <= 0) return nullptr;
        std::array<char, 4096> bytes{};
        const auto count = ::read(output_, bytes.data(), bytes.size());
        if (count <= 0) return nullptr;
        buffer_.append(bytes.data(), static_cast<std::size_t>(count));
    }
}

}  // namespace vexim::testing
