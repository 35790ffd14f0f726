#include "networking/BenchServer.h"

#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <boost/asio.hpp>
#include <boost/asio/ssl.hpp>
#include <cstdlib>
#include <stdexcept>
#include <string_view>
#include <thread>
#include <vector>

#include "support/Certificates.h"

namespace vexim::bench {

namespace {

namespace asio = boost::asio;
using asio::ip::tcp;

constexpr std::string_view kMessage =
    R"({"content":{"media":1,"body":"Shall we meet at the station at seven? I will bring tickets."},"ts":1700000000123,)"
    R"("from":{"id":"5f2b7c9e8a1d4e0012345678"},"to":{"id":"5f2b7c9e8a1d4e00deadbeef","name":"Anne"}})";

std::uint64_t numberAfter(std::string_view text, std::string_view label) {
    const auto at = text.find(label);
    return at == std::string_view::npos
               ? 0
               : std::strtoull(text.data() + at + label.size(), nullptr, 10);
}

std::string head(std::uint64_t length) {
    return "HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nContent-Length: " +
           std::to_string(length) + "\r\n\r\n";
}

/// One connection, request after request, until the peer closes it (which throws).
template <class Stream>
void serve(Stream& stream) {
    std::string pending;
    std::vector<char> block(256 * 1024);
    for (;;) {
        const auto length = asio::read_until(stream, asio::dynamic_buffer(pending), "\r\n\r\n");
        const auto request = pending.substr(0, length);
        pending.erase(0, length);
        auto body = numberAfter(request, "Content-Length: ");
        const auto buffered = std::min<std::uint64_t>(body, pending.size());
        pending.erase(0, static_cast<std::size_t>(buffered));
        for (body -= buffered; body > 0;) {
            const auto most = static_cast<std::size_t>(std::min<std::uint64_t>(body, block.size()));
            body -= stream.read_some(asio::buffer(block, most));
        }
        if (request.starts_with("GET /file")) {
            auto left = numberAfter(request, "bytes=");
            asio::write(stream, asio::buffer(head(left)));
            std::fill(block.begin(), block.end(), '\0');
            while (left > 0) {
                const auto most =
                    static_cast<std::size_t>(std::min<std::uint64_t>(left, block.size()));
                left -= asio::write(stream, asio::buffer(block, most));
            }
        } else {
            const std::string_view answer = request.starts_with("POST") ? R"(["u"])" : kMessage;
            asio::write(stream, asio::buffer(head(answer.size()) + std::string(answer)));
        }
    }
}

template <class Play>
void acceptForEver(tcp::acceptor& acceptor, Play play) {
    for (;;) {
        std::thread([play, socket = acceptor.accept()]() mutable {
            try {
                socket.set_option(tcp::no_delay(true));
                play(std::move(socket));
            } catch (const std::exception&) {
                // the peer has closed the connection
            }
        }).detach();
    }
}

[[noreturn]] void run(const testing::TLSIdentity& identity, int portsPipe) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    ::signal(SIGPIPE, SIG_IGN);
    asio::io_context context;
    const tcp::endpoint loopback(asio::ip::address_v4::loopback(), 0);
    tcp::acceptor plain(context, loopback);
    tcp::acceptor secure(context, loopback);
    asio::ssl::context tls(asio::ssl::context::tls_server);
    tls.use_certificate_chain(asio::buffer(identity.certificatePEM));
    tls.use_private_key(asio::buffer(identity.privateKeyPEM), asio::ssl::context::pem);

    const std::array<std::uint16_t, 2> ports{plain.local_endpoint().port(),
                                             secure.local_endpoint().port()};
    if (::write(portsPipe, ports.data(), sizeof ports) != sizeof ports) std::_Exit(1);
    std::thread([&plain] {
        acceptForEver(plain, [](tcp::socket socket) { serve(socket); });
    }).detach();
    acceptForEver(secure, [&tls](tcp::socket socket) {
        asio::ssl::stream<tcp::socket> stream(std::move(socket), tls);
        stream.handshake(asio::ssl::stream_base::server);
        serve(stream);
    });
    std::_Exit(0);
}

}  // namespace

BenchServer::BenchServer() {
    const testing::CertificateAuthority authority;
    authorityPEM_ = authority.certificatePEM();
    const auto identity = authority.issue();
    int ends[2];
    if (::pipe(ends) != 0) throw std::runtime_error("no pipe");
    process_ = ::fork();
    if (process_ == 0) run(identity, ends[1]);
    ::close(ends[1]);
    std::array<std::uint16_t, 2> ports{};
    if (process_ < 0 || ::read(ends[0], ports.data(), sizeof ports) != sizeof ports)
        throw std::runtime_error("no server");
    ::close(ends[0]);
    plainPort_ = ports[0];
    tlsPort_ = ports[1];
}

BenchServer::~BenchServer() {
    ::kill(process_, SIGKILL);
    ::waitpid(process_, nullptr, 0);
}

}  // namespace vexim::bench
