#include "scale/ScaleServer.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <string>
#include <string_view>
#include <unordered_map>

#include "support/WebSocketFrames.h"

namespace vexim::bench {
namespace {

/// All texts are short, so the socket's buffer takes each at once.
void write(int socket, std::string_view bytes) {
    (void)!::send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
}

class Loop {
public:
    Loop(int listener, int commands, int reports)
        : poll_(::epoll_create1(0)),
          listener_(listener),
          commands_(commands),
          reports_(reports) {
        watch(listener_);
        watch(commands_);
    }

    [[noreturn]] void run() {
        for (;;) {
            std::array<epoll_event, 256> events{};
            const int count =
                ::epoll_wait(poll_, events.data(), static_cast<int>(events.size()), -1);
            for (int i = 0; i < count; ++i) {
                const int ready = events[static_cast<std::size_t>(i)].data.fd;
                if (ready == listener_) {
                    accept();
                } else if (ready == commands_) {
                    obey();
                } else {
                    hear(ready);
                }
            }
        }
    }

private:
    struct Connection {
        std::string head;
        enum class State { Opening, Joining, In } state = State::Opening;
    };

    void watch(int descriptor) const {
        epoll_event event{};
        event.events = EPOLLIN;
        event.data.fd = descriptor;
        ::epoll_ctl(poll_, EPOLL_CTL_ADD, descriptor, &event);
    }

    void accept() {
        const int socket = ::accept(listener_, nullptr, nullptr);
        if (socket < 0) return;
        const int yes = 1;
        ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
        connections_[socket];
        watch(socket);
    }

    void obey() {
        char command = 0;
        if (::read(commands_, &command, 1) != 1) std::_Exit(0);
        if (command == 'c') {
            wanted_ = in_;
            in_ = 0;
            for (const auto& [socket, connection] : connections_) ::close(socket);
            connections_.clear();
            return;
        }
        if (command == 'p') wanted_ = in_;
        const std::string bytes = frame(command == 'p' ? "2" : kMessage);
        for (const auto& [socket, connection] : connections_) {
            if (connection.state == Connection::State::In) write(socket, bytes);
        }
        pongs_ = 0;
    }

    void hear(int socket) {
        const auto found = connections_.find(socket);
        if (found == connections_.end()) return;  // disconnected in this round
        Connection& connection = found->second;
        std::array<char, 4096> buffer{};
        const auto got = ::recv(socket, buffer.data(), buffer.size(), 0);
        if (got <= 0) {
            if (connection.state == Connection::State::In) --in_;
            ::close(socket);
            connections_.erase(found);
            return;
        }
        switch (connection.state) {
            case Connection::State::Opening:
                connection.head.append(buffer.data(), static_cast<std::size_t>(got));
                if (connection.head.find("\r\n\r\n") == std::string::npos) return;
                connection.state = Connection::State::Joining;
                write(
                    socket,
                    "HTTP/1.1 101 Switching Protocols\r\nUpgrade: websocket\r\nConnection: Upgrade\r\nSec-WebSocket-Accept: " +
                        acceptFor(connection.head) + "\r\n\r\n" +
                        frame(
                            R"(0{"sid":"s","upgrades":[],"pingInterval":600000,"pingTimeout":600000,"maxPayload":1000000})"));
                std::string().swap(connection.head);
                return;
            case Connection::State::Joining:
                connection.state = Connection::State::In;
                write(
                    socket,
                    frame(R"(40/chat,{"sid":"t"})") +
                        frame(
                            R"(42/chat,["login",{"success":true,"id":"5f2b7c9e8a1d4e00deadbeef"}])"));
                if (++in_ == wanted_) report();
                return;
            case Connection::State::In:
                if (++pongs_ == wanted_) report();
                return;
        }
    }

    void report() {
        wanted_ = 0;
        (void)!::write(reports_, "", 1);
    }

    static constexpr std::string_view kMessage =
        R"(42/chat,["message",{"content":{"media":0,"body":"Shall we meet at the station at seven? I will bring tickets."},)"
        R"("ts":1700000000123,"from":{"id":"5f2b7c9e8a1d4e0012345678","type":0},"to":{"id":"5f2b7c9e8a1d4e00deadbeef","type":0}}])";

    const int poll_;
    const int listener_;
    const int commands_;
    const int reports_;
    std::unordered_map<int, Connection> connections_;
    std::size_t in_ = 0;
    std::size_t pongs_ = 0;
    std::size_t wanted_ = 0;
};

}  // namespace

ScaleServer::ScaleServer() {
    const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (::bind(listener, reinterpret_cast<sockaddr*>(&address), length) != 0 ||
        ::listen(listener, 4096) != 0)
        std::abort();
    ::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length);
    port_ = ntohs(address.sin_port);
    int commands[2];
    int reports[2];
    if (::pipe(commands) != 0 || ::pipe(reports) != 0) std::abort();
    process_ = ::fork();
    if (process_ == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        Loop(listener, commands[0], reports[1]).run();
    }
    ::close(listener);
    ::close(commands[0]);
    ::close(reports[1]);
    commands_ = commands[1];
    reports_ = reports[0];
}

ScaleServer::~ScaleServer() {
    ::kill(process_, SIGKILL);
    ::waitpid(process_, nullptr, 0);
    ::close(commands_);
    ::close(reports_);
}

void ScaleServer::tell(char command) const {
    if (::write(commands_, &command, 1) != 1) std::abort();
}

void ScaleServer::beat() const {
    tell('p');
    char report = 0;
    if (::read(reports_, &report, 1) != 1) std::abort();
}

bool ScaleServer::isEverybodyBack() const {
    pollfd waiting{reports_, POLLIN, 0};
    if (::poll(&waiting, 1, 0) != 1) return false;
    char report = 0;
    return ::read(reports_, &report, 1) == 1;
}

}  // namespace vexim::bench
