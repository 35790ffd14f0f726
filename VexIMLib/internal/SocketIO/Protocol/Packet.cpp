#include "VexIMLib/internal/SocketIO/Protocol/Packet.h"

#include <algorithm>
#include <charconv>
#include <utility>

#include "VexIMLib/internal/Foundation/Text/ASCII.h"
#include "VexIMLib/internal/Foundation/Text/BoundedJSON.h"
#include "VexIMLib/internal/Foundation/Text/UTF8.h"

// A packet of the live connection, as text:
//   packet := type [count '-'] [namespace ','] [id] [json]
//   type   := '0'..'6'      connect, disconnect, event, ack, error, binary event, binary ack
//   count  := digits        attachments that follow (types 5 and 6 only)
//   id     := digits        the sender wants an answer, or this is one
//
// The comma may be missing at the end of the text. In types 5 and 6, {"_placeholder":true,"num":i}
// stands for attachment i.
//
// Example: 2/chat,17["say",{"ts":1}] is an event in "/chat" that asks for answer 17.

namespace vexim {
namespace {

constexpr char kMessage = '4';  // Engine.IO's packet type
constexpr std::string_view kPlaceholderKey = "_placeholder";
constexpr std::string_view kIndexKey = "num";

// The limit for values and keys in a packet's JSON. A text of 16 MiB could have eight million,
// which take ten times as much memory.
constexpr std::size_t kMaxValuesIn = 100'000;

PacketDecoder::Result malformed(const char* why) {
    return {PacketDecoder::Status::Malformed, {}, why};
}

/// Removes digits from the front; nullopt if there are none or the number has more than 64 bits.
std::optional<std::uint64_t> takeNumber(std::string_view& text) {
    std::uint64_t number = 0;
    const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc{}) return std::nullopt;
    text.remove_prefix(static_cast<std::size_t>(stop - text.data()));
    return number;
}

const char* faultOfPayload(const Packet& packet) {
    switch (packet.type) {
        case PacketType::Connect:
            return packet.payload.isNil() || packet.payload.isDictionary()
                       ? nullptr
                       : "a connect whose payload is not an object";
        case PacketType::Disconnect:
            return packet.payload.isNil() ? nullptr : "a disconnect with a payload";
        case PacketType::Error: return packet.id ? "an error with an id" : nullptr;
        case PacketType::Ack:
            if (!packet.id) return "an answer without an id";
            return packet.payload.isArray() ? nullptr : "an answer whose payload is not an array";
        case PacketType::Event: {
            const auto name = packet.payload.isArray()
                                  ? packet.payload.get(std::size_t{0}).asStringView()
                                  : std::nullopt;
            if (!name) return "an event without a name";
            if (isReservedEventName(*name)) return "an event with a reserved name";
            return nullptr;
        }
    }
    return "unreachable";
}

/// Puts attachments back into their places. Returns false if an index is invalid.
bool restore(Value& value, const std::vector<Data>& attachments) {
    if (const Array* array = value.asArray()) {
        bool sound = true;
        for (std::size_t i = 0; i < array->size() && sound; ++i) {
            const Value& element = array->get(i);
            if (!element.isArray() && !element.isDictionary()) continue;
            value.mutableArray().update(i,
                                        [&](Value& inner) { sound = restore(inner, attachments); });
            array = value.asArray();
        }
        return sound;
    }
    const Dictionary* dictionary = value.asDictionary();
    if (!dictionary) return true;
    const Value& mark = dictionary->get(kPlaceholderKey);
    if (mark.isBoolean() && mark.boolean()) {
        const Value& index = dictionary->get(kIndexKey);
        if (index.kind() != Value::Kind::Integer || index.integer() < 0) return false;
        const auto at = static_cast<std::uint64_t>(index.integer());
        if (at >= attachments.size()) return false;
        value = Value(attachments[static_cast<std::size_t>(at)]);
        return true;
    }
    bool sound = true;
    for (const auto& key : dictionary->keys()) {
        const Value& entry = value.get(key);
        if (!entry.isArray() && !entry.isDictionary()) continue;
        value.mutableDictionary().update(
            key, [&](Value& inner) { sound = sound && restore(inner, attachments); });
    }
    return sound;
}

enum class Contents : std::uint8_t { Plain, WithData, NotUTF8, TooDeep };

Contents inspect(const Value& value, std::size_t depth) {
    if (value.isData()) return Contents::WithData;
    const auto text = value.asStringView();
    if (text && !detail::isValidUTF8(*text)) return Contents::NotUTF8;
    Contents found = Contents::Plain;
    if (const Array* array = value.asArray()) {
        if (depth == 0) return Contents::TooDeep;
        for (const Value& element : *array) {
            found = std::max(found, inspect(element, depth - 1));
            if (found == Contents::TooDeep) break;
        }
    } else if (const Dictionary* dictionary = value.asDictionary()) {
        if (depth == 0) return Contents::TooDeep;
        for (const auto& [key, element] : *dictionary) {
            if (!detail::isValidUTF8(key)) found = std::max(found, Contents::NotUTF8);
            found = std::max(found, inspect(element, depth - 1));
            if (found == Contents::TooDeep) break;
        }
    }
    return found;
}

Value extract(const Value& value, std::vector<Data>& attachments) {
    if (const Data* data = value.asData()) {
        attachments.push_back(*data);
        return Dictionary{{kPlaceholderKey, true}, {kIndexKey, attachments.size() - 1}};
    }
    if (const Array* array = value.asArray()) {
        Array copy;
        copy.reserve(array->size());
        for (const Value& element : *array) copy.append(extract(element, attachments));
        return copy;
    }
    if (const Dictionary* dictionary = value.asDictionary()) {
        Dictionary copy;
        copy.reserve(dictionary->size());
        for (const auto& [key, element] : *dictionary) copy.set(key, extract(element, attachments));
        return copy;
    }
    return value;
}

void appendHead(std::string& text, char type, std::size_t attachments, std::string_view nsp,
                std::optional<std::uint64_t> id) {
    text += kMessage;
    text += type;
    if (attachments > 0) {
        text += std::to_string(attachments);
        text += '-';
    }
    if (nsp != "/") {
        text += nsp;
        text += ',';
    }
    if (id) text += std::to_string(*id);
}

/// An event's name as JSON; empty if it is not UTF-8.
std::string quoted(std::string_view name) {
    const bool plain = std::ranges::all_of(
        name, [](char c) { return c >= 0x20 && c < 0x7F && c != '"' && c != '\\'; });
    if (!plain) return writeJSON(Value(name), JSONFragments::Allow).text;
    std::string text;
    text.reserve(name.size() + 2);
    text += '"';
    text += name;
    text += '"';
    return text;
}

struct Head {
    char plainType;
    char binaryType;
    std::string_view nsp;
    std::optional<std::uint64_t> id;
    std::string_view name;  // an event's, quoted; empty for an ack
};

/// False if `items` cannot be written as JSON.
bool write(std::string& text, const Head& head, const Array& items, std::size_t attachments) {
    text.clear();
    appendHead(text, attachments > 0 ? head.binaryType : head.plainType, attachments, head.nsp,
               head.id);
    if (!head.name.empty()) (text += '[') += head.name;
    const std::size_t itemsAt = text.size();
    if (appendJSON(text, items)) return false;
    // The event's name has already opened the array.
    if (!head.name.empty() && items.empty()) text.erase(itemsAt, 1);
    if (!head.name.empty() && !items.empty()) text[itemsAt] = ',';
    return true;
}

EncodeResult encode(const Head& head, const Array& items) {
    EncodeResult result;
    auto& [text, attachments] = result.packet;
    if (write(text, head, items, 0)) return result;
    // Search the items only if JSON refuses them: for data, and for the reason.
    switch (inspect(items, kJSONMaxDepth)) {
        case Contents::TooDeep: result.fault = EncodeFault::TooDeep; return result;
        case Contents::NotUTF8: result.fault = EncodeFault::NotUTF8; return result;
        case Contents::Plain: result.fault = EncodeFault::NotEncodable; return result;
        case Contents::WithData: break;
    }
    const Value marked = extract(items, attachments);
    if (attachments.size() > kMaxAttachmentsOut) {
        result.fault = EncodeFault::TooManyAttachments;
    } else if (!write(text, head, *marked.asArray(), attachments.size())) {
        result.fault = EncodeFault::NotEncodable;
    }
    return result;
}

}  // namespace

