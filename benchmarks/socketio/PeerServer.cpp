#include "socketio/PeerServer.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <poll.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string_view>

#include "support/Certificates.h"
#include "support/WebSocketFrames.h"

namespace vexim::bench {

const char* const kMessage =
    R"({"content":{"media":0,"body":"Shall we meet at the station at seven, or is that too early for you? I can wait."},)"
    R"("ts":1700000000123,"from":{"id":"5f1d7a2b9c3e","type":0},"to":{"id":"60aa11bb22cc","type":1},"id":"m-00017"})";

namespace {

struct Connection {
    int socket = -1;
    SSL* tls = nullptr;
    std::string head;
    bool accepted = false;
    bool joined = false;
    bool isSink = false;  // its frames are ignored
};

void writeAll(const Connection& connection, std::string_view bytes) {
    while (!bytes.empty()) {
        const auto count =
            connection.tls ? SSL_write(connection.tls, bytes.data(), static_cast<int>(bytes.size()))
                           : ::send(connection.socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (count <= 0) return;
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
}

void join(const Connection& connection) {
    writeAll(connection, frame(R"(40/chat,{"sid":"x"})"));
    const auto flood = connection.head.find("flood=");
    if (flood == std::string::npos) return;
    const std::string event = frame(std::string("42/chat,[\"message\",") + kMessage + "]");
    std::string block;
    for (long left = std::atol(connection.head.c_str() + flood + 6); left > 0; --left) {
        block += event;
        if (block.size() < 64 * 1024 && left > 1) continue;
        writeAll(connection, block);
        block.clear();
    }
}

/// Reads what has arrived, at least a byte; 0 or less at the end. The socket blocks, so a record is
/// read completely.
ssize_t readSome(const Connection& connection, char* into, std::size_t most) {
    if (connection.tls) return SSL_read(connection.tls, into, static_cast<int>(most));
    return ::recv(connection.socket, into, most, 0);
}

/// Whether these short frames of a client end with a close frame, which needs an answer (RFC 6455,
/// 5.5.1).
bool endsWithClose(std::string_view frames) {
    constexpr std::size_t kHead = 6;  // with the mask, and a length of one byte
    bool isClose = false;
    while (frames.size() >= kHead) {
        isClose = (frames[0] & 0xF) == 8;
        frames.remove_prefix(std::min(frames.size(), kHead + (frames[1] & 0x7F)));
    }
    return isClose;
}

SSL_CTX* makeContext(const testing::TLSIdentity& identity) {
    SSL_CTX* context = SSL_CTX_new(TLS_server_method());
    BIO* certificate = BIO_new_mem_buf(identity.certificatePEM.data(),
                                       static_cast<int>(identity.certificatePEM.size()));
    BIO* key = BIO_new_mem_buf(identity.privateKeyPEM.data(),
                               static_cast<int>(identity.privateKeyPEM.size()));
    X509* x509 = PEM_read_bio_X509(certificate, nullptr, nullptr, nullptr);
    EVP_PKEY* privateKey = PEM_read_bio_PrivateKey(key, nullptr, nullptr, nullptr);
    if (SSL_CTX_use_certificate(context, x509) != 1 ||
        SSL_CTX_use_PrivateKey(context, privateKey) != 1)
        std::abort();
    BIO_free(certificate);
    BIO_free(key);
    X509_free(x509);
    EVP_PKEY_free(privateKey);
    return context;
}

[[noreturn]] void serve(int listener, SSL_CTX* tls) {
    ::signal(SIGPIPE, SIG_IGN);
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
                // otherwise each answer of a TLS handshake waits for an acknowledgement
                const int yes = 1;
                ::setsockopt(accepted, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
                connections[accepted].socket = accepted;
                if (tls) {
                    SSL* const ssl = connections[accepted].tls = SSL_new(tls);
                    SSL_set_fd(ssl, accepted);
                    SSL_accept(ssl);
                }
                watch(accepted);
                continue;
            }
            Connection& connection = connections[socket];
            const auto got = readSome(connection, buffer.data(), buffer.size());
            const bool isGoodbye = connection.joined && !connection.isSink && got > 0 &&
                                   endsWithClose({buffer.data(), static_cast<std::size_t>(got)});
            // the rest of a record, not an event
            while (connection.joined && connection.tls && SSL_pending(connection.tls) > 0) {
                SSL_read(connection.tls, buffer.data(), static_cast<int>(buffer.size()));
            }
            if (isGoodbye) writeAll(connection, std::string("\x88\x02\x03\xE8", 4));
            if (got <= 0 || isGoodbye) {
                SSL_free(connection.tls);
                ::close(socket);
                connections.erase(socket);
            } else if (!connection.accepted) {
                connection.head.append(buffer.data(), static_cast<std::size_t>(got));
                if (connection.head.find("\r\n\r\n") == std::string::npos) continue;
                connection.accepted = true;
                writeAll(
                    connection,
                    "HTTP/1.1 101 Switching Protocols\r\nUpgrade: websocket\r\nConnection: Upgrade\r\nSec-WebSocket-Accept: " +
                        acceptFor(connection.head) + "\r\n\r\n" +
                        frame(
                            R"(0{"sid":"s","upgrades":[],"pingInterval":250000,"pingTimeout":20000,"maxPayload":1000000})"));
            } else if (!connection.joined) {
                connection.joined = true;
                join(connection);
                if (connection.head.find("silent") != std::string::npos)
                    ::epoll_ctl(poll, EPOLL_CTL_DEL, socket, nullptr);
                connection.isSink = connection.head.find("sink") != std::string::npos;
                std::string().swap(connection.head);
            }
        }
    }
}

}  // namespace

PeerServer::PeerServer(Wire wire) {
    SSL_CTX* tls = nullptr;
    if (wire == Wire::Tls) {
        const testing::CertificateAuthority authority;
        authorityPEM_ = authority.certificatePEM();
        tls = makeContext(authority.issue());
    }
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
    process_ = ::fork();
    if (process_ == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        serve(listener, tls);
    }
    SSL_CTX_free(tls);
    ::close(listener);
}

PeerServer::~PeerServer() {
    ::kill(process_, SIGKILL);
    ::waitpid(process_, nullptr, 0);
}

}  // namespace vexim::bench
