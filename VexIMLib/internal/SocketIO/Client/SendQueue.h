#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <string_view>

#include "VexIMLib/Foundation/Error.h"
#include "VexIMLib/internal/SocketIO/Client/PacketQueue.h"
#include "VexIMLib/internal/SocketIO/Protocol/Packet.h"

namespace vexim {

/// Why a packet is not queued.
enum class EmitFault : std::uint8_t {
    None,
    NotConnected,
    QueueFull,
    Oversize,  // longer than the whole queue
    TooLarge,  // longer than the server accepts
    NotEncodable,
};

/// The error that says that `what` was not sent, and why.
ErrorPtr emitRefusal(EncodeFault encodeFault, EmitFault fault, std::string_view what);

/// What was emitted and not written yet, within its limits. Its owner's lock guards it.
///
/// The network thread takes everything that waits at once, and reports later what it has written.
/// Until then the packets count.
class SendQueue {
public:
    struct Written {
        std::size_t bytes = 0;
        std::size_t messages = 0;
    };

    SendQueue(std::size_t maxBytes, std::size_t maxMessages)
        : maxBytes_(maxBytes),
          maxMessages_(maxMessages) {}

    /// The longest packet that the server accepts; 0 means no limit.
    void setServerLimit(std::size_t bytes) noexcept;
    EmitFault add(const EncodedPacket& packet);
    bool empty() const noexcept { return packets_.empty(); }

    /// Returns true to one caller, which must then wake the network thread to empty the queue.
    bool claimWake() noexcept;
    void releaseWake() noexcept { isWakeClaimed_ = false; }

    /// Moves what waits into `sending`, which must be empty.
    void takeInto(PacketQueue& sending) noexcept;
    void didWrite(Written written) noexcept;
    Written unwritten() const noexcept { return unwritten_; }
    /// Starts again for another connection. Returns what was waiting.
    PacketQueue reset() noexcept;

private:
    const std::size_t maxBytes_;
    const std::size_t maxMessages_;
    std::size_t serverLimit_ = std::numeric_limits<std::size_t>::max();
    PacketQueue packets_;
    Written unwritten_;  // includes what the network thread has taken but not written yet
    bool isWakeClaimed_ = false;
};

}  // namespace vexim
