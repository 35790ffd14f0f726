#include "VexIMLib/internal/SocketIO/Protocol/EnginePacket.h"

#include "VexIMLib/internal/Foundation/Text/Base64.h"

// An Engine.IO packet, as text:
//
//   packet := type data        type := '0'..'6'
//                              open, close, ping, pong, message, upgrade, noop
//           | 'b4' base64      an attachment, revision 3
//           | 'b' base64       an attachment, revision 4
//
// In binary form (WebSocket only): the attachment's bytes, in revision 3 after a byte 0x04.
// Example: 42["say"] is a message that holds the Socket.IO packet 2["say"].

namespace vexim {

std::optional<EnginePacketView> decodeEngineText(EngineRevision revision, std::string_view text) {
    using Content = EnginePacketView::Content;
    if (text.empty()) return std::nullopt;
    const char first = text.front();
    text.remove_prefix(1);
    if (first == 'b') {
        if (revision == EngineRevision::V3) {
            if (text.empty() || text.front() != '4') return std::nullopt;
            text.remove_prefix(1);
        }
        return EnginePacketView{EnginePacketType::Message, Content::Base64, text};
    }
    if (first < '0' || first > '6') return std::nullopt;
    return EnginePacketView{static_cast<EnginePacketType>(first - '0'), Content::Text, text};
}

std::optional<EnginePacketView> decodeEngineBinary(EngineRevision revision,
                                                   std::string_view bytes) {
    if (revision == EngineRevision::V3) {
        if (bytes.empty() || bytes.front() != '\x04') return std::nullopt;
        bytes.remove_prefix(1);
    }
    return EnginePacketView{EnginePacketType::Message, EnginePacketView::Content::Binary, bytes};
}

std::string_view binaryPrefix(EngineRevision revision) {
    return revision == EngineRevision::V3 ? "\x04" : "";
}

std::string encodeAttachmentAsText(EngineRevision revision, std::string_view bytes) {
    return (revision == EngineRevision::V3 ? "b4" : "b") + encodeBase64(bytes);
}

}  // namespace vexim
