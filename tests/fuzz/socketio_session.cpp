// Reads any bytes as events of a session: each line is an event, and its first character says
// which. Whatever comes, the session ends at most once, has at most one GET and one POST running,
// and never keeps asking to be woken in the past.

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

#include "VexIMLib/internal/SocketIO/Protocol/EngineSession.h"

namespace {

using namespace vexim;

void require(bool condition) {
    if (!condition) std::abort();
}

class Life {
public:
    explicit Life(SessionConfig config) : session_(std::move(config)) { happen(event::Start{}); }

    void live(std::string_view line) {
        if (line.empty()) return;
        const std::string_view rest = line.substr(1);
        switch (line.front()) {
            case 't': return happen(event::WebSocketText{rest});
            case 'b': return happen(event::WebSocketBinary{rest});
            case 'o': return happen(event::WebSocketOpened{});
            case 'f':
                return happen(event::WebSocketFailed{event::WebSocketFailed::Stage::Handshake, "f",
                                                     400, std::string(rest)});
            case 'c': return happen(event::WebSocketClosed{});
            case 'p': return happen(event::WebSocketPong{});
            case 'g':
            case 'G':
                if (!std::exchange(getInFlight_, false)) return;
                return happen(event::GetAnswered{line.front() == 'g' ? 200 : 400, rest});
            case 'q':
            case 'Q':
                if (!std::exchange(postInFlight_, false)) return;
                return happen(event::PostAnswered{line.front() == 'q' ? 200 : 413, rest});
            case 'x': return happen(event::RequestFailed{"x", rest == "!"});
            case 'e':
                if (session_.canEmit()) happen(event::Emit{{"42/chat,[\"e\"]", {Data("a", 1)}}});
                return happen(event::Flush{});
            case 'n': return happen(event::NetworkChanged{});
            case 'w': return wait();
            case 'z': return happen(event::Close{});
            default: return;
        }
    }

    void wait() {
        const auto due = session_.deadline();
        if (!due) return;
        now_ = std::max(now_, *due);
        happen(event::Tick{});
        // What was due is done.
        if (const auto next = session_.deadline()) require(*next > now_);
    }

private:
    void happen(const SessionEvent& what) {
        SessionActions actions;
        session_.on(what, now_, actions);
        require(!ended_ || actions.empty());
        for (const auto& action : actions) {
            require(!ended_);
            if (std::holds_alternative<action::Get>(action))
                require(!std::exchange(getInFlight_, true));
            if (std::holds_alternative<action::Post>(action))
                require(!std::exchange(postInFlight_, true));
            if (std::holds_alternative<action::Ended>(action)) ended_ = true;
        }
        require(ended_ == session_.hasEnded());
    }

    EngineSession session_;
    Clock::TimePoint now_{std::chrono::seconds(1000)};
    bool ended_ = false;
    bool getInFlight_ = false;
    bool postInFlight_ = false;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    if (size == 0) return 0;
    SessionConfig config;
    config.nsp = (bytes[0] & 4) != 0 ? "/chat" : "/";
    config.transports = static_cast<TransportChoice>(bytes[0] & 3);
    Life life(config);
    std::string_view script(reinterpret_cast<const char*>(bytes) + 1, size - 1);
    while (!script.empty()) {
        const auto line = script.substr(0, script.find('\n'));
        script.remove_prefix(line.size() == script.size() ? line.size() : line.size() + 1);
        life.live(line);
    }
    return 0;
}
