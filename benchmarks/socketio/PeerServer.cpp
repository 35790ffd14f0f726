#include "socketio/PeerServer.h"

#include <netinet/in.h>
#include <openssl/evp.h>
#include <openssl/sha.h>
#include <poll.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string_view>

namespace vexim::bench {

const char* const kMessage =
    R"({"content":{"media":0,"body":"Shall we meet at the station at seven, or is that too early for you? I can wait."},)"
    R"("ts":1700000000123,"from":{"id":"5f1d7a2b9c3e","type":0},"to":{"id":"60aa11bb22cc","type":1},"id":"m-00017"})";

namespace {

std::string acceptFor(std::string_view request) {
    const std::string_view name = "Sec-WebSocket-Key: ";
    const auto at = request.find(name) + name.size();
    const std::string salted =
        std::string(request.substr(at, request.find('\r', at) - at)) + "258EAFA5-E914-47DA-95CA-C5AB0DC85B11";
    std::array<unsigned char, SHA_DIGEST_LENGTH> digest{};
    SHA1(reinterpret_cast<const unsigned char*>(salted.data()), salted.size(), digest.data());
    std::array<unsigned char, 32> text{};
    EVP_EncodeBlock(text.data(), digest.data(), SHA_DIGEST_LENGTH);
    return reinterpret_cast<const char*>(text.data());
}

std::string frame(std::string_view payload) {
    std::string bytes = "\x81";
    if (payload.size() < 126) {
        bytes += static_cast<char>(payload.size());
    } else {
        bytes += {126, static_cast<char>(payload.size() >> 8), static_cast<char>(payload.size() & 0xFF)};
    }
    return bytes += payload;
}

void writeAll(int socket, std::string_view bytes) {
    while (!bytes.empty()) {
        const auto count = ::send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (count <= 0) return;
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
}

struct Connection {
    std::string head;
    bool accepted = false;
    bool joined = false;
};

void join(int socket, const Connection& connection) {
    writeAll(socket, frame(R"(40/chat,{"sid":"x"})"));
    const auto flood = connection.head.find("flood=");
    if (flood == std::string::npos) return;
    const std::string event = frame(std::string("42/chat,[\"message\",") + kMessage + "]");
    std::string block;
    for (long left = std::atol(connection.head.c_str() + flood + 6); left > 0; --left) {
        block += event;
        if (block.size() < 64 * 1024 && left > 1) continue;
        writeAll(socket, block);
        block.clear();
    }
}

[[noreturn]] void serve(int listener) {
    const int poll = ::epoll_create1(0);
    const auto watch = [poll](int socket) {
        epoll_event event{};
        event.events = EPOLLIN;
        event.data.fd = socket;
        ::epoll_ctl(poll, EPOLL_CTL_ADD, socket, &event);
    };
    watch(listener);
    std::map<int, Connection> connections;
    std::array<char, 65536> buffer{};
    for (;;) {
        std::array<epoll_event, 64> events{};
        const int count = ::epoll_wait(poll, events.data(), static_cast<int>(events.size()), -1);
        for (int i = 0; i < count; ++i) {
            const int socket = events[static_cast<std::size_t>(i)].data.fd;
            if (socket == listener) {
                const int accepted = ::accept(listener, nullptr, nullptr);
                connections[accepted];
                watch(accepted);
                continue;
            }
            const auto got = ::recv(socket, buffer.data(), buffer.size(), 0);
            Connection& connection = connections[socket];
            if (got <= 0) {
                ::close(socket);
                connections.erase(socket);
            } else if (!connection.accepted) {
                connection.head.append(buffer.data(), static_cast<std::size_t>(got));
                if (connection.head.find("\r\n\r\n") == std::string::npos) continue;
                connection.accepted = true;
                writeAll(socket,
                         "HTTP/1.1 101 Switching Protocols\r\nUpgrade: websocket\r\nConnection: Upgrade\r\nSec-WebSocket-Accept: " +
                             acceptFor(connection.head) + "\r\n\r\n" +
                             frame(R"(0{"sid":"s","upgrades":[],"pingInterval":250000,"pingTimeout":20000,"maxPayload":1000000})"));
            } else if (!connection.joined) {
                connection.joined = true;
                join(socket, connection);
                if (connection.head.find("silent") != std::string::npos) ::epoll_ctl(poll, EPOLL_CTL_DEL, socket, nullptr);
                std::string().swap(connection.head);
            }
        }
    }
}

}  // namespace

PeerServer::PeerServer() {
    const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (::bind(listener, reinterpret_cast<sockaddr*>(&address), length) != 0 || ::listen(listener, 4096) != 0) std::abort();
    ::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length);
    port_ = ntohs(address.sin_port);
    process_ = ::fork();
    if (process_ == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        serve(listener);
    }
    ::close(listener);
}

PeerServer::~PeerServer() {
    ::kill(process_, SIGKILL);
    ::waitpid(process_, nullptr, 0);
}

}  // namespace vexim::bench
