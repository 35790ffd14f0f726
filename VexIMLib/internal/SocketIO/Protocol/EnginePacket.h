#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace vexim {

/// Engine.IO's protocol revisions: Socket.IO servers 2.x use 3, servers 3.x and 4.x use 4.
enum class EngineRevision : std::uint8_t { V3 = 3, V4 = 4 };

/// Numbered as on the wire.
enum class EnginePacketType : std::uint8_t { Open, Close, Ping, Pong, Message, Upgrade, Noop };

/// One Engine.IO packet. It refers to the received bytes, which must outlive it.
struct EnginePacketView {
    enum class Content : std::uint8_t { Text, Binary, Base64 };

    EnginePacketType type = EnginePacketType::Message;
    Content content = Content::Text;  // Binary and Base64 for messages only
    std::string_view data;            // without the type; Base64 is not decoded yet

    friend bool operator==(const EnginePacketView&, const EnginePacketView&) = default;
};

/// Reads the text of one packet; nullopt if its type is unknown.
std::optional<EnginePacketView> decodeEngineText(EngineRevision revision, std::string_view text);
/// Reads a binary WebSocket message.
std::optional<EnginePacketView> decodeEngineBinary(EngineRevision revision, std::string_view bytes);

/// The bytes before an attachment in a binary WebSocket message.
std::string_view binaryPrefix(EngineRevision revision);
/// An attachment as a text packet, for polling.
std::string encodeAttachmentAsText(EngineRevision revision, std::string_view bytes);

}  // namespace vexim
