#include "VexIMLib/C/internal/Records.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <utility>

#include "VexIMLib/C/internal/Errors.h"
#include "VexIMLib/Foundation/Array.h"
#include "VexIMLib/Foundation/Dictionary.h"
#include "VexIMLib/Foundation/JSON.h"
#include "VexIMLib/VXIMMessageTarget.h"
#include "VexIMLib/internal/Foundation/Text/Base64.h"
#include "VexIMLib/internal/Foundation/Text/PlainText.h"

namespace vexim::c {

namespace {

/// Errors quote texts of libraries and systems, which may not be UTF-8.
std::string inASCII(std::string_view text) {
    std::string plain(text);
    for (char& c : plain) {
        if (static_cast<unsigned char>(c) >= 0x80) c = '?';
    }
    return plain;
}

/// Writes most ids and names directly: a value and the JSON writer would cost several times as
/// much. Returns false if the text needs them.
bool writeShort(std::string& out, std::string_view text) {
    char quoted[48];
    constexpr std::size_t kShort = sizeof quoted - 2;
    if (text.size() > kShort) return false;
    quoted[0] = '"';
    char* end = detail::copyPlain(text, quoted + 1);
    if (!end) return false;
    *end++ = '"';
    out.append(quoted, end);
    return true;
}

void writeObject(std::string& out, const Value& value) {
    if (const auto error = value.as<Error>()) return write(out, *error);
    if (const auto message = value.as<VXIMMessage>()) return write(out, *message);
    if (const auto target = value.as<VXIMMessageTarget>()) return write(out, *target);
    if (const auto info = value.as<VXIMFriendInfo>()) return write(out, *info);
    if (const auto user = value.as<VXIMUser>()) return write(out, *user);
    if (const auto group = value.as<VXIMGroup>()) return write(out, *group);
    if (const auto room = value.as<VXIMRoom>()) return write(out, *room);
    if (const auto passenger = value.as<VXIMPassenger>()) return write(out, *passenger);
    write(out, std::string_view(value.description()));
}

/// Writes a value that JSON cannot express, or that contains such a value.
void writeAnyhow(std::string& out, const Value& value) {
    switch (value.kind()) {
        case Value::Kind::Array: {
            char before = '[';
            for (const Value& element : *value.asArray()) {
                out += std::exchange(before, ',');
                write(out, element);
            }
            out += before == '[' ? "[]" : "]";
            return;
        }
        case Value::Kind::Dictionary: {
            char before = '{';
            for (const auto [key, entry] : *value.asDictionary()) {
                out += std::exchange(before, ',');
                write(out, key);
                out += ':';
                write(out, entry);
            }
            out += before == '{' ? "{}" : "}";
            return;
        }
        case Value::Kind::Data: {
            out.append(R"({"base64":")").append(encodeBase64(value.asData()->view())).append("\"}");
            return;
        }
        case Value::Kind::Object: return writeObject(out, value);
        case Value::Kind::String: return write(out, *value.asStringView());
        case Value::Kind::Nil:
        case Value::Kind::Null:
        case Value::Kind::Boolean:
        case Value::Kind::Integer:
        case Value::Kind::Unsigned:
        case Value::Kind::Real: break;
    }
    out += "null";
}

}  // namespace

void write(std::string& out, const Value& value) {
    if (const auto text = value.asStringView(); text && writeShort(out, *text)) return;
    if (value.isObject() || value.isNil() || appendJSON(out, value, JSONFragments::Allow))
        writeAnyhow(out, value);
}

void write(std::string& out, std::string_view text) {
    if (writeShort(out, text)) return;
    if (appendJSON(out, text, JSONFragments::Allow))
        appendJSON(out, inASCII(text), JSONFragments::Allow);
}

void write(std::string& out, std::int64_t number) {
    if (number >= 0 && number < 10) {
        out += static_cast<char>('0' + number);
        return;
    }
    char digits[24];
    out.append(digits, std::to_chars(digits, digits + sizeof digits, number).ptr);
}

void write(std::string& out, double number) {
    // Times have at most three decimals, which are quick to write.
    const double thousandths = std::round(number * 1000);
    if (thousandths < 1000 || thousandths > 9e14 || thousandths / 1000 != number)
        return write(out, Value(number));
    const auto whole = static_cast<std::int64_t>(thousandths);
    write(out, whole / 1000);
    const auto rest = static_cast<int>(whole % 1000);
    const char decimals[] = {'.', static_cast<char>('0' + rest / 100),
                             static_cast<char>('0' + rest / 10 % 10),
                             static_cast<char>('0' + rest % 10)};
    out.append(decimals, rest % 10 != 0 ? 4 : rest % 100 != 0 ? 3 : 2);
}

