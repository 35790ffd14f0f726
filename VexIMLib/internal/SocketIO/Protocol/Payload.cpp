#include "VexIMLib/internal/SocketIO/Protocol/Payload.h"

#include <charconv>
#include <cstdint>
#include <utility>

#include "VexIMLib/internal/Foundation/Text/ASCII.h"
#include "VexIMLib/internal/Foundation/Text/UTF8.h"

// The body of one polling request or answer: one or more Engine.IO packets.
//
//   revision 3, text    (length ':' packet)+         length in UTF-16 code units
//   revision 3, octets  (kind digit+ 0xFF packet)+   kind 0 text, 1 binary; one byte per decimal
//                                                    digit; length in bytes
//   revision 4          packet (0x1E packet)*        JSON escapes 0x1E, so no packet contains it
//
// Example, revision 3: 8:40/chat,4:42[] ; revision 4: 40/chat,<1E>42[]

namespace vexim {
namespace {

constexpr char kSeparator = '\x1e';
// We refuse lengths of more digits.
constexpr std::size_t kMaxLengthDigits = 10;

}  // namespace

std::optional<std::size_t> bytesOfUtf16Units(std::string_view utf8, std::size_t units) {
    std::size_t at = 0;
    while (units > 0) {
        const std::size_t length = detail::utf8SequenceLength(utf8.substr(at));
        if (length == 0) return std::nullopt;
        const std::size_t width = length == 4 ? 2 : 1;
        if (width > units) return std::nullopt;
        at += length;
        units -= width;
    }
    return at;
}

std::size_t utf16Length(std::string_view utf8) noexcept {
    std::size_t units = 0;
    for (const char c : utf8) {
        const auto byte = static_cast<std::uint8_t>(c);
        units += (byte & 0xC0) != 0x80;  // every byte except continuation bytes begins a character
        units += byte >= 0xF0;           // a pair of surrogates counts twice
    }
    return units;
}

std::optional<EngineRevision> detectRevision(std::string_view firstBody) {
    if (firstBody.starts_with("0{")) return EngineRevision::V4;
    std::size_t digits = 0;
    while (digits < firstBody.size() && detail::isDigit(firstBody[digits])) ++digits;
    if (digits > 0 && firstBody.substr(digits).starts_with(":0{")) return EngineRevision::V3;
    return std::nullopt;
}

PayloadReader::PayloadReader(EngineRevision revision, std::string_view body)
    : revision_(revision),
      octets_(revision == EngineRevision::V3 && !body.empty() &&
              (body.front() == 0 || body.front() == 1)),
      rest_(body) {}

std::optional<EnginePacketView> PayloadReader::next() {
    if (failed_ || finished_) return std::nullopt;
    if (rest_.empty()) return fail();
    auto packet = octets_                           ? nextOctets()
                  : revision_ == EngineRevision::V3 ? nextCounted()
                                                    : nextSeparated();
    if (!packet) return fail();
    return packet;
}

std::optional<EnginePacketView> PayloadReader::fail() {
    failed_ = true;
    return std::nullopt;
}

std::optional<EnginePacketView> PayloadReader::nextCounted() {
    std::size_t units = 0;
    const char* const begin = rest_.data();
    const char* const end = begin + std::min(rest_.size(), kMaxLengthDigits + 1);
    const auto [stop, error] = std::from_chars(begin, end, units);
    if (error != std::errc{} || stop == end || *stop != ':') return std::nullopt;
    rest_.remove_prefix(static_cast<std::size_t>(stop - begin) + 1);
    const auto bytes = bytesOfUtf16Units(rest_, units);
    if (!bytes) return std::nullopt;
    const auto text = rest_.substr(0, *bytes);
    rest_.remove_prefix(*bytes);
    finished_ = rest_.empty();
    return decodeEngineText(revision_, text);
}

std::optional<EnginePacketView> PayloadReader::nextOctets() {
    // 0 text, 1 binary; a plain char may have no sign
    const auto kind = static_cast<std::uint8_t>(rest_.front());
    std::size_t length = 0;
    std::size_t at = 1;
    for (;; ++at) {
        if (at >= rest_.size() || at > kMaxLengthDigits + 1) return std::nullopt;
        const auto digit = static_cast<std::uint8_t>(rest_[at]);
        if (digit == 0xFF) break;
        if (digit > 9) return std::nullopt;
        length = length * 10 + digit;
    }
    if (kind > 1 || at == 1) return std::nullopt;
    rest_.remove_prefix(at + 1);
    if (length > rest_.size()) return std::nullopt;
    const auto packet = rest_.substr(0, length);
    rest_.remove_prefix(length);
    finished_ = rest_.empty();
    return kind == 0 ? decodeEngineText(revision_, packet) : decodeEngineBinary(revision_, packet);
}

std::optional<EnginePacketView> PayloadReader::nextSeparated() {
    const auto at = rest_.find(kSeparator);
    const auto text = rest_.substr(0, at);
    if (at == std::string_view::npos) {
        finished_ = true;
    } else {
        rest_.remove_prefix(at + 1);  // an empty rest now means an empty packet, which is an error
    }
    return decodeEngineText(revision_, text);
}

void PayloadWriter::add(std::string_view packet) {
    if (revision_ == EngineRevision::V3) {
        body_ += std::to_string(utf16Length(packet));
        body_ += ':';
    } else if (!body_.empty()) {
        body_ += kSeparator;
    }
    body_ += packet;
}

std::size_t PayloadWriter::sizeWith(std::string_view packet) const {
    const std::size_t framing = revision_ == EngineRevision::V3
                                    ? std::to_string(utf16Length(packet)).size() + 1
                                : body_.empty() ? 0
                                                : 1;
    return body_.size() + framing + packet.size();
}

std::string PayloadWriter::take() { return std::exchange(body_, {}); }

}  // namespace vexim
