#include "VexIMLib/internal/SocketIO/Client/SendQueue.h"

#include <algorithm>
#include <string>
#include <utility>

#include "VexIMLib/VXIMErrors.h"

namespace vexim {

ErrorPtr emitRefusal(EncodeFault encodeFault, EmitFault fault, std::string_view what) {
    SocketIOErrorCode code = SocketIOErrorNotEncodable;
    const char* why = nullptr;
    switch (encodeFault) {
        case EncodeFault::None:
            code = fault == EmitFault::NotConnected ? SocketIOErrorNotConnected
                                                    : SocketIOErrorTooLarge;
            why = fault == EmitFault::NotConnected ? "the socket is not connected"
                  : fault == EmitFault::TooLarge   ? "it is longer than the server accepts"
                  : fault == EmitFault::Oversize   ? "it is longer than the whole send queue"
                                                   : "the send queue is full";
            break;
        case EncodeFault::NotEncodable: why = "its items are not JSON"; break;
        case EncodeFault::NotUTF8: why = "a text in it is not valid UTF-8"; break;
        case EncodeFault::ReservedName: why = "its name is reserved"; break;
        case EncodeFault::TooDeep:
            code = SocketIOErrorTooLarge, why = "its items are nested too deeply";
            break;
        case EncodeFault::TooManyAttachments:
            code = SocketIOErrorTooLarge, why = "it has too many attachments";
            break;
    }
    Dictionary userInfo{
        {kLocalizedDescriptionKey, std::string(what) + " was not sent: " + why + "."},
        {kLocalizedFailureReasonKey, why}};
    if (encodeFault == EncodeFault::None && fault == EmitFault::QueueFull)
        userInfo.set(kTemporaryKey, true);
    return Error::make(kSocketIOErrorDomain, code, std::move(userInfo));
}

void SendQueue::setServerLimit(std::size_t bytes) noexcept {
    serverLimit_ = bytes > 0 ? bytes : std::numeric_limits<std::size_t>::max();
}

EmitFault SendQueue::add(const EncodedPacket& packet) {
    const auto isTooLarge = [this](const Data& each) { return each.size() > serverLimit_; };
    if (packet.text.size() > serverLimit_ || std::ranges::any_of(packet.attachments, isTooLarge))
        return EmitFault::TooLarge;
    const std::size_t cost = PacketQueue::cost(packet);
    if (cost > maxBytes_) return EmitFault::Oversize;
    if (unwritten_.bytes + cost > maxBytes_ || unwritten_.messages >= maxMessages_)
        return EmitFault::QueueFull;
    unwritten_.bytes += cost;
    ++unwritten_.messages;
    packets_.push(packet);
    return EmitFault::None;
}

bool SendQueue::claimWake() noexcept { return !std::exchange(isWakeClaimed_, true); }

void SendQueue::takeInto(PacketQueue& sending) noexcept { std::swap(sending, packets_); }

void SendQueue::didWrite(Written written) noexcept {
    unwritten_.bytes -= written.bytes;
    unwritten_.messages -= written.messages;
}

PacketQueue SendQueue::reset() noexcept {
    unwritten_ = {};
    return std::exchange(packets_, {});
}

}  // namespace vexim