bool isReservedEventName(std::string_view name) noexcept {
    constexpr std::string_view kReserved[] = {"connect",       "connect_error", "disconnect",
                                              "disconnecting", "newListener",   "removeListener"};
    return std::ranges::find(kReserved, name) != std::end(kReserved);
}

PacketDecoder::Result PacketDecoder::text(std::string_view text) {
    if (missing_ > 0) return malformed("a message where an attachment is expected");
    if (text.empty() || text.front() < '0' || text.front() > '6')
        return malformed("a packet of an unknown type");
    const int type = text.front() - '0';
    const bool isBinary = type >= 5;
    text.remove_prefix(1);

    Packet packet;
    packet.type = static_cast<PacketType>(isBinary ? type - 3 : type);
    std::size_t count = 0;
    if (isBinary) {
        const auto announced = takeNumber(text);
        if (!announced || !text.starts_with('-'))
            return malformed("a binary packet without its count");
        if (*announced == 0 || *announced > kMaxAttachmentsIn)
            return malformed("a binary packet with a count out of range");
        count = static_cast<std::size_t>(*announced);
        text.remove_prefix(1);
    }
    if (text.starts_with('/')) {
        const auto comma = std::min(text.find(','), text.size());
        packet.nsp = text.substr(0, comma);
        text.remove_prefix(std::min(comma + 1, text.size()));
    }
    // Like the other parsers: digits here are an id, even if a number could be the payload.
    if (!text.empty() && detail::isDigit(text.front())) {
        packet.id = takeNumber(text);
        if (!packet.id) return malformed("an id out of range");
    }
    if (!text.empty()) {
        JSONResult json = detail::parseBoundedJSON(text, JSONFragments::Allow, kMaxValuesIn);
        if (json.error) return malformed("a payload that is not JSON, or has too many values");
        packet.payload = std::move(json.value);
    }
    if (const char* why = faultOfPayload(packet)) return malformed(why);
    if (!isBinary) return {Status::Complete, std::move(packet), nullptr};

    pending_ = std::move(packet);
    missing_ = count;
    bytes_ = 0;
    attachments_.clear();
    return {Status::Partial, {}, nullptr};
}

