#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "VexIMLib/Foundation/Dictionary.h"
#include "VexIMLib/Foundation/URL.h"
#include "VexIMLib/internal/Configuration/Meter.h"
#include "VexIMLib/internal/SocketIO/Protocol/EngineSession.h"
#include "VexIMLib/internal/SocketIO/Protocol/ReconnectPolicy.h"
#include "VexIMLib/internal/SocketIO/Transports/Transport.h"

namespace vexim {

/// The options dictionary, read once. docs/socketio.md has the table of keys.
struct SocketIOOptions {
    SessionConfig session;       // except the namespace
    TransportOptions transport;  // except the endpoint, the trust and the proxy
    ReconnectPolicy reconnect;
    bool secure = false;
    bool log = false;
    std::shared_ptr<Meter> meter;  // nullptr: nothing is counted
    std::size_t maxQueuedBytes = std::size_t{64} << 20;
    std::size_t maxQueuedMessages = 1'000'000;
    std::size_t maxReadAhead = std::size_t{1} << 20;  // of undelivered events; then reading pauses
};

struct ParsedOptions {
    SocketIOOptions options;
    // unknown keys and values of the wrong type, which were ignored
    std::vector<std::string> complaints;
};
ParsedOptions parseSocketIOOptions(const Dictionary& dictionary);

/// The endpoint of `url`; nullopt if it is nil, has no host, or is not http, https, ws or wss.
std::optional<Endpoint> endpointOf(const std::optional<URL>& url, bool secure);

/// Whom a connection to `endpoint` trusts. A plain one trusts nobody, and so reads no authorities;
/// but options that cannot be used prevent it, too.
TrustChoice trustFor(const std::optional<Endpoint>& endpoint, const Dictionary& dictionary);

/// The application's parameters as a query. Keys and values are escaped, so servers get them
/// unchanged. Numbers and booleans are sent as text (true is 1), containers as JSON.
std::string encodeConnectParams(const Dictionary& parameters);

}  // namespace vexim
