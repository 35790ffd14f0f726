#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "VexIMLib/Foundation/Array.h"
#include "VexIMLib/Foundation/Data.h"
#include "VexIMLib/Foundation/Value.h"

namespace vexim {

/// Binary events and acks become events and acks, with the attachments put back into their places.
enum class PacketType : std::uint8_t { Connect, Disconnect, Event, Ack, Error };

/// One Socket.IO packet.
struct Packet {
    PacketType type = PacketType::Event;
    std::string nsp = "/";
    std::optional<std::uint64_t> id;
    /// For an event, an array that begins with the name; for an ack, an array; for a connect, nil
    /// or a dictionary; for an error, anything.
    Value payload;

    friend bool operator==(const Packet&, const Packet&) = default;
};

/// How many attachments a server may announce. We may send fewer: the current JavaScript parsers
/// refuse more than 10.
inline constexpr std::size_t kMaxAttachmentsIn = 64;
inline constexpr std::size_t kMaxAttachmentsOut = 10;

/// Turns Engine.IO messages into packets, collecting attachments.
class PacketDecoder {
public:
    enum class Status : std::uint8_t { Complete, Partial, Malformed };
    struct Result {
        Status status = Status::Malformed;
        Packet packet;              // when complete
        const char* why = nullptr;  // if malformed; the decoder cannot be used any more
    };

    /// The attachments of one packet may have `maxBytes` in all.
    explicit PacketDecoder(std::size_t maxBytes) : maxBytes_(maxBytes) {}

    Result text(std::string_view text);
    Result attachment(Data bytes);

private:
    const std::size_t maxBytes_;
    Packet pending_;
    std::size_t missing_ = 0;
    std::size_t bytes_ = 0;
    std::vector<Data> attachments_;
};

/// A packet ready for an Engine.IO message: the text after the message's type, and the attachments
/// in order.
struct EncodedPacket {
    std::string text;
    std::vector<Data> attachments;
};

enum class EncodeFault : std::uint8_t {
    None,
    NotEncodable,
    NotUTF8,
    ReservedName,
    TooDeep,
    TooManyAttachments
};
struct EncodeResult {
    EncodedPacket packet;
    EncodeFault fault = EncodeFault::None;
};

EncodeResult encodeEvent(std::string_view nsp, std::optional<std::uint64_t> id,
                         std::string_view name, const Array& items);
EncodeResult encodeAck(std::string_view nsp, std::uint64_t id, const Array& items);
/// Makes a join; `payload` is a dictionary or nil.
EncodedPacket encodeConnect(std::string_view nsp, const Value& payload);
EncodedPacket encodeDisconnect(std::string_view nsp);

/// Names that the protocol reserves: 4.x servers close the connection for them.
bool isReservedEventName(std::string_view name) noexcept;

}  // namespace vexim