PacketDecoder::Result PacketDecoder::attachment(Data bytes) {
    if (missing_ == 0) return malformed("an unexpected attachment");
    bytes_ += bytes.size();
    if (bytes_ > maxBytes_) return malformed("attachments that exceed the limit");
    attachments_.push_back(std::move(bytes));
    if (--missing_ > 0) return {Status::Partial, {}, nullptr};
    Packet packet = std::exchange(pending_, {});
    if (!restore(packet.payload, attachments_))
        return malformed("a placeholder without its attachment");
    attachments_.clear();
    return {Status::Complete, std::move(packet), nullptr};
}

EncodeResult encodeEvent(std::string_view nsp, std::optional<std::uint64_t> id,
                         std::string_view name, const Array& items) {
    if (isReservedEventName(name)) return {{}, EncodeFault::ReservedName};
    const std::string quotedName = quoted(name);
    if (quotedName.empty()) return {{}, EncodeFault::NotUTF8};
    return encode({'2', '5', nsp, id, quotedName}, items);
}

EncodeResult encodeAck(std::string_view nsp, std::uint64_t id, const Array& items) {
    return encode({'3', '6', nsp, id, {}}, items);
}

EncodedPacket encodeConnect(std::string_view nsp, const Value& payload) {
    EncodedPacket packet;
    appendHead(packet.text, '0', 0, nsp, std::nullopt);
    if (!payload.isNil()) appendJSON(packet.text, payload);
    return packet;
}

EncodedPacket encodeDisconnect(std::string_view nsp) {
    EncodedPacket packet;
    appendHead(packet.text, '1', 0, nsp, std::nullopt);
    return packet;
}

}  // namespace vexim
