#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace vexim {

/// What a server says about a connection in its first packet.
struct OpenPacket {
    std::string sid;
    bool offersWebSocket = false;
    std::chrono::milliseconds pingInterval{25'000};
    std::chrono::milliseconds pingTimeout{20'000};
    /// How long a server of revision 4 may be silent: until its next ping, and as much longer as it
    /// waits for our answer.
    std::chrono::milliseconds patience() const noexcept { return pingInterval + pingTimeout; }

    /// The longest message or polling body that the server accepts. Servers send it since 4.5.
    std::optional<std::size_t> maxPayload;

    /// How long a polling body may be: the server's limit, or the default of servers.
    std::size_t bodyLimit() const noexcept { return maxPayload.value_or(1'000'000); }
};

/// nullopt if it is not a JSON object, has no sid, or its intervals are not within 1 to 2^31 - 1
/// ms.
std::optional<OpenPacket> parseOpenPacket(std::string_view json);

}  // namespace vexim
