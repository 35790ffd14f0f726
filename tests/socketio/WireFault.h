#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <string_view>
#include <utility>

#include "VexIMLib/SocketIOClient.h"
#include "socketio/Peers.h"
#include "socketio/Recorder.h"

namespace vexim::testing {

using Connection = ScriptedServer::Connection;

/// A peer's script, and what a client must report.
struct WireFault {
    const char* name;
    ScriptedServer::Script script;
    std::string heard;  // the beginning of the last line
    Dictionary options = {};
};

inline std::string closeFrame(int code, std::string_view reason = {}) {
    return frame(
        std::string{static_cast<char>(code >> 8), static_cast<char>(code & 0xFF)} += reason, 0x88);
}

inline ScriptedServer::Script joinedThen(std::function<void(Connection&)> then) {
    return joined([then](LivePeer& peer) { then(peer.connection()); });
}

inline ScriptedServer::Script joinedThenSend(std::string bytes) {
    return joinedThen([bytes](Connection& connection) {
        connection.write(bytes);
        connection.waitForClose();
    });
}

inline ScriptedServer::Script openingWith(std::string openPacket) {
    return [openPacket](Connection& connection) {
        LivePeer(connection).open(openPacket);
        connection.waitForClose();
    };
}

inline ScriptedServer::Script answeringWith(std::string answer) {
    return [answer](Connection& connection) {
        connection.readRequest();
        connection.write(answer);
        connection.waitForClose();
    };
}

inline void expectOutcome(const WireFault& fault, Dictionary base) {
    SCOPED_TRACE(fault.name);
    ScriptedServer server(fault.script);
    Dictionary options = std::move(base);
    options.set("reconnects", false);
    options.addEntries(fault.options);
    const auto client = makeClient(server.url(), options);
    Recorder heard(*client);
    client->connect();
    EXPECT_TRUE(heard.waitFor(fault.heard))
        << Value(Array::fromStrings(heard.lines())).description();
}

}  // namespace vexim::testing
