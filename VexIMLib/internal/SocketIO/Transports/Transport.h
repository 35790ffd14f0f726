#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "VexIMLib/internal/Platform/Trust/Trust.h"
#include "VexIMLib/internal/SocketIO/Protocol/BoundedAppend.h"
#include "VexIMLib/internal/SocketIO/Protocol/EngineSession.h"
#include "VexIMLib/internal/SocketIO/Protocol/HeaderList.h"
#include "VexIMLib/internal/SocketIO/Transports/Proxy.h"

namespace vexim {

/// "host:port", with brackets around an IPv6 address.
std::string authorityOf(const std::string& host, std::uint16_t port);

/// The server's address.
struct Endpoint {
    bool isSecure = false;
    std::string host;  // without brackets
    std::uint16_t port = 0;

    /// For the "Host" header: brackets around IPv6, and no port if it is the scheme's default.
    std::string authority() const;
    /// Always with the port.
    std::string authorityWithPort() const;
};

/// What transports need besides the targets of their requests.
struct TransportOptions {
    Endpoint endpoint;
    TrustChoice trust;
    std::optional<ProxyServer> proxy;
    HeaderList headers;  // set by the application
    std::size_t maxMessageBytes = kDefaultMaxMessageBytes;
    bool offerDeflate = false;
};

/// Receives the events of transports, on the network thread, and never inside a call to the
/// transport.
class TransportListener {
public:
    virtual void didHappen(const SessionEvent& what) = 0;
    /// Values of "Set-Cookie" in an answer.
    virtual void didReceiveCookies(const std::vector<std::string>& cookies) = 0;
    /// The end of a series of `didHappen`: their results can be sent and delivered together.
    virtual void didEndTurn() = 0;

protected:
    ~TransportListener() = default;
};

}  // namespace vexim
