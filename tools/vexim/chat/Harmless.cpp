// Makes text from others harmless. These are the sequences that terminals obey (ECMA-48):
//   CSI    := ESC '[' or U+009B, then parameters 30-3F, intermediates 20-2F, a final 40-7E
//   string := ESC one of ] P X ^ _ or U+009D, 90, 98, 9E, 9F, then anything up to BEL, ESC '\' or
//             U+009C
//   other  := ESC, intermediates 20-2F, a final 30-7E
// Example: "\e]0;title\amoney\e[31m" becomes "money".

#include <algorithm>
#include <cwctype>

#include "Text.h"

namespace chat {
namespace {

constexpr wchar_t kEscape = 0x1B;

bool isBetween(wchar_t character, wchar_t first, wchar_t last) {
    return character >= first && character <= last;
}

/// Characters that cannot be seen: they hide text or reverse its direction.
bool isInvisible(wchar_t c) {
    return c == 0xAD || c == 0x61C || isBetween(c, 0x115F, 0x1160) || c == 0x180E || c == 0x200B ||
           isBetween(c, 0x200E, 0x200F) || isBetween(c, 0x202A, 0x202E) ||
           isBetween(c, 0x2060, 0x206F) || c == 0x3164 || c == 0xFEFF || c == 0xFFA0 ||
           isBetween(c, 0xFFF9, 0xFFFB) || isBetween(c, 0xE0000, 0xE0FFF);
}

std::size_t skip(std::wstring_view text, std::size_t at, wchar_t first, wchar_t last) {
    while (at < text.size() && isBetween(text[at], first, last)) ++at;
    return at;
}

std::size_t afterCSI(std::wstring_view text, std::size_t at) {
    at = skip(text, skip(text, at, 0x30, 0x3F), 0x20, 0x2F);
    return at < text.size() && isBetween(text[at], 0x40, 0x7E) ? at + 1 : at;
}

/// If the string has no end, leave out only its introducer, so that the rest of the text stays.
std::size_t afterString(std::wstring_view text, std::size_t at) {
    for (std::size_t end = at; end < text.size(); ++end) {
        if (text[end] == 0x07 || text[end] == 0x9C) return end + 1;
        if (text[end] == kEscape && end + 1 < text.size() && text[end + 1] == L'\\') return end + 2;
    }
    return at;
}

/// The end of the escape sequence or control character at `at`; `at` itself if there is none.
std::size_t afterControl(std::wstring_view text, std::size_t at) {
    const auto begins = [](std::wstring_view introducers, wchar_t c) {
        return introducers.find(c) != std::wstring_view::npos;
    };
    const wchar_t c = text[at];
    if (c == kEscape) {
        if (at + 1 == text.size()) return at + 1;
        if (text[at + 1] == L'[') return afterCSI(text, at + 2);
        if (begins(L"]PX^_", text[at + 1])) return afterString(text, at + 2);
        const auto end = skip(text, at + 1, 0x20, 0x2F);
        return end < text.size() && isBetween(text[end], 0x30, 0x7E) ? end + 1 : end;
    }
    if (c == 0x9B) return afterCSI(text, at + 1);
    if (begins(L"\x9D\x90\x98\x9E\x9F", c)) return afterString(text, at + 1);
    return c < 0x20 || isBetween(c, 0x7F, 0x9F) || isInvisible(c) ? at + 1 : at;
}

}  // namespace

std::string harmless(std::string_view text) {
    const auto isPlain = [](unsigned char byte) {
        return (byte >= 0x20 && byte < 0x7F) || byte == '\n' || byte == '\t';
    };
    if (std::all_of(text.begin(), text.end(), isPlain)) return std::string(text);

    const std::wstring all = wide(text);
    std::wstring kept;
    for (std::size_t at = 0; at < all.size();) {
        const wchar_t c = all[at];
        const bool isBreak = c == L'\n' || c == 0x2028 || c == 0x2029 || c == 0x85;
        const auto end = isBreak || c == L'\t' ? at : afterControl(all, at);
        if (end == at) kept += isBreak ? L'\n' : c;
        at = std::max(end, at + 1);
    }
    return narrow(kept);
}

std::string harmlessLine(std::string_view text) {
    std::string line = harmless(text);
    if (line != text) line = "\uFFFD" + line;
    std::replace_if(
        line.begin(), line.end(), [](char c) { return c == '\n' || c == '\t'; }, ' ');
    return line;
}

}  // namespace chat
