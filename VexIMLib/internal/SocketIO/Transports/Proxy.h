#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "VexIMLib/Foundation/URL.h"

namespace vexim {

/// An HTTP proxy, used with CONNECT.
struct ProxyServer {
    std::string host;  // empty: a kind that we do not support and must not bypass
    std::uint16_t port = 0;
    std::optional<std::string> user;  // nullopt: no credentials
    std::string password;

    friend bool operator==(const ProxyServer&, const ProxyServer&) = default;
};

/// Reads an environment variable; nullptr if it is not set.
using Environment = std::function<const char*(const char* name)>;

/// The proxy for `host` from the environment: http_proxy (lower case only, because a CGI request
/// can set HTTP_PROXY), https_proxy, all_proxy, and the exceptions in no_proxy: "*", host names
/// (which include their subdomains) and addresses, separated by commas. This machine is always an
/// exception. An unsupported kind of proxy is returned without a host: its user does not want
/// connections to bypass it.
std::optional<ProxyServer> proxyFor(bool isSecure, std::string_view host, std::uint16_t port,
                                    const Environment& environment);
/// The process's own environment.
std::optional<ProxyServer> proxyFor(bool isSecure, std::string_view host, std::uint16_t port);

/// The request that opens a tunnel to `authority` ("host:port").
std::string connectRequest(const ProxyServer& proxy, std::string_view authority);
/// The error text for an answer with `status`.
std::string proxyRefusal(int status);

/// The proxy's answer to that request.
class ProxyAnswer {
public:
    enum class Verdict : std::uint8_t { Incomplete, Open, Refused, NotHTTP };
    Verdict receive(std::string_view bytes);
    int status() const noexcept { return status_; }
    /// The bytes after an answer that opened the tunnel. They are the server's first.
    std::string takeRest();

private:
    std::string bytes_;
    std::size_t end_ = 0;
    int status_ = 0;
};

}  // namespace vexim
