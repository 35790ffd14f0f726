#include "VexIMLib/internal/Foundation/Text/Description.h"

#include <algorithm>
#include <charconv>

#include "VexIMLib/Foundation/JSON.h"
#include "VexIMLib/Foundation/Object.h"

namespace vexim::detail {

namespace {

constexpr std::size_t kShownBytes = 24;

template <class Number>
void appendNumber(Number number, std::string& text) {
    char buffer[32];
    auto result = std::to_chars(buffer, buffer + sizeof(buffer), number);
    text.append(buffer, result.ptr);
}

// "{length = 5, bytes = 0x48656c6c6f}"; for long data only the beginning, so that it fits in a log
// line.
void appendData(const Data& data, std::string& text) {
    static constexpr char kDigits[] = "0123456789abcdef";
    text += "{length = ";
    appendNumber(data.size(), text);
    text += ", bytes = 0x";
    for (auto byte : data.span().first(std::min(data.size(), kShownBytes))) {
        text += kDigits[byte >> 4];
        text += kDigits[byte & 15];
    }
    if (data.size() > kShownBytes) text += "…";
    text += '}';
}

void append(const Value& value, std::string& text, std::size_t depth) {
    switch (value.kind()) {
        case Value::Kind::Nil: text += "(null)"; return;
        case Value::Kind::Null: text += "<null>"; return;
        case Value::Kind::Boolean: text += value.boolean() ? '1' : '0'; return;
        case Value::Kind::Integer: appendNumber(value.integer(), text); return;
        case Value::Kind::Unsigned: appendNumber(value.unsignedInteger(), text); return;
        case Value::Kind::Real: appendNumber(value.real(), text); return;
        case Value::Kind::String: text += *value.asStringView(); return;
        case Value::Kind::Data: appendData(*value.asData(), text); return;
        case Value::Kind::Object: text += value.asObject()->description(); return;
        case Value::Kind::Array:
        case Value::Kind::Dictionary: break;
    }
    if (depth >= kJSONMaxDepth) {
        text += "…";
        return;
    }
    const char* separator = "";
    if (const auto* array = value.asArray()) {
        text += '[';
        for (const auto& element : *array) {
            text += separator;
            append(element, text, depth + 1);
            separator = ", ";
        }
        text += ']';
        return;
    }
    text += '{';
    for (const auto& [key, entry] : *value.asDictionary()) {
        text += separator;
        text += key;
        text += " = ";
        append(entry, text, depth + 1);
        separator = "; ";
    }
    text += '}';
}

}  // namespace

void describe(const Value& value, std::string& text) { append(value, text, 0); }

}  // namespace vexim::detail
