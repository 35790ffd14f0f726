// Any bytes as a Socket.IO packet with attachments: what is accepted is written as a packet, read
// again and must be the same.

#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "VexIMLib/internal/SocketIO/Protocol/Packet.h"

namespace {

using Status = vexim::PacketDecoder::Status;

void require(bool condition) {
    if (!condition) std::abort();
}

vexim::PacketDecoder::Result decode(const vexim::EncodedPacket& packet) {
    vexim::PacketDecoder decoder(1 << 20);
    // without Engine.IO's type
    auto result = decoder.text(std::string_view(packet.text).substr(1));
    for (const auto& attachment : packet.attachments) {
        require(result.status == Status::Partial);
        result = decoder.attachment(attachment);
    }
    return result;
}

}  // namespace

// The input: the packet's text up to a newline, then its attachments, one a line.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    std::string_view rest(reinterpret_cast<const char*>(bytes), size);
    const auto takeLine = [&rest] {
        const auto line = rest.substr(0, rest.find('\n'));
        rest.remove_prefix(line.size() == rest.size() ? line.size() : line.size() + 1);
        return line;
    };
    vexim::PacketDecoder decoder(1 << 20);
    auto result = decoder.text(takeLine());
    while (result.status == Status::Partial && !rest.empty())
        result = decoder.attachment(vexim::Data(takeLine()));
    require((result.status == Status::Malformed) == (result.why != nullptr));
    const vexim::Packet& packet = result.packet;
    if (result.status != Status::Complete || !packet.payload.isArray()) return 0;

    const vexim::Array& items = *packet.payload.asArray();
    vexim::EncodeResult encoded;
    if (packet.type == vexim::PacketType::Ack) {
        encoded = vexim::encodeAck(packet.nsp, *packet.id, items);
    } else if (packet.type == vexim::PacketType::Event && items.get(0).isString()) {
        vexim::Array arguments = items;
        arguments.remove(0);
        encoded =
            vexim::encodeEvent(packet.nsp, packet.id, *items.get(0).asStringView(), arguments);
    } else {
        return 0;
    }
    // What cannot go out again: more attachments than peers take.
    if (encoded.fault != vexim::EncodeFault::None) return 0;
    const auto again = decode(encoded.packet);
    // A plain packet may hold what looks like a placeholder; beside real attachments it is taken
    // for one.
    if (again.status != Status::Complete) {
        require(!encoded.packet.attachments.empty());
        return 0;
    }
    require(again.packet.type == packet.type && again.packet.id == packet.id);
    if (encoded.packet.attachments.empty()) require(again.packet == packet);
    return 0;
}
