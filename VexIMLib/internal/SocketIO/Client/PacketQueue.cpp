#include "VexIMLib/internal/SocketIO/Client/PacketQueue.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace vexim {
namespace {

constexpr std::size_t kBlockBytes = 16 * 1024;
constexpr std::size_t kHeadBytes = sizeof(std::uint32_t) + 1;

}  // namespace

std::size_t PacketQueue::cost(std::string_view text) noexcept { return kHeadBytes + text.size(); }

std::size_t PacketQueue::cost(const Data& attachment) noexcept {
    return sizeof(Data) + attachment.size();
}

std::size_t PacketQueue::cost(const EncodedPacket& packet) noexcept {
    std::size_t bytes = cost(std::string_view(packet.text));
    for (const Data& attachment : packet.attachments) bytes += cost(attachment);
    return bytes;
}

std::size_t PacketQueue::overhead(const Front& front) noexcept {
    return kHeadBytes + front.attachments * sizeof(Data);
}

void PacketQueue::push(const EncodedPacket& packet) {
    const std::size_t needed = kHeadBytes + packet.text.size();
    if (blocks_.empty() || blocks_.back().bytes.size() + needed > kBlockBytes) {
        const bool isFirst = blocks_.empty();  // an idle connection does not need a whole block
        blocks_.emplace_back().bytes.reserve(isFirst ? needed : std::max(needed, kBlockBytes));
    }
    std::string& bytes = blocks_.back().bytes;
    // it is not idle, so grow once and not in many steps
    if (bytes.capacity() - bytes.size() < needed) bytes.reserve(kBlockBytes);
    const auto length = static_cast<std::uint32_t>(packet.text.size());
    bytes.append(reinterpret_cast<const char*>(&length), sizeof length);
    bytes += static_cast<char>(packet.attachments.size());
    bytes += packet.text;
    attachments_.insert(attachments_.end(), packet.attachments.begin(), packet.attachments.end());
    ++count_;
}

PacketQueue::Front PacketQueue::front() const {
    const Block& block = blocks_.front();
    std::uint32_t length = 0;
    std::memcpy(&length, block.bytes.data() + block.read, sizeof length);
    const auto attachments = static_cast<std::uint8_t>(block.bytes[block.read + sizeof length]);
    return {std::string_view(block.bytes).substr(block.read + kHeadBytes, length), attachments};
}

Data PacketQueue::takeAttachment() {
    Data data = std::move(attachments_.front());
    attachments_.pop_front();
    return data;
}

void PacketQueue::pop() {
    Block& block = blocks_.front();
    block.read += kHeadBytes + front().text.size();
    if (block.read == block.bytes.size()) blocks_.pop_front();
    --count_;
}

void PacketQueue::clear() { *this = {}; }

}  // namespace vexim
