#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "VexIMLib/Foundation/URL.h"

namespace vexim {

/// An HTTP proxy that is asked to CONNECT.
struct ProxyServer {
    std::string host;  // empty: one that we cannot speak to, nor pass by
    std::uint16_t port = 0;
    std::optional<std::string> user;  // nullopt: no credentials
    std::string password;

    friend bool operator==(const ProxyServer&, const ProxyServer&) = default;
};

/// Reads an environment variable; nullptr when it is not set.
using Environment = std::function<const char*(const char* name)>;

/// The proxy that the environment names for `host`: http_proxy (lower case only, as a CGI request
/// can set the other one), https_proxy, all_proxy, and the exceptions in no_proxy: "*", host names,
/// which stand for their subdomains too, and addresses, separated by commas. This machine itself is
/// one. A proxy of another kind comes without its host: whoever set it does not want to be seen
/// going round it.
std::optional<ProxyServer> proxyFor(bool isSecure, std::string_view host, std::uint16_t port,
                                    const Environment& environment);
/// The process's own environment.
std::optional<ProxyServer> proxyFor(bool isSecure, std::string_view host, std::uint16_t port);

/// The request that opens a tunnel to `authority` ("host:port").
std::string connectRequest(const ProxyServer& proxy, std::string_view authority);
/// What applications are told when it was answered with `status`.
std::string proxyRefusal(int status);

}  // namespace vexim
