#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace vexim {

/// Engine.IO's protocol revisions: 3 is spoken by Socket.IO servers 2.x, 4 by servers 3.x and 4.x.
enum class EngineRevision : std::uint8_t { V3 = 3, V4 = 4 };

/// Numbered as on the wire.
enum class EnginePacketType : std::uint8_t { Open, Close, Ping, Pong, Message, Upgrade, Noop };

/// One Engine.IO packet as it lies in the received bytes, which must outlive it.
struct EnginePacketView {
    enum class Content : std::uint8_t { Text, Binary, Base64 };

    EnginePacketType type = EnginePacketType::Message;
    Content content = Content::Text;  // Binary and Base64 for messages only
    std::string_view data;            // without the type; Base64 is not decoded yet

    friend bool operator==(const EnginePacketView&, const EnginePacketView&) = default;
};

/// Reads the text of one packet; nullopt when its type is unknown.
std::optional<EnginePacketView> decodeEngineText(EngineRevision revision, std::string_view text);
/// Reads a binary WebSocket message.
std::optional<EnginePacketView> decodeEngineBinary(EngineRevision revision, std::string_view bytes);

/// What precedes an attachment's bytes in a binary WebSocket message.
std::string_view binaryPrefix(EngineRevision revision);
/// An attachment as a text packet, for polling.
std::string encodeAttachmentAsText(EngineRevision revision, std::string_view bytes);

}  // namespace vexim