std::string begunEvent(std::string_view name, std::string text) {
    text.reserve(768);
    text.append(R"({"@type":"event","name":")").append(name) += '"';
    return text;
}

void write(std::string& out, const Error& error) {
    ObjectWriter object(out);
    object.add("domain", std::string_view(error.domain())).add("code", error.code());
    object.add("description", std::string_view(error.localizedDescription()));
    const Value& info = error.userInfo();
    const auto* entries = info.asDictionary();
    // The user information has only the description, which is written already.
    if (entries && entries->size() == 1 && entries->contains(kLocalizedDescriptionKey)) return;
    object.add("userInfo", info);
}

std::string errorBody(const Error& error) {
    std::string body;
    write(body, error);
    return body;
}

std::string errorBody(InterfaceError code, std::string description) {
    return errorBody(*Error::withDescription(kInterfaceErrorDomain, static_cast<std::int64_t>(code),
                                             std::move(description)));
}

void write(std::string& out, const VXIMMessageTarget& target) {
    ObjectWriter object(out);
    object.add("type", static_cast<std::int32_t>(target.type()));
    object.add("userId", target.userId())
        .add("groupId", target.groupId())
        .add("roomId", target.roomId());
}

void write(std::string& out, VXIMMessage& message) {
    ObjectWriter object(out);
    const VXIMMessageMediaType mediaType = message.mediaType();
    // Read it from the payload, because `text` would copy it.
    if (const Value& text = message.payload().get("content").get("body"); text.isString()) {
        VXIMMessageMediaTypeIsAttachment(mediaType) ? object.add("attachmentUrl", text)
                                                    : object.add("text", text);
    }
    object.add("mediaType", static_cast<std::int32_t>(mediaType));
    object.add("sendTimestamp", message.sendTimestamp());
    object.add("isSystemMessage", message.isSystemMessage());
    object.add("sender", *message.sender()).add("receiver", *message.receiver());
    object.add("payload", Value(message.payload()));
}

void write(std::string& out, const VXIMFriendInfo& info) {
    ObjectWriter object(out);
    object.add("uid", info.uid()).add("online", info.online());
    if (info.ts() != 0) object.add("ts", info.ts());
    object.add("from", info.from()).add("to", info.to());
    if (const auto& message = info.recentMessage()) object.add("recentMessage", *message);
}

void write(std::string& out, const VXIMUser& user) {
    ObjectWriter object(out);
    object.add("uid", user.uid())
        .add("sessionCount", user.sessionCount())
        .add("online", user.online());
    if (const double updated = user.updatedAt().timeIntervalSince1970(); updated != 0)
        object.add("updatedAt", updated);
    object.add("attributes", user.attributes())
        .add("username", user.username())
        .add("phoneNumber", user.phoneNumber());
    if (const auto& friends = user.friends()) object.add("friends", *friends);
    if (const auto& groups = user.groups()) object.add("groups", *groups);
    if (const auto& rooms = user.rooms()) object.add("rooms", Value(*rooms));
    object.add("record", Value(user.dictionaryRepresentation()));
}

void write(std::string& out, VXIMGroup& group) {
    ObjectWriter object(out);
    object.add("groupId", group.groupId()).add("name", group.name()).add("owner", group.owner());
    object.add("members", group.members()).add("attributes", group.attributes());
    if (const auto message = group.recentMessage()) object.add("recentMessage", *message);
    object.add("record", Value(group.dictionaryRepresentation()));
}

void write(std::string& out, const VXIMRoom& room) {
    ObjectWriter object(out);
    object.add("roomId", room.roomId()).add("name", room.name()).add("members", room.members());
    if (room.createTs() != 0) object.add("createTs", room.createTs());
    object.add("attributes", room.attributes())
        .add("record", Value(room.dictionaryRepresentation()));
}

void write(std::string& out, const VXIMPassenger& passenger) {
    ObjectWriter object(out);
    object.add("pid", passenger.pid()).add("record", Value(passenger.dictionaryRepresentation()));
}

}  // namespace vexim::c
