#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <string>
#include <string_view>

#include "VexIMLib/Foundation/Data.h"
#include "VexIMLib/internal/SocketIO/Protocol/Packet.h"

namespace vexim {

/// Packets to send, in order. They are stored in blocks, so hundreds of thousands of them cost
/// little more than their texts.
class PacketQueue {
public:
    struct Front {
        std::string_view text;
        std::uint8_t attachments = 0;  // take them with `takeAttachment` before `pop`
    };

    void push(const EncodedPacket& packet);
    bool empty() const noexcept { return count_ == 0; }
    std::size_t count() const noexcept { return count_; }
    Front front() const;
    Data takeAttachment();
    void pop();
    void clear();

    /// How much a packet counts towards a limit.
    static std::size_t cost(const EncodedPacket& packet) noexcept;
    static std::size_t cost(std::string_view text) noexcept;
    static std::size_t cost(const Data& attachment) noexcept;
    /// The part of the first packet's cost that is not the length of its text and attachments.
    static std::size_t overhead(const Front& front) noexcept;

private:
    struct Block {
        std::string bytes;  // (length, 4 bytes; attachments, 1 byte; text)*
        std::size_t read = 0;
    };

    std::list<Block> blocks_;
    std::list<Data> attachments_;
    std::size_t count_ = 0;
};

}  // namespace vexim
