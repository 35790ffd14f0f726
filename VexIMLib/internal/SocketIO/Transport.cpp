#include "VexIMLib/internal/SocketIO/Transport.h"

namespace vexim {

std::string Endpoint::authorityWithPort() const {
    const bool isIPv6 = host.find(':') != std::string::npos;
    return (isIPv6 ? "[" + host + "]" : host) + ":" + std::to_string(port);
}

std::string Endpoint::authority() const {
    std::string text = authorityWithPort();
    if (port == (isSecure ? 443 : 80)) text.erase(text.rfind(':'));
    return text;
}

}  // namespace vexim
