#include "support/ScriptedServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <mutex>
#include <stdexcept>
#include <thread>

namespace vexim::testing {
namespace {

bool sameName(std::string_view a, std::string_view b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](unsigned char x, unsigned char y) {
        return std::tolower(x) == std::tolower(y);
    });
}

int bindTo(std::uint32_t host, std::uint16_t& port) {
    const int bound = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(host);
    address.sin_port = htons(port);
    socklen_t size = sizeof address;
    if (bound < 0 || ::bind(bound, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        ::getsockname(bound, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
        throw std::runtime_error("cannot have a port on loopback");
    }
    port = ntohs(address.sin_port);
    return bound;
}

int listenOn(std::uint32_t host, std::uint16_t& port, int backlog) {
    const int listener = bindTo(host, port);
    if (::listen(listener, backlog) != 0) throw std::runtime_error("cannot listen on loopback");
    return listener;
}

int listenOnLoopback(std::uint16_t& port) { return listenOn(INADDR_LOOPBACK, port, 256); }

SSL_CTX* makeContext(const TLSIdentity& identity) {
    SSL_CTX* context = SSL_CTX_new(TLS_server_method());
    SSL_CTX_set_security_level(context, 0);  // only the client decides what is too weak
    BIO* certificateText = BIO_new_mem_buf(identity.certificatePEM.data(),
                                           static_cast<int>(identity.certificatePEM.size()));
    BIO* keyText = BIO_new_mem_buf(identity.privateKeyPEM.data(),
                                   static_cast<int>(identity.privateKeyPEM.size()));
    X509* certificate = PEM_read_bio_X509(certificateText, nullptr, nullptr, nullptr);
    EVP_PKEY* key = PEM_read_bio_PrivateKey(keyText, nullptr, nullptr, nullptr);
    SSL_CTX_use_certificate(context, certificate);
    SSL_CTX_use_PrivateKey(context, key);
    while (X509* further = PEM_read_bio_X509(certificateText, nullptr, nullptr, nullptr)) {
        SSL_CTX_add_extra_chain_cert(context, further);  // takes it over
    }
    if (identity.isOld) {
        SSL_CTX_set_min_proto_version(context, TLS1_1_VERSION);
        SSL_CTX_set_max_proto_version(context, TLS1_1_VERSION);
        SSL_CTX_set_cipher_list(context, "ALL:@SECLEVEL=0");
    }
    ERR_clear_error();  // reaching the end of the text left an error
    X509_free(certificate);
    EVP_PKEY_free(key);
    BIO_free(certificateText);
    BIO_free(keyText);
    return context;
}

}  // namespace

std::string WireRequest::header(std::string_view name) const {
    for (const auto& [key, value] : headers) {
        if (sameName(key, name)) return value;
    }
    return {};
}

struct ScriptedServer::Impl {
    int listener = -1;
    int stop = ::eventfd(0, EFD_CLOEXEC);  // becomes readable when the server ends
    std::uint16_t port = 0;
    Script script;
    std::function<bool(Connection&)> beforeHandshake;
    SSL_CTX* tls = nullptr;
    std::atomic<int> connections{0};
    std::thread acceptor;
    std::mutex mutex;
    std::vector<std::thread> players;  // guarded by mutex

    ~Impl() {
        ::close(listener);
        ::close(stop);
        SSL_CTX_free(tls);
    }

    /// Waits for `events` on `fd`; false when the server ends or the time is up.
    bool wait(int fd, short events, int milliseconds = -1) const {
        pollfd fds[] = {{stop, POLLIN, 0}, {fd, events, 0}};
        const int count = ::poll(fds, fd < 0 ? 1 : 2, milliseconds);
        return count > 0 && fds[0].revents == 0;
    }

    void accept();
};

struct ScriptedServer::Connection::Impl {
    ScriptedServer::Impl& server;
    int fd;
    int index;
    SSL* ssl = nullptr;
    std::string buffer;  // received, but not yet read by the script

    Impl(ScriptedServer::Impl& owner, int socket, int number)
        : server(owner),
          fd(socket),
          index(number) {}
    ~Impl() {
        if (ssl) {
            if (fd >= 0) SSL_shutdown(ssl);
            SSL_free(ssl);
        }
        if (fd >= 0) ::close(fd);
    }

    bool handshake() {
        if (!server.tls) return true;
        ssl = SSL_new(server.tls);
        SSL_set_fd(ssl, fd);
        return repeat([this] { return SSL_accept(ssl); }) == 1;
    }

    template <class Step>
    int repeat(Step step) {
        for (;;) {
            ERR_clear_error();
            const int result = step();
            if (result > 0) return result;
            const int why = SSL_get_error(ssl, result);
            if (why != SSL_ERROR_WANT_READ && why != SSL_ERROR_WANT_WRITE) return result;
            if (!server.wait(fd, why == SSL_ERROR_WANT_READ ? POLLIN : POLLOUT)) return -1;
        }
    }

    bool fill(std::size_t most) {
        if (fd < 0) return false;
        std::string chunk(most, '\0');
        ssize_t count = 0;
        if (ssl) {
            count = repeat([&] { return SSL_read(ssl, chunk.data(), static_cast<int>(most)); });
        } else {
            do {
                if (!server.wait(fd, POLLIN)) return false;
                count = ::recv(fd, chunk.data(), most, MSG_DONTWAIT);
            } while (count < 0 && errno == EAGAIN);
        }
        if (count <= 0) return false;
        buffer.append(chunk, 0, static_cast<std::size_t>(count));
        return true;
    }

    bool write(std::string_view bytes) {
        while (!bytes.empty() && fd >= 0) {
            ssize_t count = 0;
            if (ssl) {
                count = repeat([&] {
                    return SSL_write(
                        ssl, bytes.data(),
                        static_cast<int>(std::min<std::size_t>(bytes.size(), 1 << 20)));
                });
            } else {
                count = ::send(fd, bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
                if (count < 0 && errno == EAGAIN) {
                    if (!server.wait(fd, POLLOUT)) return false;
                    continue;
                }
            }
            if (count <= 0) return false;
            bytes.remove_prefix(static_cast<std::size_t>(count));
        }
        return bytes.empty();
    }

    std::optional<std::string> take(std::size_t count) {
        while (buffer.size() < count) {
            if (!fill(65536)) return std::nullopt;
        }
        std::string taken = buffer.substr(0, count);
        buffer.erase(0, count);
        return taken;
    }

    std::optional<std::string> takeThrough(std::string_view mark) {
        std::size_t searched = 0;
        for (;;) {
            const auto found = buffer.find(mark, searched);
            if (found != std::string::npos) return take(found + mark.size());
            searched = buffer.size() < mark.size() ? 0 : buffer.size() - mark.size() + 1;
            if (!fill(65536)) return std::nullopt;
        }
    }

    bool readChunks(std::string& body) {
        for (;;) {
            const auto line = takeThrough("\r\n");
            if (!line) return false;
            const auto size = static_cast<std::size_t>(std::strtoull(line->c_str(), nullptr, 16));
            const auto chunk = take(size + 2);
            if (!chunk) return false;
            if (size == 0) return true;
            body.append(*chunk, 0, size);
        }
    }
};

void ScriptedServer::Impl::accept() {
    // The TLS library writes without MSG_NOSIGNAL; the connections' threads inherit the mask.
    sigset_t pipe;
    ::sigemptyset(&pipe);
    ::sigaddset(&pipe, SIGPIPE);
    ::pthread_sigmask(SIG_BLOCK, &pipe, nullptr);
    while (wait(listener, POLLIN)) {
        const int fd = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
        if (fd < 0) continue;
        const int yes = 1;
        ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
        const std::lock_guard lock(mutex);
        players.emplace_back([this, fd, index = connections++] {
            Connection connection(std::make_unique<Connection::Impl>(*this, fd, index));
            if (beforeHandshake && !beforeHandshake(connection)) return;
            if (connection.handshake()) script(connection);
        });
    }
}

ScriptedServer::Connection::Connection(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}
ScriptedServer::Connection::~Connection() = default;
int ScriptedServer::Connection::index() const { return impl_->index; }
bool ScriptedServer::Connection::handshake() { return impl_->handshake(); }

std::optional<WireRequest> ScriptedServer::Connection::readHead() {
    auto head = impl_->takeThrough("\r\n\r\n");
    if (!head) return std::nullopt;
    WireRequest request;
    request.head = *head;
    std::size_t start = 0;
    for (std::size_t end; (end = head->find("\r\n", start)) != start; start = end + 2) {
        const std::string line = head->substr(start, end - start);
        if (start == 0) {
            const auto first = line.find(' ');
            const auto last = line.rfind(' ');
            request.method = line.substr(0, first);
            request.target = line.substr(first + 1, last - first - 1);
        } else {
            const auto colon = line.find(':');
            const auto value = line.find_first_not_of(' ', colon + 1);
            request.headers.emplace_back(line.substr(0, colon),
                                         value == std::string::npos ? "" : line.substr(value));
        }
    }
    return request;
}

std::optional<WireRequest> ScriptedServer::Connection::readRequest() {
    auto request = readHead();
    if (!request) return std::nullopt;
    if (sameName(request->header("Transfer-Encoding"), "chunked")) {
        if (!impl_->readChunks(request->body)) return std::nullopt;
    } else if (const auto length = request->header("Content-Length"); !length.empty()) {
        auto body = impl_->take(static_cast<std::size_t>(std::stoull(length)));
        if (!body) return std::nullopt;
        request->body = std::move(*body);
    }
    return request;
}

std::string ScriptedServer::Connection::readSome(std::size_t most) {
    if (impl_->buffer.empty() && !impl_->fill(most)) return {};
    return *impl_->take(std::min(most, impl_->buffer.size()));
}

bool ScriptedServer::Connection::write(std::string_view bytes) { return impl_->write(bytes); }

bool ScriptedServer::Connection::answer(int status, std::string_view body,
                                        std::string_view headers) {
    return write(text(status, body, headers));
}

void ScriptedServer::Connection::waitForClose() {
    while (!readSome().empty()) {
    }
}

void ScriptedServer::Connection::shutDown() { ::shutdown(impl_->fd, SHUT_WR); }

void ScriptedServer::Connection::reset() {
    const linger now{1, 0};
    ::setsockopt(impl_->fd, SOL_SOCKET, SO_LINGER, &now, sizeof now);
    ::close(std::exchange(impl_->fd, -1));
}

bool ScriptedServer::Connection::pause(std::chrono::milliseconds time) {
    pollfd stop{impl_->server.stop, POLLIN, 0};
    return ::poll(&stop, 1, static_cast<int>(time.count())) == 0;
}

ScriptedServer::ScriptedServer(Script script, std::optional<TLSIdentity> identity,
                               std::function<bool(Connection&)> beforeHandshake)
    : impl_(std::make_shared<Impl>()) {
    impl_->script = std::move(script);
    impl_->beforeHandshake = std::move(beforeHandshake);
    if (identity) impl_->tls = makeContext(*identity);
    impl_->listener = listenOnLoopback(impl_->port);
    impl_->acceptor = std::thread([impl = impl_.get()] { impl->accept(); });
}

ScriptedServer::~ScriptedServer() {
    const std::uint64_t one = 1;
    if (::write(impl_->stop, &one, sizeof one) < 0) std::abort();
    impl_->acceptor.join();
    for (auto& player : impl_->players) player.join();
}

std::uint16_t ScriptedServer::port() const { return impl_->port; }
int ScriptedServer::connectionCount() const { return impl_->connections; }

std::string ScriptedServer::url(std::string_view path) const {
    return (impl_->tls ? "https://127.0.0.1:" : "http://127.0.0.1:") + std::to_string(impl_->port) +
           std::string(path);
}

ScriptedServer::Script ScriptedServer::answering(
    std::function<std::string(const WireRequest&)> answer) {
    return [answer = std::move(answer)](Connection& connection) {
        while (const auto request = connection.readRequest()) {
            if (!connection.write(answer(*request))) return;
        }
    };
}

std::string ScriptedServer::text(int status, std::string_view body, std::string_view headers) {
    std::string text = "HTTP/1.1 " + std::to_string(status) +
                       " Scripted\r\nContent-Length: " + std::to_string(body.size()) + "\r\n";
    text.append(headers).append("\r\n").append(body);
    return text;
}

std::uint16_t deadPort() {
    static std::uint16_t port = 0;
    // stays taken: nobody else can listen there, nor a connection to it become one to itself
    [[maybe_unused]] static const int taken = bindTo(INADDR_LOOPBACK, port);
    return port;
}

SilentPort::SilentPort(std::uint16_t port)
    : port_(port),
      listener_(listenOn(INADDR_LOOPBACK + 1, port_, 0)),
      waiting_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK + 1);
    address.sin_port = htons(port_);
    // the one for which there is room
    if (::connect(waiting_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
        throw std::runtime_error("cannot fill the line");
}

SilentPort::~SilentPort() {
    ::close(waiting_);
    ::close(listener_);
}

}  // namespace vexim::testing
