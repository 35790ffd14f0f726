#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <string_view>
#include <utility>

#include "support/LivePeer.h"
#include "support/ScriptedServer.h"

namespace vexim::testing {

/// A text frame as a server sends it; `first` replaces its first byte (FIN, reserved bits, opcode).
inline std::string frame(std::string_view payload, unsigned char first = 0x81) {
    return LivePeer::frame(LivePeer::Text, payload, first);
}

inline std::string repeated(std::string_view text, int times) {
    std::string all;
    for (int i = 0; i < times; ++i) all += text;
    return all;
}

/// Joins, then plays `then`.
inline ScriptedServer::Script joined(std::function<void(LivePeer&)> then) {
    return [then = std::move(then)](ScriptedServer::Connection& connection) {
        LivePeer peer(connection);
        if (peer.join()) then(peer);
    };
}

/// Joins, then sends every event back as "message". A "cut" ends the connection.
inline void echo(ScriptedServer::Connection& connection) {
    LivePeer peer(connection);
    if (!peer.join()) return;
    while (const auto message = peer.readText()) {
        if (message->starts_with("42/chat,[\"cut\"")) return;
        if (message->starts_with("42/chat,[\"say\","))
            peer.sendText("42/chat,[\"message\"," + message->substr(15));
    }
}

/// Answers joins over either transport and then sends nothing: the next GET stays open, as it
/// should. `other` gets each request first, and answers it if it returns a text.
inline ScriptedServer::Script serveEitherTransport(
    std::function<std::string(const WireRequest&)> other = nullptr) {
    struct Sessions {
        std::mutex mutex;
        int count = 0;
        std::set<std::string> joined;
    };
    return [sessions = std::make_shared<Sessions>(),
            other = std::move(other)](ScriptedServer::Connection& connection) {
        while (auto request = connection.readRequest()) {
            if (const std::string answer = other ? other(*request) : ""; !answer.empty()) {
                if (!connection.write(answer)) return;
                continue;
            }
            if (request->header("Upgrade") == "websocket") {
                LivePeer peer(connection, std::move(request));
                if (peer.join()) peer.waitForClose();
                return;
            }
            std::string body = "ok";
            const auto sid = request->target.find("&sid=");
            if (request->method == "GET") {
                const std::lock_guard lock(sessions->mutex);
                if (sid == std::string::npos) {
                    body = R"(0{"sid":")" + std::to_string(++sessions->count) +
                           R"(","upgrades":[],"pingInterval":25000,"pingTimeout":20000})";
                } else if (sessions->joined
                               .insert(request->target.substr(
                                   sid, request->target.find('&', sid + 1) - sid))
                               .second) {
                    body = R"(40/chat,{"sid":"x"})";
                } else {
                    body.clear();
                }
            }
            if (body.empty()) return connection.waitForClose();
            if (!connection.answer(200, body)) return;
        }
    };
}

}  // namespace vexim::testing
