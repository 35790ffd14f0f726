// Any bytes as a polling answer in each revision: packets are read to the end or to a fault; text
// packets that were read are written as a payload, read again and must be the same.

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "VexIMLib/internal/Foundation/Text/Base64.h"
#include "VexIMLib/internal/SocketIO/Protocol/Payload.h"

namespace {

void require(bool condition) {
    if (!condition) std::abort();
}

void tryRevision(vexim::EngineRevision revision, std::string_view body) {
    using Content = vexim::EnginePacketView::Content;
    std::vector<std::string> packets;
    vexim::PayloadReader reader(revision, body);
    vexim::PayloadWriter writer(revision);
    while (const auto packet = reader.next()) {
        require(packet->data.data() >= body.data() &&
                packet->data.data() + packet->data.size() <= body.data() + body.size());
        if (packet->content == Content::Base64) {
            if (const auto bytes = vexim::decodeBase64(packet->data))
                require(vexim::decodeBase64(vexim::encodeBase64(*bytes)) == bytes);
        }
        if (packet->content != Content::Text) continue;
        // The binary form carries any bytes; the text form carries UTF-8 without the separator.
        if (packet->data.find('\x1e') != std::string_view::npos) return;
        if (vexim::bytesOfUtf16Units(packet->data, vexim::utf16Length(packet->data)) !=
            packet->data.size())
            return;
        packets.push_back(std::to_string(static_cast<int>(packet->type)) += packet->data);
        writer.add(packets.back());
    }
    if (packets.empty()) return;
    const std::string again = writer.take();
    vexim::PayloadReader second(revision, again);
    for (const auto& packet : packets) {
        const auto read = second.next();
        require(read && read->data == std::string_view(packet).substr(1) &&
                static_cast<int>(read->type) == packet[0] - '0');
    }
    require(!second.next() && !second.failed());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    const std::string_view body(reinterpret_cast<const char*>(bytes), size);
    tryRevision(vexim::EngineRevision::V3, body);
    tryRevision(vexim::EngineRevision::V4, body);
    (void)vexim::detectRevision(body);
    return 0;
}
