#include "VexIMLib/Foundation/Runtime/Property.h"

#include <locale.h>
#include <cwctype>
#include <utility>

#include "VexIMLib/internal/Foundation/Text/UTF8.h"

namespace vexim {

namespace {

std::vector<PropertyAttribute> splitAttributes(std::string_view attributes) {
    std::vector<PropertyAttribute> list;
    while (!attributes.empty()) {
        const auto comma = attributes.find(',');
        const auto piece = attributes.substr(0, comma);
        attributes.remove_prefix(comma == std::string_view::npos ? attributes.size() : comma + 1);
        if (!piece.empty())
            list.push_back({std::string(piece.substr(0, 1)), std::string(piece.substr(1))});
    }
    return list;
}

struct Character {
    char32_t codePoint;
    std::size_t size;  // in bytes
};

/// The first character of UTF-8 text. An invalid sequence counts as one byte without an upper case.
Character firstCharacter(std::string_view text) {
    const auto lead = static_cast<unsigned char>(text.front());
    const std::size_t size = detail::utf8SequenceLength(text);
    if (size <= 1) return {size == 1 ? lead : U'\0', 1};
    char32_t codePoint = lead & (0x7FU >> size);
    for (const char byte : text.substr(1, size - 1))
        codePoint = (codePoint << 6) | (static_cast<unsigned char>(byte) & 0x3FU);
    return {codePoint, size};
}

std::string encodeUTF8(char32_t c) {
    const auto tail = [c](int shift) { return static_cast<char>(0x80 | ((c >> shift) & 0x3F)); };
    if (c < 0x80) return {static_cast<char>(c)};
    if (c < 0x800) return {static_cast<char>(0xC0 | (c >> 6)), tail(0)};
    if (c < 0x10000) return {static_cast<char>(0xE0 | (c >> 12)), tail(6), tail(0)};
    return {static_cast<char>(0xF0 | (c >> 18)), tail(12), tail(6), tail(0)};
}

/// The text with its first character in upper case, by full case mapping: one letter may become
/// two.
std::string capitalised(std::string_view text) {
    static const locale_t unicode = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
    const auto [codePoint, size] = firstCharacter(text);
    const auto rest = text.substr(size);
    if (codePoint >= U'a' && codePoint <= U'z')
        return static_cast<char>(codePoint - 0x20) + std::string(rest);
    if (codePoint < 0x80 || !unicode) return std::string(text);
    // the only western letter that becomes two
    if (codePoint == U'\u00DF') return "SS" + std::string(rest);
    return encodeUTF8(static_cast<char32_t>(towupper_l(static_cast<wint_t>(codePoint), unicode))) +
           std::string(rest);
}

}  // namespace

Property::Property(std::string name, std::string attributes)
    : name_(std::move(name)),
      attributes_(std::move(attributes)),
      list_(splitAttributes(attributes_)) {}

std::optional<std::string> Property::attributeValue(std::string_view name) const {
    for (const PropertyAttribute& attribute : list_) {
        if (attribute.name == name) return attribute.value;
    }
    return std::nullopt;
}

std::string Property::defaultSetterName(std::string_view name) {
    return name.empty() ? "set:" : "set" + capitalised(name) + ":";
}

}  // namespace vexim
