#include "live/LiveServer.h"

#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <string_view>

#include "support/LivePeer.h"
#include "support/ScriptedServer.h"

namespace vexim::bench {

const std::string LiveServer::kEvent =
    R"(42/chat,["message",{"content":{"media":0,"body":"Shall we meet at the station at seven? I will bring tickets."},)"
    R"("ts":1700000000123,"from":{"id":"5f2b7c9e8a1d4e0012345678","type":0},"to":{"id":"5f2b7c9e8a1d4e00deadbeef","type":0}}])";

namespace {

using testing::LivePeer;

/// Logs the client in. Without pings, because counting instructions takes minutes.
bool letIn(LivePeer& peer) {
    return peer.open(
               R"(0{"sid":"s1","upgrades":[],"pingInterval":3600000,"pingTimeout":20000,"maxPayload":1000000})") &&
           peer.readText() && peer.sendText(R"(40/chat,{"sid":"s2"})") &&
           peer.sendText(R"(42/chat,["login",{"success":true,"id":"5f2b7c9e8a1d4e00deadbeef"}])");
}

void serve(testing::ScriptedServer::Connection& connection) {
    const auto request = connection.readRequest();
    if (!request) return;
    LivePeer peer(connection, request);
    if (request->target == "/peer") {
        if (!peer.acceptWebSocket()) return;
    } else if (!letIn(peer)) {
        return;
    }
    const std::string event = LivePeer::frame(LivePeer::Text, LiveServer::kEvent);
    std::string events;
    while (events.size() < 60'000) events += event;
    const int perWrite = static_cast<int>(events.size() / event.size());
    while (const auto text = peer.readText()) {
        if (text->find("\"flood\"") != text->npos) {
            int left = LiveServer::kFlood;
            for (; left >= perWrite; left -= perWrite) connection.write(events);
            connection.write(
                std::string_view(events).substr(0, event.size() * static_cast<std::size_t>(left)));
        } else if (text->find("\"end\"") != text->npos) {
            connection.write(event);
        }
    }
}

}  // namespace

LiveServer::LiveServer() {
    int pipe[2];
    if (::pipe(pipe) != 0) std::abort();
    process_ = ::fork();
    if (process_ == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        const testing::ScriptedServer server(serve);
        const std::uint16_t port = server.port();
        if (::write(pipe[1], &port, sizeof port) != sizeof port) std::_Exit(1);
        for (;;) ::pause();
    }
    if (process_ < 0 || ::read(pipe[0], &port_, sizeof port_) != sizeof port_) std::abort();
    ::close(pipe[0]);
    ::close(pipe[1]);
}

LiveServer::~LiveServer() {
    ::kill(process_, SIGKILL);
    ::waitpid(process_, nullptr, 0);
}

}  // namespace vexim::bench
