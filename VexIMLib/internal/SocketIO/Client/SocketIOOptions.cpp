#include "VexIMLib/internal/SocketIO/Client/SocketIOOptions.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <functional>
#include <limits>
#include <unordered_map>
#include <utility>

#include "VexIMLib/Foundation/JSON.h"
#include "VexIMLib/internal/Foundation/Values/ByteCount.h"
#include "VexIMLib/internal/Platform/Loading/HTTPHeaderFields.h"

namespace vexim {
namespace {

using std::chrono::milliseconds;

// Ten years are practically forever, without overflow.
constexpr double kLongestSeconds = 10.0 * 365 * 24 * 3600;

struct Reading {
    SocketIOOptions options;
    bool forcesPolling = false;
    bool forcesWebSockets = false;
};

/// Stores `value`; returns false if it has the wrong type.
using Reader = std::function<bool(const Value& value, Reading& reading)>;

Reader boolean(std::function<void(Reading&, bool)> store) {
    return [store = std::move(store)](const Value& value, Reading& reading) {
        if (!value.isBoolean()) return false;
        store(reading, value.boolean());
        return true;
    };
}

Reader integer(std::function<bool(Reading&, std::int64_t)> store) {
    return [store = std::move(store)](const Value& value, Reading& reading) {
        return value.kind() == Value::Kind::Integer && store(reading, value.integer());
    };
}

Reader seconds(double least, std::function<void(Reading&, milliseconds)> store) {
    return [least, store = std::move(store)](const Value& value, Reading& reading) {
        if (!value.isNumber() || value.isBoolean() || std::isnan(value.doubleValue())) return false;
        const double clamped = std::clamp(value.doubleValue(), least, kLongestSeconds);
        store(reading, milliseconds(static_cast<std::int64_t>(clamped * 1000)));
        return true;
    };
}

/// An option that `TrustChoice` reads. Errors in it end the connection.
bool readByTrust(const Value&, Reading&) { return true; }

bool readConnectParams(const Value& value, Reading& reading) {
    if (!value.isDictionary()) return false;
    reading.options.session.query = encodeConnectParams(*value.asDictionary());
    return true;
}

bool readHeaders(const Value& value, Reading& reading) {
    const Dictionary* headers = value.asDictionary();
    if (!headers) return false;
    HeaderList list;
    for (const auto& [name, content] : *headers) {
        const auto line = content.asString();
        if (!line || !isHeaderName(name) || !isHeaderValue(*line)) return false;
        list.emplace_back(name, *line);
    }
    reading.options.transport.headers = std::move(list);
    return true;
}

bool readTransports(const Value& value, Reading& reading) {
    const Array* names = value.asArray();
    if (!names) return false;
    auto& choice = reading.options.session.transports;
    if (*names == Array{"websocket", "polling"})
        return choice = TransportChoice::WebSocketThenPolling, true;
    if (*names == Array{"polling", "websocket"})
        return choice = TransportChoice::PollingThenWebSocket, true;
    if (*names == Array{"websocket"}) return choice = TransportChoice::WebSocketOnly, true;
    if (*names == Array{"polling"}) return choice = TransportChoice::PollingOnly, true;
    return false;
}

bool readPath(const Value& value, Reading& reading) {
    auto path = value.asString();
    if (!path || path->empty() ||
        !URL::parse("http://host" + (path->starts_with('/') ? *path : "/" + *path)))
        return false;
    if (path->find_first_of("?#") != std::string::npos) return false;
    if (!path->starts_with('/')) path->insert(0, "/");
    if (!path->ends_with('/')) *path += '/';  // servers answer 404 without it
    reading.options.session.path = std::move(*path);
    return true;
}

const std::unordered_map<std::string_view, Reader>& readers() {
    static const auto* const table = new std::unordered_map<std::string_view, Reader>{
        {"forcePolling", boolean([](Reading& r, bool on) { r.forcesPolling = on; })},
        {"forceWebsockets", boolean([](Reading& r, bool on) { r.forcesWebSockets = on; })},
        {"log", boolean([](Reading& r, bool on) { r.options.log = on; })},
        {"secure", boolean([](Reading& r, bool on) { r.options.secure = on; })},
        {"selfSigned", boolean([](Reading&, bool) {})},
        {"metrics",
         [](const Value& value, Reading& reading) {
             reading.options.meter = Meter::of(value);
             return reading.options.meter != nullptr;
         }},
        {"compress", boolean([](Reading& r, bool on) { r.options.transport.offerDeflate = on; })},
        {"reconnects", boolean([](Reading& r, bool on) { r.options.reconnect.enabled = on; })},
        {"reconnectAttempts", integer([](Reading& r, std::int64_t count) {
             constexpr std::int64_t kMost = std::numeric_limits<std::uint32_t>::max();
             r.options.reconnect.maxAttempts.reset();
             if (count >= 0)
                 r.options.reconnect.maxAttempts =
                     static_cast<std::uint32_t>(std::min(count, kMost));
             return true;
         })},
        {"reconnectWait",
         seconds(1, [](Reading& r, milliseconds wait) { r.options.reconnect.firstWait = wait; })},
        {"reconnectWaitMax",
         seconds(1, [](Reading& r, milliseconds wait) { r.options.reconnect.longestWait = wait; })},
        {"connectTimeout",
         seconds(0.001,
                 [](Reading& r, milliseconds wait) { r.options.session.connectTimeout = wait; })},
        {"maxMessageSize", integer([](Reading& r, std::int64_t bytes) {
             if (bytes <= 0) return false;
             r.options.session.maxMessageBytes = r.options.transport.maxMessageBytes =
                 byteCount(bytes);
             return true;
         })},
        {"maxQueuedBytes", integer([](Reading& r, std::int64_t bytes) {
             if (bytes <= 0) return false;
             r.options.maxQueuedBytes = byteCount(bytes);
             return true;
         })},
        {"maxReadAhead", integer([](Reading& r, std::int64_t bytes) {
             // half of the limit for undelivered events; the rest is for what the heartbeat must
             // read
             constexpr std::int64_t kMost = 32 << 20;
             if (bytes <= 0) return false;
             r.options.maxReadAhead = static_cast<std::size_t>(std::min(bytes, kMost));
             return true;
         })},
        {"protocolVersion", integer([](Reading& r, std::int64_t revision) {
             if (revision != 3 && revision != 4) return false;
             r.options.session.revision = static_cast<EngineRevision>(revision);
             return true;
         })},
        {"caFile", readByTrust},
        {"caPEM", readByTrust},
        {"pinnedKeys", readByTrust},
        {"extraHeaders", readHeaders},
        {"connectParams", readConnectParams},
        {"transports", readTransports},
        {"path", readPath},
        {"joinPayload",
         [](const Value& value, Reading& reading) {
             if (!value.isDictionary() || writeJSON(value).error) return false;
             reading.options.session.joinPayload = value;
             return true;
         }},
    };
    return *table;
}

}  // namespace

ParsedOptions parseSocketIOOptions(const Dictionary& dictionary) {
    Reading reading;
    std::vector<std::string> complaints;
    for (const auto& [key, value] : dictionary) {
        const auto known = readers().find(key);
        if (known == readers().end()) {
            complaints.push_back("unknown option \"" + std::string(key) + "\"");
        } else if (!known->second(value, reading)) {
            complaints.push_back("option \"" + std::string(key) +
                                 "\" with a value of the wrong type or range");
        }
    }
    auto& options = reading.options;
    if (reading.forcesPolling) options.session.transports = TransportChoice::PollingOnly;
    // takes precedence over "forcePolling"
    if (reading.forcesWebSockets) options.session.transports = TransportChoice::WebSocketOnly;
    options.reconnect.longestWait =
        std::max(options.reconnect.longestWait, options.reconnect.firstWait);
    return {std::move(options), std::move(complaints)};
}

std::optional<Endpoint> endpointOf(const std::optional<URL>& url, bool secure) {
    if (!url || url->host().empty()) return std::nullopt;
    const std::string& scheme = url->scheme();
    const bool isTls = scheme == "https" || scheme == "wss";
    if (!isTls && scheme != "http" && scheme != "ws") return std::nullopt;
    Endpoint endpoint;
    endpoint.isSecure = isTls || secure;
    endpoint.host = url->host();
    endpoint.port = url->port().value_or(endpoint.isSecure ? 443 : 80);
    return endpoint;
}

TrustChoice trustFor(const std::optional<Endpoint>& endpoint, const Dictionary& dictionary) {
    const bool isNamed = dictionary.contains("caFile") || dictionary.contains("caPEM") ||
                         dictionary.contains("pinnedKeys");
    const bool isNeeded = endpoint && endpoint->isSecure;
    return isNamed || isNeeded ? TrustChoice::of(dictionary) : TrustChoice{};
}

std::string encodeConnectParams(const Dictionary& parameters) {
    std::string query;
    for (const auto& [key, value] : parameters) {
        const bool isContainer = value.isDictionary() || value.isArray();
        if (!query.empty()) query += '&';
        query += percentEncode(key) + "=" +
                 percentEncode(isContainer ? writeJSON(value).text : value.description());
    }
    return query;
}

}  // namespace vexim
