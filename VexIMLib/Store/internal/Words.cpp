#include "VexIMLib/Store/internal/Words.h"

#include <algorithm>
#include <cstddef>

namespace vexim::store {
namespace {

struct CodePoint {
    char32_t value = 0;
    std::size_t length = 1;
};

/// The first character of a nonempty text. A byte that is not UTF-8 counts as a character.
CodePoint firstOf(std::string_view text) {
    const auto byte = [text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char lead = byte(0);
    const std::size_t length = lead >= 0xf0 ? 4 : lead >= 0xe0 ? 3 : lead >= 0xc0 ? 2 : 1;
    if (length == 1 || text.size() < length) return {lead, 1};
    char32_t value = lead & (0x7fU >> length);
    for (std::size_t i = 1; i < length; ++i) value = value << 6 | (byte(i) & 0x3fU);
    return {value, length};
}

bool isIdeograph(char32_t c) {
    return (c >= 0x3040 && c <= 0x30ff) || (c >= 0x3400 && c <= 0x4dbf) ||
           (c >= 0x4e00 && c <= 0x9fff) || (c >= 0xf900 && c <= 0xfaff) ||
           (c >= 0x20000 && c <= 0x3134f);
}

/// Whether the index finds a word in it: letters and digits, but not punctuation, symbols and
/// emoji. (A phrase without a word would match nothing and make the whole search fail.)
bool hasWord(std::string_view text) {
    while (!text.empty()) {
        const auto [c, length] = firstOf(text);
        const bool isASCIIWord =
            (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
        const bool isSymbol = c < 0xc0 || (c >= 0x2000 && c <= 0x2bff) ||
                              (c >= 0x3000 && c <= 0x303f) || (c >= 0xfe00 && c <= 0xfe6f) ||
                              (c >= 0xff00 && c <= 0xff0f) || (c >= 0x1f000 && c <= 0x1faff);
        if (isASCIIWord || !isSymbol) return true;
        text.remove_prefix(length);
    }
    return false;
}

void appendPhrase(std::string& expression, std::string_view phrase, bool isBeginning) {
    if (!hasWord(phrase)) return;
    if (!expression.empty()) expression += " AND ";
    expression += '"';
    // holds no quotation marks: they have divided the phrases
    expression += separateIdeographs(phrase);
    expression += isBeginning ? "\"*" : "\"";
}

bool isSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r') || c == '\0'; }

}  // namespace

std::string separateIdeographs(std::string_view text) {
    // Most texts do not change: the first such character is U+3040.
    const auto isOrdinary = [](char c) {
        return c != '\0' && static_cast<unsigned char>(c) < 0xe3;
    };
    if (std::ranges::all_of(text, isOrdinary)) return std::string(text);
    std::string answer;
    answer.reserve(text.size());
    while (!text.empty()) {
        const CodePoint first = firstOf(text);
        const bool stands = isIdeograph(first.value);
        if (stands) answer += ' ';
        if (text.front() == '\0') {
            answer += ' ';  // the index would treat it as the end of the text
        } else {
            answer += text.substr(0, first.length);
        }
        if (stands) answer += ' ';
        text.remove_prefix(first.length);
    }
    return answer;
}

std::string placeWord(std::int64_t conversation) { return "c" + std::to_string(conversation); }

std::string matchExpression(std::string_view text) {
    std::string expression;
    while (!text.empty()) {
        if (isSpace(text.front())) {
            text.remove_prefix(1);
            continue;
        }
        const bool isQuoted = text.front() == '"';
        if (isQuoted) text.remove_prefix(1);
        std::size_t end = 0;
        while (end < text.size() && text[end] != '"' && (isQuoted || !isSpace(text[end]))) ++end;
        std::string phrase(text.substr(0, end));
        text.remove_prefix(isQuoted && end < text.size() ? end + 1 : end);
        for (char& each : phrase) {
            if (each == '\0') each = ' ';
        }
        const bool isBeginning = !isQuoted && phrase.ends_with('*');
        if (isBeginning) phrase.pop_back();
        appendPhrase(expression, phrase, isBeginning);
    }
    return expression;
}

}  // namespace vexim::store
