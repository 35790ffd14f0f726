#include "VexIMLib/internal/SocketIO/Transports/Transport.h"

namespace vexim {

std::string authorityOf(const std::string& host, std::uint16_t port) {
    const bool isIPv6 = host.find(':') != std::string::npos;
    return (isIPv6 ? "[" + host + "]" : host) + ":" + std::to_string(port);
}

std::string Endpoint::authorityWithPort() const { return authorityOf(host, port); }

std::string Endpoint::authority() const {
    std::string text = authorityWithPort();
    if (port == (isSecure ? 443 : 80)) text.erase(text.rfind(':'));
    return text;
}

}  // namespace vexim
