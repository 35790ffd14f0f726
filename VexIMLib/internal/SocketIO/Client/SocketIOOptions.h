#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "VexIMLib/Foundation/Dictionary.h"
#include "VexIMLib/Foundation/URL.h"
#include "VexIMLib/internal/SocketIO/Protocol/EngineSession.h"
#include "VexIMLib/internal/SocketIO/Protocol/ReconnectPolicy.h"
#include "VexIMLib/internal/SocketIO/Transports/Transport.h"

namespace vexim {

/// The options dictionary, read once. docs/socketio.md has the table of keys.
struct SocketIOOptions {
    SessionConfig session;       // but for the namespace
    TransportOptions transport;  // but for the endpoint and the proxy
    ReconnectPolicy reconnect;
    bool secure = false;
    bool log = false;
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

/// Where `url` leads; nullopt when it is nil, has no host, or is neither http, https, ws nor wss.
std::optional<Endpoint> endpointOf(const std::optional<URL>& url, bool secure);

/// The application's parameters as a query: keys and values escaped so that servers see them as
/// they are. Numbers and booleans go as text (true is 1), containers as JSON.
std::string encodeConnectParams(const Dictionary& parameters);

}  // namespace vexim
