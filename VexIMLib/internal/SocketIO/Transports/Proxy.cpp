#include "VexIMLib/internal/SocketIO/Transports/Proxy.h"

#include <cstdlib>

#include "VexIMLib/internal/Foundation/Text/ASCII.h"
#include "VexIMLib/internal/Foundation/Text/Base64.h"
#include "VexIMLib/internal/Platform/Threads/HostResolver.h"

namespace vexim {
namespace {

bool isException(std::string_view rule, std::string_view host, std::uint16_t port) {
    rule = detail::trimmed(rule);
    if (rule == "*") return true;
    const auto colon = rule.rfind(':');
    if (colon != std::string_view::npos && rule.find(':') == colon) {
        if (rule.substr(colon + 1) != std::to_string(port)) return false;
        rule = rule.substr(0, colon);
    }
    if (rule.starts_with("[") && rule.ends_with("]")) rule = rule.substr(1, rule.size() - 2);
    if (rule.starts_with('.')) rule.remove_prefix(1);
    if (rule.empty()) return false;
    if (detail::equalsIgnoringCase(rule, host)) return true;
    return host.size() > rule.size() && host[host.size() - rule.size() - 1] == '.' &&
           detail::equalsIgnoringCase(rule, host.substr(host.size() - rule.size()));
}

std::string_view valueOf(const Environment& environment, std::initializer_list<const char*> names) {
    for (const char* name : names) {
        const char* value = environment(name);
        if (value && *value != '\0') return value;
    }
    return {};
}

}  // namespace

std::optional<ProxyServer> proxyFor(bool isSecure, std::string_view host, std::uint16_t port,
                                    const Environment& environment) {
    if (isThisMachine(host)) return std::nullopt;
    std::string_view exceptions = valueOf(environment, {"no_proxy", "NO_PROXY"});
    while (!exceptions.empty()) {
        const auto comma = std::min(exceptions.find(','), exceptions.size());
        if (isException(exceptions.substr(0, comma), host, port)) return std::nullopt;
        exceptions.remove_prefix(std::min(comma + 1, exceptions.size()));
    }
    std::string_view text = isSecure ? valueOf(environment, {"https_proxy", "HTTPS_PROXY"})
                                     : valueOf(environment, {"http_proxy"});
    if (text.empty()) text = valueOf(environment, {"all_proxy", "ALL_PROXY"});
    if (text.empty()) return std::nullopt;
    const bool hasScheme = text.find("://") != std::string_view::npos;
    const auto url = URL::parse(hasScheme ? std::string(text) : "http://" + std::string(text));
    if (!url || url->scheme() != "http" || url->host().empty()) return ProxyServer{};
    // libcurl uses port 1080 if there is none.
    ProxyServer proxy{url->host(), url->port().value_or(1080), std::nullopt, {}};
    if (url->user()) {
        proxy.user = *url->user();
        proxy.password = url->password().value_or("");
    }
    return proxy;
}

std::optional<ProxyServer> proxyFor(bool isSecure, std::string_view host, std::uint16_t port) {
    return proxyFor(isSecure, host, port, [](const char* name) { return std::getenv(name); });
}

std::string connectRequest(const ProxyServer& proxy, std::string_view authority) {
    std::string request = "CONNECT ";
    request += authority;
    request += " HTTP/1.1\r\nHost: ";
    request += authority;
    if (proxy.user)
        request +=
            "\r\nProxy-Authorization: Basic " + encodeBase64(*proxy.user + ":" + proxy.password);
    return request + "\r\n\r\n";
}

std::string proxyRefusal(int status) {
    return "The proxy refused the connection: " + std::to_string(status) + ".";
}

ProxyAnswer::Verdict ProxyAnswer::receive(std::string_view bytes) {
    constexpr std::size_t kMaxHead = 16 * 1024;
    bytes_ += bytes;
    const auto end = bytes_.find("\r\n\r\n");
    const bool isWhole = end != std::string::npos;
    if (!isWhole && bytes_.size() <= kMaxHead) return Verdict::Incomplete;
    if (!isWhole || !bytes_.starts_with("HTTP/1.") || bytes_.size() <= 12) return Verdict::NotHTTP;
    end_ = end + 4;
    status_ = std::atoi(bytes_.c_str() + 9);
    return status_ / 100 == 2 ? Verdict::Open : Verdict::Refused;
}

std::string ProxyAnswer::takeRest() {
    std::string rest = bytes_.substr(end_);
    *this = {};
    return rest;
}

}  // namespace vexim
