// Both transports through a real proxy: it reads CONNECT, checks the password, and passes on bytes.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "VexIMLib/SocketIOClient.h"
#include "socketio/Peers.h"
#include "socketio/Recorder.h"

namespace vexim::testing {
namespace {

/// Connects every tunnel to one loopback port, whatever the name, because the proxy looks up names.
class ConnectProxy {
public:
    explicit ConnectProxy(std::uint16_t target)
        : target_(target),
          server_([this](ScriptedServer::Connection& connection) { serve(connection); }) {}

    std::string url(const std::string& login) const {
        return "http://" + login + "127.0.0.1:" + std::to_string(server_.port());
    }
    std::vector<std::string> takeAsked() {
        const std::lock_guard lock(mutex_);
        return std::exchange(asked_, {});
    }

private:
    void serve(ScriptedServer::Connection& client) {
        const auto request = client.readHead();
        if (!request) return;
        {
            const std::lock_guard lock(mutex_);
            asked_.push_back(request->method + " " + request->target + request->header("Cookie") +
                             request->header("X-Extra"));
        }
        if (request->header("Proxy-Authorization") != "Basic dXNlcjpwQHNz") {  // user:p@ss
            client.answer(407, "no", "Proxy-Authenticate: Basic realm=\"test\"\r\n");
            return;
        }
        const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(target_);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (::connect(socket, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0) {
            client.write("HTTP/1.1 200 Connection established\r\nSet-Cookie: proxy=1\r\n\r\n");
            std::thread back([&] {
                std::array<char, 4096> bytes{};
                for (ssize_t got = 0; (got = ::recv(socket, bytes.data(), bytes.size(), 0)) > 0;) {
                    if (!client.write({bytes.data(), static_cast<std::size_t>(got)})) break;
                }
                client.shutDown();
            });
            for (std::string bytes; !(bytes = client.readSome()).empty();) {
                if (::send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL) < 0) break;
            }
            ::shutdown(socket, SHUT_RDWR);
            back.join();
        }
        ::close(socket);
    }

    const std::uint16_t target_;
    std::mutex mutex_;
    std::vector<std::string> asked_;
    ScriptedServer server_;  // last: its connections use the rest
};

/// An environment variable for a scope. No other thread reads the environment meanwhile: clients do
/// when they connect.
class Variable {
public:
    Variable(const char* name, const std::string& value) : name_(name) {
        ::setenv(name, value.c_str(), 1);
    }
    ~Variable() { ::unsetenv(name_); }
    Variable(const Variable&) = delete;
    Variable& operator=(const Variable&) = delete;

private:
    const char* const name_;
};

TEST(Proxies, AreTunnelledThroughByBothTransportsAlike) {
    const CertificateAuthority authority;
    for (const bool isSecure : {false, true}) {
        for (const char* transport : {"forceWebsockets", "forcePolling"}) {
            SCOPED_TRACE(std::string(transport) + (isSecure ? " over TLS" : ""));
            const auto identity =
                isSecure ? std::optional(authority.issue({.host = "im.example",
                                                          .startsIn = -std::chrono::hours(1),
                                                          .endsIn = std::chrono::hours(1)}))
                         : std::nullopt;
            ScriptedServer server(serveEitherTransport(), identity);
            ConnectProxy proxy(server.port());
            const auto connect = [&](const std::string& host) {
                const auto client =
                    makeClient((isSecure ? "https://" : "http://") + host,
                               {{transport, true},
                                {"reconnects", false},
                                {"extraHeaders", Dictionary{{"X-Extra", "for the server alone"}}},
                                {"caPEM", authority.certificatePEM()}});
                Recorder heard(*client);
                client->connect();
                EXPECT_TRUE(eventually([&] { return !heard.lines().empty(); }));
                return heard.last();
            };
            const char* const name = isSecure ? "https_proxy" : "http_proxy";
            {
                const Variable wrong(name, proxy.url("user:wrong@"));
                EXPECT_EQ(connect("im.example:8080"),
                          "error The proxy refused the connection: 407.");
            }
            EXPECT_EQ(server.connectionCount(), 0);
            EXPECT_EQ(proxy.takeAsked(), std::vector<std::string>{"CONNECT im.example:8080"});

            const Variable right(name, proxy.url("user:p%40ss@"));
            EXPECT_EQ(connect("im.example:8080"), "connect /chat");

            const Variable exception("no_proxy", "localhost, 127.0.0.1");
            EXPECT_EQ(connect("127.0.0.1:" + std::to_string(server.port())).substr(0, 5),
                      isSecure ? "error" : "conne")
                << "the certificate is for another host";
            for (const auto& asked : proxy.takeAsked()) EXPECT_EQ(asked, "CONNECT im.example:8080");
        }
    }
}

TEST(Proxies, OfAnotherKindAreNotPassedBy) {
    const Variable variable("http_proxy", "socks5://127.0.0.1:1");
    const auto client = SocketIOClient::create(URL::parse("http://im.invalid:8080"), {});
    Recorder heard(*client);
    client->connect();
    EXPECT_TRUE(heard.waitFor("error This kind of proxy is not supported.")) << heard.last();
    EXPECT_EQ(client->status(), SocketIOStatusDisconnected);
}

TEST(Proxies, MayBreakWithoutBreakingTheClient) {
    struct Row {
        const char* why;
        ScriptedServer::Script script;
        const char* heard;
    };
    const Row rows[] = {
        {"hangs up", [](ScriptedServer::Connection&) {}, "error The proxy closed the connection."},
        {"says nothing", [](ScriptedServer::Connection& c) { c.waitForClose(); },
         "error The server did not answer in time."},
        {"refuses with a page",
         [](ScriptedServer::Connection& c) { c.readHead() && c.answer(503, "<html>"); },
         "error The proxy refused the connection: 503."},
        {"speaks something else",
         [](ScriptedServer::Connection& c) { c.readHead() && c.write("SSH-2.0-x\r\n\r\n"); },
         "error The proxy's answer is not valid HTTP."},
        {"lets a server through that speaks first",
         [](ScriptedServer::Connection& c) {
             c.readHead();
             c.write("HTTP/1.1 200 OK\r\n\r\nHTTP/1.1 503 Busy\r\nContent-Length: 0\r\n\r\n");
             c.waitForClose();
         },
         "error The WebSocket handshake was answered with 503."},
        {"talks without end",
         [](ScriptedServer::Connection& c) {
             c.readHead();
             while (c.write("HTTP/1.1 200 OK\r\nX: " + std::string(4096, 'x'))) continue;
         },
         "error The proxy's answer is not valid HTTP."},
    };
    for (const auto& row : rows) {
        for (const char* transport : {"forceWebsockets", "forcePolling"}) {
            SCOPED_TRACE(std::string(row.why) + ", " + transport);
            const bool isExact = std::string(transport) == "forceWebsockets";
            const bool isSilent = std::string(row.heard).ends_with("in time.");
            ScriptedServer proxy(row.script);
            const Variable variable("http_proxy", proxy.url());
            const auto client = makeClient("http://im.example:8080",
                                           {{transport, true},
                                            {"reconnects", false},
                                            {"connectTimeout", isExact && !isSilent ? 20 : 0.2}});
            Recorder heard(*client);
            client->connect();
            EXPECT_TRUE(heard.waitFor(isExact ? row.heard : "error")) << heard.last();
        }
    }
}

}  // namespace
}  // namespace vexim::testing
